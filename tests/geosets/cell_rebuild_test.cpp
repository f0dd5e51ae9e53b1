// Scenes in cells: that nothing is lost, what stays, and what is counted and said.

#include "cell_scenes.h"
#include "tests/support/described_tree.h"

#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using namespace morva::osg;
using morva::kd_build_setup;

kd_build_setup wholes(unsigned elements, unsigned depth) {
    return {elements, depth, 3, 1.0F, 2.0F, 0.95F, false};
}

TEST(SplitbyTrisinCell, LosesNothing) {
    for (unsigned seed = 0; seed < roundsOf(200U); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const node_ref root(wildScene(seedOf(seed), true));
        const stream_capture out(std::cout);
        kd_scene_geoset scene(root, wholes(5, 0), true);
        morva::kd_tree<float> tree;
        compile(scene, tree, wholes(1 + seed % 3, 150), morva::kd_strategy_ObjMedian());
        const unsigned limits[] = {0, 1, 2, 7, 30, 100000};
        const node_ref whole(buildGeo(tree, scene, 0, int(seed % 4), -1)),
            cells(SplitbyTrisinCell(tree, scene, 0, limits[seed % std::size(limits)], int(seed % 4),
                                    -1, true));
        const world_mesh expected = worldTriangles({whole});
        EXPECT_EQ(expected.size(), scene.triangles_of(0, scene.element_count()));
        EXPECT_EQ(firstDifference(expected, worldTriangles({cells})), "");
    }
}

/// Names of the geometry nodes that stay where they are, and what those that are nobody's
/// business have of coordinates.
std::multiset<std::string> stayingNames(const ::osg::NodePtr& root, bool all) {
    node_list listed;
    getGeometryNodes(root, listed, false);
    std::multiset<std::string> names;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const node_ref alone(transformed(node->getToWorld(), {nodeOf(node->getCore())}));
        const bool is_listed = std::find(listed.begin(), listed.end(), node) != listed.end();
        const auto coordinates = coreOf(node)->getTexCoords();
        std::string text = namesOf({node})[0];
        if (!is_listed && coordinates != ::osg::NullFC)
            text += " " + std::to_string(coordinates->size());
        if (all || !is_listed || worldTriangles({alone}).empty() || !worldLines(alone).empty())
            names.insert(text);
    }
    return names;
}

TEST(buildSceneTree, LosesNothingAndLeavesWhatIsNoElement) {
    for (unsigned seed = 0; seed < roundsOf(800U); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const bool plain = seed % 2 == 0;
        const node_ref root(wildScene(seedOf(seed), plain));
        const world_mesh before = worldTriangles({root.get()});
        const line_list lines = worldLines(root);
        const auto staying = stayingNames(root.get(), false);
        cell_options options;
        options.flat = seed % 4 < 2;
        options.opt = int(seed / 4 % 4);
        options.optimizetc = seed % 5 > 2 ? 3 : -1;
        options.exact = seed % 5 < 2;
        options.padding = seed % 10;
        const unsigned limits[] = {0, 1, 5, 20, 25000};
        const stream_capture out(std::cout);
        cell_record record;
        const ::osg::NodePtr rebuilt =
            buildSceneTree(root.get(), {limits[seed % std::size(limits)], 0}, options, record);
        const node_ref result(rebuilt == ::osg::NullFC ? group() : rebuilt);
        const world_mesh after = worldTriangles({root.get(), result.get()});
        if (plain) {
            EXPECT_EQ(firstDifference(before, after), "");
        } else {
            EXPECT_NEAR(summaryOf(before).area, summaryOf(after).area,
                        1e-4 * summaryOf(before).area);
            EXPECT_EQ(summaryOf(before).min, summaryOf(after).min);
            EXPECT_EQ(summaryOf(before).max, summaryOf(after).max);
        }
        EXPECT_EQ(lines, worldLines(root));
        EXPECT_EQ(staying, stayingNames(root.get(), true));
        const std::string grown = options.flat ? "-" : textOf(result.get());
        const node_ref rest(options.flat ? group() : result.get());
        removeEmptyParts(rest.get());
        EXPECT_EQ(textOf(rest.get()), grown) << "nothing in it is empty";
    }
}

TEST(buildSceneTree, CountsNodesAndPacks) {
    const struct {
        unsigned nodes, squares, limit;
        std::vector<unsigned> packs; ///< cores in each; with as many as the limit a cell is cut
    } cases[] = {{2, 1, 5, {1}}, {2, 1, 4, {2}}, {1, 9, 1, {9}}, {300, 1, 2, {128, 128, 44}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << each.nodes << " at " << each.limit);
        const node_ref root(group());
        for (unsigned i = 0; i < each.nodes; ++i)
            root->addChild(moved({float(2 * i), 0, 0}, {meshNode(quads(each.squares))}));
        const stream_capture out(std::cout);
        cell_record record;
        const node_ref result(buildSceneTree(root.get(), {each.limit, 0}, {}, record));
        std::vector<unsigned> packs;
        for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i)
            packs.push_back(result->getChild(i)->getNChildren());
        EXPECT_EQ(packs, each.packs);
        EXPECT_EQ(record.nodes, each.nodes);
        EXPECT_EQ(record.elements, each.nodes);
        EXPECT_EQ(record.cells, each.limit == 5 ? 1 : each.nodes);
        EXPECT_EQ(root->getNChildren(), 0U);
    }
}

TEST(buildSceneTree, SaysWhatItDoes) {
    const stream_capture out(std::cout);
    const node_ref root(group({meshNode(quads(1)), moved({2, 0, 0}, {meshNode(quads(1))})})),
        empty(group({group(), hidden(meshNode(quads(1)))}));
    for (const ::osg::NodePtr& none : {::osg::NodePtr(), empty.get()})
        EXPECT_EQ(buildSceneTree(none, {3, 0}, true, 1, -1, false), ::osg::NullFC);
    const node_ref result(buildSceneTree(root.get(), {3, 0}, false, 1, -1, false));
    const std::string one = "Found 1 different Materials.\n\rDone merging.        \n",
                      done = "\rDone 1 of 2\rDone 2 of 2";
    EXPECT_EQ(out.text(), "Rebuilding Scene with 2 GeometryCore(s)...\nCompiling Scene KD\n" +
                              done +
                              "\nScene KD compiled!\nScene-KD-Tree Statistics:\n"
                              " # max depth          : 0\n # avg depth          : 1\n"
                              " # tris registered    : 2\n # inner nodes        : 2\n"
                              " # leaves             : 2\n # max prims in a leaf: 1\n"
                              " # avg prims in a leaf: 1\nRebuilding Scene...\n" +
                              one + one + "done.\nBuilding Scene Hierarchy\n" + done);
}

/// All that is said, and the cells to the last row and name.
std::string cellsBy(int threads, unsigned seed) {
    idmapHandler& handler = getIDmapHandler();
    handler.reset();
    handler.mergedCount = 0;
    handler.merged = true; // IDs were given out
    const node_ref root(wildScene(seedOf(seed), false));
    cell_options options;
    options.numthreads = threads;
    options.opt = int(seed % 5); // the last one is none
    options.optimizetc = seed % 3 == 0 ? 2 : -1;
    options.exact = seed % 2 == 0;
    const unsigned limits[] = {2, 9, 40};
    std::ostringstream text;
    text.precision(9);
    const stream_capture out(std::cout), error(std::cerr);
    cell_record record;
    const node_ref result(buildSceneTree(root.get(), {limits[seed % 3], 0}, options, record));
    if (result != ::osg::NullFC)
        describe(result.get(), text);
    describe(root.get(), text);
    text << record.cells << " " << record.textures.atlases.size() << out.text() << error.text();
    handler.reset();
    return text.str();
}

TEST(CellThreads, TheResultAndTheLinesAreThoseOfOneThread) {
    for (unsigned seed = 0; seed < roundsOf(120U); ++seed) {
        const std::string alone = cellsBy(1, seed);
        for (const int threads : {2, 3, 8, 0x7fffffff})
            ASSERT_TRUE(cellsBy(threads, seed) == alone) << threads << " threads, seed " << seed;
    }
}

} // namespace
