#pragma once

#include "OSGStateChunk.h"

OSG_BEGIN_NAMESPACE

class BlendChunk;
typedef FCPtr<StateChunkPtr, BlendChunk> BlendChunkPtr;
typedef RefPtr<BlendChunkPtr> BlendChunkRefPtr;

/// How fragments mix with what is drawn already, and the alpha test.
class OSG_BASE_DLLMAPPING BlendChunk : public StateChunk {
    OSG_CONTAINER_DECL(BlendChunk, StateChunk, BlendChunkPtr)
  public:
    /// Of an alpha factor: the factor of the colours holds.
    static constexpr GLenum UnusedFactor = 0xFFFF;

    /// Whether something of what lies behind is kept.
    bool isTransparent() const override { return getDestFactor() != GL_ZERO; }

    OSG_VALUE_FIELD(SFGLenum, SrcFactor, 4, GL_ONE)
    OSG_VALUE_FIELD(SFGLenum, DestFactor, 5, GL_ZERO)
    OSG_VALUE_FIELD(SFGLenum, Equation, 6, GL_NONE)
    OSG_VALUE_FIELD(SFColor4f, Color, 7, Color4f(0.f, 0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFGLenum, AlphaFunc, 8, GL_NONE)
    OSG_VALUE_FIELD(SFReal32, AlphaValue, 9, 0.f)
    OSG_VALUE_FIELD(SFGLenum, AlphaSrcFactor, 10, UnusedFactor)
    OSG_VALUE_FIELD(SFGLenum, AlphaDestFactor, 11, UnusedFactor)

  protected:
    BlendChunk() = default;
    BlendChunk(const BlendChunk&) = default;
};

OSG_END_NAMESPACE
