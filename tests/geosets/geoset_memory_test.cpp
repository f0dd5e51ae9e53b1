// What geosets do when memory runs out: one large allocation fails, every one in turn.

#include "tests/support/triangle_scenes.h"

#include "../support/shortage.h"

namespace {

using namespace tri;

const std::string resize_error = "Error while resizing FieldContainers.\n";
const std::string add_error =
    "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: std::bad_alloc\n";
const std::string setup_error = "bad_alloc caught in Geoset.setup(): std::bad_alloc\n";

piece manyCorners(int count) {
    std::mt19937 rng(seedOf(5));
    piece positions;
    for (int i = 0; i < count; ++i)
        positions.push_back({float(rng() % 1000), float(rng() % 1000), float(i % 7)});
    return positions;
}

/// Runs `act` and returns what it told on both streams, standard output first.
template <typename Act> std::string allToldBy(const Act& act) {
    std::string out;
    const std::string errors = toldBy([&] { out = toldBy(act); }, std::cerr);
    return out + errors;
}

TEST(GeosetMemory, AFailedResizeBringsTheOldLengthBackAndIsRemembered) {
    for (const bool fails_again : {false, true}) {
        osg_geoset geoset;
        fillGeoset(geoset, manyCorners(1500), true);
        if (fails_again) // shorter than the rest: putting the old length back makes it longer
            geoset.geometry->setColors(::osg::GeoColors3f::create());
        const auto held = geoset.geometry->getPositions()->size();
        const piece last = cornersOf(geoset, 499);
        const auto resize = [&] {
            const shortage one(1, fails_again ? 1000 : 1); // positions grow, normals do not
            EXPECT_FALSE(geoset.resizeFieldContainers(20000));
        };
        EXPECT_EQ(allToldBy(resize), fails_again ? resize_error + resize_error : resize_error);
        EXPECT_TRUE(geoset.resize_failed);
        EXPECT_EQ(geoset.geometry->getPositions()->size(), held);
        EXPECT_EQ(cornersOf(geoset, 499), last);
        // From then on nothing is resized, added or cut, without a word but for adding.
        const auto go_on = [&] {
            EXPECT_FALSE(geoset.resizeFieldContainers(10));
            EXPECT_EQ(cut(geoset, 0, 500.0, 0).pieces, 0);
            int pieces = 7;
            unsigned long first = 0;
            geoset.splitElementInTwoParts(0, pieces, first, 0, false);
            EXPECT_EQ(pieces, 0);
            EXPECT_FALSE(geoset.addObject(last[0], last[1], last[2], 0));
        };
        EXPECT_EQ(allToldBy(go_on), "Error occured in Geoset.AddObject().\n");
        EXPECT_EQ(geoset.geometry->getPositions()->size(), held);
        if (!fails_again) {
            EXPECT_EQ(broken_rule_of(geoset), "");
        }
        geoset.clear();
        EXPECT_FALSE(geoset.resize_failed);
    }
}

TEST(GeosetMemory, ACutTakesBothPiecesOrNoneAtEveryAllocation) {
    failInTurn(2048, [](const auto& starved) {
        osg_geoset geoset;
        piece positions = manyCorners(3600);
        std::copy_n(piece{{0, 0, 0}, {4, 0, 0}, {0, 4, 0}}.begin(), 3, positions.begin());
        fillGeoset(geoset, positions, true);
        do
            ASSERT_TRUE(geoset.addObject({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 7));
        while (geoset.size + 2 < geoset.wished_size); // there is room for one piece
        geoset.convert();
        const std::uint64_t size = geoset.size, wished = geoset.wished_size;
        const auto before = numbersOf(rowsOf(geoset.geometry.get(), 3));
        cut_result found;
        bool failed = false;
        const std::string told =
            allToldBy([&] { failed = starved([&] { found = cut(geoset, 0, 1.0, 0); }); });
        EXPECT_EQ(told, failed ? add_error : "");
        EXPECT_EQ(broken_rule_of(geoset), "");
        EXPECT_EQ(found.pieces, failed ? 0 : 2);
        if (!failed)
            return;
        EXPECT_EQ(geoset.size, size);
        EXPECT_EQ(geoset.wished_size, wished);
        EXPECT_EQ(numbersOf(rowsOf(geoset.geometry.get(), 3)), before);
        geoset.setup();
        EXPECT_EQ(geoset.size, size) << "the piece that was taken back does not come again";
        EXPECT_EQ(cut(geoset, 0, 1.0, 0).pieces, 2);
        EXPECT_EQ(broken_rule_of(geoset), "");
    });
}

/// Pours two nodes and sets up twice, with the n-th allocation failing: every n in turn until
/// none fails. Whatever fails says so in one line and leaves a sound geoset with whole nodes.
template <typename G> void expectSoundInNeed(const std::string& extract_error) {
    const registration_off ids_are_kept;
    const unsigned mode = G::corners == 3 ? 4 : 1;
    std::mt19937 rng(seedOf(77));
    const mesh_data some = withAttributes(meshOf({{mode, 600}}, manyCorners(600)), rng);
    const mesh_data more = meshOf({{mode, 2400}}, manyCorners(2400));
    G undisturbed;
    pour(some, undisturbed, set_up);
    pour(more, undisturbed, set_up);
    const std::uint64_t whole = undisturbed.size;
    EXPECT_GE(whole, 2900U / G::corners);
    std::set<std::uint64_t> sizes;
    failInTurn(1, [&](const auto& starved) {
        G geoset;
        const node_ref first(meshNode(some)), second(meshNode(more));
        bool failed = false;
        const std::string told = allToldBy([&] {
            failed = starved([&] {
                extract(first.get(), geoset, set_up);
                extract(second.get(), geoset, set_up);
            });
        });
        EXPECT_EQ(broken_rule_of(geoset), "");
        sizes.insert(geoset.size);
        EXPECT_TRUE(failed || told == "");
        // Without a line at most room for growth was lacking.
        EXPECT_TRUE(told != "" || geoset.size == whole);
        EXPECT_TRUE(told == "" || told == resize_error || told == extract_error ||
                    told == setup_error)
            << told;
    });
    EXPECT_LE(sizes.size(), 4U) << "none, the first node, the second one, both";
}

TEST(GeosetMemory, ExtractAndSetupFailWithOneLineAndStaySound) {
    expectSoundInNeed<osg_geoset>(
        "bad_alloc caught in Extract geometry in osg_geoset: std::bad_alloc\n");
    const std::string of_lines =
        "bad_alloc caught in Extract geometry in morva::osg_line_geoset: std::bad_alloc\n";
    expectSoundInNeed<osg_line_geoset>(of_lines);
    expectSoundInNeed<osg_point_geoset>(of_lines);
}

} // namespace
