#pragma once

// The contents of the cores that a geoset is cut into; see morva_osg_splitmodel.h for the cut.

#include <OpenSG/OSGGeometry.h>

#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// Gives an empty geometry the vertices of a run of sorted objects and the geoset's material, at
/// the output level. Parameters as for MakeGeoCore(). Tree and geoset are only read: several
/// threads may fill cores of one geoset.
///
/// prints  as MakeGeoCore()
/// errors  whatever runs out; the geometry is then to be thrown away
template <typename T, typename G>
void fillCore(const ::osg::GeometryPtr& geometry, const T& tree, const G& geoset,
              unsigned int first, unsigned int count, int opt, bool calcnormals);

} // namespace morva::osg
