#pragma once

#include "OSGChunkMaterial.h"

OSG_BEGIN_NAMESPACE

class SimpleMaterial;
typedef FCPtr<ChunkMaterialPtr, SimpleMaterial> SimpleMaterialPtr;
typedef RefPtr<SimpleMaterialPtr> SimpleMaterialRefPtr;

/// Colours as plain fields. The chunk list holds only what a user adds.
class OSG_BASE_DLLMAPPING SimpleMaterial : public ChunkMaterial {
    OSG_CONTAINER_DECL(SimpleMaterial, ChunkMaterial, SimpleMaterialPtr)
  public:
    bool isTransparent() const override;

    OSG_VALUE_FIELD(SFColor3f, Ambient, 6, Color3f(0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFColor3f, Diffuse, 7, Color3f(0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFColor3f, Specular, 8, Color3f(0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFReal32, Shininess, 9, 1.f)
    OSG_VALUE_FIELD(SFColor3f, Emission, 10, Color3f(0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFReal32, Transparency, 11, 0.f)
    OSG_VALUE_FIELD(SFBool, Lit, 12, true)
    OSG_VALUE_FIELD(SFGLenum, ColorMaterial, 13, GL_DIFFUSE)

  protected:
    SimpleMaterial() = default;
    SimpleMaterial(const SimpleMaterial&) = default;
};

OSG_END_NAMESPACE
