#pragma once

#include "OSGQuaternion.h"
#include "OSGSFVecTypes.h"
#include "OSGTransform.h"

OSG_BEGIN_NAMESPACE

class ComponentTransform;
typedef FCPtr<TransformPtr, ComponentTransform> ComponentTransformPtr;
typedef RefPtr<ComponentTransformPtr> ComponentTransformRefPtr;

/// A transform given by its parts; endEditCP puts the matrix together.
class OSG_BASE_DLLMAPPING ComponentTransform : public Transform {
    OSG_CONTAINER_DECL(ComponentTransform, Transform, ComponentTransformPtr)
  public:
    OSG_FIELD(Center, 4)
    OSG_FIELD(Rotation, 5)
    OSG_FIELD(Scale, 6)
    OSG_FIELD(ScaleOrientation, 7)
    OSG_FIELD(Translation, 8)

    const Vec3f& getCenter() const { return _sfCenter.getValue(); }
    void setCenter(const Vec3f& center) { _sfCenter.setValue(center); }
    const Quaternion& getRotation() const { return _sfRotation.getValue(); }
    void setRotation(const Quaternion& rotation) { _sfRotation.setValue(rotation); }
    const Vec3f& getScale() const { return _sfScale.getValue(); }
    void setScale(const Vec3f& scale) { _sfScale.setValue(scale); }
    const Quaternion& getScaleOrientation() const { return _sfScaleOrientation.getValue(); }
    void setScaleOrientation(const Quaternion& axes) { _sfScaleOrientation.setValue(axes); }
    const Vec3f& getTranslation() const { return _sfTranslation.getValue(); }
    void setTranslation(const Vec3f& translation) { _sfTranslation.setValue(translation); }

    void changed(BitVector which, UInt32 origin) override;

  protected:
    ComponentTransform() = default;
    ComponentTransform(const ComponentTransform&) = default;

  private:
    using Transform::setMatrix; // the parts would overwrite it; a TransformPtr still reaches it

    SFVec3f _sfCenter;
    SFQuaternion _sfRotation;
    SFVec3f _sfScale{Vec3f(1.f, 1.f, 1.f)};
    SFQuaternion _sfScaleOrientation;
    SFVec3f _sfTranslation;
};

OSG_END_NAMESPACE
