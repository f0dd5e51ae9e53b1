#pragma once

// Triangle geometry for the tests of the triangle geoset, in every primitive type, index layout
// and stored form; and the flat rows of a geoset as plain records.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "flat_scenes.h"

namespace tri {

using flat::nodeOf;
using morva::osg::osg_geoset;

/// One vertex of a flat triangle; what a core does not have stays zero.
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

template <typename Property, typename Take>
void readRows(const Property& property, rows& out, const Take& take) {
    if (property == ::osg::NullFC)
        return;
    for (::osg::UInt32 i = 0; i < out.size() && i < property->size(); ++i)
        take(out[i], property->getValue(i));
}

/// The first `count` rows of a core, value by value.
inline rows rowsOf(const ::osg::GeometryPtr& core, std::size_t count) {
    rows out(count);
    readRows(core->getPositions(), out, [](corner& c, const auto& v) { c.position = v; });
    readRows(core->getNormals(), out, [](corner& c, const auto& v) { c.normal = v; });
    readRows(core->getColors(), out, [](corner& c, const auto& v) { c.color = v; });
    readRows(core->getSecondaryColors(), out, [](corner& c, const auto& v) { c.secondary = v; });
    const ::osg::GeoTexCoordsPtr units[4] = {core->getTexCoords(), core->getTexCoords1(),
                                             core->getTexCoords2(), core->getTexCoords3()};
    for (int unit = 0; unit < 4; ++unit)
        readRows(units[unit], out, [unit](corner& c, const auto& v) { c.uv[unit] = v; });
    readRows(core->getTexCoords7(), out, [](corner& c, const auto& v) { c.id = v[0]; });
    return out;
}

/// Number of rows of a property, -1 for none.
template <typename Property> int lengthOf(const Property& property) {
    return property == ::osg::NullFC ? -1 : static_cast<int>(property->size());
}

/// Triangles one after the other, three positions each.
inline ::osg::GeometryPtr soup(const std::vector<::osg::Pnt3f>& positions) {
    return flat::geometryOf({{4, static_cast<unsigned>(positions.size())}}, positions);
}

/// While this lives no ID is given, as after a merge; those that vertices bring are kept.
struct registration_off {
    registration_off() { morva::osg::getIDmapHandler().merged = true; }
    registration_off(const registration_off&) = delete;
    registration_off& operator=(const registration_off&) = delete;
    ~registration_off() { morva::osg::getIDmapHandler().merged = false; }
};

/// A geoset over a soup, ready for cuts. `colored` gives every vertex a colour and coordinates
/// that are its own position.
inline void fillGeoset(osg_geoset& geoset, const std::vector<::osg::Pnt3f>& positions,
                       bool colored = false) {
    const ::osg::GeometryPtr geometry = soup(positions);
    if (colored) {
        const ::osg::GeoColors3fPtr colors = ::osg::GeoColors3f::create();
        const ::osg::GeoTexCoords2fPtr uv = ::osg::GeoTexCoords2f::create();
        const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const ::osg::Pnt3f& p = positions[i];
            colors->editField().push_back(::osg::Color3f(p[0], p[1], p[2]));
            uv->editField().push_back(::osg::Vec2f(p[0], p[1]));
            ids->editField().push_back(static_cast<float>(i / 3));
        }
        geometry->setColors(colors);
        geometry->setTexCoords(uv);
        geometry->setTexCoords7(ids);
    }
    const ::osg::NodeRefPtr node(nodeOf(geometry));
    const registration_off kept;
    morva::osg::extract(node.get(), geoset, false, false, false, true, false);
}

/// The corners of triangle `i`.
inline std::vector<::osg::Pnt3f> cornersOf(const osg_geoset& geoset, std::size_t i) {
    std::vector<::osg::Pnt3f> corners;
    for (std::size_t k = 0; k < 3; ++k) {
        corners.push_back(
            geoset.geometry->getPositions()->getValue(static_cast<::osg::UInt32>(3 * i + k)));
    }
    return corners;
}

/// Twice the area vector of a triangle, in double precision.
inline ::osg::Vec3d areaOf(const std::vector<::osg::Pnt3f>& t) {
    const ::osg::Pnt3d a(t[0]), b(t[1]), c(t[2]);
    return (b - a).cross(c - a);
}

/// First rule of a set-up geoset that does not hold, or an empty text.
inline std::string broken_rule_of(const osg_geoset& geoset) {
    if (geoset.size > geoset.wished_size)
        return "size is at most wished_size";
    if (geoset.size == 0)
        return "";
    const ::osg::GeoPositionsPtr positions = geoset.geometry->getPositions();
    const std::uint64_t needed = 3 * geoset.size;
    if (positions == ::osg::NullFC || positions->size() < needed)
        return "positions hold every triangle";
    if (geoset.vertex_count / 3 != geoset.size)
        return "vertex_count counts every triangle";
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const std::vector<::osg::Pnt3f> t = cornersOf(geoset, i);
        for (int a = 0; a < 3; ++a) {
            const auto axis = static_cast<::osg::UInt32>(a);
            const auto range = std::minmax({t[0][axis], t[1][axis], t[2][axis]});
            if (geoset.axis_min[a][i] != range.first || geoset.axis_max[a][i] != range.second)
                return "axis arrays agree with the positions";
        }
        if (geoset.simple_tris == nullptr)
            continue;
        const morva::float3* flat[3] = {&geoset.simple_tris[i].a, &geoset.simple_tris[i].b,
                                        &geoset.simple_tris[i].c};
        for (std::size_t k = 0; k < 3; ++k) {
            for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
                if ((*flat[k])[axis] != t[k][axis])
                    return "simple_tris agree with the positions";
            }
        }
    }
    return "";
}

/// Where a random geometry takes its values from.
struct random_form {
    flat::layout indices = flat::layout::plain;
    bool other_forms = false; ///< stored in other than the usual forms
};

namespace detail {

inline float quarter(std::mt19937& rng) { return static_cast<float>(rng() % 5) * 0.25F; }

template <typename Property>
void fillWith(const Property& property, std::size_t count, std::mt19937& rng) {
    using value = std::decay_t<decltype(property->getValue(0))>;
    constexpr ::osg::UInt32 components = sizeof(value) / sizeof(float);
    for (std::size_t i = 0; i < count; ++i) {
        value v;
        for (::osg::UInt32 k = 0; k < components; ++k)
            v[k] = quarter(rng);
        property->addValue(v);
    }
}

template <typename Role, typename Usual, typename Other>
Role made(std::size_t count, std::mt19937& rng, bool other) {
    const Role property = other && rng() % 2 == 0 ? Role(Other::create()) : Role(Usual::create());
    fillWith(property, count, rng);
    return property;
}

/// Spreads all properties over two or three indices per vertex.
inline std::size_t addMapping(const ::osg::GeometryPtr& geometry, std::mt19937& rng) {
    const std::size_t entries = 2 + rng() % 2;
    std::vector<::osg::UInt16> bits(entries, 0);
    for (unsigned bit = 0; bit < 12; ++bit) {
        // Positions not always first; no property is left without an entry.
        bits[rng() % entries] |= static_cast<::osg::UInt16>(1U << bit);
    }
    for (const ::osg::UInt16 entry : bits)
        geometry->editMFIndexMapping()->push_back(entry);
    return entries;
}

template <typename Indices>
void addIndices(const ::osg::GeometryPtr& geometry, std::size_t count, std::size_t range,
                std::mt19937& rng) {
    const auto indices = Indices::create();
    for (std::size_t i = 0; i < count; ++i)
        indices->addValue(static_cast<::osg::UInt32>(rng() % range));
    geometry->setIndices(indices);
}

} // namespace detail

/// Random primitives of all types, triangles or not, with random properties on a coarse grid, so
/// that corners often coincide.
inline ::osg::GeometryPtr randomTriangles(std::mt19937& rng, const random_form& form) {
    std::vector<std::pair<int, unsigned>> primitives;
    std::size_t vertices = 0;
    const auto add = [&](int type, unsigned length) {
        primitives.emplace_back(type, length);
        vertices += length;
    };
    for (int i = 0; i < 6; ++i) {
        const int type = static_cast<int>(rng() % 10);
        unsigned length = 2 + static_cast<unsigned>(rng() % 9);
        if (type == 4)
            length = length / 3 * 3;
        if (type == 7)
            length = length / 4 * 4;
        add(type, length);
    }
    add(4, 6);

    const bool plain = form.indices == flat::layout::plain;
    const std::size_t count = plain ? vertices : 5 + rng() % 12;
    const ::osg::GeometryPtr geometry = flat::geometryOf(primitives, {});
    const bool other = form.other_forms;
    geometry->setPositions(
        detail::made<::osg::GeoPositionsPtr, ::osg::GeoPositions3f, ::osg::GeoPositions3d>(
            count, rng, other));
    if (rng() % 2 == 0)
        geometry->setNormals(
            detail::made<::osg::GeoNormalsPtr, ::osg::GeoNormals3f, ::osg::GeoNormals3b>(count, rng,
                                                                                         other));
    if (rng() % 2 == 0)
        geometry->setColors(
            detail::made<::osg::GeoColorsPtr, ::osg::GeoColors3f, ::osg::GeoColors4ub>(count, rng,
                                                                                       other));
    if (rng() % 3 == 0)
        geometry->setSecondaryColors(
            detail::made<::osg::GeoColorsPtr, ::osg::GeoColors3f, ::osg::GeoColors4f>(count, rng,
                                                                                      other));
    const auto coordinates = [&] {
        return detail::made<::osg::GeoTexCoordsPtr, ::osg::GeoTexCoords2f, ::osg::GeoTexCoords3f>(
            count, rng, other);
    };
    if (rng() % 2 == 0)
        geometry->setTexCoords(coordinates());
    if (rng() % 3 == 0)
        geometry->setTexCoords1(coordinates());
    if (rng() % 3 == 0)
        geometry->setTexCoords2(coordinates());
    if (rng() % 3 == 0)
        geometry->setTexCoords3(coordinates());
    if (rng() % 3 == 0)
        geometry->setTexCoords7(
            detail::made<::osg::GeoTexCoordsPtr, ::osg::GeoTexCoords1f, ::osg::GeoTexCoords2f>(
                count, rng, other));
    if (plain)
        return geometry;
    const std::size_t entries =
        form.indices == flat::layout::one_index ? 1 : detail::addMapping(geometry, rng);
    if (other && rng() % 2 == 0) {
        detail::addIndices<::osg::GeoIndicesUI16>(geometry, vertices * entries, count, rng);
    } else {
        detail::addIndices<::osg::GeoIndicesUI32>(geometry, vertices * entries, count, rng);
    }
    return geometry;
}

/// A closed surface: a ball of `rings` x `segments` patches with a rough skin, outside seen.
inline std::vector<::osg::Pnt3f> roughBall(std::mt19937& rng, int rings, int segments) {
    std::uniform_real_distribution<float> rough(0.8F, 1.2F);
    std::vector<std::vector<::osg::Pnt3f>> grid;
    for (int r = 0; r <= rings; ++r) {
        std::vector<::osg::Pnt3f> ring;
        const float down = 3.14159265F * static_cast<float>(r) / static_cast<float>(rings);
        for (int s = 0; s < segments; ++s) {
            const float turn = 6.2831853F * static_cast<float>(s) / static_cast<float>(segments);
            const float size = rough(rng);
            ring.push_back(::osg::Pnt3f(size * std::sin(down) * std::cos(turn),
                                        size * std::sin(down) * std::sin(turn),
                                        size * std::cos(down)));
        }
        if (r == 0 || r == rings)
            std::fill(ring.begin(), ring.end(), ::osg::Pnt3f(0.0F, 0.0F, r == 0 ? 1.0F : -1.0F));
        grid.push_back(std::move(ring));
    }
    std::vector<::osg::Pnt3f> positions;
    const auto add = [&](const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
        positions.insert(positions.end(), {a, b, c});
    };
    for (std::size_t r = 0; r + 1 < grid.size(); ++r) {
        for (std::size_t s = 0; s < grid[r].size(); ++s) {
            const std::size_t next = (s + 1) % grid[r].size();
            if (r + 2 < grid.size())
                add(grid[r][s], grid[r + 1][s], grid[r + 1][next]);
            if (r > 0)
                add(grid[r][s], grid[r + 1][next], grid[r][next]);
        }
    }
    return positions;
}

} // namespace tri
