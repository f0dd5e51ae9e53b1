#pragma once

// A twin of the collision test: every pair of nodes, every step with plain scalars, on the trees
// that the library keeps with the cores.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <list>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>

namespace morva_test {

using ::osg::Matrix;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using ::osg::Vec3f;

struct naive_box {
    Pnt3f low, high;

    bool isApart(const naive_box& other) const {
        for (::osg::UInt32 k = 0; k < 3; ++k)
            if (other.low[k] > high[k] || low[k] > other.high[k])
                return true;
        return false;
    }
    /// Around the corners behind a matrix.
    naive_box behind(const Matrix& matrix) const {
        naive_box around;
        for (unsigned corner = 0; corner < 8; ++corner) {
            Pnt3f p((corner & 1 ? high : low)[0], (corner & 2 ? high : low)[1],
                    (corner & 4 ? high : low)[2]);
            matrix.multMatrixPnt(p);
            for (::osg::UInt32 k = 0; k < 3; ++k) {
                around.low[k] = corner == 0 ? p[k] : std::min(around.low[k], p[k]);
                around.high[k] = corner == 0 ? p[k] : std::max(around.high[k], p[k]);
            }
        }
        return around;
    }
};

/// The payload of a node's core; made if there is none.
inline const morva::osg::BIHAttachPayload* payloadOf(const NodePtr& node) {
    const auto find = [&node] {
        return ::osg::MorvaAttachBIHPtr::dcast(
            node->getCore()->findAttachment(::osg::MorvaAttachBIH::getClassType().getGroupId(), 0));
    };
    if (find() == ::osg::NullFC)
        morva::osg::attach_bih(node);
    return &find()->getFieldPtr()->getValue();
}

/// Two geometry nodes, taken through all steps.
struct naive_pair {
    NodePtr a, b;
    Matrix pose;                 ///< takes B into A's coordinates
    naive_box box_a, box_b, own; ///< the last two of B: in A's coordinates, and in its own
    const morva::osg::BIHAttachPayload *tree_a = nullptr, *tree_b = nullptr; ///< null: not needed
    bool collided = false;
    Pnt3f contact, point;    ///< in A's coordinates, in the world
    std::uint64_t pairs = 0; ///< of triangles

    naive_pair(const NodePtr& node_a, const NodePtr& node_b) : a(node_a), b(node_b) {
        box_a = boxOf(a);
        own = boxOf(b);
        pose = inverseOf(a->getToWorld());
        pose.mult(b->getToWorld());
        box_b = own.behind(pose);
        for (const Matrix& matrix : {a->getToWorld(), b->getToWorld(), pose})
            for (int i = 0; i < 16; ++i)
                if (!std::isfinite(matrix.getValues()[i]))
                    return;
        if (box_a.isApart(box_b))
            return;
        tree_a = payloadOf(a);
        tree_b = payloadOf(b);
        collided = tree_a->tree->active != 0 && tree_b->tree->active != 0 &&
                   descend(box_a, box_b, own, 0, 0);
        a->getToWorld().multMatrixPnt(contact, point);
    }

  private:
    static naive_box boxOf(const NodePtr& node) {
        naive_box box;
        node->updateVolume();
        node->getVolume().getBounds(box.low, box.high);
        return box;
    }

    /// By way of double precision; the identity if there is none.
    static Matrix inverseOf(const Matrix& matrix) {
        ::osg::Matrix4d wide;
        Matrix inverse;
        std::copy_n(matrix.getValues(), 16, wide.getValues());
        wide.invert();
        std::transform(wide.getValues(), wide.getValues() + 16, inverse.getValues(),
                       [](double value) { return float(value); });
        return inverse;
    }

    bool descend(const naive_box& at_a, const naive_box& at_b, const naive_box& own_b,
                 std::uint64_t node_a, std::uint64_t node_b) {
        if (at_a.isApart(at_b))
            return false;
        const morva::bih_node<float>& in_a = tree_a->tree->nodes[node_a];
        const morva::bih_node<float>& in_b = tree_b->tree->nodes[node_b];
        if (in_a.axis < 0 && in_b.axis < 0)
            return compare(in_a, in_b);
        // Both children, the left one first; twice the node itself for a leaf.
        naive_box half_a[2] = {at_a, at_a}, half_b[2] = {at_b, at_b}, half[2] = {own_b, own_b};
        std::uint64_t child_a[2] = {node_a, node_a}, child_b[2] = {node_b, node_b};
        if (in_a.axis >= 0) {
            const auto k = ::osg::UInt32(in_a.axis);
            half_a[0].high[k] = in_a.left_plane;
            half_a[1].low[k] = in_a.right_plane;
            child_a[0] = node_a + 1;
            child_a[1] = std::uint64_t(in_a.right);
        }
        if (in_b.axis >= 0) {
            cut(in_b, half_b, half);
            child_b[0] = node_b + 1;
            child_b[1] = std::uint64_t(in_b.right);
        }
        const auto go = [&](int i, int j) {
            return descend(half_a[i], half_b[j], half[j], child_a[i], child_b[j]);
        };
        if (in_a.axis < 0 || in_b.axis < 0)
            return go(0, 0) || go(1, 1);
        return go(1, 0) || go(0, 1) || go(0, 0) || go(1, 1);
    }

    /// Boxes of B's children from those of their parent.
    void cut(const morva::bih_node<float>& node, naive_box (&moved)[2],
             naive_box (&half)[2]) const {
        const auto k = ::osg::UInt32(node.axis);
        const float above = half[0].high[k] - node.left_plane;
        const float below = node.right_plane - half[0].low[k];
        for (::osg::UInt32 i = 0; i < 3; ++i) {
            const float coefficient = pose[k][i];
            (coefficient >= 0.F ? moved[0].high : moved[0].low)[i] -= above * coefficient;
            (coefficient >= 0.F ? moved[1].low : moved[1].high)[i] += below * coefficient;
        }
        half[0].high[k] = node.left_plane;
        half[1].low[k] = node.right_plane;
    }

    using corners = std::array<Pnt3f, 3>;

    static corners cornersOf(const morva::osg::BIHAttachPayload& payload, std::uint64_t place) {
        const auto& t = payload.geoset->triangles[payload.tree->indices[place]];
        corners result;
        for (::osg::UInt32 k = 0; k < 3; ++k)
            result[0][k] = t.a[k], result[1][k] = t.b[k], result[2][k] = t.c[k];
        return result;
    }

    bool compare(const morva::bih_node<float>& in_a, const morva::bih_node<float>& in_b) {
        for (std::uint64_t i = in_a.first; i < std::uint64_t{in_a.first} + in_a.count; ++i) {
            const corners one = cornersOf(*tree_a, i);
            for (std::uint64_t j = in_b.first; j < std::uint64_t{in_b.first} + in_b.count; ++j) {
                corners other = cornersOf(*tree_b, j);
                for (Pnt3f& corner : other)
                    pose.multMatrixPnt(corner);
                ++pairs;
                for (std::size_t k = 0; k < 6; ++k) {
                    const corners &through = k < 3 ? one : other, &edges = k < 3 ? other : one;
                    if (passes(edges[k % 3], edges[(k + 1) % 3], through))
                        return true;
                }
            }
        }
        return false;
    }

    bool passes(const Pnt3f& p, const Pnt3f& q, const corners& t) {
        const Vec3f n = (t[1] - t[0]).cross(t[2] - t[0]);
        const float d = (p - q).dot(n), s = (p - t[0]).dot(n);
        if (d <= 0.F || s < 0.F || s > d)
            return false;
        const Vec3f e = (p - q).cross(p - t[0]);
        const float v = (t[2] - t[0]).dot(e), w = -(t[1] - t[0]).dot(e);
        if (v < 0.F || v > d || w < 0.F || v + w > d)
            return false;
        contact = p + (q - p) * (1.F / d * s);
        return true;
    }
};

/// All pairs in contact, in order.
inline std::vector<naive_pair> naiveContacts(const NodePtr& a, const NodePtr& b) {
    std::list<NodePtr> list_a, list_b;
    morva::osg::collect_geo_nodes(a, list_a);
    morva::osg::collect_geo_nodes(b, list_b);
    std::vector<naive_pair> all;
    for (const NodePtr& node_a : list_a)
        for (const NodePtr& node_b : list_b)
            if (naive_pair pair(node_a, node_b); pair.collided)
                all.push_back(pair);
    return all;
}

} // namespace morva_test
