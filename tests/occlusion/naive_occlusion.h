#pragma once

// Occlusion once more, step by step: one ray after the other by the literal steps of the trees, and
// the values in the order of the vertices.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>
#include <morva/trees/ray_traversal.h>

namespace morva_test {

using morva::float3;

inline float3 plain(const ::osg::Pnt3f& p) { return {p[0], p[1], p[2]}; }

/// The directions of a point's rays, x by x.
inline std::vector<float3> raysOf(int shots) {
    const auto part = [shots](int step) { return float(2.0 * step / shots - 1); };
    std::vector<float3> rays;
    for (int i = 0, edge = shots + 1; i < edge * edge * edge; ++i)
        rays.push_back({part(i / edge / edge), part(i / edge % edge), part(i % edge)});
    return rays;
}

/// The geometry that is baked: a root that is one itself is all.
inline node_list listed(const ::osg::NodePtr& root) {
    if (coreOf(root) != ::osg::NullFC)
        return {root};
    node_list nodes;
    morva::osg::getGeometryNodes(root, nodes, false);
    return nodes;
}

struct naive_scene {
    morva::osg::bih_scene_geoset parts;
    morva::bih_tree<float> tree;

    explicit naive_scene(const ::osg::NodePtr& root) {
        const stream_capture quiet(std::cout);
        parts.with_geosets = true;
        parts.nodes = listed(root);
        parts.build(::osg::NullFC, {5, 100});
        compile(parts, tree, {1, 100});
    }

    /// The distance of the nearest hit of a point's ray, or -1.
    float distanceOf(const float3& at, const float3& normal, const float3& ray) const {
        float3 from, way, inverse, to;
        for (std::size_t k = 0; k < 3; ++k) {
            from[k] = float(double(at[k]) + double(ray[k]) * 0.0001);
            way[k] = ray[k] + normal[k];
            inverse[k] = 1 / way[k];
        }
        float in = 0, out = 0;
        if (!std::isfinite(from[0] + from[1] + from[2] + way[0] + way[1] + way[2]) ||
            (way[0] == 0 && way[1] == 0 && way[2] == 0) ||
            !morva::clip_ray(parts.box, from, way, in, out))
            return -1;
        for (std::size_t k = 0; k < 3; ++k)
            to[k] = way[k] * out + from[k];
        morva::intersection_point<float, float3, float3> hit;
        morva::empty_trace_statistics none;
        fire_ray_rec(tree, 0, parts, from, to, inverse, in, out, hit, none, -1);
        return hit.hit ? morva::detail::distance<float, float3>(at, hit.point) : -1;
    }

    float value(const float3& at, const float3& normal, const std::vector<float3>& rays,
                double distance) const {
        int full = 0;
        double partial = 0;
        for (const float3& ray : rays) {
            const auto d = double(distanceOf(at, normal, ray));
            if (d >= 0 && d < distance)
                ++full;
            else if (d >= 0 && d < 2 * distance)
                partial += (d - distance) / distance;
        }
        return float(1.0 - double(float(full + partial) / float(rays.size())));
    }
};

/// The values that a geometry of a prepared scene gets, one per position.
inline std::vector<float> naiveValues(const naive_scene& scene, const ::osg::NodePtr& node,
                                      const std::vector<float3>& rays, double distance) {
    const ::osg::GeometryPtr core = coreOf(node);
    const ::osg::Matrix matrix = node->getToWorld();
    const bool in_world = matrix == ::osg::Matrix::identity();
    std::vector<float> values;
    for (::osg::UInt32 i = 0; i < core->getPositions()->size(); ++i) {
        ::osg::UInt32 first = in_world ? 0 : i; // of those at this place, which all look alike
        const ::osg::Pnt3f at = core->getPositions()->getValue(i);
        while (first < i && !std::equal(at.getValues(), at.getValues() + 3,
                                        core->getPositions()->getValue(first).getValues()))
            ++first;
        ::osg::Vec3f normal(0, 0, 0);
        if (core->getNormals() != ::osg::NullFC && first < core->getNormals()->size())
            normal = core->getNormals()->getValue(first);
        matrix.multMatrixVec(normal);
        if (!(normal.length() < 1e-6f))
            normal *= 1 / normal.length();
        ::osg::Pnt3f world;
        matrix.multMatrixPnt(core->getPositions()->getValue(i), world);
        values.push_back(
            scene.value(plain(world), {normal[0], normal[1], normal[2]}, rays, distance));
    }
    return values;
}

} // namespace morva_test
