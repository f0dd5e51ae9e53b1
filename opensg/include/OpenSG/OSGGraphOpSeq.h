#pragma once

#include "OSGGraphOp.h"

#include <memory>
#include <vector>

OSG_BEGIN_NAMESPACE

/// Operations run one after another. Owns them.
class OSG_BASE_DLLMAPPING GraphOpSeq {
  public:
    GraphOpSeq();
    ~GraphOpSeq();

    void addGraphOp(GraphOp* operation);
    UInt32 getNumGraphOps() const { return static_cast<UInt32>(_operations.size()); }
    /// Runs all; false if one of them could not run.
    bool traverse(NodePtr& root);

  private:
    std::vector<std::unique_ptr<GraphOp>> _operations;
};

OSG_END_NAMESPACE
