#pragma once

#include "OSGFieldContainerType.h"

#include <map>
#include <mutex>
#include <string>
#include <unordered_map>

OSG_BEGIN_NAMESPACE

/// Knows every container type by name and every living container by number. Safe to use from
/// any thread; it lives until the process ends.
class OSG_BASE_DLLMAPPING FieldContainerFactory {
  public:
    typedef std::map<UInt32, FieldContainerType*>::iterator TypeMapIt;

    static FieldContainerFactory* the();

    FieldContainerType* findType(UInt32 typeId) const;
    FieldContainerType* findType(const Char8* name, UInt32 nameSpace = 0) const;
    UInt16 findGroupId(const Char8* name) const;
    const Char8* findGroupName(UInt16 groupId) const;
    UInt32 getNumTypes() const;
    void initializePendingTypes() {}

    /// Null for an unknown or abstract type, or one of another kind.
    FieldContainerPtr createFieldContainer(const Char8* name) const;
    FieldContainerPtr createNode(const Char8* name) const;
    FieldContainerPtr createNodeCore(const Char8* name) const;
    FieldContainerPtr createAttachment(const Char8* name) const;

    /// The living container of this number, or null.
    FieldContainerPtr getContainer(UInt32 containerId) const;

    // For the layer itself.
    void enterType(FieldContainerType& type);
    UInt16 enterGroup(const Char8* name);
    /// Numbers the block at `store` and knows it from now on.
    FieldContainerPtr enterContainer(UInt8* store, UInt16 bytes);
    void leaveContainer(UInt32 containerId);

  private:
    FieldContainerFactory() = default;

    mutable std::mutex _mutex;
    std::map<UInt32, FieldContainerType*> _types;
    std::map<std::string, FieldContainerType*> _typesByName;
    std::map<std::string, UInt16> _groups;
    std::unordered_map<UInt32, FieldContainerPtr> _containers;
    UInt32 _lastContainerId = 0;
};

OSG_END_NAMESPACE
