// Scenes in cells: which elements come together, that nothing is lost, and what stays.

#include "cell_scenes.h"
#include "tests/support/described_tree.h"

#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using namespace morva::osg;
using morva::kd_build_setup;
using morva::kd_tree;

kd_build_setup wholes(unsigned elements, unsigned depth) {
    return {elements, depth, 3, 1.0F, 2.0F, 0.95F, false};
}

/// Names of the geometry nodes that stay where they are, and what those that are nobody's
/// business have of coordinates.
std::multiset<std::string> stayingNames(const ::osg::NodePtr& root, bool all) {
    std::vector<::osg::NodePtr> listed;
    getGeometryNodes(root, listed, false);
    std::multiset<std::string> names;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const bool is_listed = std::find(listed.begin(), listed.end(), node) != listed.end();
        const bool goes = is_listed && !worldTriangles({alone(node).get()}).empty();
        const char* name = ::osg::getName(node);
        const auto coordinates = coreOf(node)->getTexCoords();
        std::string text = name == nullptr ? "" : name;
        if (!is_listed && coordinates != ::osg::NullFC)
            text += " " + std::to_string(coordinates->size());
        if (all || !goes || !worldLines({alone(node).get()}).empty())
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
        const line_list lines = worldLines({root.get()});
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
        EXPECT_EQ(lines, worldLines({root.get()}));
        EXPECT_EQ(staying, stayingNames(root.get(), true));
        const std::string grown = options.flat ? "-" : textOf(result.get());
        const node_ref rest(options.flat ? group() : result.get());
        removeEmptyParts(rest.get());
        EXPECT_EQ(textOf(rest.get()), grown) << "nothing in it is empty";
    }
}

/// `count` squares apart; a row of 9 for one.
::osg::NodePtr squares(unsigned count) {
    const ::osg::NodePtr root = group();
    for (unsigned i = 0; i < count; ++i)
        root->addChild(moved({2 * float(i % 50), 2 * float(i / 50), 0},
                             {meshNode(quads(count == 1 ? 9 : 1))}));
    return root;
}

TEST(buildSceneTree, CountsNodesAndPacks) {
    const struct {
        unsigned nodes, limit;
        std::vector<unsigned> packs; ///< cores in each
        std::size_t cells;
    } cases[] = {{1, 25, {1}, 1},      {1, 1, {9}, 1}, // squares of two triangles are not parted
                 {2, 0, {2}, 2},       {2, 5, {1}, 1},
                 {2, 4, {2}, 2}, // a cell with just as many is cut
                 {128, 2, {128}, 128}, {300, 2, {128, 128, 44}, 300}};
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << each.nodes << " at " << each.limit);
        const node_ref root(squares(each.nodes));
        const stream_capture out(std::cout);
        cell_record record;
        const node_ref result(buildSceneTree(root.get(), {each.limit, 0}, {}, record));
        std::vector<unsigned> packs;
        for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i)
            packs.push_back(result->getChild(i)->getNChildren());
        EXPECT_EQ(packs, each.packs);
        EXPECT_EQ(record.nodes, each.nodes);
        EXPECT_EQ(record.elements, each.nodes);
        EXPECT_EQ(record.cells, each.cells);
        EXPECT_EQ(root->getNChildren(), 0U);
    }
}

/// What is said, and the tree that comes of it.
std::string saidOf(const ::osg::NodePtr& root, bool flat) {
    const node_ref held(root);
    const stream_capture out(std::cout);
    const node_ref result(buildSceneTree(root, wholes(3, 0), flat, 1, -1, false));
    std::string text = out.text() + (result == ::osg::NullFC ? "null" : textOf(result));
    for (std::size_t at = text.find("MG_"); at != std::string::npos; at = text.find("MG_", at))
        text.erase(at + 2, text.find_first_not_of("0123456789", at + 3) - at - 2); // numbers run on
    return text;
}

TEST(buildSceneTree, SaysWhatItDoes) {
    EXPECT_EQ(saidOf(::osg::NullFC, true), "null");
    EXPECT_EQ(saidOf(group({group(), hidden(meshNode(quads(1)))}), true), "null");
    const auto statistics = [](const char* depth, const char* nodes, const char* inner,
                               const char* leaves, const char* fullest) {
        return std::string("\nScene KD compiled!\nScene-KD-Tree Statistics:\n"
                           " # max depth          : 0\n # avg depth          : ") +
               depth + "\n # tris registered    : " + nodes + "\n # inner nodes        : " + inner +
               "\n # leaves             : " + leaves + "\n # max prims in a leaf: " + fullest +
               "\n # avg prims in a leaf: " + fullest + "\nRebuilding Scene...\n";
    };
    const std::string lines = "Rebuilding Scene with 1 GeometryCore(s)...\nCompiling Scene KD\n" +
                              statistics("0", "0", "0", "1", "0") + "done.\n";
    EXPECT_EQ(saidOf(group({meshNode(row(2, 1))}), true), lines + "-(-)");
    EXPECT_EQ(saidOf(group({meshNode(row(2, 1))}), false), lines + "Building Scene Hierarchy\n-");
    const std::string one = "Found 1 different Materials.\n\rDone merging.        \n",
                      done = "\rDone 1 of 2\rDone 2 of 2",
                      two = "Rebuilding Scene with 2 GeometryCore(s)...\nCompiling Scene KD\n" +
                            done + statistics("1", "2", "2", "2", "1") + one + one + "done.\n";
    EXPECT_EQ(saidOf(squares(2), true), two + "-(-(MG MG))");
    EXPECT_EQ(saidOf(squares(2), false), two + "Building Scene Hierarchy\n" + done + "-(MG MG)");
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
    {
        const stream_capture out(std::cout), error(std::cerr);
        cell_record record;
        const node_ref result(buildSceneTree(root.get(), {limits[seed % 3], 0}, options, record));
        if (result != ::osg::NullFC)
            describe(result.get(), text);
        describe(root.get(), text);
        text << record.cells << " " << record.textures.atlases.size() << out.text() << error.text();
    }
    handler.reset();
    return text.str();
}

TEST(CellThreads, TheResultAndTheLinesAreThoseOfOneThread) {
    for (unsigned seed = 0; seed < roundsOf(120U); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const std::string alone = cellsBy(1, seed);
        for (const int threads : {2, 3, 8, 0x7fffffff})
            ASSERT_TRUE(cellsBy(threads, seed) == alone) << threads << " threads";
    }
}

} // namespace
