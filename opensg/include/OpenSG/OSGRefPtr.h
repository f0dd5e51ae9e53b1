#pragma once

#include "OSGFieldContainerPtr.h"

OSG_BEGIN_NAMESPACE

/// Holds one reference on a container for as long as it lives. Taking a plain pointer in is
/// explicit, giving one out is not.
template <class Ref> class RefPtr {
  public:
    typedef Ref RefType;

    RefPtr() = default;
    explicit RefPtr(const Ref& target) : _target(target) { addRefCP(_target); }
    RefPtr(const NullFieldContainerPtr&) {}
    RefPtr(const RefPtr& other) : _target(other._target) { addRefCP(_target); }
    virtual ~RefPtr() { subRefCP(_target); }

    RefPtr& operator=(const Ref& target) {
        const Ref kept = target; // the argument may be the held pointer itself
        addRefCP(kept);
        subRefCP(_target);
        _target = kept;
        return *this;
    }
    RefPtr& operator=(const RefPtr& other) { return *this = other._target; }
    RefPtr& operator=(const NullFieldContainerPtr&) {
        subRefCP(_target);
        _target = NullFC;
        return *this;
    }

    operator Ref() const { return _target; }
    Ref get() const { return _target; }
    auto operator->() const { return _target.operator->(); }
    auto getCPtr() const { return _target.getCPtr(); }

    bool operator!() const { return !_target; }
    explicit operator bool() const { return static_cast<bool>(_target); }
    bool operator==(const NullFieldContainerPtr& null) const { return _target == null; }
    bool operator!=(const NullFieldContainerPtr& null) const { return _target != null; }
    bool operator==(const FieldContainerPtrBase& other) const { return _target == other; }
    bool operator!=(const FieldContainerPtrBase& other) const { return _target != other; }
    bool operator==(const RefPtr& other) const { return _target == other._target; }
    bool operator!=(const RefPtr& other) const { return _target != other._target; }
    bool operator<(const RefPtr& other) const { return _target < other._target; }

  private:
    Ref _target;
};

typedef RefPtr<FieldContainerPtr> FieldContainerRefPtr;

OSG_END_NAMESPACE
