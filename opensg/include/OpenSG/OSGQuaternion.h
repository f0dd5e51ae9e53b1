#pragma once

#include "OSGQuaternionBase.h"

OSG_BEGIN_NAMESPACE

typedef QuaternionBase<Real32> Quaternion;

OSG_END_NAMESPACE
