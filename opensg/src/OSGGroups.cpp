#include "OpenSG/OSGComponentTransform.h"
#include "OpenSG/OSGDistanceLOD.h"
#include "OpenSG/OSGGroup.h"
#include "OpenSG/OSGMaterialGroup.h"
#include "OpenSG/OSGSwitch.h"
#include "OpenSG/OSGTransform.h"

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF(Group, nullptr, )
OSG_CONTAINER_DEF(Transform, nullptr, OSG_FIELD_DESC(Transform, _sfMatrix, "matrix", Matrix, false))
OSG_CONTAINER_DEF(ComponentTransform, nullptr,
                  OSG_FIELD_DESC(ComponentTransform, _sfCenter, "center", Center, false),
                  OSG_FIELD_DESC(ComponentTransform, _sfRotation, "rotation", Rotation, false),
                  OSG_FIELD_DESC(ComponentTransform, _sfScale, "scale", Scale, false),
                  OSG_FIELD_DESC(ComponentTransform, _sfScaleOrientation, "scaleOrientation",
                                 ScaleOrientation, false),
                  OSG_FIELD_DESC(ComponentTransform, _sfTranslation, "translation", Translation,
                                 false))
OSG_CONTAINER_DEF(Switch, nullptr, OSG_FIELD_DESC(Switch, _sfChoice, "choice", Choice, false))
OSG_CONTAINER_DEF(DistanceLOD, nullptr,
                  OSG_FIELD_DESC(DistanceLOD, _sfCenter, "center", Center, false),
                  OSG_FIELD_DESC(DistanceLOD, _mfRange, "range", Range, false))
OSG_CONTAINER_DEF(MaterialGroup, nullptr,
                  OSG_FIELD_DESC(MaterialGroup, _sfMaterial, "material", Material, false))

void Transform::adjustVolume(Volume& volume) { volume.transform(getMatrix()); }
void Transform::accumulateMatrix(Matrix& matrix) { matrix.mult(getMatrix()); }

void Transform::changed(BitVector which, UInt32 origin) {
    if ((which & MatrixFieldMask) != 0)
        invalidateVolume();
    Group::changed(which, origin);
}

void ComponentTransform::changed(BitVector which, UInt32 origin) {
    const BitVector parts = CenterFieldMask | RotationFieldMask | ScaleFieldMask |
                            ScaleOrientationFieldMask | TranslationFieldMask;
    if ((which & parts) != 0) {
        Matrix matrix;
        matrix.setTransform(getTranslation(), getRotation(), getScale(), getScaleOrientation(),
                            getCenter());
        setMatrix(matrix);
        invalidateVolume();
    }
    Transform::changed(which, origin);
}

OSG_END_NAMESPACE
