#pragma once

#include "OSGGeoProperty.h"
