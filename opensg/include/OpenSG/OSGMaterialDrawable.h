#pragma once

#include "OSGDrawable.h"
#include "OSGMaterial.h"

OSG_BEGIN_NAMESPACE

class MaterialDrawable;
typedef FCPtr<DrawablePtr, MaterialDrawable> MaterialDrawablePtr;
typedef RefPtr<MaterialDrawablePtr> MaterialDrawableRefPtr;

/// Core that is drawn with a material.
class OSG_SYSTEMLIB_DLLMAPPING MaterialDrawable : public Drawable {
    OSG_CONTAINER_DECL_ABSTRACT(MaterialDrawable, Drawable, MaterialDrawablePtr)
  public:
    OSG_FIELD(Material, 3)

    const MaterialPtr& getMaterial() const { return _sfMaterial.getValue(); }
    void setMaterial(const MaterialPtr& material) { _sfMaterial.set(material); }

  protected:
    MaterialDrawable() = default;
    MaterialDrawable(const MaterialDrawable&) = default;

  private:
    OwnedSField<MaterialPtr> _sfMaterial;
};

OSG_END_NAMESPACE
