#pragma once

#include "OSGImage.h"
#include "OSGStateChunk.h"

OSG_BEGIN_NAMESPACE

class TextureChunk;
typedef FCPtr<StateChunkPtr, TextureChunk> TextureChunkPtr;
typedef RefPtr<TextureChunkPtr> TextureChunkRefPtr;

/// One texture: a counted image, its filters, its wrapping and how it mixes with the colour.
class OSG_BASE_DLLMAPPING TextureChunk : public StateChunk {
    OSG_CONTAINER_DECL(TextureChunk, StateChunk, TextureChunkPtr)
  public:
    OSG_FIELD(Image, 4)

    const ImagePtr& getImage() const { return _sfImage.getValue(); }
    void setImage(const ImagePtr& image) { _sfImage.set(image); }
    const SFImagePtr* getSFImage() const { return &_sfImage; }

    /// For viewers, after pixels changed in place; here the change is noted and nothing more.
    void imageContentChanged(Int32 minX = -1, Int32 maxX = -1, Int32 minY = -1, Int32 maxY = -1,
                             Int32 minZ = -1, Int32 maxZ = -1);

    OSG_VALUE_FIELD(SFGLenum, InternalFormat, 5, GL_NONE)
    OSG_VALUE_FIELD(SFGLenum, ExternalFormat, 6, GL_NONE)
    OSG_VALUE_FIELD(SFBool, Scale, 7, true)
    OSG_VALUE_FIELD(SFUInt32, Frame, 8, 0u)
    OSG_VALUE_FIELD(SFGLenum, MinFilter, 9, GL_LINEAR_MIPMAP_LINEAR)
    OSG_VALUE_FIELD(SFGLenum, MagFilter, 10, GL_LINEAR)
    OSG_VALUE_FIELD(SFGLenum, WrapS, 11, GL_REPEAT)
    OSG_VALUE_FIELD(SFGLenum, WrapT, 12, GL_REPEAT)
    OSG_VALUE_FIELD(SFGLenum, WrapR, 13, GL_REPEAT)
    OSG_VALUE_FIELD(SFGLenum, EnvMode, 14, GL_REPLACE)
    OSG_VALUE_FIELD(SFColor4f, EnvColor, 15, Color4f(0.f, 0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFGLenum, EnvCombineRGB, 16, GL_MODULATE)
    OSG_VALUE_FIELD(SFGLenum, EnvCombineAlpha, 17, GL_MODULATE)
    OSG_VALUE_FIELD(SFReal32, EnvScaleRGB, 18, 1.f)
    OSG_VALUE_FIELD(SFReal32, EnvScaleAlpha, 19, 1.f)
    OSG_VALUE_FIELD(SFGLenum, EnvSource0RGB, 20, GL_TEXTURE)
    OSG_VALUE_FIELD(SFGLenum, EnvSource1RGB, 21, GL_PREVIOUS_EXT)
    OSG_VALUE_FIELD(SFGLenum, EnvSource2RGB, 22, GL_CONSTANT_EXT)
    OSG_VALUE_FIELD(SFGLenum, EnvSource0Alpha, 23, GL_TEXTURE)
    OSG_VALUE_FIELD(SFGLenum, EnvSource1Alpha, 24, GL_PREVIOUS_EXT)
    OSG_VALUE_FIELD(SFGLenum, EnvSource2Alpha, 25, GL_CONSTANT_EXT)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand0RGB, 26, GL_SRC_COLOR)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand1RGB, 27, GL_SRC_COLOR)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand2RGB, 28, GL_SRC_ALPHA)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand0Alpha, 29, GL_SRC_ALPHA)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand1Alpha, 30, GL_SRC_ALPHA)
    OSG_VALUE_FIELD(SFGLenum, EnvOperand2Alpha, 31, GL_SRC_ALPHA)
    OSG_VALUE_FIELD(SFBool, PointSprite, 32, false)
    OSG_VALUE_FIELD(SFReal32, Priority, 33, 1.f)
    OSG_VALUE_FIELD(SFReal32, LodBias, 34, 0.f)
    OSG_VALUE_FIELD(SFGLenum, Target, 35, GL_NONE)
    OSG_VALUE_FIELD(SFReal32, Anisotropy, 36, 1.f)
    OSG_VALUE_FIELD(SFColor4f, BorderColor, 37, Color4f(0.f, 0.f, 0.f, 0.f))
    OSG_VALUE_FIELD(SFUInt32, BorderWidth, 38, 0u)
    OSG_VALUE_FIELD(SFUInt32, NPOTMatrixScale, 39, 0u)

  private:
    OwnedSField<ImagePtr> _sfImage;

  protected:
    TextureChunk() = default;
    TextureChunk(const TextureChunk&) = default;
};

OSG_END_NAMESPACE
