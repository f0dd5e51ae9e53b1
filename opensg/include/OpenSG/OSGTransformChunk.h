#pragma once

#include "OSGStateChunk.h"

OSG_BEGIN_NAMESPACE

class TransformChunk;
typedef FCPtr<StateChunkPtr, TransformChunk> TransformChunkPtr;
typedef RefPtr<TransformChunkPtr> TransformChunkRefPtr;

/// A matrix ahead of the model matrix; identity at first.
class OSG_BASE_DLLMAPPING TransformChunk : public StateChunk {
    OSG_CONTAINER_DECL(TransformChunk, StateChunk, TransformChunkPtr)
  public:
    OSG_VALUE_FIELD(SFMatrix, Matrix, 4, )

  protected:
    TransformChunk() = default;
    TransformChunk(const TransformChunk&) = default;
};

OSG_END_NAMESPACE
