#include "OpenSG/OSGNode.h"

#include "OSGSearch.h"
#include "OpenSG/OSGChangeList.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGThread.h"

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF(Node, nullptr, OSG_FIELD_DESC(Node, _sfVolume, "volume", Volume, true),
                  OSG_FIELD_DESC(Node, _sfTravMask, "travMask", TravMask, false),
                  OSG_FIELD_DESC(Node, _sfParent, "parent", Parent, true),
                  OSG_FIELD_DESC(Node, _mfChildren, "children", Children, false),
                  OSG_FIELD_DESC(Node, _sfCore, "core", Core, false))

namespace {

void makeInvalid(DynamicVolume& volume) {
    volume.getInstance().setValid(false);
    volume.instanceChanged();
}

} // namespace

Node::Node() {
    makeInvalid(_sfVolume.getValue());
    if (getAspectIndex() == 0) // a new node's volume counts as changed, once for all aspects
        Thread::getCurrentChangeList()->addChanged(getUntypedPtr(), VolumeFieldMask);
}

Node::Node(const Node& other)
    : AttachmentContainer(other), _sfTravMask(other._sfTravMask), _sfCore(other._sfCore) {
    makeInvalid(_sfVolume.getValue());
    const NodeCorePtr core = _sfCore.getValue();
    if (core == NullFC)
        return;
    reinterpret_cast<NodeCore*>(core.getAspectCPtr(getAspectIndex()))
        ->addParent(NodePtr::ofKnownClass(getUntypedPtr()));
}

Node::~Node() {
    // Each aspect's copy cleans up in its own aspect, whichever thread destroys the container.
    for (const NodePtr& child : _mfChildren) {
        reinterpret_cast<Node*>(child.getAspectCPtr(getAspectIndex()))
            ->_sfParent.setValue(NodePtr());
    }
    const NodeCorePtr core = _sfCore.getValue();
    if (core == NullFC)
        return;
    reinterpret_cast<NodeCore*>(core.getAspectCPtr(getAspectIndex()))
        ->subParent(NodePtr::ofKnownClass(getUntypedPtr()));
}

void Node::setCore(const NodeCorePtr& core) {
    const NodeCorePtr kept = core; // the argument may be this node's own core
    const NodePtr self = getPtr();
    if (kept != NullFC)
        kept->addParent(self);
    if (_sfCore.getValue() != NullFC)
        _sfCore.getValue()->subParent(self);
    _sfCore.set(kept);
    invalidateVolume();
}

bool Node::isSelfOrAncestor(const NodePtr& node) const {
    const NodePtr self = getPtr();
    if (node == self || node->getNChildren() == 0)
        return node == self;
    NodePtr walked = self;
    while (walked != NullFC && walked != node)
        walked = walked->getParent();
    return walked != NullFC;
}

// The caller holds a reference of the child's new place already.
void Node::adopt(const NodePtr& child) {
    assert(child.getRefCount() > 0);
    const NodePtr old = child->getParent();
    if (old != NullFC)
        old->subChild(child);
    child->_sfParent.setValue(getPtr());
}

void Node::addChild(const NodePtr& added) { insertChild(getNChildren(), added); }

void Node::insertChild(UInt32 index, const NodePtr& added) {
    const NodePtr child = added; // the argument may be an entry of a list that changes here
    if (child == NullFC)
        return;
    if (isSelfOrAncestor(child)) {
        SWARNING << "Node::addChild: a node can't come below itself" << endLog;
        return;
    }
    if (getNChildren() == _mfChildren.capacity()) // first: without memory the child stays
        _mfChildren.reserve(std::max<std::size_t>(1, 2 * _mfChildren.capacity()));
    addRefCP(child);
    adopt(child);
    index = std::min(index, getNChildren());
    _mfChildren.insert(_mfChildren.begin() + index, child);
    invalidateVolume();
}

void Node::replaceChild(UInt32 index, const NodePtr& added) {
    if (index >= getNChildren() || added == NullFC || added == _mfChildren[index])
        return;
    const NodePtr replaced = _mfChildren[index];
    const NodePtr child = added;
    if (isSelfOrAncestor(child)) {
        SWARNING << "Node::replaceChild: a node can't come below itself" << endLog;
        return;
    }
    addRefCP(child);
    adopt(child);
    // Taking the new child off this very node may have moved the old one.
    const Int32 place = findChild(replaced);
    assert(place >= 0);
    _mfChildren.insert(_mfChildren.begin() + place, child);
    release(static_cast<UInt32>(place) + 1);
    invalidateVolume();
}

bool Node::replaceChildBy(const NodePtr& oldChild, const NodePtr& newChild) {
    const Int32 index = findChild(oldChild);
    if (newChild == NullFC || index < 0)
        return false;
    const NodePtr added = newChild;
    replaceChild(static_cast<UInt32>(index), added);
    return added->getParent() == getPtr(); // not if it stands above this node
}

Int32 Node::findChild(const NodePtr& child) const {
    const std::size_t place = osgFindFromBothEnds(
        _mfChildren.size(), [&](std::size_t i) { return _mfChildren[i] == child; });
    return place < _mfChildren.size() ? static_cast<Int32>(place) : -1;
}

void Node::release(UInt32 index) {
    _mfChildren[index]->_sfParent.setValue(NodePtr());
    _mfChildren.removeAt(index);
}

void Node::subChild(const NodePtr& child) {
    const Int32 index = findChild(child);
    if (index < 0) {
        SWARNING << "Node::subChild: not a child of this node" << endLog;
        return;
    }
    child->_sfParent.setValue(NodePtr());
    // In this order: the argument may be the very entry that goes.
    subRefCP(child);
    _mfChildren.erase(_mfChildren.begin() + index);
    invalidateVolume();
}

void Node::subChild(UInt32 index) {
    if (index >= getNChildren()) {
        SWARNING << "Node::subChild: no child " << index << endLog;
        return;
    }
    release(index);
    invalidateVolume();
}

Matrix Node::getToWorld() const {
    Matrix matrix;
    getToWorld(matrix);
    return matrix;
}

void Node::getToWorld(Matrix& result) const {
    if (getParent() != NullFC)
        getParent()->getToWorld(result);
    else
        result.setIdentity();
    if (getCore() != NullFC)
        getCore()->accumulateMatrix(result);
}

DynamicVolume& Node::editVolume(bool update) {
    if (update)
        updateVolume();
    return _sfVolume.getValue();
}

void Node::getWorldVolume(DynamicVolume& result) {
    updateVolume();
    result = getVolume();
    if (getParent() != NullFC)
        result.transform(getParent()->getToWorld());
}

void Node::updateVolume() {
    if (getVolume().isValid() || getTravMask() == 0)
        return;
    DynamicVolume volume = getVolume();
    volume.getInstance().setEmpty(true);
    volume.instanceChanged();
    for (const NodePtr& child : _mfChildren) {
        if (child->getTravMask() == 0)
            continue;
        child->updateVolume();
        DynamicVolume part = child->getVolume();
        part.getInstance().setStatic(false); // the child's may stand still, this one not
        part.instanceChanged();
        volume.extendBy(part);
    }
    if (getCore() != NullFC)
        getCore()->adjustVolume(volume);
    volume.getInstance().setValid(true);
    volume.instanceChanged();
    _sfVolume.setValue(volume);
}

void Node::invalidateVolume() {
    DynamicVolume& volume = _sfVolume.getValue();
    if (!volume.isValid() || volume.isStatic())
        return;
    makeInvalid(volume);
    endEditNotChangedCP(getPtr(), VolumeFieldMask);
    if (getParent() != NullFC)
        getParent()->invalidateVolume();
}

void Node::changed(BitVector which, UInt32 origin) {
    if ((which & (CoreFieldMask | ChildrenFieldMask)) != 0)
        invalidateVolume();
    AttachmentContainer::changed(which, origin);
}

NodePtr makeNodeFor(const NodeCorePtr& core) {
    const NodePtr node = Node::create();
    node->setCore(core);
    return node;
}

OSG_END_NAMESPACE
