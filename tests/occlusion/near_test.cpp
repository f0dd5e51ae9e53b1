// What is known of rays without a descent, beside the descent.

#include "tests/collision/solids.h"
#include "tests/support/stream_capture.h"
#include "tests/support/test.h"

#include <limits>

#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>

namespace {

using namespace morva_test;
using morva::float3;

/// A sheet of many triangles in one plane that no axis fits.
mesh_data tilted(std::mt19937& rng) {
    const ::osg::Vec3f right = anyVector(rng, 1), up = anyVector(rng, 1);
    std::vector<::osg::Pnt3f> corners;
    for (int i = 0; i < 60; ++i) {
        const float x = between(rng, -1, 1), y = between(rng, -1, 1);
        for (const auto& [u, v] : {std::pair(0.0F, 0.0F), {0.2F, 0.0F}, {0.0F, 0.2F}})
            corners.push_back(::osg::Pnt3f(0, 0, 0) + right * (x + u) + up * (y + v));
    }
    return triangles(corners);
}

/// Parts that overlap: soups, blocks whose faces lie on a lattice, and sheets.
::osg::NodePtr overlapping(std::mt19937& rng, float far) {
    node_list parts;
    for (int part = 0; part < 6; ++part) {
        mesh_data mesh = part % 3 == 0 ? soup(rng, 40) : part % 3 == 1 ? blockMesh(2) : tilted(rng);
        for (::osg::Pnt3f& p : mesh.positions)
            for (unsigned a = 0; a < 3; ++a)
                p[a] = far + p[a] * 2 + float(rng() % 2 != 0 && part == 1);
        parts.push_back(meshNode(mesh));
    }
    return group(parts);
}

/// From a corner of a triangle: anywhere, along an axis, or in the plane of the triangle.
float3 anyWay(const morva::float_triangle& triangle, std::mt19937& rng) {
    std::normal_distribution<float> any;
    float3 way{any(rng), any(rng), any(rng)};
    const float x = any(rng), y = any(rng), shrink = std::pow(0.1F, float(rng() % 3));
    const unsigned kind = rng() % 4, axis = rng() % 3;
    for (std::size_t a = 0; a < 3; ++a) {
        if (kind >= 2)
            way[a] = x * (triangle.b[a] - triangle.a[a]) + y * (triangle.c[a] - triangle.a[a]);
        way[a] *= kind == 1 && a != axis ? 0.0F : shrink;
    }
    return way;
}

struct tally {
    int near = 0, told = 0;
};

/// Fires rays from corners of a scene, and asks whether what they hit, as the descent says, is
/// nearer than it is, and than a little farther.
void compare(const ::osg::NodePtr& root, std::mt19937& rng, tally& sum) {
    const stream_capture silence(std::cout);
    const morva::osg::traced_scene scene(root);
    ASSERT_NE(scene.quick, nullptr);
    morva::osg::occlusion_rays trace = scene.rays();
    for (int shot = 0; shot < 3000; ++shot) {
        const auto& part = scene.parts.geosets[rng() % scene.parts.built_count];
        const morva::float_triangle& triangle = part.simple_tris[rng() % part.size];
        const morva::osg::occlusion_ray ray(triangle.a, {}, anyWay(triangle, rng));
        float3 hit;
        const bool is_hit = trace(ray, hit);
        const double way = is_hit ? double(morva::detail::distance<float, float3>(triangle.a, hit))
                                  : std::numeric_limits<double>::infinity();
        ASSERT_FALSE(trace.near(triangle.a, way).stops(rng() % 8, ray)) << way;
        sum.near += is_hit;
        sum.told += is_hit && trace.near(triangle.a, 1.5 * way + 1).stops(rng() % 8, ray);
    }
}

TEST(NearHits, NothingIsToldThatTheDescentDoesNotSay) {
    for (const float far : {0.0F, 1000.0F, 1e5F, 3e7F}) {
        tally sum;
        for (unsigned seed = 0; seed < 8; ++seed) {
            std::mt19937 rng(seed);
            const node_ref root(overlapping(rng, far));
            compare(root.get(), rng, sum);
        }
        if (far < 1e6F) { // farther off, rounding is as large as the parts
            EXPECT_GT(sum.told, sum.near * 9 / 10) << far;
        }
    }
}

} // namespace
