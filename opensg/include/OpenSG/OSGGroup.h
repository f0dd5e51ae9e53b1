#pragma once

#include "OSGNode.h"

OSG_BEGIN_NAMESPACE

class Group;
typedef FCPtr<NodeCorePtr, Group> GroupPtr;
typedef RefPtr<GroupPtr> GroupRefPtr;

/// Core of a node that only holds others; base of all cores that do so with a twist.
class OSG_BASE_DLLMAPPING Group : public NodeCore {
    OSG_CONTAINER_DECL(Group, NodeCore, GroupPtr)
  protected:
    Group() = default;
    Group(const Group&) = default;
};
typedef Group GroupBase;

OSG_END_NAMESPACE
