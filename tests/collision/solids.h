#pragma once

// Shapes for tests of collision, as separate triangles, wound so that they face outwards.

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGQuaternion.h>
#include <OpenSG/OSGVector.h>

#include "tests/support/scene_builders.h"

namespace morva_test {

inline mesh_data meshOfTriangles(const std::vector<::osg::Pnt3f>& corners) {
    mesh_data mesh;
    mesh.primitives = {{GL_TRIANGLES, static_cast<unsigned>(corners.size())}};
    mesh.positions = corners;
    return mesh;
}

/// A ball of radius 1; 4 rings (rings - 1) triangles.
inline mesh_data ballMesh(unsigned rings) {
    const double pi = std::acos(-1.0);
    const auto at = [&](unsigned i, unsigned j) {
        const double theta = pi * i / rings, phi = pi * (j % (2 * rings)) / rings;
        const double around = i == 0 || i == rings ? 0.0 : std::sin(theta); // poles are one point
        return ::osg::Pnt3f(static_cast<float>(around * std::cos(phi)),
                            static_cast<float>(around * std::sin(phi)),
                            static_cast<float>(std::cos(theta)));
    };
    std::vector<::osg::Pnt3f> corners;
    for (unsigned i = 0; i < rings; ++i) {
        for (unsigned j = 0; j < 2 * rings; ++j) {
            if (i != 0)
                corners.insert(corners.end(), {at(i, j), at(i + 1, j), at(i, j + 1)});
            if (i + 1 != rings)
                corners.insert(corners.end(), {at(i, j + 1), at(i + 1, j), at(i + 1, j + 1)});
        }
    }
    return meshOfTriangles(corners);
}

/// A cube from -1 to 1 whose faces are grids of `cells` by `cells` squares.
inline mesh_data blockMesh(unsigned cells) {
    std::vector<::osg::Pnt3f> corners;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        for (const float side : {-1.F, 1.F}) {
            const auto at = [&](unsigned i, unsigned j) {
                ::osg::Pnt3f p;
                const float step = 2.F / static_cast<float>(cells);
                p[axis] = side;
                p[(axis + 1) % 3] = side * (static_cast<float>(i) * step - 1.F);
                p[(axis + 2) % 3] = static_cast<float>(j) * step - 1.F;
                return p;
            };
            for (unsigned i = 0; i < cells; ++i)
                for (unsigned j = 0; j < cells; ++j)
                    corners.insert(corners.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1),
                                                   at(i, j), at(i + 1, j + 1), at(i, j + 1)});
        }
    }
    return meshOfTriangles(corners);
}

/// A wavy sheet of `cells` by `cells` squares from -1 to 1; open.
inline mesh_data waveMesh(unsigned cells) {
    std::vector<::osg::Pnt3f> corners;
    const auto at = [&](unsigned i, unsigned j) {
        const float x = 2.F * static_cast<float>(i) / static_cast<float>(cells) - 1.F;
        const float y = 2.F * static_cast<float>(j) / static_cast<float>(cells) - 1.F;
        return ::osg::Pnt3f(x, y, 0.2F * std::sin(5.F * x) * std::cos(4.F * y));
    };
    for (unsigned i = 0; i < cells; ++i)
        for (unsigned j = 0; j < cells; ++j)
            corners.insert(corners.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j),
                                           at(i + 1, j + 1), at(i, j + 1)});
    return meshOfTriangles(corners);
}

/// `count` triangles that are all the same, which no tree divides.
inline mesh_data pileMesh(unsigned count) {
    std::vector<::osg::Pnt3f> corners;
    for (unsigned i = 0; i < count; ++i)
        corners.insert(corners.end(),
                       {::osg::Pnt3f(0.9F, 0.1F, -0.3F), ::osg::Pnt3f(-0.7F, 0.8F, 0.2F),
                        ::osg::Pnt3f(-0.4F, -0.9F, 0.5F)});
    return meshOfTriangles(corners);
}

/// The same mesh behind a matrix.
inline mesh_data baked(mesh_data mesh, const ::osg::Matrix& matrix) {
    for (::osg::Pnt3f& p : mesh.positions)
        matrix.multMatrixPnt(p);
    return mesh;
}

inline ::osg::Vec3f randomVector(std::mt19937& rng, float reach) {
    std::uniform_real_distribution<float> part(-reach, reach);
    const float x = part(rng), y = part(rng);
    return ::osg::Vec3f(x, y, part(rng));
}

/// Turned about any axis, scaled and moved.
inline ::osg::Matrix placed(std::mt19937& rng, const ::osg::Vec3f& by, const ::osg::Vec3f& scale) {
    ::osg::Matrix matrix;
    const ::osg::Vec3f axis = randomVector(rng, 1.F);
    matrix.setTransform(by, ::osg::QuaternionBase<::osg::Real32>(axis, randomVector(rng, 3.F)[0]),
                        scale);
    return matrix;
}

} // namespace morva_test
