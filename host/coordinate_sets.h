#pragma once

// Sets of texture coordinates of cores, and what a run may do to them. The optimiser treats those
// of the colour, set 0, for the sake of the colour's image alone: it shifts them, and with atlases
// it scales them. Textures of other kinds that read the same set get a copy that stays.

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include "material_record.h"

namespace morva::host {

/// Stands for a set that does not come through: the optimiser keeps 0 to 3.
constexpr unsigned lost_set = 4;

/// Set of a source to set of the scene, where the one of the colour comes first.
unsigned unitOf(std::size_t set, std::size_t base_set);

/// Set `number`, 0 to 3; null if there is none.
::osg::GeoTexCoordsPtr setOf(const ::osg::GeometryPtr& core, unsigned number);

/// Gives the cores set 0 once more under a number that is free in all of them, without a copy of
/// the values. Returns the number, or `lost_set`.
unsigned copySet(const std::vector<::osg::GeometryPtr>& cores);

/// Applies a KHR_texture_transform to set 0 of a core.
void transformSet(const ::osg::GeometryPtr& core, const nlohmann::json& transform);

/// Makes a scene ready for a run whose result goes into a glTF file: textures of records read sets
/// of their own. Returns the parameters of the run, which then must not drop the coordinates of
/// materials without a colour texture; coordinates that nobody reads are dropped here.
std::string spareCoordinates(const ::osg::NodePtr& root, const std::string& parameters,
                             material_records& records);

} // namespace morva::host
