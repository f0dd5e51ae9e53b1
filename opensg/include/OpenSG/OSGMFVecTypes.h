#pragma once

#include "OSGSFBaseTypes.h"
