#pragma once

#include "OSGLock.h"
