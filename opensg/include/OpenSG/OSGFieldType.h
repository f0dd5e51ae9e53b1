#pragma once
#include "OSGTypeBase.h"
