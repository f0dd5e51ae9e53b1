#pragma once

#include "OSGGroup.h"
#include "OSGMaterial.h"

OSG_BEGIN_NAMESPACE

class MaterialGroup;
typedef FCPtr<GroupPtr, MaterialGroup> MaterialGroupPtr;
typedef RefPtr<MaterialGroupPtr> MaterialGroupRefPtr;

/// Core that gives a material to everything below its node.
class OSG_BASE_DLLMAPPING MaterialGroup : public Group {
    OSG_CONTAINER_DECL(MaterialGroup, Group, MaterialGroupPtr)
  public:
    OSG_FIELD(Material, 3)

    const MaterialPtr& getMaterial() const { return _sfMaterial.getValue(); }
    void setMaterial(const MaterialPtr& material) { _sfMaterial.set(material); }

  protected:
    MaterialGroup() = default;
    MaterialGroup(const MaterialGroup&) = default;

  private:
    OwnedSField<MaterialPtr> _sfMaterial;
};

OSG_END_NAMESPACE
