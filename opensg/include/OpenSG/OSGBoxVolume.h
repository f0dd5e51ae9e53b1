#pragma once

#include "OSGBoxShape.h"

OSG_BEGIN_NAMESPACE

using shapes::BoxVolume;

OSG_END_NAMESPACE
