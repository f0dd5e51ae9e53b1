#pragma once

// Extraction by the scene graph's own iterator, triangle by triangle and value by value: the
// oracle for the fast way.

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_geometry_tools.h>

#include "tests/support/whole_elements.h"

#include "triangle_scenes.h"

namespace tri {

/// What a geoset should hold: all rows, and which attributes it has by now.
struct naive_soup {
    rows vertices;
    bool normals = false, colors = false, secondary = false, ids = false;
    unsigned int offered = 0; ///< vertices of all triangles, kept or not
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

/// What a set-up adds: normals, if there are none so far.
inline void naiveSetup(naive_soup& all) {
    if (all.normals || all.offered == 0)
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
        return placed ? ::osg::Pnt3f(2 * p[0] + 8, 2 * p[1] - 4, 2 * p[2] + 0.5F) : p;
    }
    ::osg::Vec3f normal(const ::osg::Vec3f& n) const {
        return !placed || n.length() < 1e-6F ? n : n * (1.0F / n.length());
    }
    ::osg::Matrix matrix() const {
        return ::osg::Matrix(2, 0, 0, 8, 0, 2, 0, -4, 0, 0, 2, 0.5F, 0, 0, 0, 1);
    }
};

/// Appends a geometry. Returns the triangles left out.
inline unsigned int naiveExtract(const ::osg::GeometryPtr& g, naive_soup& out,
                                 const placement& place) {
    const unsigned int triangles = morva::osg::getNumberOfTriangles(g);
    if (triangles == 0)
        return 0;
    const ::osg::Color3f white(1.0F, 1.0F, 1.0F);
    const ::osg::Vec3f up(0.0F, 1.0F, 0.0F);
    const bool has_normals = g->getNormals() != ::osg::NullFC;
    const bool has_colors = g->getColors() != ::osg::NullFC;
    const bool has_secondary = g->getSecondaryColors() != ::osg::NullFC;
    const bool has_ids = g->getTexCoords7() != ::osg::NullFC;
    rows& all = out.vertices;
    addAttribute(out.normals, has_normals, all, [&](corner& c) { c.normal = up; });
    addAttribute(out.colors, has_colors, all, [&](corner& c) { c.color = white; });
    addAttribute(out.secondary, has_secondary, all, [&](corner& c) { c.secondary = white; });
    out.ids = out.ids || has_ids;

    unsigned int rogue = 0;
    for (::osg::TriangleIterator it = g->beginTriangles();
         !it.isAtEnd() && morva_test::isWhole(it, 3); ++it) {
        const ::osg::Pnt3f p[3] = {place.point(it.getPosition(0)), place.point(it.getPosition(1)),
                                   place.point(it.getPosition(2))};
        if (morva::osg::is_rogue(p[0], p[1], p[2])) {
            ++rogue;
            continue;
        }
        for (::osg::Int32 k = 0; k < 3; ++k) {
            corner c = cornerAt(it, k);
            c.position = p[k];
            c.uv[0] = it.getTexCoords(k);
            c.uv[1] = it.getTexCoords1(k);
            c.uv[2] = it.getTexCoords2(k);
            c.uv[3] = it.getTexCoords3(k);
            if (out.normals)
                c.normal = has_normals ? place.normal(c.normal) : up;
            if (out.colors && !has_colors)
                c.color = white;
            if (out.secondary && !has_secondary)
                c.secondary = white;
            all.push_back(c);
        }
    }
    out.offered += 3 * triangles;
    if (out.normals && !has_normals)
        calculateAll(out,
                     [](const auto& core) { morva::osg::calcCreaseNormals(core, 0.5235988F); });
    return rogue;
}

} // namespace tri
