// What the way from scene to cores does when memory runs out: one allocation of some size fails,
// every one in turn.

#include <morva/core/morva_shared_steps.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/trees/kd_strategies.h>

#include "../support/shortage.h"
#include "merge_scenes.h"

namespace {

TEST(MemoryRunsOut, ACoreThatIsFilledLateIsEmptyInItsPlace) {
    struct in_turn : morva::step_help {
        void share(std::size_t count, const morva::numbered_step& step) override {
            for (std::size_t i = 0; i < count; ++i)
                step(i);
        }
    } help;
    std::mt19937 rng(seedOf(9003));
    const node_ref source(meshNode(withAttributes(soup(rng, 240), rng)));
    morva::osg::osg_geoset geoset;
    morva::osg::extract(source.get(), geoset, false, false, false, true, false);
    morva::kd_tree<float> tree;
    morva::compile(geoset, tree, cells(40), morva::kd_strategy_ObjMedian());
    int opt = 0;
    const auto coresOf = [&](node_ref& made) {
        made = morva::osg::Split(tree, geoset, 0, 0, 40, ::osg::NodePtr(), opt, false);
    };
    for (; opt <= 3; ++opt)
        failInTurn(512, [&](const auto& starved) {
            const stream_capture err(std::cerr);
            node_ref plain, late;
            coresOf(plain);
            const bool failed = starved([&] {
                const morva::step_help::scope helped(&help);
                coresOf(late);
            });
            const bool told = err.text() == "Bad_Alloc caught in MakeGeoCore: std::bad_alloc\n";
            EXPECT_TRUE(late == ::osg::NullFC || !failed || told);
            const auto wanted = geometryNodes(plain), got = geometryNodes(late);
            ASSERT_EQ(got.size(), late == ::osg::NullFC ? 0 : wanted.size());
            std::size_t empty = 0;
            for (std::size_t i = 0; i < got.size(); ++i) {
                const std::size_t size = coreOf(got[i])->getPositions()->size();
                empty += size == 0 ? 1 : 0;
                EXPECT_TRUE(size == 0 || size == coreOf(wanted[i])->getPositions()->size());
            }
            EXPECT_EQ(empty, told ? 1U : 0U);
        });
}

TEST(MemoryRunsOut, MergeGeoGivesWhatWasFinishedAndLeavesNothingBehind) {
    std::mt19937 rng(seedOf(9002));
    const material_ref red(plain(0)), blue(plain(1));
    const node_ref root(group({meshNode(row(300, 1))}));
    for (int i = 0; i < 6; ++i)
        root->addChild(
            meshNode(withAttributes(soup(rng, 40), rng), i % 2 == 0 ? red.get() : blue.get()));
    mergeGeo_setup setup = quiet();
    setup.deleteunusedtc = false; // or the sources lose containers
    const std::size_t whole = shapeOf(root.get()).size();
    for (setup.opt = 0; setup.opt <= 3; ++setup.opt) {
        SCOPED_TRACE(setup.opt);
        unsigned int caught = 0;
        failInTurn(512, [&](const auto& starved) {
            const stream_capture out(std::cout), err(std::cerr);
            node_ref made;
            const bool failed =
                starved([&] { made = morva::osg::mergeGeo(root.get(), cells(20), setup); });
            ASSERT_TRUE(made != ::osg::NullFC);
            caught += err.text() == "bad_alloc caught in geomerge: std::bad_alloc\n" ? 1 : 0;
            EXPECT_TRUE(failed || shapeOf(made.get()).size() == whole);
        });
        EXPECT_GT(caught, 0U);
    }
}

} // namespace
