#pragma once

#include "OSGTextureChunk.h"

OSG_BEGIN_NAMESPACE

class CubeTextureChunk;
typedef FCPtr<TextureChunkPtr, CubeTextureChunk> CubeTextureChunkPtr;
typedef RefPtr<CubeTextureChunkPtr> CubeTextureChunkRefPtr;

/// A texture of six sides. The image of the base class is the side of -z.
class OSG_BASE_DLLMAPPING CubeTextureChunk : public TextureChunk {
    OSG_CONTAINER_DECL(CubeTextureChunk, TextureChunk, CubeTextureChunkPtr)
  public:
    OSG_FIELD(PosZImage, 40)
    OSG_FIELD(PosXImage, 41)
    OSG_FIELD(NegXImage, 42)
    OSG_FIELD(PosYImage, 43)
    OSG_FIELD(NegYImage, 44)

    const ImagePtr& getPosZImage() const { return _sfPosZImage.getValue(); }
    const ImagePtr& getPosXImage() const { return _sfPosXImage.getValue(); }
    const ImagePtr& getNegXImage() const { return _sfNegXImage.getValue(); }
    const ImagePtr& getPosYImage() const { return _sfPosYImage.getValue(); }
    const ImagePtr& getNegYImage() const { return _sfNegYImage.getValue(); }
    // Of a named variable: neither a temporary nor a constant.
    void setPosZImage(ImagePtr& image) { _sfPosZImage.set(image); }
    void setPosXImage(ImagePtr& image) { _sfPosXImage.set(image); }
    void setNegXImage(ImagePtr& image) { _sfNegXImage.set(image); }
    void setPosYImage(ImagePtr& image) { _sfPosYImage.set(image); }
    void setNegYImage(ImagePtr& image) { _sfNegYImage.set(image); }

    OSG_VALUE_FIELD(SFBool, IsReflectionMap, 45, true)

  private:
    OwnedSField<ImagePtr> _sfPosZImage;
    OwnedSField<ImagePtr> _sfPosXImage;
    OwnedSField<ImagePtr> _sfNegXImage;
    OwnedSField<ImagePtr> _sfPosYImage;
    OwnedSField<ImagePtr> _sfNegYImage;

  protected:
    CubeTextureChunk() = default;
    CubeTextureChunk(const CubeTextureChunk&) = default;
};

OSG_END_NAMESPACE
