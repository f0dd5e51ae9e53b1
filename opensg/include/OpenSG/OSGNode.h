#pragma once

// A scene is a tree of nodes; what a node does is told by its core. A node references its
// children and its core; it knows its parent without referencing it.

#include "OSGBaseFunctions.h"
#include "OSGDynamicVolume.h"
#include "OSGMatrix.h"
#include "OSGNodeCore.h"

OSG_BEGIN_NAMESPACE

class OSG_BASE_DLLMAPPING Node : public AttachmentContainer {
    OSG_CONTAINER_DECL(Node, AttachmentContainer, NodePtr)
  public:
    OSG_FIELD(Volume, 2)
    OSG_FIELD(TravMask, 3)
    OSG_FIELD(Parent, 4)
    OSG_FIELD(Children, 5)
    OSG_FIELD(Core, 6)

    NodeCorePtr getCore() const { return _sfCore.getValue(); }
    /// References the new core before it drops the old one. Null is legal.
    void setCore(const NodeCorePtr& core);

    NodePtr getParent() const { return _sfParent.getValue(); }
    UInt32 getNChildren() const { return _mfChildren.getSize(); }
    /// Null behind the last child.
    NodePtr getChild(UInt32 index) const {
        return index < _mfChildren.size() ? _mfChildren[index] : NodePtr();
    }

    /// Takes the child off its old parent, which may be this node, and appends it. Null is
    /// ignored, and so is a child that is this node or stands above it.
    void addChild(const NodePtr& child);
    /// Before the child that has this index once the new one is off its old parent; behind the
    /// last one if there is none.
    void insertChild(UInt32 index, const NodePtr& child);
    void replaceChild(UInt32 index, const NodePtr& child);
    bool replaceChildBy(const NodePtr& oldChild, const NodePtr& newChild);
    /// Index, or -1.
    Int32 findChild(const NodePtr& child) const;
    /// Drops the reference, which may destroy the child and then makes the passed variable null.
    void subChild(const NodePtr& child);
    void subChild(UInt32 index);

    UInt32 getTravMask() const { return _sfTravMask.getValue(); }
    void setTravMask(UInt32 mask) { _sfTravMask.setValue(mask); }
    bool getActive() const { return getTravMask() != 0; }
    void setActive(bool active) { setTravMask(active ? 0xFFFFFFFFu : 0u); }

    /// Product of the matrices of all ancestors' cores and the node's own core.
    Matrix getToWorld() const;
    void getToWorld(Matrix& result) const;

    /// In the parent's space, as it stands.
    const DynamicVolume& getVolume() const { return _sfVolume.getValue(); }
    DynamicVolume& editVolume(bool update);
    DynamicVolume& getVolume(bool update) { return editVolume(update); }
    void getWorldVolume(DynamicVolume& result);
    void updateVolume();
    /// Up to the root, or to the first volume that is invalid already.
    void invalidateVolume();

    const MFNodePtr* getMFChildren() const { return &_mfChildren; }
    MFNodePtr* editMFChildren() { return &_mfChildren; }
    const SField<NodePtr>* getSFParent() const { return &_sfParent; }
    const SField<NodeCorePtr>* getSFCore() const { return &_sfCore; }
    const SFUInt32* getSFTravMask() const { return &_sfTravMask; }
    const SFDynamicVolume* getSFVolume() const { return &_sfVolume; }

    void changed(BitVector which, UInt32 origin) override;

  protected:
    Node();
    /// A copy has the core and the mask; no children and no parent.
    Node(const Node& other);
    ~Node() override;

  private:
    void adopt(const NodePtr& child);
    void release(UInt32 index);
    bool isSelfOrAncestor(const NodePtr& node) const;

    SFDynamicVolume _sfVolume;
    SFUInt32 _sfTravMask{0xFFFFFFFFu};
    SField<NodePtr> _sfParent;
    OwnedMField<NodePtr> _mfChildren;
    OwnedSField<NodeCorePtr> _sfCore;
};

/// A node as functors receive it: -> goes to its core, NodePtr(p) is the node's own pointer.
class OSG_BASE_DLLMAPPING CNodePtr {
  public:
    CNodePtr() = default;
    CNodePtr(const NullFieldContainerPtr&) {}
    explicit CNodePtr(const NodePtr& node) : _node(node) {}

    Node* getNode() const { return _node.getCPtr(); }
    NodeCore* operator->() const { return _node->getCore().getCPtr(); }
    bool operator==(const NullFieldContainerPtr& null) const { return _node == null; }
    bool operator!=(const NullFieldContainerPtr& null) const { return _node != null; }
    explicit operator bool() const { return static_cast<bool>(_node); }
    bool operator!() const { return !_node; }
    explicit operator NodePtr() const { return _node; }

  private:
    NodePtr _node;
};

/// A new node with this core.
OSG_BASE_DLLMAPPING NodePtr makeNodeFor(const NodeCorePtr& core);

/// A new node with a new core of the given class; `core` receives it if not null.
template <class Core> NodePtr makeCoredNode(typename Core::Ptr* core = nullptr) {
    const typename Core::Ptr made = Core::create();
    if (core != nullptr)
        *core = made;
    return makeNodeFor(made);
}

OSG_END_NAMESPACE
