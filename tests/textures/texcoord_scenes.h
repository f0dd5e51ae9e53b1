#pragma once

// Triangles with texture coordinates, for the tests of their normal form and cutting.

#include <cstring>
#include <string>
#include <vector>

#include <morva/geosets/morva_osg_geoset_tools.h>

#include "../geosets/triangle_scenes.h"

namespace uv {

using morva::osg::osg_geoset;

/// Unindexed triangles, one coordinate per corner.
struct mesh {
    std::vector<::osg::Pnt3f> positions;
    std::vector<::osg::Vec2f> coordinates;
};

/// A core with the coordinates of `m` in the form `Form`; the IDs are the triangles' numbers.
template <typename Form = ::osg::GeoTexCoords2f>::osg::GeometryPtr coreOf(const mesh& m) {
    const ::osg::GeometryPtr core = tri::soup(m.positions);
    const ::osg::GeoTexCoordsPtr coordinates = Form::create();
    for (const ::osg::Vec2f& value : m.coordinates)
        coordinates->addValue(value);
    const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
    for (std::size_t i = 0; i < m.positions.size(); ++i)
        ids->editField().push_back(static_cast<float>(i / 3));
    core->setTexCoords(coordinates);
    core->setTexCoords7(ids);
    return core;
}

inline void fill(osg_geoset& geoset, const mesh& m) {
    const ::osg::NodeRefPtr node(morva_test::nodeOf(coreOf(m)));
    const tri::registration_off ids_are_kept;
    morva::osg::extract(node.get(), geoset, false, false, false, true, false);
}

/// Equal to the last bit, or both NaN.
inline bool same(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// First row in which two geosets differ, all rows of all attributes, or an empty text.
inline std::string firstDifference(const osg_geoset& a, const osg_geoset& b) {
    if (a.size != b.size)
        return "sizes " + std::to_string(a.size) + " and " + std::to_string(b.size);
    const std::size_t rows = a.geometry->getTexCoords()->size();
    if (rows != b.geometry->getTexCoords()->size())
        return "number of rows";
    const tri::rows in_a = tri::rowsOf(a.geometry.get(), rows),
                    in_b = tri::rowsOf(b.geometry.get(), rows);
    for (std::size_t row = 0; row < rows; ++row) {
        const std::vector<float> x = tri::numbersOf(in_a[row]), y = tri::numbersOf(in_b[row]);
        for (std::size_t k = 0; k < x.size(); ++k) {
            if (!same(x[k], y[k]))
                return "row " + std::to_string(row) + " value " + std::to_string(k);
        }
    }
    return "";
}

/// Largest u or v of a triangle.
inline float reachOf(const osg_geoset& geoset, std::size_t triangle) {
    float high = 0;
    for (::osg::UInt32 k = 0; k < 3; ++k) {
        const ::osg::Vec2f value =
            geoset.geometry->getTexCoords()->getValue(static_cast<::osg::UInt32>(3 * triangle) + k);
        high = std::max({high, value[0], value[1]});
    }
    return high;
}

} // namespace uv
