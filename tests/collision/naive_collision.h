#pragma once

// A twin of the collision test: every pair of nodes, every step with plain scalars, on the trees
// that the library keeps with the cores.

#include <array>
#include <cmath>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/trees/bih_tree.h>

namespace morva_test {

using triple = std::array<float, 3>;
using box_of_triples = std::array<triple, 2>; ///< lowest and highest corner

struct naive_result {
    bool collided = false;
    ::osg::Pnt3f point;
    ::osg::NodePtr a, b;
    std::uint64_t pairs = 0; ///< of triangles
};

class naive_collision {
  public:
    /// The matrix that takes B into A's coordinates.
    static ::osg::Matrix poseOf(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
        ::osg::Matrix pose = inverseOf(a->getToWorld());
        pose.mult(b->getToWorld());
        return pose;
    }

    static naive_result collide(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
        naive_result result;
        for (const ::osg::NodePtr& node : {a, b})
            if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
                return result;
        const box_of_triples box_a = boxOf(a), box_b = boxOf(b);
        const ::osg::Matrix pose = poseOf(a, b);
        for (const ::osg::Matrix& matrix : {a->getToWorld(), b->getToWorld(), pose})
            for (int i = 0; i < 16; ++i)
                if (!std::isfinite(matrix.getValues()[i]))
                    return result;
        box_of_triples moved = aroundCorners(pose, box_b);
        for (std::size_t k = 0; k < 3; ++k)
            if (moved[0][k] > box_a[1][k] || box_a[0][k] > moved[1][k])
                return result;
        const morva::osg::BIHAttachPayload *tree_a = payloadOf(a), *tree_b = payloadOf(b);
        if (tree_a->tree->active == 0 || tree_b->tree->active == 0)
            return result;
        naive_collision test(*tree_a, *tree_b, pose);
        triple contact{};
        result.collided = test.nodes(box_a, moved, box_b, 0, 0, contact);
        result.pairs = test.pairs_;
        if (result.collided)
            a->getToWorld().multMatrixPnt(::osg::Pnt3f(contact[0], contact[1], contact[2]),
                                          result.point);
        return result;
    }

    /// All pairs in contact, in order.
    static std::vector<naive_result> collideAll(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
        std::list<::osg::NodePtr> list_a, list_b;
        morva::osg::collect_geo_nodes(a, list_a);
        morva::osg::collect_geo_nodes(b, list_b);
        std::vector<naive_result> all;
        for (const ::osg::NodePtr& node_a : list_a) {
            for (const ::osg::NodePtr& node_b : list_b) {
                naive_result result = collide(node_a, node_b);
                result.a = node_a;
                result.b = node_b;
                if (result.collided)
                    all.push_back(result);
            }
        }
        return all;
    }

    static box_of_triples boxOf(const ::osg::NodePtr& node) {
        node->updateVolume();
        ::osg::Pnt3f low, high;
        node->getVolume().getBounds(low, high);
        return {triple{low[0], low[1], low[2]}, triple{high[0], high[1], high[2]}};
    }

    static box_of_triples aroundCorners(const ::osg::Matrix& pose, const box_of_triples& box) {
        box_of_triples around{};
        for (std::size_t corner = 0; corner < 8; ++corner) {
            ::osg::Pnt3f p(box[corner & 1][0], box[corner >> 1 & 1][1], box[corner >> 2][2]);
            pose.multMatrixPnt(p);
            for (::osg::UInt32 k = 0; k < 3; ++k) {
                around[0][k] = corner == 0 ? p[k] : std::min(around[0][k], p[k]);
                around[1][k] = corner == 0 ? p[k] : std::max(around[1][k], p[k]);
            }
        }
        return around;
    }

    /// The payload of a node's core; made if there is none.
    static const morva::osg::BIHAttachPayload* payloadOf(const ::osg::NodePtr& node) {
        const auto find = [&node] {
            return ::osg::MorvaAttachBIHPtr::dcast(node->getCore()->findAttachment(
                ::osg::MorvaAttachBIH::getClassType().getGroupId(), 0));
        };
        if (find() == ::osg::NullFC)
            morva::osg::attach_bih(node);
        return &find()->getFieldPtr()->getValue();
    }

  private:
    naive_collision(const morva::osg::BIHAttachPayload& a, const morva::osg::BIHAttachPayload& b,
                    const ::osg::Matrix& pose)
        : a_(a), b_(b), pose_(pose) {}

    static ::osg::Matrix inverseOf(const ::osg::Matrix& matrix) {
        const auto minor = [&matrix](::osg::UInt32 row, ::osg::UInt32 column) {
            double m[3][3];
            for (::osg::UInt32 r = 0, i = 0; r < 4; ++r)
                for (::osg::UInt32 c = 0; c < 4; ++c)
                    if (r != row && c != column)
                        m[i / 3][i % 3] = double{matrix[c][r]}, ++i;
            return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                   m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                   m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        };
        const auto sign = [](::osg::UInt32 i) { return i % 2 == 0 ? 1.0 : -1.0; };
        double determinant = 0.0;
        for (::osg::UInt32 c = 0; c < 4; ++c)
            determinant += sign(c) * double{matrix[c][0]} * minor(0, c);
        ::osg::Matrix inverse;
        for (::osg::UInt32 c = 0; c < 4 && std::abs(determinant) >= 1e-30; ++c)
            for (::osg::UInt32 r = 0; r < 4; ++r)
                inverse[c][r] = static_cast<float>(sign(r + c) * minor(c, r) / determinant);
        return inverse;
    }

    bool nodes(const box_of_triples& box_a, const box_of_triples& box_b, const box_of_triples& own,
               std::uint64_t node_a, std::uint64_t node_b, triple& contact) {
        for (std::size_t k = 0; k < 3; ++k)
            if (box_b[0][k] > box_a[1][k] || box_a[0][k] > box_b[1][k])
                return false;
        const morva::bih_node<float>& a = a_.tree->nodes[node_a];
        const morva::bih_node<float>& b = b_.tree->nodes[node_b];
        if (a.axis < 0 && b.axis < 0)
            return leaves(a, b, contact);
        // Child 0 is the left one. The boxes of both, where there are children.
        box_of_triples half_a[2] = {box_a, box_a}, half_b[2] = {box_b, box_b}, half[2] = {own, own};
        std::uint64_t child_a[2] = {node_a + 1, static_cast<std::uint64_t>(a.right)};
        std::uint64_t child_b[2] = {node_b + 1, static_cast<std::uint64_t>(b.right)};
        if (a.axis >= 0) {
            half_a[0][1][static_cast<std::size_t>(a.axis)] = a.left_plane;
            half_a[1][0][static_cast<std::size_t>(a.axis)] = a.right_plane;
        }
        if (b.axis >= 0)
            cutB(b, own, half_b, half);
        const auto go = [&](int which_a, int which_b) {
            return nodes(a.axis < 0 ? box_a : half_a[which_a], half_b[which_b], half[which_b],
                         a.axis < 0 ? node_a : child_a[which_a],
                         b.axis < 0 ? node_b : child_b[which_b], contact);
        };
        if (a.axis < 0 || b.axis < 0)
            return go(0, 0) || go(1, 1);
        return go(1, 0) || go(0, 1) || go(0, 0) || go(1, 1);
    }

    void cutB(const morva::bih_node<float>& b, const box_of_triples& own,
              box_of_triples (&moved)[2], box_of_triples (&half)[2]) const {
        const auto k = static_cast<std::size_t>(b.axis);
        const float above = own[1][k] - b.left_plane, below = b.right_plane - own[0][k];
        for (::osg::UInt32 i = 0; i < 3; ++i) {
            const float coefficient = pose_[static_cast<::osg::UInt32>(k)][i];
            const std::size_t high = coefficient >= 0.F ? 1 : 0;
            moved[0][high][i] -= above * coefficient;
            moved[1][1 - high][i] += below * coefficient;
        }
        half[0][1][k] = b.left_plane;
        half[1][0][k] = b.right_plane;
    }

    using corners = std::array<triple, 3>;

    static corners cornersOf(const morva::float_triangle& t) {
        return {triple{t.a[0], t.a[1], t.a[2]}, triple{t.b[0], t.b[1], t.b[2]},
                triple{t.c[0], t.c[1], t.c[2]}};
    }

    corners movedCorners(const morva::float_triangle& t) const {
        corners moved = cornersOf(t);
        for (triple& corner : moved) {
            ::osg::Pnt3f p(corner[0], corner[1], corner[2]);
            pose_.multMatrixPnt(p);
            corner = {p[0], p[1], p[2]};
        }
        return moved;
    }

    bool leaves(const morva::bih_node<float>& a, const morva::bih_node<float>& b, triple& contact) {
        for (std::uint32_t i = 0; i < a.count; ++i) {
            const corners one =
                cornersOf(a_.geoset->triangles[a_.tree->indices[std::size_t{a.first} + i]]);
            for (std::uint32_t j = 0; j < b.count; ++j) {
                ++pairs_;
                const corners other =
                    movedCorners(b_.geoset->triangles[b_.tree->indices[std::size_t{b.first} + j]]);
                for (std::size_t k = 0; k < 6; ++k) {
                    const corners& through = k < 3 ? one : other;
                    const corners& edges = k < 3 ? other : one;
                    if (passes(edges[k % 3], edges[(k + 1) % 3], through, contact))
                        return true;
                }
            }
        }
        return false;
    }

    static triple minus(const triple& a, const triple& b) {
        return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    }
    static triple cross(const triple& a, const triple& b) {
        return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    }
    static float dot(const triple& a, const triple& b) {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    }

    static bool passes(const triple& p, const triple& q, const corners& t, triple& contact) {
        const triple n = cross(minus(t[1], t[0]), minus(t[2], t[0]));
        const float d = dot(minus(p, q), n), s = dot(minus(p, t[0]), n);
        if (d <= 0.F || s < 0.F || s > d)
            return false;
        const triple e = cross(minus(p, q), minus(p, t[0]));
        const float v = dot(minus(t[2], t[0]), e), w = -dot(minus(t[1], t[0]), e);
        if (v < 0.F || v > d || w < 0.F || v + w > d)
            return false;
        for (std::size_t k = 0; k < 3; ++k)
            contact[k] = p[k] + (q[k] - p[k]) * (1.F / d * s);
        return true;
    }

    const morva::osg::BIHAttachPayload& a_;
    const morva::osg::BIHAttachPayload& b_;
    const ::osg::Matrix pose_;
    std::uint64_t pairs_ = 0;
};

} // namespace morva_test
