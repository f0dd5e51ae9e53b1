#pragma once

// Shapes for tests of collision, as separate triangles, wound so that they face outwards.

#include <cmath>
#include <vector>

#include "tests/support/placed_scenes.h"

namespace morva_test {

using corner_list = std::vector<::osg::Pnt3f>;

/// Two triangles for each cell of a grid; `at(i, j)` is a corner.
template <typename At>
void addCells(corner_list& corners, unsigned rows, unsigned columns, const At& at) {
    for (unsigned i = 0; i < rows; ++i)
        for (unsigned j = 0; j < columns; ++j)
            for (const auto& [u, v] :
                 {std::pair(i, j), {i + 1, j}, {i + 1, j + 1}, {i, j}, {i + 1, j + 1}, {i, j + 1}})
                corners.push_back(at(u, v));
}

/// A ball of radius 1; 4 rings (rings - 1) triangles, and at the poles some of no size.
inline mesh_data ballMesh(unsigned rings) {
    corner_list corners;
    addCells(corners, rings, 2 * rings, [rings](unsigned i, unsigned j) {
        const double pi = std::acos(-1.0), theta = pi * i / rings;
        const double phi = pi * (j % (2 * rings)) / rings;
        const double around = i == 0 || i == rings ? 0.0 : std::sin(theta); // poles are one point
        return ::osg::Pnt3f(float(around * std::cos(phi)), float(around * std::sin(phi)),
                            float(std::cos(theta)));
    });
    return triangles(corners);
}

/// A cube from -1 to 1 whose faces are grids of `cells` by `cells` squares.
inline mesh_data blockMesh(unsigned cells) {
    corner_list corners;
    const float step = 2.F / float(cells);
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        for (const float side : {-1.F, 1.F}) {
            addCells(corners, cells, cells, [&](unsigned i, unsigned j) {
                ::osg::Pnt3f p;
                p[axis] = side;
                p[(axis + 1) % 3] = side * (float(i) * step - 1.F);
                p[(axis + 2) % 3] = float(j) * step - 1.F;
                return p;
            });
        }
    }
    return triangles(corners);
}

/// A wavy sheet of `cells` by `cells` squares from -1 to 1; open.
inline mesh_data waveMesh(unsigned cells) {
    corner_list corners;
    const float step = 2.F / float(cells);
    addCells(corners, cells, cells, [step](unsigned i, unsigned j) {
        const float x = step * float(i) - 1.F, y = step * float(j) - 1.F;
        return ::osg::Pnt3f(x, y, 0.2F * std::sin(5.F * x) * std::cos(4.F * y));
    });
    return triangles(corners);
}

/// `count` triangles that are all the same, which no tree divides.
inline mesh_data pileMesh(unsigned count) {
    corner_list corners;
    for (; count > 0; --count)
        corners.insert(corners.end(), {{.9F, .1F, -.3F}, {-.7F, .8F, .2F}, {-.4F, -.9F, .5F}});
    return triangles(corners);
}

/// The same triangles, seen from their other sides.
inline mesh_data turnedOver(mesh_data mesh) {
    for (std::size_t i = 0; i + 2 < mesh.positions.size(); i += 3)
        std::swap(mesh.positions[i], mesh.positions[i + 1]);
    return mesh;
}

inline ::osg::Matrix scaled(const ::osg::Vec3f& by, const ::osg::Vec3f& to = {0, 0, 0}) {
    ::osg::Matrix matrix;
    matrix.setTransform(to, ::osg::Quaternion(), by);
    return matrix;
}

/// The same mesh behind a matrix.
inline mesh_data baked(mesh_data mesh, const ::osg::Matrix& matrix) {
    for (::osg::Pnt3f& p : mesh.positions)
        matrix.multMatrixPnt(p);
    return mesh;
}

/// The mesh and, with its front inwards, the same one made smaller: a body with a hollow.
inline mesh_data hollowed(mesh_data mesh, float inner = 0.9F) {
    const mesh_data inside = turnedOver(baked(mesh, scaled({inner, inner, inner})));
    mesh.positions.insert(mesh.positions.end(), inside.positions.begin(), inside.positions.end());
    return triangles(mesh.positions);
}

} // namespace morva_test
