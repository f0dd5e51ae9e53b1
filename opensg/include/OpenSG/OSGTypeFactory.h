#pragma once

#include "OSGTypeBase.h"

#include <map>
#include <mutex>
#include <string>

OSG_BEGIN_NAMESPACE

/// Registry of all types. Numbers are given from 1 in order of registration and never reused.
class OSG_BASE_DLLMAPPING TypeFactory {
  public:
    static TypeFactory* the();

    /// Number of the type `name` of the given kind ("data", "field", "container"); a known name
    /// keeps its number. Kinds have name spaces of their own.
    UInt32 registerType(const Char8* kind, const Char8* name);

  private:
    TypeFactory() = default;
    std::mutex _mutex;
    std::map<std::string, UInt32> _ids;
};

OSG_END_NAMESPACE
