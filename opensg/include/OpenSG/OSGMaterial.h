#pragma once

#include "OSGAttachmentContainer.h"

OSG_BEGIN_NAMESPACE

/// A field of one value with all that belongs to it: number and mask, accessors, storage. The
/// trailing arguments are the initial value. Leaves the class body in a private section.
#define OSG_VALUE_FIELD(FIELD, NAME, ID, ...)                                                      \
  public:                                                                                          \
    OSG_FIELD(NAME, ID)                                                                            \
    FIELD::StoredType& get##NAME() { return _sf##NAME.getValue(); }                                \
    const FIELD::StoredType& get##NAME() const { return _sf##NAME.getValue(); }                    \
    FIELD::StoredType& edit##NAME() { return _sf##NAME.getValue(); }                               \
    void set##NAME(const FIELD::StoredType& value) { _sf##NAME.setValue(value); }                  \
    FIELD* getSF##NAME() { return &_sf##NAME; }                                                    \
    const FIELD* getSF##NAME() const { return &_sf##NAME; }                                        \
    FIELD* editSF##NAME() { return &_sf##NAME; }                                                   \
                                                                                                   \
  private:                                                                                         \
    FIELD _sf##NAME{__VA_ARGS__};

class Material;
typedef FCPtr<AttachmentContainerPtr, Material> MaterialPtr;
typedef RefPtr<MaterialPtr> MaterialRefPtr;
typedef MField<MaterialPtr> MFMaterialPtr;
typedef SField<MaterialPtr> SFMaterialPtr;

/// Says how the surfaces of its users look. Geometries and material groups share materials.
class OSG_BASE_DLLMAPPING Material : public AttachmentContainer {
    OSG_CONTAINER_DECL_ABSTRACT(Material, AttachmentContainer, MaterialPtr)
  public:
    enum TransparencyModeE {
        TransparencyAutoDetection = 0,
        TransparencyForceTransparent = 1,
        TransparencyForceOpaque = 2
    };

    /// Whether users have to be drawn after the opaque ones. The mode decides if it forces
    /// something, else what the material is made of.
    virtual bool isTransparent() const;

    OSG_VALUE_FIELD(SFInt32, SortKey, 2, 0)
    OSG_VALUE_FIELD(SFInt32, TransparencyMode, 3, TransparencyAutoDetection)

  protected:
    Material() = default;
    Material(const Material&) = default;
};

OSG_END_NAMESPACE
