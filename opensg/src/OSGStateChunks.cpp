#include "OpenSG/OSGBlendChunk.h"
#include "OpenSG/OSGCubeTextureChunk.h"
#include "OpenSG/OSGMaterialChunk.h"
#include "OpenSG/OSGStateChunk.h"
#include "OpenSG/OSGTextureChunk.h"
#include "OpenSG/OSGTransformChunk.h"

OSG_BEGIN_NAMESPACE

#define CHUNK_FIELD(CLASS, NAME, TEXT) OSG_FIELD_DESC(CLASS, _sf##NAME, TEXT, NAME, false)

OSG_CONTAINER_DEF_ABSTRACT(StateChunk, nullptr, CHUNK_FIELD(StateChunk, Ignore, "ignore"))

OSG_CONTAINER_DEF(MaterialChunk, nullptr, CHUNK_FIELD(MaterialChunk, Diffuse, "diffuse"),
                  CHUNK_FIELD(MaterialChunk, Ambient, "ambient"),
                  CHUNK_FIELD(MaterialChunk, Specular, "specular"),
                  CHUNK_FIELD(MaterialChunk, Emission, "emission"),
                  CHUNK_FIELD(MaterialChunk, Shininess, "shininess"),
                  CHUNK_FIELD(MaterialChunk, Lit, "lit"),
                  CHUNK_FIELD(MaterialChunk, ColorMaterial, "colorMaterial"),
                  CHUNK_FIELD(MaterialChunk, BackMaterial, "backMaterial"),
                  CHUNK_FIELD(MaterialChunk, BackDiffuse, "backDiffuse"),
                  CHUNK_FIELD(MaterialChunk, BackAmbient, "backAmbient"),
                  CHUNK_FIELD(MaterialChunk, BackSpecular, "backSpecular"),
                  CHUNK_FIELD(MaterialChunk, BackEmission, "backEmission"),
                  CHUNK_FIELD(MaterialChunk, BackShininess, "backShininess"),
                  CHUNK_FIELD(MaterialChunk, BackColorMaterial, "backColorMaterial"))

OSG_CONTAINER_DEF(BlendChunk, nullptr, CHUNK_FIELD(BlendChunk, SrcFactor, "srcFactor"),
                  CHUNK_FIELD(BlendChunk, DestFactor, "destFactor"),
                  CHUNK_FIELD(BlendChunk, Equation, "equation"),
                  CHUNK_FIELD(BlendChunk, Color, "color"),
                  CHUNK_FIELD(BlendChunk, AlphaFunc, "alphaFunc"),
                  CHUNK_FIELD(BlendChunk, AlphaValue, "alphaValue"),
                  CHUNK_FIELD(BlendChunk, AlphaSrcFactor, "alphaSrcFactor"),
                  CHUNK_FIELD(BlendChunk, AlphaDestFactor, "alphaDestFactor"))

OSG_CONTAINER_DEF(TransformChunk, nullptr, CHUNK_FIELD(TransformChunk, Matrix, "matrix"))

OSG_CONTAINER_DEF(
    TextureChunk, nullptr, CHUNK_FIELD(TextureChunk, Image, "image"),
    CHUNK_FIELD(TextureChunk, InternalFormat, "internalFormat"),
    CHUNK_FIELD(TextureChunk, ExternalFormat, "externalFormat"),
    CHUNK_FIELD(TextureChunk, Scale, "scale"), CHUNK_FIELD(TextureChunk, Frame, "frame"),
    CHUNK_FIELD(TextureChunk, MinFilter, "minFilter"),
    CHUNK_FIELD(TextureChunk, MagFilter, "magFilter"), CHUNK_FIELD(TextureChunk, WrapS, "wrapS"),
    CHUNK_FIELD(TextureChunk, WrapT, "wrapT"), CHUNK_FIELD(TextureChunk, WrapR, "wrapR"),
    CHUNK_FIELD(TextureChunk, EnvMode, "envMode"), CHUNK_FIELD(TextureChunk, EnvColor, "envColor"),
    CHUNK_FIELD(TextureChunk, EnvCombineRGB, "envCombineRGB"),
    CHUNK_FIELD(TextureChunk, EnvCombineAlpha, "envCombineAlpha"),
    CHUNK_FIELD(TextureChunk, EnvScaleRGB, "envScaleRGB"),
    CHUNK_FIELD(TextureChunk, EnvScaleAlpha, "envScaleAlpha"),
    CHUNK_FIELD(TextureChunk, EnvSource0RGB, "envSource0RGB"),
    CHUNK_FIELD(TextureChunk, EnvSource1RGB, "envSource1RGB"),
    CHUNK_FIELD(TextureChunk, EnvSource2RGB, "envSource2RGB"),
    CHUNK_FIELD(TextureChunk, EnvSource0Alpha, "envSource0Alpha"),
    CHUNK_FIELD(TextureChunk, EnvSource1Alpha, "envSource1Alpha"),
    CHUNK_FIELD(TextureChunk, EnvSource2Alpha, "envSource2Alpha"),
    CHUNK_FIELD(TextureChunk, EnvOperand0RGB, "envOperand0RGB"),
    CHUNK_FIELD(TextureChunk, EnvOperand1RGB, "envOperand1RGB"),
    CHUNK_FIELD(TextureChunk, EnvOperand2RGB, "envOperand2RGB"),
    CHUNK_FIELD(TextureChunk, EnvOperand0Alpha, "envOperand0Alpha"),
    CHUNK_FIELD(TextureChunk, EnvOperand1Alpha, "envOperand1Alpha"),
    CHUNK_FIELD(TextureChunk, EnvOperand2Alpha, "envOperand2Alpha"),
    CHUNK_FIELD(TextureChunk, PointSprite, "pointSprite"),
    CHUNK_FIELD(TextureChunk, Priority, "priority"), CHUNK_FIELD(TextureChunk, LodBias, "lodBias"),
    CHUNK_FIELD(TextureChunk, Target, "target"),
    CHUNK_FIELD(TextureChunk, Anisotropy, "anisotropy"),
    CHUNK_FIELD(TextureChunk, BorderColor, "borderColor"),
    CHUNK_FIELD(TextureChunk, BorderWidth, "borderWidth"),
    CHUNK_FIELD(TextureChunk, NPOTMatrixScale, "NPOTMatrixScale"))

OSG_CONTAINER_DEF(CubeTextureChunk, nullptr, CHUNK_FIELD(CubeTextureChunk, PosZImage, "posZImage"),
                  CHUNK_FIELD(CubeTextureChunk, PosXImage, "posXImage"),
                  CHUNK_FIELD(CubeTextureChunk, NegXImage, "negXImage"),
                  CHUNK_FIELD(CubeTextureChunk, PosYImage, "posYImage"),
                  CHUNK_FIELD(CubeTextureChunk, NegYImage, "negYImage"),
                  CHUNK_FIELD(CubeTextureChunk, IsReflectionMap, "isReflectionMap"))

#undef CHUNK_FIELD

bool MaterialChunk::isTransparent() const { return getDiffuse()[3] < 1.f - Eps; }

void TextureChunk::imageContentChanged(Int32, Int32, Int32, Int32, Int32, Int32) {
    endEditCP(getPtr(), ImageFieldMask);
}

OSG_END_NAMESPACE
