#pragma once

// A chunk is one group of drawing state: colours, a texture, blending. Chunk materials are lists
// of chunks and share them. Chunks are attachments and no attachment containers: they have no
// names.

#include "OSGGL.h"
#include "OSGMaterial.h"

OSG_BEGIN_NAMESPACE

class StateChunk;
typedef FCPtr<AttachmentPtr, StateChunk> StateChunkPtr;
typedef RefPtr<StateChunkPtr> StateChunkRefPtr;
typedef MField<StateChunkPtr> MFStateChunkPtr;

class OSG_BASE_DLLMAPPING StateChunk : public Attachment {
    OSG_CONTAINER_DECL_ABSTRACT(StateChunk, Attachment, StateChunkPtr)
  public:
    /// Whether the chunk makes its material transparent.
    virtual bool isTransparent() const { return false; }

    OSG_VALUE_FIELD(SFBool, Ignore, 3, false)

  protected:
    StateChunk() = default;
    StateChunk(const StateChunk&) = default;
};

OSG_END_NAMESPACE
