#pragma once

#include "OSGGroup.h"
