#pragma once

// Occlusion once more, step by step: the triangles of a scene part by part, the plain trees of the
// tree tests over them, one ray after the other, and the values in the order of the vertices.

#include "tests/trees/naive_bih.h"

#include <map>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

namespace morva_test {

inline float3 plain(const ::osg::Pnt3f& p) { return {p[0], p[1], p[2]}; }

struct naive_scene {
    std::vector<flat_triangles> parts; ///< in the world, those that may be kept
    std::vector<naive_bih> trees;
    std::vector<morva::float_box> boxes;
    morva::float_box box;
    std::vector<naive_bih> top; ///< one, or none for an empty scene

    explicit naive_scene(const ::osg::NodePtr& root) {
        node_list nodes;
        if (coreOf(root) != ::osg::NullFC)
            nodes = {root};
        else
            morva::osg::getGeometryNodes(root, nodes, false);
        for (const ::osg::NodePtr& node : nodes)
            take(node);
        std::vector<box3> extents;
        for (const morva::float_box& part : boxes) {
            extents.push_back({});
            for (std::size_t a = 0; a < 3; ++a)
                extents.back()[a] = {part.min[a], part.max[a]};
        }
        if (parts.empty())
            return;
        box = around(extents);
        morva::repair_flat_axes(box);
        top.emplace_back(extents, box, morva::build_setup{1, 100});
    }

    static morva::float_box around(const std::vector<box3>& extents) {
        morva::float_box result;
        for (std::size_t a = 0; a < 3; ++a) {
            result.min[a] = extents[0][a][0];
            result.max[a] = extents[0][a][1];
            for (const box3& one : extents) {
                result.min[a] = one[a][0] < result.min[a] ? one[a][0] : result.min[a];
                result.max[a] = one[a][1] > result.max[a] ? one[a][1] : result.max[a];
            }
        }
        result.refresh_extent();
        return result;
    }

    void take(const ::osg::NodePtr& node) {
        flat_triangles list;
        const ::osg::Matrix matrix = node->getToWorld();
        const ::osg::GeometryPtr core = coreOf(node);
        if (core->getPositions() == ::osg::NullFC)
            return;
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            ::osg::Pnt3f p[3];
            for (int k = 0; k < 3; ++k)
                matrix.multMatrixPnt(it.getPosition(k), p[k]);
            if (!morva::osg::is_rogue(p[0], p[1], p[2]))
                list.push_back({plain(p[0]), plain(p[1]), plain(p[2])});
        }
        if (list.empty())
            return;
        const auto extents = extents_of(list);
        boxes.push_back(around(extents));
        trees.emplace_back(extents, boxes.back(), morva::build_setup{5, 100});
        parts.push_back(std::move(list));
    }

    static bool clip(const morva::float_box& box, const float3& from, const float3& way, float& in,
                     float& out) {
        in = 0;
        out = 3.4028235e38f;
        for (std::size_t a = 0; a < 3; ++a) {
            if (std::abs(way[a]) < 1e-6f) {
                if (from[a] < box.min[a] || from[a] > box.max[a])
                    return false;
                continue;
            }
            const float inverse = 1 / way[a];
            float first = (box.min[a] - from[a]) * inverse, last = (box.max[a] - from[a]) * inverse;
            if (first > last)
                std::swap(first, last);
            in = first > in ? first : in;
            out = last < out ? last : out;
            if (in > out)
                return false;
        }
        return true;
    }

    static float3 along(const float3& from, const float3& way, float t) {
        return {way[0] * t + from[0], way[1] * t + from[1], way[2] * t + from[2]};
    }
    static float apart(const float3& a, const float3& b) {
        const auto v = less(a, b);
        return std::sqrt(dot_of(v, v));
    }

    /// A part, with its far end a little behind its box.
    void part(std::uint64_t e, const float3& from, const float3& inverse, ray_hit& best) const {
        const float3 way{1 / inverse[0], 1 / inverse[1], 1 / inverse[2]};
        float in, out;
        if (!clip(boxes[e], from, way, in, out))
            return;
        out = std::min(out * 1.00001f, std::numeric_limits<float>::max());
        ray_hit own;
        naive_ray{trees[e], parts[e], from, along(from, way, out), inverse, -1, own}.fire(0, in,
                                                                                          out);
        own.t = apart(from, own.point);
        if (own.hit && (!best.hit || best.t > own.t))
            best = own;
    }

    void fire(std::size_t index, const float3& from, const float3& inverse, float t_min,
              float t_max, ray_hit& best) const {
        const naive_bih_node& node = top[0].nodes[index];
        for (std::uint64_t k = node.first; node.axis < 0 && k < node.first + node.count; ++k)
            part(top[0].indices[k], from, inverse, best);
        if (node.axis < 0)
            return;
        const auto a = std::size_t(node.axis);
        std::size_t near = index + 1, far = std::size_t(node.right);
        float t_near = (node.left_plane - from[a]) * inverse[a];
        float t_far = (node.right_plane - from[a]) * inverse[a];
        if (0 > inverse[a]) {
            std::swap(near, far);
            std::swap(t_near, t_far);
        }
        if (t_min > t_near)
            return fire(far, from, inverse, t_far > t_min ? t_far : t_min, t_max, best);
        const float sooner = t_near < t_max ? t_near : t_max;
        if (t_far > t_max)
            return fire(near, from, inverse, t_min, sooner, best);
        fire(near, from, inverse, t_min, sooner, best);
        if (best.hit) {
            t_max = apart(from, best.point);
            if (t_far > t_max)
                return;
        }
        fire(far, from, inverse, t_far > t_min ? t_far : t_min, t_max, best);
    }

    /// The nearest hit of a point's ray, if any.
    bool meets(const float3& at, const float3& normal, const float3& ray, float3& point) const {
        float3 from, way, inverse;
        for (std::size_t k = 0; k < 3; ++k) {
            from[k] = float(double(at[k]) + double(ray[k]) * 0.0001);
            way[k] = ray[k] + normal[k];
            inverse[k] = 1 / way[k];
        }
        float in, out;
        if (top.empty() || (way[0] == 0 && way[1] == 0 && way[2] == 0) ||
            !clip(box, from, way, in, out))
            return false;
        ray_hit best;
        fire(0, from, inverse, in, out, best);
        point = best.point;
        return best.hit;
    }

    float value(const float3& at, const float3& normal, int shots, double distance) const {
        int full = 0, rays = 0;
        double partial = 0;
        for (int i = 0; i <= shots; ++i)
            for (int j = 0; j <= shots; ++j)
                for (int k = 0; k <= shots; ++k, ++rays) {
                    const float3 ray{float(2.0 * i / shots - 1), float(2.0 * j / shots - 1),
                                     float(2.0 * k / shots - 1)};
                    float3 point;
                    if (!meets(at, normal, ray, point))
                        continue;
                    const double d = double(apart(at, point));
                    if (d < distance)
                        ++full;
                    else if (d < 2 * distance)
                        partial += (d - distance) / distance;
                }
        return float(1.0 - double(float(full + partial) / float(rays)));
    }
};

/// The values that a geometry of a prepared scene gets, one per position.
inline std::vector<float> naiveValues(const naive_scene& scene, const ::osg::NodePtr& node,
                                      int shots, double distance) {
    const ::osg::GeometryPtr core = coreOf(node);
    const ::osg::Matrix matrix = node->getToWorld();
    const bool in_world = matrix == ::osg::Matrix::identity();
    std::map<std::array<float, 3>, float> known;
    std::vector<float> values;
    for (::osg::UInt32 i = 0; i < core->getPositions()->size(); ++i) {
        const ::osg::Pnt3f local = core->getPositions()->getValue(i);
        const std::array<float, 3> key{local[0], local[1], local[2]};
        const bool keyed = in_world && !std::isnan(key[0] + key[1] + key[2]);
        if (keyed && known.count(key) != 0) {
            values.push_back(known[key]);
            continue;
        }
        ::osg::Vec3f normal(0, 0, 0);
        if (core->getNormals() != ::osg::NullFC && i < core->getNormals()->size())
            normal = core->getNormals()->getValue(i);
        matrix.multMatrixVec(normal);
        if (!(normal.length() < 1e-6f))
            normal *= 1 / normal.length();
        ::osg::Pnt3f world;
        matrix.multMatrixPnt(local, world);
        values.push_back(
            scene.value(plain(world), {normal[0], normal[1], normal[2]}, shots, distance));
        if (keyed)
            known[key] = values.back();
    }
    return values;
}

inline double diagonalOf(const ::osg::NodePtr& root) {
    root->updateVolume();
    ::osg::Pnt3f min, max;
    root->getVolume().getBounds(min, max);
    return double((max - min).length());
}

} // namespace morva_test
