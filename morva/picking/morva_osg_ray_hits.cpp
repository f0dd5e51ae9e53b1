#include <morva/picking/morva_osg_ray_hits.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGTransform.h>

#include <morva/picking/morva_osg_core_trees.h>
#include <morva/picking/morva_osg_exact_rays.h>

namespace morva::osg {

using ::osg::NodePtr;

namespace {

/// The way from the world into a frame: three rows of four.
struct from_world {
    double rows[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};

    double3 direction(const double3& d) const {
        double3 mapped;
        for (std::size_t r = 0; r < 3; ++r)
            mapped[r] = rows[r][0] * d[0] + rows[r][1] * d[1] + rows[r][2] * d[2];
        return mapped;
    }
    /// The same points at the same parameters.
    exact_ray ray(const exact_ray& world) const {
        exact_ray mapped{direction(world.from), direction(world.direction)};
        for (std::size_t r = 0; r < 3; ++r)
            mapped.from[r] += rows[r][3];
        return mapped;
    }
    /// A normal of the frame in the world: by the transpose of the way there.
    double3 worldNormal(const double3& n) const {
        double3 mapped;
        for (std::size_t c = 0; c < 3; ++c)
            mapped[c] = rows[0][c] * n[0] + rows[1][c] * n[1] + rows[2][c] * n[2];
        return mapped;
    }
};

/// The frame below a transform; false where its matrix flattens space.
bool enterTransform(const ::osg::Matrix& matrix, const from_world& outer, from_world& inner) {
    double m[3][4];
    for (::osg::UInt32 c = 0; c < 4; ++c) {
        for (::osg::UInt32 r = 0; r < 3; ++r)
            m[r][c] = static_cast<double>(matrix[c][r]);
    }
    double inverse[3][3];
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3,
                              c2 = (r + 2) % 3;
            inverse[r][c] = m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
        }
    }
    const double determinant =
        m[0][0] * inverse[0][0] + m[0][1] * inverse[1][0] + m[0][2] * inverse[2][0];
    if (!std::isfinite(determinant) || !std::isfinite(1.0 / determinant))
        return false;
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < 4; ++c) {
            double sum = 0.0;
            for (std::size_t k = 0; k < 3; ++k)
                sum += inverse[r][k] * (outer.rows[k][c] - (c == 3 ? m[k][3] : 0.0));
            inner.rows[r][c] = sum / determinant;
        }
    }
    return true;
}

/// The frame in which a node's volume is.
bool frameAbove(const NodePtr& node, from_world& frame) {
    const NodePtr above = node->getParent();
    if (above == ::osg::NullFC)
        return true;
    from_world outer;
    if (!frameAbove(above, outer))
        return false;
    const auto transform = ::osg::TransformPtr::dcast(above->getCore());
    if (transform != ::osg::NullFC)
        return enterTransform(transform->getMatrix(), outer, frame);
    frame = outer;
    return true;
}

/// Whether a node's core shows its child number `child`.
bool shows(const ::osg::NodeCorePtr& core, ::osg::UInt32 child) {
    const auto chooser = ::osg::SwitchPtr::dcast(core);
    if (chooser == ::osg::NullFC || chooser->getChoice() == ::osg::Switch::ALL)
        return true;
    return chooser->getChoice() >= 0 && static_cast<::osg::UInt32>(chooser->getChoice()) == child;
}

/// A walk over the cores that a ray may meet. `use(node, frame, ray, payload)` returns the distance
/// behind which nothing counts any more.
template <typename Use> class ray_walk {
  public:
    ray_walk(const exact_ray& world, const Use& use) : world_(world), use_(use) {}

    void visit(const NodePtr& node, const from_world& outer) {
        if (node == ::osg::NullFC || node->getTravMask() == 0)
            return;
        const exact_ray ray = outer.ray(world_);
        if (isMissed(node->getVolume(), ray, reach_))
            return;
        const ::osg::NodeCorePtr core = node->getCore();
        const auto transform = ::osg::TransformPtr::dcast(core);
        from_world own;
        if (transform != ::osg::NullFC && !enterTransform(transform->getMatrix(), outer, own))
            return;
        const from_world& inner = transform != ::osg::NullFC ? own : outer;
        BIHAttachPayload* const payload = payloadFor(node);
        if (payload != nullptr && isReady(node, *payload))
            reach_ = use_(node, inner, ray, *payload);
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
            if (shows(core, i))
                visit(node->getChild(i), inner);
        }
    }

  private:
    const exact_ray world_;
    const Use& use_;
    double reach_ = std::numeric_limits<double>::max();
};

template <typename Use> void walk(const NodePtr& root, const exact_ray& world, const Use& use) {
    from_world outer;
    if (root == ::osg::NullFC || !frameAbove(root, outer))
        return;
    root->updateVolume();
    ray_walk<Use>(world, use).visit(root, outer);
}

/// Where in the scene a hit is.
struct scene_hit {
    core_hit in_core;
    NodePtr node;
    unsigned int triangle = 0;
    double3 normal; ///< in the world
};

scene_hit sceneHit(const core_hit& hit, const NodePtr& node, const from_world& frame,
                   const BIHAttachPayload& payload) {
    return {hit, node, triangleOfObject(payload_access::facts(payload)->left_out, hit.object),
            frame.worldNormal(normalOf(payload, hit.object))};
}

ray_hit answerOf(const scene_hit& hit, const exact_ray& world) {
    ray_hit answer;
    answer.node = hit.node;
    answer.object = hit.in_core.object;
    answer.triangle = hit.triangle;
    answer.distance = static_cast<float>(hit.in_core.t);
    for (::osg::UInt32 i = 0; i < 3; ++i)
        answer.point[i] = static_cast<float>(world.from[i] + hit.in_core.t * world.direction[i]);
    answer.normal = unitVector(hit.normal);
    answer.back_face = hit.in_core.back_face;
    return answer;
}

} // namespace

std::vector<ray_hit> all_hits(const NodePtr& root, const ::osg::Line& world_ray, bool both_sides) {
    const exact_ray world = rayOf(world_ray);
    std::vector<scene_hit> hits;
    std::vector<core_hit> in_core;
    walk(root, world,
         [&](const NodePtr& node, const from_world& frame, const exact_ray& ray,
             const BIHAttachPayload& payload) {
             in_core.clear();
             allInCore(payload, ray, both_sides, in_core);
             std::sort(in_core.begin(), in_core.end(),
                       [](const core_hit& a, const core_hit& b) { return a.object < b.object; });
             for (const core_hit& hit : in_core)
                 hits.push_back(sceneHit(hit, node, frame, payload));
             return std::numeric_limits<double>::max();
         });
    std::stable_sort(hits.begin(), hits.end(), [](const scene_hit& a, const scene_hit& b) {
        return a.in_core.t < b.in_core.t;
    });
    std::vector<ray_hit> answers;
    answers.reserve(hits.size());
    for (const scene_hit& hit : hits)
        answers.push_back(answerOf(hit, world));
    return answers;
}

bool first_hit(const NodePtr& root, const ::osg::Line& world_ray, bool both_sides, ray_hit& hit) {
    const exact_ray world = rayOf(world_ray);
    scene_hit best;
    double reach = std::numeric_limits<double>::max();
    walk(root, world,
         [&](const NodePtr& node, const from_world& frame, const exact_ray& ray,
             const BIHAttachPayload& payload) {
             core_hit met;
             if (firstInCore(payload, ray, both_sides, reach, met) &&
                 (best.node == ::osg::NullFC || met.t < reach)) {
                 best = sceneHit(met, node, frame, payload);
                 reach = met.t;
             }
             return reach;
         });
    if (best.node == ::osg::NullFC)
        return false;
    hit = answerOf(best, world);
    return true;
}

} // namespace morva::osg
