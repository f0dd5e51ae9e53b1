// What the merge pass does when memory runs out: allocations of some size fail, each in turn.

#include <morva/core/morva_shared_steps.h>

#include "tests/support/merge_scenes.h"
#include "tests/support/shortage.h"

namespace {

/// Cores are filled late, as beside workers.
struct steps_in_turn : morva::step_help {
    void share(std::size_t count, const morva::numbered_step& step) override {
        for (std::size_t i = 0; i < count; ++i)
            step(i);
    }
};

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
    steps_in_turn help;
    for (setup.opt = 0; setup.opt <= 3; ++setup.opt) {
        SCOPED_TRACE(setup.opt);
        std::set<std::string> errors;
        failInTurn(512, [&](const auto& starved) {
            const stream_capture out(std::cout), err(std::cerr);
            const morva::step_help::scope helped(&help);
            node_ref made;
            const bool failed =
                starved([&] { made = morva::osg::mergeGeo(root.get(), cells(20), setup); });
            ASSERT_TRUE(made != ::osg::NullFC);
            errors.insert(err.text());
            EXPECT_TRUE(failed || shapeOf(made.get()).size() == whole);
        });
        EXPECT_EQ(errors.count("bad_alloc caught in geomerge: std::bad_alloc\n"), 1U);
        EXPECT_EQ(errors.count("Bad_Alloc caught in MakeGeoCore: std::bad_alloc\n"), 1U);
    }
}

} // namespace
