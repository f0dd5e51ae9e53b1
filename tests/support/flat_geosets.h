#pragma once

// Geosets over small soups, and their flat rows as plain records.

#include "tests/support/test.h"

#include <morva/geosets/morva_osg_geoset_rules.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace tri {

using morva::osg::broken_rule_of;
using morva::osg::osg_geoset;
using piece = std::vector<::osg::Pnt3f>; ///< corners of one triangle, or of several

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// One vertex of a flat element; what a core does not have stays zero.
struct corner {
    ::osg::Pnt3f position;
    ::osg::Vec3f normal;
    ::osg::Color3f color, secondary;
    ::osg::Vec2f uv[4];
    float id = 0;
};
using rows = std::vector<corner>;

/// The values of a vertex as plain numbers, for comparisons to the last bit.
inline std::vector<float> numbersOf(const corner& c) {
    std::vector<float> out;
    for (::osg::UInt32 i = 0; i < 3; ++i)
        out.insert(out.end(), {c.position[i], c.normal[i], c.color[i], c.secondary[i]});
    for (const ::osg::Vec2f& uv : c.uv)
        out.insert(out.end(), {uv[0], uv[1]});
    out.push_back(c.id);
    return out;
}
inline std::vector<std::vector<float>> numbersOf(const rows& all) {
    std::vector<std::vector<float>> out;
    for (const corner& c : all)
        out.push_back(numbersOf(c));
    return out;
}

/// Calls `use` with the map bit of each property, the property, and what enters a value.
template <typename Use> void forEachProperty(const ::osg::GeometryPtr& g, const Use& use) {
    using G = ::osg::Geometry;
    use(G::MapPosition, g->getPositions(), [](corner& c, const auto& v) { c.position = v; });
    use(G::MapNormal, g->getNormals(), [](corner& c, const auto& v) { c.normal = v; });
    use(G::MapColor, g->getColors(), [](corner& c, const auto& v) { c.color = v; });
    use(G::MapSecondaryColor, g->getSecondaryColors(),
        [](corner& c, const auto& v) { c.secondary = v; });
    use(G::MapTexCoords, g->getTexCoords(), [](corner& c, const auto& v) { c.uv[0] = v; });
    use(G::MapTexCoords1, g->getTexCoords1(), [](corner& c, const auto& v) { c.uv[1] = v; });
    use(G::MapTexCoords2, g->getTexCoords2(), [](corner& c, const auto& v) { c.uv[2] = v; });
    use(G::MapTexCoords3, g->getTexCoords3(), [](corner& c, const auto& v) { c.uv[3] = v; });
    use(G::MapTexCoords7, g->getTexCoords7(), [](corner& c, const auto& v) { c.id = v[0]; });
}

/// The first `count` rows of a core, value by value.
inline rows rowsOf(const ::osg::GeometryPtr& core, std::size_t count) {
    rows out(count);
    forEachProperty(core, [&](auto, const auto& property, const auto& enter) {
        for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < count && i < property->size();
             ++i)
            enter(out[i], property->getValue(i));
    });
    return out;
}

/// The vertex in a place of a geometry's order; zero what no mapping entry names or no row holds.
inline corner vertexAt(const ::osg::GeometryPtr& g, std::size_t place) {
    const std::size_t entries = std::max<std::size_t>(1, g->getIndexMapping().size());
    corner c;
    forEachProperty(g, [&](::osg::UInt16 bit, const auto& property, const auto& enter) {
        auto row = ::osg::UInt32(place);
        if (g->getIndices() != ::osg::NullFC) {
            std::size_t entry = 0;
            while (!g->getIndexMapping().empty() && entry < entries &&
                   (g->getIndexMapping(::osg::UInt32(entry)) & bit) == 0)
                ++entry;
            if (entry == entries)
                return;
            row = g->getIndices()->getValue(::osg::UInt32(place * entries + entry));
        }
        if (property != ::osg::NullFC && row < property->size())
            enter(c, property->getValue(row));
    });
    return c;
}

/// The same of a vertex of a scene graph's iterator.
template <typename Iterator> corner cornerAt(const Iterator& it, ::osg::Int32 k) {
    const ::osg::GeometryPtr g = it.getGeometry();
    const std::size_t entries = std::max<std::size_t>(1, g->getIndexMapping().size());
    const ::osg::Int32 place = it.getIndexIndex(k);
    return vertexAt(g,
                    place < 0 ? std::size_t(it.getPositionIndex(k)) : std::size_t(place) / entries);
}

/// Number of rows of a property, -1 for none.
template <typename Property> int lengthOf(const Property& property) {
    return property == ::osg::NullFC ? -1 : int(property->size());
}

inline mesh_data meshOf(const std::vector<std::pair<unsigned, unsigned>>& primitives,
                        const piece& positions) {
    mesh_data mesh;
    mesh.primitives = primitives;
    mesh.positions = positions;
    return mesh;
}
inline mesh_data soup(const piece& positions) {
    return meshOf({{4, unsigned(positions.size())}}, positions);
}

/// While this lives no ID is given, as after a merge; those that vertices bring are kept.
struct registration_off {
    registration_off() { morva::osg::getIDmapHandler().merged = true; }
    ~registration_off() { morva::osg::getIDmapHandler().merged = false; }
};

/// A geoset over a soup, ready for cuts. `colored` gives every vertex a colour and coordinates
/// that are its own position, and every triangle an ID that is its number.
inline void fillGeoset(osg_geoset& geoset, const piece& positions, bool colored = false) {
    mesh_data mesh = soup(positions);
    for (std::size_t i = 0; colored && i < positions.size(); ++i) {
        const ::osg::Pnt3f& p = positions[i];
        mesh.colors.push_back(::osg::Color3f(p[0], p[1], p[2]));
        mesh.coordinates.push_back(::osg::Vec2f(p[0], p[1]));
        mesh.ids.push_back(float(i / 3));
    }
    const registration_off kept;
    extract(node_ref(meshNode(mesh)).get(), geoset, false, false, false, true, false);
}

template <typename Geoset> piece cornersOf(const Geoset& geoset, std::size_t i) {
    piece corners;
    for (std::size_t k = 0; k < Geoset::corners; ++k) {
        corners.push_back(
            geoset.geometry->getPositions()->getValue(::osg::UInt32(Geoset::corners * i + k)));
    }
    return corners;
}

/// Twice the area of all triangles, in double precision.
inline double areaOfAll(const osg_geoset& geoset) {
    double sum = 0;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const piece t = cornersOf(geoset, i);
        const ::osg::Pnt3d a(t[0]), b(t[1]), c(t[2]);
        sum += (b - a).cross(c - a).length();
    }
    return sum;
}

template <typename Act> std::string toldBy(const Act& act, std::ostream& stream = std::cout) {
    const stream_capture capture(stream);
    act();
    return capture.text();
}

} // namespace tri
