// Geometry with too many indices, cut in halves until there is none.
//
//     walk                 one frame per group on the way down; its children in order, and what a
//                          cut appends behind them comes at its turn
//     cut a child          merge it alone, cells of half its elements; good: the result goes last
//     group done           the children that were cut leave, all at once

#include <morva/driver/morva_osg_auto.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <vector>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_node_looks.h>
#include <morva/core/morva_osg_taken_children.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/merge/morva_osg_geomerge.h>

namespace morva::osg {

namespace {

using ::osg::NodePtr;

/// Level of all geometry but the one that the caller names.
constexpr int inner_level = 2;

/// Elements of a core: triangles that a merge keeps, lines, points.
using element_counts = std::array<std::size_t, 3>;

element_counts countsOf(const ::osg::GeometryPtr& core) {
    constexpr vertex_property place[] = {vertex_property::position};
    const geometry_columns columns(core, place);
    element_counts counts{counttriangles(core), 0, 0};
    forEachLine(columns, rest_rule::continued, [&](std::size_t, std::size_t) { ++counts[1]; });
    forEachCorner(columns, GL_POINTS, [&](std::size_t) { ++counts[2]; });
    return counts;
}

/// Whether `result` has everything that `source` draws, and all its cores of some kind are
/// smaller than that.
bool isGoodCut(const ::osg::GeometryPtr& source, const NodePtr& result) {
    std::vector<NodePtr> parts;
    collectsubTree(result, parts);
    if (parts.size() < 2)
        return false;
    const element_counts before = countsOf(source);
    element_counts sums{}, cores{}, largest{};
    for (const NodePtr& part : parts) {
        const element_counts counts = countsOf(geometryOf(part));
        for (std::size_t kind = 0; kind < 3; ++kind) {
            sums[kind] += counts[kind];
            cores[kind] += counts[kind] > 0 ? 1 : 0;
            largest[kind] = std::max(largest[kind], counts[kind]);
        }
    }
    bool is_smaller = false;
    for (std::size_t kind = 0; kind < 3; ++kind) {
        if (sums[kind] < before[kind])
            return false;
        is_smaller |= cores[kind] >= 2 && largest[kind] < before[kind];
    }
    return is_smaller;
}

/// Whether the merge pass pours a node's own geometry.
bool canBePoured(NodePtr node) {
    bool has_transparent_pixels = false, blends = false;
    if (shouldSkipNode(node))
        return false;
    getImage(node, has_transparent_pixels, blends);
    return !has_transparent_pixels && !hasMaterialAlpha(node);
}

bool isOver(const NodePtr& node, unsigned int limit) {
    const ::osg::GeoIndicesPtr indices = geometryOf(node)->getIndices();
    return indices != ::osg::NullFC && indices->size() > limit;
}

/// Puts the parts of a geometry node behind the children of its parent, and its own children in
/// front of them. The node is still there.
///
/// returns  the parts, or null if it can't be cut
NodePtr cut(const NodePtr& source, int opt) {
    const NodePtr parent = source->getParent();
    if (parent == ::osg::NullFC || !canBePoured(source))
        return ::osg::NullFC;
    mergeGeo_setup setup;
    setup.opt = opt;
    setup.silent = true;
    setup.toworld = false;
    fresh<NodePtr> parts(::osg::NullFC);
    {
        taken_children below(source, 0); // a part of its own each: the merge sees the core alone
        parts.reset(mergeGeo(source, kd_build_setup{10, 1, 3, 1.0F, 2.0F, 0.95F, false}, setup));
        if (!isGoodCut(geometryOf(source), parts.get()))
            return ::osg::NullFC;
        takeOverLooks(parts.get(), source);
        below.setHome(parent);
    }
    addChildTo(parent, parts.get());
    return parts.release();
}

/// A group whose children are looked at.
struct frame {
    NodePtr group;
    ::osg::UInt32 next = 0;              ///< child that comes next
    std::vector<::osg::UInt32> replaced; ///< rising; parts of these stand behind them
};

/// The frames on the way down. However the walk ends, no geometry stays beside its parts.
class walk {
  public:
    explicit walk(unsigned int limit) : limit_(limit) {}
    walk(const walk&) = delete;
    walk& operator=(const walk&) = delete;
    ~walk() {
        while (!frames_.empty()) {
            try {
                leave();
            } catch (const std::bad_alloc&) {
                frames_.pop_back(); // no room to take them off: they stay
            }
        }
    }

    /// Cuts what stands below a group; returns the number of cuts.
    unsigned int below(const NodePtr& top) {
        unsigned int cuts = 0;
        frames_.push_back({top, 0, {}});
        while (!frames_.empty()) {
            frame& at = frames_.back();
            if (at.next == at.group->getNChildren()) {
                leave();
                continue;
            }
            const ::osg::UInt32 place = at.next++;
            const NodePtr child = at.group->getChild(place);
            if (geometryOf(child) == ::osg::NullFC) {
                frames_.push_back({child, 0, {}});
                continue;
            }
            if (!isOver(child, limit_))
                continue;
            if (at.replaced.size() == at.replaced.capacity())
                at.replaced.reserve(2 * at.replaced.size() + 1); // nothing may throw behind the cut
            if (cut(child, inner_level) == ::osg::NullFC)
                continue;
            at.replaced.push_back(place);
            ++cuts;
        }
        return cuts;
    }

  private:
    /// Ends the last frame.
    void leave() {
        dropChildren(frames_.back().group, frames_.back().replaced);
        frames_.pop_back();
    }

    unsigned int limit_;
    std::vector<frame> frames_;
};

} // namespace

unsigned int maxGeoIndexSize(NodePtr node, unsigned int limit, int opt, bool /*ignored*/) {
    if (node == ::osg::NullFC)
        return 0;
    walk cutting(limit);
    unsigned int cuts = 0;
    std::vector<NodePtr> made;
    while (geometryOf(node) != ::osg::NullFC) {
        const NodePtr parent = node->getParent();
        made.emplace_back();
        if (isOver(node, limit))
            made.back() = cut(node, opt);
        if (made.back() == ::osg::NullFC) {
            // Nobody comes by below a geometry, so the parts of the nodes so far are walked here.
            made.pop_back();
            for (std::size_t i = made.size(); i-- > 0;)
                cuts += cutting.below(made[i]);
            return cuts;
        }
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(node)));
        ++cuts;
        opt = inner_level;
        node = parent;
    }
    return cuts + cutting.below(node);
}

} // namespace morva::osg
