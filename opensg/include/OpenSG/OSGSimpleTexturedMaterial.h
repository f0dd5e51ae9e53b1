#pragma once

#include "OSGImage.h"
#include "OSGSimpleMaterial.h"

OSG_BEGIN_NAMESPACE

class SimpleTexturedMaterial;
typedef FCPtr<SimpleMaterialPtr, SimpleTexturedMaterial> SimpleTexturedMaterialPtr;
typedef RefPtr<SimpleTexturedMaterialPtr> SimpleTexturedMaterialRefPtr;

/// Colours and one counted image.
class OSG_BASE_DLLMAPPING SimpleTexturedMaterial : public SimpleMaterial {
    OSG_CONTAINER_DECL(SimpleTexturedMaterial, SimpleMaterial, SimpleTexturedMaterialPtr)
  public:
    OSG_FIELD(Image, 14)

    const ImagePtr& getImage() const { return _sfImage.getValue(); }
    void setImage(const ImagePtr& image) { _sfImage.set(image); }

    /// Also an image with alpha, unless the texture only paints over the colour.
    bool isTransparent() const override;

    OSG_VALUE_FIELD(SFGLenum, MinFilter, 15, GL_LINEAR_MIPMAP_LINEAR)
    OSG_VALUE_FIELD(SFGLenum, MagFilter, 16, GL_LINEAR)
    OSG_VALUE_FIELD(SFGLenum, EnvMode, 17, GL_REPLACE)
    OSG_VALUE_FIELD(SFBool, EnvMap, 18, false)

  private:
    OwnedSField<ImagePtr> _sfImage;

  protected:
    SimpleTexturedMaterial() = default;
    SimpleTexturedMaterial(const SimpleTexturedMaterial&) = default;
};

OSG_END_NAMESPACE
