// Geometry cut until no index is too long, beside a walk that starts anew behind each cut.

#include "tests/support/described_tree.h"
#include "tests/support/merge_scenes.h"
#include "tests/support/random_scenes.h"

#include <numeric>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_auto.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::maxGeoIndexSize;
using ::osg::NodePtr;

/// Triangles, lines and points of a core.
std::array<std::size_t, 3> countsOf(const NodePtr& node) {
    const node_ref alone(nodeOf(node->getCore()));
    return {shapeOf(alone.get()).size(), thinOnes(node)[0], thinOnes(node)[1]};
}

/// Whether nothing is lost and of some kind there are two cores or more, each with some.
bool isGood(const NodePtr& source, const NodePtr& result) {
    const node_ref alone(nodeOf(source->getCore()));
    bool good = false;
    for (std::size_t kind = 0; kind < 3; ++kind) {
        const std::size_t whole = countsOf(source)[kind];
        std::multiset<std::size_t> parts;
        for (const NodePtr& part : geometryNodes(result))
            parts.insert(countsOf(part)[kind]);
        parts.erase(0);
        if (std::accumulate(parts.begin(), parts.end(), std::size_t(0)) < whole)
            return false;
        good = good || (parts.size() >= 2 && *parts.rbegin() < whole);
    }
    return good && shapeOf(alone.get()) == shapeOf(result);
}

/// The walk as it reads: behind a cut the parent is walked again, and then what came of it.
unsigned naiveLimit(const NodePtr& node, unsigned limit, int opt, std::set<NodePtr>& stuck) {
    NodePtr local = node;
    unsigned count = 0;
    if (coreOf(node) != ::osg::NullFC) {
        const ::osg::GeoIndicesPtr indices = coreOf(node)->getIndices();
        const NodePtr parent = node->getParent();
        if (indices == ::osg::NullFC || indices->size() <= limit || parent == ::osg::NullFC ||
            stuck.count(node) != 0)
            return 0;
        std::vector<node_ref> children;
        while (node->getNChildren() > 0) {
            children.emplace_back(node->getChild(0));
            node->subChild(::osg::UInt32(0));
        }
        mergeGeo_setup setup = quiet();
        setup.opt = opt;
        setup.toworld = false;
        const bool merges = !morva::osg::hasMaterialAlpha(node) &&
                            !morva::osg::shouldSkipNode(local); // else it would be moved
        const node_ref result(merges ? morva::osg::mergeGeo(node, {10, 1}, setup) : group());
        if (!isGood(node, result.get())) {
            stuck.insert(node);
            for (const node_ref& child : children)
                node->addChild(child.get());
            return 0;
        }
        for (const node_ref& child : children)
            parent->addChild(child.get());
        result->setTravMask(node->getTravMask());
        if (::osg::getName(node) != nullptr)
            ::osg::setName(result.get(), ::osg::getName(node));
        parent->addChild(result.get());
        const node_ref held(parent); // alive with its core while its own parent is cut
        parent->subChild(node);
        count = 1 + naiveLimit(parent, limit, 2, stuck);
        local = result.get();
    }
    for (::osg::UInt32 i = 0; i < local->getNChildren(); ++i)
        count += naiveLimit(local->getChild(i), limit, 2, stuck);
    return count;
}

/// A mesh with an index: single triangles, lines and points among them.
mesh_data someMesh(std::mt19937& rng) {
    const unsigned size = 1 + rng() % 60;
    const mesh_data shapes[] = {row(size, rng() % 4), mixture(rng, 1 + size / 6),
                                strip(size + 3, 5 + 3 * (rng() % 2)), quads(size), soup(rng, size)};
    mesh_data mesh = shapes[std::min<std::size_t>(rng() % 8, 4)];
    if (rng() % 2 == 0)
        mesh = withNormals(mesh, rng);
    if (rng() % 8 == 0)
        return mesh;
    return rng() % 2 == 0 ? withIndex(mesh, rng) : withIndexPerProperty(mesh, rng);
}

TEST(MaxGeoIndexSize, EndsLikeAWalkThatStartsAnew) {
    const stream_capture out(std::cout);
    const palette colors;
    unsigned cuts = 0, from_below = 0;
    std::mt19937 seeds(seedOf(1500));
    for (unsigned round = 0; round < roundsOf(1500U); ++round) {
        SCOPED_TRACE(round);
        const auto seed = static_cast<unsigned>(seeds());
        std::string ends[2];
        unsigned counts[2] = {0, 0};
        for (int naive = 0; naive < 2; ++naive) {
            std::mt19937 rng(seed);
            const node_ref root(sceneOf("g(" + randomScene(rng, 3) + ")", colors.names));
            const node_list nodes = geometryNodes(root.get());
            for (const NodePtr& node : nodes)
                node->setCore(geometryOf(someMesh(rng), coreOf(node)->getMaterial()));
            const unsigned limit = rng() % 3 == 0 ? rng() % 4 : rng() % 90;
            const int opt = 1 + static_cast<int>(rng() % 3);
            const NodePtr start = rng() % 2 == 0 ? root.get() : nodes[rng() % nodes.size()];
            const world_mesh before = shapeOf(root.get());
            morva::osg::getIDmapHandler().mergedCount = 0;
            std::set<NodePtr> stuck;
            from_below += coreOf(start) != ::osg::NullFC ? 1 : 0;
            counts[naive] = naive == 0 ? maxGeoIndexSize(start, limit, opt, false)
                                       : naiveLimit(start, limit, opt, stuck);
            std::ostringstream text;
            describe(root.get(), text);
            ends[naive] = text.str();
            EXPECT_EQ(firstDifference(before, shapeOf(root.get())), "");
        }
        EXPECT_EQ(ends[0], ends[1]);
        EXPECT_EQ(counts[0], counts[1]);
        cuts += counts[0];
    }
    EXPECT_GT(cuts, 1000U);
    EXPECT_GT(from_below, 500U);
    EXPECT_EQ(maxGeoIndexSize(::osg::NullFC, 0, 1, true), 0U);
}

} // namespace
