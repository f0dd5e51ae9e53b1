#pragma once

#include "OSGSFBaseTypes.h"

OSG_BEGIN_NAMESPACE

typedef SField<Vec2f> SFVec2f;
typedef SField<Vec3f> SFVec3f;
typedef SField<Vec4f> SFVec4f;
typedef SField<Pnt2f> SFPnt2f;
typedef SField<Pnt3f> SFPnt3f;
typedef SField<Pnt4f> SFPnt4f;

OSG_END_NAMESPACE
