#pragma once

// The fixed numbers of a run, for all who act on them or foretell what comes of them. Those of
// the trees are the defaults of kd_build_setup.

namespace morva::osg {

/// Triangles, lines or points of one batch of the merge pass; bounds the memory of a geoset,
/// whatever the size of the group.
constexpr unsigned int batch_limit = 3000000;

/// Entries of one property of a core in cache order; keeps indices in 16 bits.
constexpr unsigned int cache_limit = 65533;

/// Depth of the trees that cut a merged group.
constexpr unsigned int tree_depth_limit = 100;

/// Edges flatter than this are smooth in normals that a rebuild makes; radians, 30 degrees.
constexpr float crease_angle = 0.5235988F;

} // namespace morva::osg
