#pragma once

#include "OSGGraphOp.h"

OSG_BEGIN_NAMESPACE

/// Gives all users of equal materials one and the same of them.
///
/// Users are the geometry cores and material groups at and below the root, whatever the traversal
/// masks. Equal materials have the same type and, field by field, the same values, bit by bit;
/// chunks, images and inner materials are compared by content, in order. Attachments, names and
/// bookkeeping do not count, all bytes of the pixels do. The first one met in the walk, node
/// before children, stays and every user of the others gets it through setMaterial. Materials
/// inside others are not merged by themselves.
///
/// Cost: near linear in the number of materials and the size of their content: materials are put
/// in buckets by a hash of their content, and compared in full within a bucket.
class OSG_BASE_DLLMAPPING MaterialMergeGraphOp : public GraphOp {
  public:
    explicit MaterialMergeGraphOp(const char* name = "MaterialMerge");
    ~MaterialMergeGraphOp() override;

    /// False for a null root only.
    bool traverse(NodePtr& root) override;
    GraphOp* create() override;
    void setParams(const std::string params) override;
    std::string usage() override;
};

OSG_END_NAMESPACE
