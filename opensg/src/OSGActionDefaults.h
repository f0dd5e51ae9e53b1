#pragma once

#include "OpenSG/OSGAction.h"

#include <mutex>

OSG_BEGIN_NAMESPACE

/// The functions that the actions of one class begin with.
class action_defaults {
  public:
    typedef std::unordered_map<UInt32, Action::Functor> Functions;

    void setEnter(const FieldContainerType& type, const Action::Functor& function) {
        const std::lock_guard<std::mutex> guard(_mutex);
        _enter[type.getId()] = function;
    }
    void setLeave(const FieldContainerType& type, const Action::Functor& function) {
        const std::lock_guard<std::mutex> guard(_mutex);
        _leave[type.getId()] = function;
    }
    Functions enterCopy() {
        const std::lock_guard<std::mutex> guard(_mutex);
        return _enter;
    }
    Functions leaveCopy() {
        const std::lock_guard<std::mutex> guard(_mutex);
        return _leave;
    }

  private:
    std::mutex _mutex;
    Functions _enter;
    Functions _leave;
};

OSG_END_NAMESPACE
