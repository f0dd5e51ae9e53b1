#pragma once

#include "OSGStateChunk.h"

OSG_BEGIN_NAMESPACE

class MaterialChunk;
typedef FCPtr<StateChunkPtr, MaterialChunk> MaterialChunkPtr;
typedef RefPtr<MaterialChunkPtr> MaterialChunkRefPtr;

/// The colours of a lit surface; those of its back side count only with BackMaterial.
class OSG_BASE_DLLMAPPING MaterialChunk : public StateChunk {
    OSG_CONTAINER_DECL(MaterialChunk, StateChunk, MaterialChunkPtr)
  public:
    /// A diffuse alpha below 1.
    bool isTransparent() const override;

    OSG_VALUE_FIELD(SFColor4f, Diffuse, 4, Color4f(1.f, 1.f, 1.f, 1.f))
    OSG_VALUE_FIELD(SFColor4f, Ambient, 5, Color4f(.2f, .2f, .2f, 1.f))
    OSG_VALUE_FIELD(SFColor4f, Specular, 6, Color4f(.5f, .5f, .5f, 1.f))
    OSG_VALUE_FIELD(SFColor4f, Emission, 7, Color4f(0.f, 0.f, 0.f, 1.f))
    OSG_VALUE_FIELD(SFReal32, Shininess, 8, 10.f)
    OSG_VALUE_FIELD(SFBool, Lit, 9, true)
    OSG_VALUE_FIELD(SFGLenum, ColorMaterial, 10, GL_DIFFUSE)
    OSG_VALUE_FIELD(SFBool, BackMaterial, 11, false)
    OSG_VALUE_FIELD(SFColor4f, BackDiffuse, 12, Color4f(1.f, 1.f, 1.f, 0.f))
    OSG_VALUE_FIELD(SFColor4f, BackAmbient, 13, Color4f(.2f, .2f, .2f, 0.f))
    OSG_VALUE_FIELD(SFColor4f, BackSpecular, 14, Color4f(.5f, .5f, .5f, 0.f))
    OSG_VALUE_FIELD(SFColor4f, BackEmission, 15, Color4f(0.f, 0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFReal32, BackShininess, 16, 10.f)
    OSG_VALUE_FIELD(SFGLenum, BackColorMaterial, 17, GL_DIFFUSE)

  protected:
    MaterialChunk() = default;
    MaterialChunk(const MaterialChunk&) = default;
};

OSG_END_NAMESPACE
