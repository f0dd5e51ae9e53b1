#pragma once

#include "OSGMaterial.h"

OSG_BEGIN_NAMESPACE

class SwitchMaterial;
typedef FCPtr<MaterialPtr, SwitchMaterial> SwitchMaterialPtr;
typedef RefPtr<SwitchMaterialPtr> SwitchMaterialRefPtr;

/// Several counted materials of which one is chosen.
class OSG_BASE_DLLMAPPING SwitchMaterial : public Material {
    OSG_CONTAINER_DECL(SwitchMaterial, Material, SwitchMaterialPtr)
  public:
    OSG_FIELD(Materials, 4)

    /// Appends. Null is ignored.
    void addMaterial(const MaterialPtr& material);
    /// Takes the first entry of this material off.
    void subMaterial(const MaterialPtr& material);
    bool hasMaterial(const MaterialPtr& material) const;
    /// Null, with a warning, when out of range.
    MaterialPtr getMaterial(UInt32 index) const;
    /// Of the choice.
    MaterialPtr getCurrentMaterial() const;

    const MFMaterialPtr& getMaterials() const { return _mfMaterials; }
    const MaterialPtr& getMaterials(UInt32 index) const { return _mfMaterials[index]; }
    const MFMaterialPtr* getMFMaterials() const { return &_mfMaterials; }

    /// That of the chosen material; false when the choice is out of range.
    bool isTransparent() const override;

    OSG_VALUE_FIELD(SFUInt32, Choice, 5, 0u)

  private:
    OwnedMField<MaterialPtr> _mfMaterials;

  protected:
    SwitchMaterial() = default;
    SwitchMaterial(const SwitchMaterial&) = default;
};

OSG_END_NAMESPACE
