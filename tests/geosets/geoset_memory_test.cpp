// What a triangle geoset does when memory runs out: one large allocation fails, every one in turn.

#include "split_scenes.h"
#include "triangle_scenes.h"

#include <gtest/gtest.h>

#include "../support/shortage.h"

namespace {

using morva_test::shortage;
using tri::osg_geoset;

std::vector<::osg::Pnt3f> manyTriangles(int count) {
    std::mt19937 rng(5);
    std::vector<::osg::Pnt3f> positions;
    for (int i = 0; i < 3 * count; ++i) {
        positions.push_back(::osg::Pnt3f(static_cast<float>(rng() % 1000),
                                         static_cast<float>(rng() % 1000),
                                         static_cast<float>(i % 7)));
    }
    return positions;
}

/// Runs `act` and returns what it told on both streams.
template <typename Act> std::pair<std::string, std::string> toldBy(const Act& act) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    act();
    std::string out = testing::internal::GetCapturedStdout();
    return {std::move(out), testing::internal::GetCapturedStderr()};
}

TEST(GeosetMemory, AFailedResizeBringsTheOldLengthBackAndIsRemembered) {
    osg_geoset geoset;
    tri::fillGeoset(geoset, manyTriangles(500), true);
    const auto rows = geoset.geometry->getPositions()->size();
    const ::osg::Pnt3f last = geoset.geometry->getPositions()->getValue(1499);
    const auto told = toldBy([&] {
        const shortage one(1); // positions grow, normals do not
        EXPECT_FALSE(geoset.resizeFieldContainers(20000));
    });
    EXPECT_EQ(told.first, "Error while resizing FieldContainers.\n");
    EXPECT_TRUE(geoset.resize_failed);
    EXPECT_EQ(geoset.geometry->getPositions()->size(), rows);
    EXPECT_EQ(geoset.geometry->getColors()->size(), rows);
    EXPECT_EQ(geoset.geometry->getPositions()->getValue(1499), last);

    // From then on nothing is resized, added or cut, without a word.
    const auto later = toldBy([&] {
        EXPECT_FALSE(geoset.resizeFieldContainers(10));
        int pieces = 7;
        unsigned long first = 0;
        geoset.splitElement(0, 500.0, 0, pieces, first);
        EXPECT_EQ(pieces, 0);
        geoset.splitElementInTwoParts(0, pieces, first, 0, false);
        EXPECT_EQ(pieces, 0);
        EXPECT_EQ(first, geoset.size);
    });
    EXPECT_EQ(later.first + later.second, "");
    EXPECT_EQ(geoset.geometry->getPositions()->size(), rows);
    const auto refused = toldBy([&] {
        const ::osg::Pnt3f p(1, 2, 3);
        EXPECT_FALSE(geoset.addObject(p, p, p, 0));
    });
    EXPECT_EQ(refused.second, "Error occured in Geoset.AddObject().\n");
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.clear();
    EXPECT_FALSE(geoset.resize_failed);
    tri::fillGeoset(geoset, manyTriangles(5));
    EXPECT_EQ(geoset.wished_size, geoset.size);
}

TEST(GeosetMemory, APutBackThatFailsAsWellEnds) {
    osg_geoset geoset;
    tri::fillGeoset(geoset, manyTriangles(500), true);
    // Colours shorter than the rest: putting the old length back makes them longer.
    geoset.geometry->setColors(::osg::GeoColors3f::create());
    const auto told = toldBy([&] {
        const shortage all(1, 1000);
        EXPECT_FALSE(geoset.resizeFieldContainers(20000));
    });
    EXPECT_EQ(told.first, "Error while resizing FieldContainers.\n"
                          "Error while resizing FieldContainers.\n");
    EXPECT_TRUE(geoset.resize_failed);
    EXPECT_GE(geoset.geometry->getPositions()->size(), 1500U);
}

TEST(GeosetMemory, AddingFailsWholeAtEveryAllocation) {
    for (long index = 0;; ++index) {
        ASSERT_LT(index, 100);
        osg_geoset geoset;
        tri::fillGeoset(geoset, manyTriangles(1200), true);
        geoset.convert();
        const std::uint64_t size = geoset.size;
        bool added = true;
        const auto told = toldBy([&] {
            const shortage one(index);
            added = geoset.addObject(::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(1, 0, 0),
                                     ::osg::Pnt3f(0, 1, 0), 3);
        });
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
        if (added) {
            EXPECT_GE(index, 7) << "six arrays and the corner copies are made";
            EXPECT_EQ(geoset.size, size + 1);
            EXPECT_EQ(told.second, "");
            break;
        }
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        EXPECT_EQ(geoset.size, size);
        EXPECT_EQ(geoset.wished_size, size);
        EXPECT_EQ(told.second, "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: "
                               "std::bad_alloc\n");
    }
}

TEST(GeosetMemory, ACutThatCannotTakeItsSecondPieceIsTakenBack) {
    osg_geoset geoset;
    std::vector<::osg::Pnt3f> positions = manyTriangles(1200);
    positions[0] = ::osg::Pnt3f(0, 0, 0);
    positions[1] = ::osg::Pnt3f(4, 0, 0);
    positions[2] = ::osg::Pnt3f(0, 4, 0);
    tri::fillGeoset(geoset, positions, true);
    const ::osg::Pnt3f a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
    do
        ASSERT_TRUE(geoset.addObject(a, b, c, 7));
    while (geoset.size + 2 < geoset.wished_size);
    geoset.convert();
    const std::uint64_t size = geoset.size;
    const tri::rows before = tri::rowsOf(geoset.geometry.get(), 3);
    int pieces = 7;
    unsigned long first = 0;
    const auto told = toldBy([&] {
        const shortage all(0, 1000);
        geoset.splitElement(0, 1.0, 0, pieces, first);
    });
    EXPECT_EQ(told.first, "");
    EXPECT_EQ(told.second, "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: "
                           "std::bad_alloc\n");
    EXPECT_EQ(pieces, 0);
    EXPECT_EQ(geoset.size, size);
    const tri::rows after = tri::rowsOf(geoset.geometry.get(), 3);
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_EQ(tri::numbersOf(after[k]), tri::numbersOf(before[k]));
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.setup();
    EXPECT_EQ(geoset.size, size) << "the piece that was taken back does not come again";

    geoset.splitElement(0, 1.0, 0, pieces, first);
    EXPECT_EQ(pieces, 2);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
}

TEST(GeosetMemory, AnotherSetupThatFailsLeavesNothingToReadPastTheEnd) {
    bool failed = true;
    for (long index = 0; failed; ++index) {
        ASSERT_LT(index, 100);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        osg_geoset geoset;
        tri::fillGeoset(geoset, manyTriangles(200), true);
        geoset.convert();
        const ::osg::NodeRefPtr more(tri::nodeOf(tri::soup(manyTriangles(900))));
        const tri::registration_off ids_are_kept;
        morva::osg::extract(more.get(), geoset, false, false, false, false, false);
        const auto told = toldBy([&] {
            const shortage one(index);
            geoset.setup();
            failed = shortage::happened();
        });
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
        EXPECT_EQ(failed && told.first.empty(),
                  told.second == "bad_alloc caught in Geoset.setup(): std::bad_alloc\n");
    }
}

TEST(GeosetMemory, SetupAndExtractFailWithOneLineAndStaySound) {
    const unsigned int live = split::liveContainers();
    // Pours two nodes while one allocation fails; true if it came to that.
    const auto pourShort = [](osg_geoset& geoset, long index) {
        std::mt19937 rng(77);
        const ::osg::NodeRefPtr first(
            tri::nodeOf(tri::soup(manyTriangles(800)), "a node with a name"));
        const ::osg::NodeRefPtr second(
            tri::nodeOf(tri::randomTriangles(rng, {flat::layout::one_index, true})));
        const shortage one(index);
        morva::osg::extract(first.get(), geoset, false, false, false, false, false);
        morva::osg::extract(second.get(), geoset, true, false, false, true, false);
        return shortage::happened();
    };
    unsigned int whole = 0;
    {
        osg_geoset geoset;
        ASSERT_FALSE(pourShort(geoset, 1000));
        whole = geoset.size;
    }

    bool failed = true;
    for (long index = 0; failed; ++index) {
        ASSERT_LT(index, 200);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        osg_geoset geoset;
        const auto told = toldBy([&] { failed = pourShort(geoset, index); });
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
        const std::string lines = told.first + told.second;
        EXPECT_TRUE(failed || lines.empty()) << lines;
        if (lines.empty()) { // then at most room for growth was lacking
            EXPECT_EQ(geoset.size, whole);
        }
        const bool known =
            lines.empty() || lines == "Error while resizing FieldContainers.\n" ||
            lines == "bad_alloc caught in Extract geometry in osg_geoset: std::bad_alloc\n" ||
            lines == "bad_alloc caught in Geoset.setup(): std::bad_alloc\n";
        EXPECT_TRUE(known) << lines;
    }
    EXPECT_EQ(split::liveContainers(), live);
}

} // namespace
