#pragma once

#include "OSGBaseFieldTraits.h"
#include "OSGMField.h"
#include "OSGSField.h"

OSG_BEGIN_NAMESPACE

typedef SField<bool> SFBool;
typedef SField<Int8> SFInt8;
typedef SField<UInt8> SFUInt8;
typedef SField<Int16> SFInt16;
typedef SField<UInt16> SFUInt16;
typedef SField<Int32> SFInt32;
typedef SField<UInt32> SFUInt32;
typedef SField<Int64> SFInt64;
typedef SField<UInt64> SFUInt64;
typedef SField<Real32> SFReal32;
typedef SField<Real64> SFReal64;
typedef SField<std::string> SFString;
typedef SField<UInt32> SFGLenum;
typedef SField<Time> SFTime;

typedef MField<Int8> MFInt8;
typedef MField<UInt8> MFUInt8;
typedef MField<Int16> MFInt16;
typedef MField<UInt16> MFUInt16;
typedef MField<Int32> MFInt32;
typedef MField<UInt32> MFUInt32;
typedef MField<Int64> MFInt64;
typedef MField<UInt64> MFUInt64;
typedef MField<Real32> MFReal32;
typedef MField<Real64> MFReal64;
typedef MField<std::string> MFString;

typedef SField<Color3f> SFColor3f;
typedef SField<Color4f> SFColor4f;
typedef SField<Matrix> SFMatrix;
typedef SField<QuaternionBase<Real32>> SFQuaternion;
typedef SField<DynamicVolume> SFDynamicVolume;

typedef MField<Vec2f> MFVec2f;
typedef MField<Vec3f> MFVec3f;
typedef MField<Vec4f> MFVec4f;
typedef MField<Vec3b> MFVec3b;
typedef MField<Vec3s> MFVec3s;
typedef MField<Vec2d> MFVec2d;
typedef MField<Vec3d> MFVec3d;
typedef MField<Vec4d> MFVec4d;
typedef MField<Pnt2f> MFPnt2f;
typedef MField<Pnt3f> MFPnt3f;
typedef MField<Pnt4f> MFPnt4f;
typedef MField<Pnt2d> MFPnt2d;
typedef MField<Pnt3d> MFPnt3d;
typedef MField<Pnt4d> MFPnt4d;
typedef MField<Pnt2s> MFPnt2s;
typedef MField<Pnt3s> MFPnt3s;
typedef MField<Pnt4s> MFPnt4s;
typedef MField<Color3f> MFColor3f;
typedef MField<Color4f> MFColor4f;
typedef MField<Color3ub> MFColor3ub;
typedef MField<Color4ub> MFColor4ub;
typedef MField<Matrix> MFMatrix;

typedef MField<FieldContainerPtr> MFFieldContainerPtr;

OSG_END_NAMESPACE
