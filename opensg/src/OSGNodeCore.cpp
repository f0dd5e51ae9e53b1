#include "OpenSG/OSGNodeCore.h"

#include "OSGSearch.h"
#include "OpenSG/OSGNode.h"

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF_ABSTRACT(NodeCore, nullptr,
                           OSG_FIELD_DESC(NodeCore, _mfParents, "parents", Parents, true))

void NodeCore::adjustVolume(Volume&) {}
void NodeCore::accumulateMatrix(Matrix&) {}

void NodeCore::invalidateVolume() {
    for (const NodePtr& node : _mfParents)
        node->invalidateVolume();
}

void NodeCore::addParent(const NodePtr& parent) { _mfParents.push_back(parent); }

void NodeCore::subParent(const NodePtr& parent) {
    osgEraseFromBothEnds(_mfParents, [&](const NodePtr& entry) { return entry == parent; });
}

OSG_END_NAMESPACE
