#pragma once

// Elements of triangles, lines and points for the tests of the geosets: into one, and cut.

#include "tests/support/flat_geosets.h"

#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/trees/kd_rules.h>
#include <morva/trees/kd_tree.h>

namespace tri {

using morva::osg::osg_line_geoset;
using morva::osg::osg_point_geoset;

/// Whether numbers are equal, where a NaN equals a NaN.
inline bool same(const std::vector<float>& a, const std::vector<float>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](float x, float y) { return x == y || (std::isnan(x) && std::isnan(y)); });
}

inline std::vector<float> numbersOf(const piece& p) {
    const float* first = p.empty() ? nullptr : &p[0][0];
    return {first, first + 3 * p.size()};
}

/// `count` elements of 3, 2 or 1 corners side by side along x, the right angle of each at
/// (x, y, z). Points are what getNumberOfPoints() counts: runs of GL_LINES.
inline mesh_data elements(unsigned corners, unsigned count, const ::osg::Vec3f& at = {0, 0, 0}) {
    const ::osg::Pnt3f shape[3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh_data mesh = meshOf({{corners == 3 ? 4U : 1U, corners * count}}, {});
    for (unsigned i = 0; i < corners * count; ++i)
        mesh.positions.push_back(shape[i % corners] + at + ::osg::Vec3f(float(i / corners), 0, 0));
    return mesh;
}

/// Triangles anywhere, each with its corners along the three axes from one point: no slivers.
inline piece scattered(std::mt19937& rng, std::size_t count) {
    std::uniform_real_distribution<float> anywhere(-1.0F, 1.0F), away(0.1F, 0.3F);
    piece positions;
    for (std::size_t i = 0; i < count; ++i) {
        const float x = anywhere(rng), y = anywhere(rng), z = anywhere(rng);
        positions.insert(positions.end(), 3, {x, y, z});
        for (::osg::UInt32 k = 0; k < 3; ++k)
            positions[3 * i + k][k] += rng() % 2 == 0 ? away(rng) : -away(rng);
    }
    return positions;
}

using wishes = morva::osg::extract_options;
constexpr wishes set_up{false, false, false, true, false};

template <typename Geoset>
unsigned int pour(const mesh_data& mesh, Geoset& geoset, const wishes& w = {}) {
    return extract(node_ref(meshNode(mesh)).get(), geoset, w);
}

/// One triangle or more as a geoset, even those that extraction would leave out.
inline void fillRaw(osg_geoset& geoset, const piece& corners) {
    geoset.geometry = geometryOf(soup(corners));
    geoset.vertex_count = corners.size();
    geoset.setup();
}

/// What a cut told and made.
struct cut_result {
    int pieces = -1;
    unsigned long first = 0;
    std::string told;
};

/// The result of `act`, which takes the two numbers that a cut gives.
template <typename Act> cut_result cutBy(const Act& act) {
    cut_result result;
    result.told = toldBy([&] { act(result.pieces, result.first); });
    return result;
}

template <typename Geoset>
cut_result cut(Geoset& geoset, unsigned long element, double plane, int axis) {
    return cutBy([&](int& pieces, unsigned long& first) {
        geoset.splitElement(element, plane, axis, pieces, first);
    });
}

} // namespace tri
