#include <morva/tools/morva_divide_geonodes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/driver/morva_osg_auto.h>
#include <morva/tools/morva_osg_divide_parts.h>

namespace morva::osg {

using ::osg::NodePtr;
using ::osg::Vec3f;

namespace {

/// How the published functions divide.
division_options published(int level, int straddle_mode) {
    return {level, straddle_mode, true, true, false};
}

kd_build_setup treeOf(unsigned int max_elements, unsigned int max_depth, int straddle_mode) {
    return {max_elements, max_depth, straddle_mode, 1.0F, 2.0F, 0.95F, false};
}

/// Size of a node in the world.
Vec3f sizeOf(const NodePtr& node) {
    ::osg::DynamicVolume volume;
    node->getWorldVolume(volume);
    ::osg::Pnt3f min, max;
    volume.getBounds(min, max);
    return max - min;
}

/// Brings all volumes of a subtree up to date from below, so that asking for one of them later
/// takes no stack for the levels below it.
void settleVolumes(const NodePtr& root) {
    std::vector<NodePtr> nodes{root};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const NodePtr node = nodes[i];
        for (::osg::UInt32 k = 0; k < node->getNChildren(); ++k)
            nodes.push_back(node->getChild(k));
    }
    for (std::size_t i = nodes.size(); i-- > 0;)
        nodes[i]->updateVolume();
}

bool isLarge(const NodePtr& node, const Vec3f& reference, float limit) {
    const Vec3f size = sizeOf(node);
    return size[0] / reference[0] > limit || size[1] / reference[1] > limit ||
           size[2] / reference[2] > limit;
}

/// A node still to be looked at.
struct open_node {
    NodePtr node;
    unsigned int depth;
};

/// Puts the children of a node on top, the first one last.
void openChildren(const NodePtr& node, ::osg::UInt32 count, unsigned int depth,
                  std::vector<open_node>& open) {
    for (::osg::UInt32 i = count; i-- > 0;)
        open.push_back({node->getChild(i), depth});
}

/// Takes the parts of a halved node out that have nothing to draw. True if both stayed.
bool dropEmptyHalves(const NodePtr& halved) {
    const bool first = valid_volume(halved->getChild(0));
    if (!first) {
        say({"SubChild 1"});
        takeChildOff(halved, 0);
    }
    const ::osg::UInt32 place = first ? 1 : 0;
    const bool second = valid_volume(halved->getChild(place));
    if (!second) {
        say({"SubChild 2"});
        takeChildOff(halved, place);
    }
    return first && second;
}

/// Puts two halves in the place of a geometry node, if there are two. Returns the node above them,
/// or null.
NodePtr halve(const NodePtr& node, const division_options& options) {
    fresh<NodePtr> made{NodePtr()};
    {
        node_triangles triangles(node, options);
        if (!triangles.sort(treeOf(1, 1, options.straddle_mode)))
            return ::osg::NullFC;
        made.reset(triangles.split(2, 0, options));
        if (made.get() == ::osg::NullFC || made->getNChildren() < 2 || triangles.allOnOneSide())
            return ::osg::NullFC;
    }
    return putInPlace(node, made);
}

/// The geometry nodes of a new tree.
std::vector<NodePtr> partsOf(const NodePtr& made) {
    std::vector<NodePtr> nodes{made}, parts;
    while (!nodes.empty()) {
        const NodePtr node = nodes.back();
        nodes.pop_back();
        if (geometryOf(node) != ::osg::NullFC)
            parts.push_back(node);
        for (::osg::UInt32 i = 0; node != ::osg::NullFC && i < node->getNChildren(); ++i)
            nodes.push_back(node->getChild(i));
    }
    return parts;
}

/// Whether the parts are worth their place: they have all triangles, and are several where a single
/// one is too large.
bool isDivision(const std::vector<NodePtr>& parts, std::uint64_t triangles, unsigned int limit) {
    std::uint64_t there = 0; // strips claim more than they have
    for (const NodePtr& part : parts)
        there += getNumberOfTriangles(part);
    return std::all_of(parts.begin(), parts.end(), valid_volume) && there >= triangles &&
           (parts.size() > 1 || triangles <= limit);
}

bool divideOne(const NodePtr& node, unsigned int limit, const division_options& options) {
    fresh<NodePtr> made{NodePtr()};
    {
        node_triangles triangles(node, options);
        // What stands on both sides would be doubled at each level.
        const int mode = options.straddle_mode == 1 ? 1 : 3;
        if (!triangles.sort(treeOf(limit, 30, mode)))
            return false;
        made.reset(triangles.split(0, limit, options));
        if (!isDivision(partsOf(made.get()), triangles.geoset.size, limit))
            return false;
    }
    putInPlace(node, made);
    return true;
}

/// Brings the triangles of a geometry node into one core with an index. Returns the node that has
/// it, or null if the node stays.
NodePtr rebuilt(const NodePtr& node, const division_options& options) {
    fresh<NodePtr> made{NodePtr()};
    {
        node_triangles triangles(node, options);
        if (!triangles.sort(treeOf(5, 1, 3)))
            return ::osg::NullFC;
        made.reset(triangles.split(1, 0, options));
        if (!valid_volume(made.get()))
            return ::osg::NullFC;
    }
    return putInPlace(node, made);
}

/// Brings one geometry node below so many indices. Returns how many changes that took.
unsigned int limitIndices(const NodePtr& node, unsigned int maxIndex, bool force,
                          const division_options& options) {
    if (node->getParent() == ::osg::NullFC)
        return 0;
    const ::osg::GeoIndicesPtr indices = geometryOf(node)->getIndices();
    if (indices != ::osg::NullFC && indices->size() >= maxIndex)
        return maxGeoIndexSize(node, maxIndex, options.level, false);
    if (indices != ::osg::NullFC && !force)
        return 0;
    const NodePtr made = rebuilt(node, options);
    return made == ::osg::NullFC ? 0 : 1 + maxGeoIndexSize(made, maxIndex, options.level, false);
}

/// Does so with all geometry nodes of a subtree, and calls `visit` for each node with a core.
template <typename Visit>
unsigned int limitAllIndices(const NodePtr& top, unsigned int maxIndex, bool force,
                             division_options options, const Visit& visit) {
    if (options.level < 1 || options.level > 3)
        options.level = 1;
    unsigned int changes = 0;
    std::vector<::osg::RefPtr<NodePtr>> held; // some leave the scene before it is their turn
    const auto look = [&](const NodePtr& node) {
        if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
            return;
        visit();
        if (geometryOf(node) != ::osg::NullFC)
            changes += limitIndices(node, maxIndex, force, options);
        else
            for (::osg::UInt32 i = node->getNChildren(); i-- > 0;)
                held.emplace_back(node->getChild(i));
    };
    look(top); // not held: perhaps nobody does
    while (!held.empty()) {
        const ::osg::RefPtr<NodePtr> next = held.back();
        held.pop_back();
        look(next.get());
    }
    return changes;
}

} // namespace

bool valid_volume(NodePtr node) {
    const auto filled = [](const auto& property) {
        return property != ::osg::NullFC && property->size() > 0;
    };
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC ||
        node->getCore()->getType() != ::osg::Geometry::getClassType())
        return false;
    const ::osg::GeometryPtr core = geometryOf(node);
    return filled(core->getPositions()) && filled(core->getLengths()) && filled(core->getTypes());
}

unsigned int divideBySize(const NodePtr& node, const Vec3f& reference, float limit,
                          unsigned int maxDepth, const division_options& options,
                          unsigned int depth) {
    if (node == ::osg::NullFC || depth >= maxDepth)
        return 0;
    settleVolumes(node);
    unsigned int divisions = 0;
    std::vector<open_node> open{{node, depth}};
    while (!open.empty()) {
        const open_node next = open.back();
        open.pop_back();
        if (next.depth >= maxDepth)
            continue;
        if (geometryOf(next.node) == ::osg::NullFC) {
            openChildren(next.node, next.node->getNChildren(), next.depth + 1, open);
            continue;
        }
        if (!isLarge(next.node, reference, limit))
            continue;
        const NodePtr halved = halve(next.node, options);
        if (halved == ::osg::NullFC)
            continue;
        ++divisions;
        if (dropEmptyHalves(halved))
            openChildren(halved, 2, next.depth + 1, open);
    }
    return divisions;
}

void check_and_split(NodePtr node, Vec3f reference, float limit, unsigned int maxDepth,
                     int maxLevels, int opt, unsigned int depth) {
    divideBySize(node, reference, limit, maxDepth, published(opt, maxLevels), depth);
}

void check_and_split(NodePtr node, float limit, unsigned int maxDepth, int maxLevels, int opt) {
    if (node == ::osg::NullFC)
        return;
    settleVolumes(node);
    check_and_split(node, sizeOf(node), limit, maxDepth, maxLevels, opt, 0);
}

unsigned int divideByTriangles(const NodePtr& node, unsigned int maxTriangles, bool force,
                               const division_options& options) {
    const unsigned int limit = std::max(1U, maxTriangles);
    unsigned int divided = 0;
    std::vector<open_node> open{{node, 0}};
    while (!open.empty()) {
        const NodePtr next = open.back().node;
        open.pop_back();
        if (next == ::osg::NullFC || next->getCore() == ::osg::NullFC)
            continue;
        const ::osg::GeometryPtr core = geometryOf(next);
        if (core == ::osg::NullFC)
            openChildren(next, next->getNChildren(), 0, open);
        else if (force || getNumberOfTriangles(core) > limit)
            divided += divideOne(next, limit, options) ? 1 : 0;
    }
    return divided;
}

void split_Geometries(NodePtr node, unsigned int maxTriangles, bool force, int opt) {
    divideByTriangles(node, maxTriangles, force, published(opt, 3));
}

unsigned int divideByIndices(const NodePtr& node, unsigned int maxIndex, bool force,
                             const division_options& options) {
    return limitAllIndices(node, maxIndex, force, options, [] {});
}

void split_GeometriesByIndex(NodePtr node, unsigned int maxIndex, bool force, int opt) {
    // Said of every node, whatever the level was.
    limitAllIndices(node, maxIndex, force, published(opt, 3), [] {
        say({"morva::osg::split_GeometriesByIndex: OptLevel set to 1. Range [1-3]."});
    });
}

} // namespace morva::osg
