#pragma once

// Extraction by the scene graph's own iterators, element by element and value by value: the
// oracle for the fast way, for triangles, lines and points.

#include "tests/support/test.h"

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_geometry_tools.h>

#include "tests/support/whole_elements.h"

#include "triangle_scenes.h"

namespace tri {

/// What a geoset should hold: all rows, and which attributes it has by now.
struct naive_soup {
    rows vertices;
    bool positions = false, normals = false, colors = false, secondary = false, ids = false;
};

/// Normals of all rows as `calculate` makes them for a geometry of these positions without indices.
template <typename Calculate> void calculateAll(naive_soup& all, const Calculate& calculate) {
    piece positions;
    for (const corner& c : all.vertices)
        positions.push_back(c.position);
    const ::osg::GeometryRefPtr core(soup(positions));
    calculate(core.get());
    readRows(core->getNormals(), all.vertices, [](corner& c, const auto& v) { c.normal = v; });
}

/// What a set-up adds: normals of triangles, if there are none so far.
inline void naiveSetup(naive_soup& all, unsigned corners) {
    if (all.normals || !all.positions || corners < 3)
        return;
    calculateAll(all, [](const auto& core) { ::osg::calcVertexNormals(core); });
    all.normals = true;
}

/// Rows of earlier nodes get the default of an attribute that is new.
template <typename Set> void addAttribute(bool& has, bool wanted, rows& vertices, const Set& set) {
    if (!has && wanted)
        std::for_each(vertices.begin(), vertices.end(), set);
    has = has || wanted;
}

/// Where a scene puts its nodes: doubled in size and moved, which single precision does exactly.
struct placement {
    bool placed = false;

    ::osg::Pnt3f point(const ::osg::Pnt3f& p) const {
        // A number that is none on one axis reaches the others.
        const float x = 0.0F * p[0], y = 0.0F * p[1], z = 0.0F * p[2];
        return placed ? ::osg::Pnt3f(2 * p[0] + y + z + 8, x + 2 * p[1] + z - 4,
                                     x + y + 2 * p[2] + 0.5F)
                      : p;
    }
    ::osg::Vec3f normal(const ::osg::Vec3f& n) const {
        return !placed || n.length() < 1e-6F ? n : n * (1.0F / n.length());
    }
    ::osg::Matrix matrix() const {
        return ::osg::Matrix(2, 0, 0, 8, 0, 2, 0, -4, 0, 0, 2, 0.5F, 0, 0, 0, 1);
    }
};

/// The elements of a geometry, vertex after vertex.
inline rows elementsOf(const ::osg::GeometryPtr& g, unsigned corners) {
    rows all;
    if (corners == 3) {
        for (auto it = g->beginTriangles(); !it.isAtEnd() && morva_test::isWhole(it, 3); ++it)
            all.insert(all.end(), {cornerAt(it, 0), cornerAt(it, 1), cornerAt(it, 2)});
    } else if (corners == 2) {
        for (auto it = g->beginLines(); !it.isAtEnd() && morva_test::isWhole(it, 2); ++it)
            all.insert(all.end(), {cornerAt(it, 0), cornerAt(it, 1)});
    } else {
        for (auto it = g->beginPrimitives(); it != g->endPrimitives(); ++it) {
            for (::osg::UInt32 i = 0; it.getType() == 1 && i < it.getLength(); ++i)
                all.push_back(cornerAt(it, static_cast<::osg::Int32>(i)));
        }
    }
    return all;
}

/// Appends a geometry. Returns the triangles left out, -1 if there is nothing to append.
inline int naiveExtract(const ::osg::GeometryPtr& g, naive_soup& out, const placement& place,
                        unsigned corners) {
    const rows brought = elementsOf(g, corners);
    if (brought.empty())
        return -1;
    const ::osg::Color3f white(1.0F, 1.0F, 1.0F);
    const ::osg::Vec3f up(0.0F, 1.0F, 0.0F);
    const bool has_normals = g->getNormals() != ::osg::NullFC;
    const bool has_colors = g->getColors() != ::osg::NullFC;
    const bool has_secondary = g->getSecondaryColors() != ::osg::NullFC;
    rows& all = out.vertices;
    out.positions = true;
    addAttribute(out.normals, has_normals, all, [&](corner& c) { c.normal = up; });
    addAttribute(out.colors, has_colors, all, [&](corner& c) { c.color = white; });
    addAttribute(out.secondary, has_secondary, all, [&](corner& c) { c.secondary = white; });
    out.ids = out.ids || g->getTexCoords7() != ::osg::NullFC;

    int rogue = 0;
    for (std::size_t first = 0; first < brought.size(); first += corners) {
        const auto at = [&](std::size_t k) { return place.point(brought[first + k].position); };
        if (corners == 3 && morva::osg::is_rogue(at(0), at(1), at(2))) {
            ++rogue;
            continue;
        }
        for (std::size_t k = 0; k < corners; ++k) {
            corner c = brought[first + k];
            c.position = at(k);
            for (::osg::Vec2f& uv : c.uv)
                uv = corners == 3 ? uv : ::osg::Vec2f();
            if (out.normals)
                c.normal = has_normals ? place.normal(c.normal) : up;
            if (out.colors && !has_colors)
                c.color = white;
            if (out.secondary && !has_secondary)
                c.secondary = white;
            all.push_back(c);
        }
    }
    if (out.normals && !has_normals && corners == 3)
        calculateAll(out,
                     [](const auto& core) { morva::osg::calcCreaseNormals(core, 0.5235988F); });
    return rogue;
}

} // namespace tri
