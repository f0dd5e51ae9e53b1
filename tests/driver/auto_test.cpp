// Roads without a parameter string.

#include "tests/support/merge_scenes.h"
#include "tests/support/random_scenes.h"

#include <morva/core/morva_osg_params.h>
#include <morva/driver/morva_osg_auto.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::auto_options;
using morva::osg::auto_record;
using ::osg::NodePtr;

/// Makes lines and points of the meshes of that name, and gives the others coordinates, some of
/// them high.
NodePtr furnished(const NodePtr& root) {
    for (const NodePtr& node : geometryNodes(root)) {
        const std::string name = ::osg::getName(node);
        if (name == "lines" || name == "points") {
            node->setCore(geometryOf(row(6, name == "lines" ? 1 : 0)));
            continue;
        }
        const auto made = ::osg::GeoTexCoords2f::create();
        for (::osg::UInt32 i = 0; i < coreOf(node)->getPositions()->size(); ++i)
            made->addValue(::osg::Vec2f(float(i % 2), i % 3 == 0 ? 0.0F : 1.5F));
        coreOf(node)->setTexCoords(made);
    }
    return root;
}

/// Lines and points below a node.
std::array<std::size_t, 2> thinBelow(const NodePtr& root) {
    std::array<std::size_t, 2> sums{};
    for (const NodePtr& node : geometryNodes(root)) {
        sums[0] += thinOnes(node)[0];
        sums[1] += thinOnes(node)[1];
    }
    return sums;
}

TEST(OptWithSkippedGeo, ShowsEachTriangleOnce) {
    const char* const scenes[] = {"~t(g(choice))",
                                  "choice",
                                  "red",
                                  "!red",
                                  "!g(red choice)",
                                  "#red(choice blue)",
                                  "g(a() .b red)",
                                  "g(glass #glass(red))",
                                  "g(#points(red) #lines(choice red) #choice(red))"};
    const palette colors;
    std::mt19937 rng(seedOf(5));
    for (unsigned round = 0; round < roundsOf(1500U); ++round) {
        const std::string text =
            round < std::size(scenes) ? scenes[round] : "g(" + randomScene(rng, 3) + ")";
        SCOPED_TRACE(text);
        const node_ref root(furnished(sceneOf(text, colors.names)));
        const bool is_hidden = root->getTravMask() == 0;
        const bool drops = round % 3 == 0 && !is_hidden && coreOf(root.get()) == ::osg::NullFC;
        const node_ref expected(is_hidden ? group() : furnished(sceneOf(text, colors.names)));
        morva::osg::deleteTravMaskZeroNodes(expected.get());

        const stream_capture out(std::cout), error(std::cerr);
        morva::osg::getIDmapHandler().reset();
        mergeGeo_setup setup = quiet();
        setup.idmap = round % 2 == 0 ? "names" : "";
        setup.cacheopt = round % 5 < 3;
        setup.optimizetc = -1;
        if (!setup.idmap.empty())
            morva::osg::getIDmapHandler().writeTree(root.get(), 0);
        auto_options options;
        options.exactatlas = round % 7 < 3;
        auto_record record;
        const node_ref result(morva::osg::optWithSkippedGeo(root.get(), setup, cells(25000), false,
                                                            drops, options, record));
        const node_ref all(group({result.get()}));
        if (drops)
            all->addChild(root.get());
        EXPECT_EQ(firstDifference(shapeOf(expected.get()), shapeOf(all.get())), "");
        const auto is = thinBelow(all.get()), was = thinBelow(expected.get());
        EXPECT_TRUE(is[0] == was[0] && is[1] >= was[1]);
        for (const node_ref& shown : {all, expected}) { // switches first: no chosen child is lost
            morva::osg::removeSwitchParts(shown.get());
            morva::osg::removeLODParts(shown.get());
        }
        EXPECT_EQ(firstDifference(shapeOf(expected.get()), shapeOf(all.get())), "");
        EXPECT_TRUE(morva::osg::getIDmapHandler().merged);
        EXPECT_NE(out.text().find("Rebuilded Scene contains "), std::string::npos);
        EXPECT_EQ(error.text(), "");
    }
    morva::osg::getIDmapHandler().reset();
}

TEST(OptTreeAuto, TakesTheRoadThatSuitsTheScene) {
    const palette colors;
    const std::string head = "Optimizing Tree...\nOptimization called withoud parameters. "
                             "Automated optimization started.\n"
                             "Available parameters are: \n" +
                             morva::osg::optTreeDoc();
    const struct {
        const char* scene;
        const char* begins; ///< what is said next
        std::size_t triangles;
        std::size_t hidden, left_alone, below_switches;
    } rows[] = {
        {"g()", "Merging Geometry with 0 G", 0, 0, 0, 0},
        {".g(red)", "Merging Geometry with 0 G", 0, 0, 0, 0},
        {"red", "Merging Geometry with 1 G", 1, 0, 0, 0},
        {"g(red ?0s(blue red) %l(red) !h(blue))", "Merging Geometry with 1 G", 1, 0, 0, 3},
        {"g(red choice ?0s(blue))", "Optimizing: Some Nodes are skipped.\n", 3, 0, 1, 1},
        {"g(red #!blue(red) cube ?0s(!blue))", "Optimizing: Some Nodes are skipped.\n", 2, 2, 1, 1},
        {"!red", "Optimizing: Some Nodes are skipped.\n", 0, 1, 0, 0},
        {"g(image grey)", "", 2, 0, 0, 0}};
    const std::size_t each = shapeOf(node_ref(sceneOf("red")).get()).size();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.scene);
        const node_ref root(furnished(sceneOf(row.scene, colors.names)));
        const node_ref parent(group({root.get()}));
        morva::osg::run_record run;
        const stream_capture out(std::cout);
        const node_ref result(morva::osg::optTree(root.get(), "", run));
        EXPECT_EQ(parent->getNChildren(), 0U) << "off for good";
        ASSERT_TRUE(run.automatic);
        const auto& record = *run.automatic;
        EXPECT_EQ(out.text().substr(0, head.size()), head);
        EXPECT_EQ(out.text().substr(head.size(), std::strlen(row.begins)), row.begins);
        EXPECT_EQ(shapeOf(result.get()).size(), row.triangles * each);
        EXPECT_EQ(record.hidden, row.hidden);
        EXPECT_EQ(record.left_alone, row.left_alone);
        EXPECT_EQ(record.below_switches, row.below_switches);
        EXPECT_EQ(record.with_skipped, row.hidden + row.left_alone > 0);
        EXPECT_EQ(record.atlas.atlases.size(), record.has_images ? 1U : 0U);
    }
    auto_record nothing;
    const stream_capture out(std::cout);
    const node_ref none(morva::osg::optTreeAuto(::osg::NullFC, auto_options(), nothing));
    EXPECT_NE(out.text().find("Merging Geometry with 0 G"), std::string::npos);
    EXPECT_EQ(shapeOf(none.get()).size(), 0U);
}

TEST(Auto, TrianglesPerCoreRiseBetweenTheBounds) {
    const std::pair<unsigned, unsigned> rows[] = {
        {0, 10000},      {100000, 10000}, {100001, 11500},  {123456, 11851},
        {500000, 17500}, {999999, 24999}, {1000000, 25000}, {4294967295U, 25000}};
    for (const auto& [triangles, budget] : rows)
        EXPECT_EQ(morva::osg::calcTrisPerGeometrycore(triangles), budget) << triangles;
}

TEST(OptGeometry, CutsOneCoreAndKeepsIt) {
    const stream_capture out(std::cout);
    EXPECT_EQ(node_ref(morva::osg::optGeometry(::osg::NullFC, 10, 1))->getNChildren(), 0U);
    const ::osg::MaterialRefPtr glass(chunked({1, 1, 1, 0.5F})), red(plain(1));
    for (const bool cut : {false, true}) {
        for (const bool held : {false, true}) {
            const ::osg::GeometryPtr core = geometryOf(quads(50), cut ? red.get() : glass.get());
            const geometry_ref holder(held ? core : ::osg::GeometryPtr());
            const node_ref parts(morva::osg::optGeometry(core, 25, 1)), source(nodeOf(core));
            EXPECT_EQ(firstDifference(shapeOf(source.get()), shapeOf(parts.get())), "");
            for (const NodePtr& part : geometryNodes(parts.get()))
                EXPECT_EQ(shapeOf(part).size() <= 25, cut);
        }
    }
}

} // namespace
