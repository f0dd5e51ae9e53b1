#pragma once

#include "OSGAttachmentContainer.h"

OSG_BEGIN_NAMESPACE

class Node;
class NodeCore;
class Volume;
typedef FCPtr<AttachmentContainerPtr, Node> NodePtr;
typedef FCPtr<AttachmentContainerPtr, NodeCore> NodeCorePtr;
typedef RefPtr<NodePtr> NodeRefPtr;
typedef RefPtr<NodeCorePtr> NodeCoreRefPtr;
typedef MField<NodePtr> MFNodePtr;

/// What a node is: a group, a transform, a geometry. Several nodes may share one core.
class OSG_BASE_DLLMAPPING NodeCore : public AttachmentContainer {
    OSG_CONTAINER_DECL_BASE(NodeCore, AttachmentContainer)
  public:
    OSG_FIELD(Parents, 2)

    /// The nodes with this core; no references.
    const MFNodePtr& getParents() const { return _mfParents; }
    const MFNodePtr* getMFParents() const { return &_mfParents; }

    /// Has its say on the node's volume after the children have had theirs.
    virtual void adjustVolume(Volume& volume);
    virtual void invalidateVolume();
    /// Multiplies the core's own transformation onto `matrix`.
    virtual void accumulateMatrix(Matrix& matrix);

  protected:
    NodeCore() = default;
    /// A copy starts without parents.
    NodeCore(const NodeCore& other) : AttachmentContainer(other) {}

  private:
    friend class Node;
    void addParent(const NodePtr& parent);
    void subParent(const NodePtr& parent);

    MFNodePtr _mfParents;
};

OSG_END_NAMESPACE

#include "OSGNode.h"
