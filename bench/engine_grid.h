#pragma once

// Large scenes for the benchmarks: the engine of the package assimp-testmodels, n times on a grid.

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

namespace morva_bench {

/// Places the engine `count` times, 800 units apart, in rows of `ceil(sqrt(count))`.
///
/// own_cores  every part gets a copy of its core; otherwise equal parts share one
/// returns    a new root; 115 drawn parts and 121,496 triangles per engine
/// errors     morva::host::host_error if the package is not installed
::osg::NodeRefPtr engineGrid(unsigned count, bool own_cores);

} // namespace morva_bench
