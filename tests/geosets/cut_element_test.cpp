// Cutting triangles at planes: against the written-out table, and what every cut must conserve.

#include "naive_cut.h"

#include <gtest/gtest.h>

#include <iostream>
#include <limits>

#include <morva/trees/kd_tree.h>

#include "../support/kd_checks.h"

namespace {

using namespace tri;

::osg::Pnt3f randomPoint(std::mt19937& rng, int kind) {
    static const float offsets[] = {0.0F, 1e6F, -3e4F};
    std::uniform_real_distribution<float> anywhere(-2.0F, 2.0F);
    ::osg::Pnt3f p;
    for (::osg::UInt32 i = 0; i < 3; ++i) {
        if (kind == 0)
            p[i] = anywhere(rng);
        else if (kind == 1) // a grid: corners on the plane, flat and coincident ones
            p[i] = static_cast<float>(static_cast<int>(rng() % 5) - 2) * 0.5F;
        else // far away, or so near to the plane that it snaps
            p[i] = anywhere(rng) * (rng() % 2 == 0 ? 1e-6F : 1.0F) + offsets[kind - 2];
    }
    return p;
}

TEST(CutElementOracle, AgreesWithTheWrittenOutTable) {
    std::mt19937 rng(815);
    int cuts = 0, refusals = 0;
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int kind = round % 5;
        piece corners;
        for (int i = 0; i < 6; ++i)
            corners.push_back(randomPoint(rng, kind));
        osg_geoset geoset;
        fillRaw(geoset, corners);
        naive_cutter naive;
        // Two planes of one axis, then another axis: the points of one plane are used once more.
        const double plane = kind == 1 ? static_cast<double>(rng() % 3) * 0.5 - 0.5
                                       : static_cast<double>(randomPoint(rng, kind)[0]);
        for (const int axis : {0, 0, 2}) {
            for (unsigned long e = 0; e < 2; ++e) {
                const piece before = cornersOf(geoset, e);
                const unsigned long size = geoset.size;
                const naive_result expected = naive.cut(before, plane, axis);
                const cut_result found = cut(geoset, e, plane, axis);
                EXPECT_EQ(found.told, expected.told);
                EXPECT_EQ(found.first, size);
                ASSERT_EQ(static_cast<std::size_t>(found.pieces), expected.added.size());
                ASSERT_EQ(geoset.size, size + expected.added.size());
                EXPECT_EQ(numbersOf(cornersOf(geoset, e)), numbersOf(expected.stays));
                for (std::size_t i = 0; i < expected.added.size(); ++i)
                    EXPECT_EQ(numbersOf(cornersOf(geoset, size + i)), numbersOf(expected.added[i]));
                cuts += expected.added.empty() ? 0 : 1;
                refusals += expected.added.empty() && !expected.told.empty() ? 1 : 0;
            }
        }
        ASSERT_EQ(broken_rule_of(geoset), "");
    }
    EXPECT_GT(cuts, 1000);
    EXPECT_GT(refusals, 1000);
}

const ::osg::Pnt3f origin(0, 0, 0);

TEST(CutElement, TellsWhyNothingWasCut) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::string not_finite =
        "Morva::osg::osg_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n";
    const std::string weird =
        "MORVA_OSG_GEOSET: Weird Error. More than one point is on the plane.\n";
    const std::string one_side = "Error in SplitElement! All Points can't be on one side\n";
    struct refusal {
        const char* name;
        piece corners;
        double plane;
        std::string line;
    };
    const refusal cases[] = {
        {"all above", {origin, {1, 0, 0}, {0, 1, 0}}, -1.0, one_side},
        {"all below", {origin, {1, 0, 0}, {0, 1, 0}}, 7.0, one_side},
        {"A and C on the plane", {origin, {1, 0, 0}, {0, 1, 0}}, 0.0, weird},
        {"B and C on the plane", {{1, 0, 0}, origin, {0, 1, 0}}, 0.0, weird},
        {"all on the plane", {origin, {0, 0, 1}, {0, 1, 0}}, 0.0, weird},
        {"A and B on the plane", {origin, {0, 1, 0}, {1, 0, 0}}, 0.0, not_finite},
        {"an undefined corner", {{nan, 0, 0}, {-1, 0, 0}, {1, 1, 0}}, 0.0, not_finite},
        {"an undefined plane",
         {origin, {1, 0, 0}, {0, 1, 0}},
         std::numeric_limits<double>::quiet_NaN(),
         one_side}};
    for (const refusal& c : cases) {
        SCOPED_TRACE(c.name);
        osg_geoset geoset;
        fillRaw(geoset, c.corners);
        const cut_result found = cut(geoset, 0, c.plane, 0);
        EXPECT_EQ(found.told, c.line);
        EXPECT_EQ(found.pieces, 0);
        EXPECT_EQ(geoset.size, 1U);
        EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), 3U);
    }
    osg_geoset geoset;
    fillRaw(geoset, {origin, {1, 0, 0}, {0, 1, 0}});
    for (const unsigned long element : {1UL, 4000000000UL})
        EXPECT_EQ(cut(geoset, element, 0.5, 0).pieces, 0) << "there is no such triangle";
}

TEST(CutElement, SnapsToACornerMuchNearerThanAnother) {
    osg_geoset geoset;
    fillRaw(geoset, {{1e-9F, 0, 0}, {1, 1, 0}, {-1, 1, 0}});
    const cut_result found = cut(geoset, 0, 0.0, 0);
    EXPECT_EQ(found.pieces, 1);
    EXPECT_EQ(numbersOf(cornersOf(geoset, 1))[0], 1e-9F);
    EXPECT_EQ(geoset.split_plane, static_cast<double>(1e-9F));
    EXPECT_EQ(geoset.split_axis, 0);
}

TEST(CutPoint, TellsTheFactorWithFifteenDigitsWhateverTheStreamIsSetTo) {
    osg_geoset geoset;
    ::osg::Pnt3d cut_at;
    const ::osg::Pnt3d p(0, 0, 0), q(1, 2, 3);
    const auto act = [&] {
        std::cout << std::fixed;
        std::cout.precision(3);
        EXPECT_FALSE(geoset.calcSplitPoint(p, q, 0.999995, 0, &cut_at));
        EXPECT_FALSE(geoset.calcSplitPoint(p, q, 1.0 / 3e6, 0, &cut_at));
        std::cout << 0.5 << std::endl;
    };
    EXPECT_EQ(toldBy(act), "Morva::osg::osg_geoset::calcSplitPoint: Factor Error( 0.999995 ).\n"
                           "Morva::osg::osg_geoset::calcSplitPoint: Factor Error( "
                           "3.33333333333333e-07 ).\n"
                           "0.500\n");
}

TEST(CutPoint, IsTheSameFromBothEndsUntilThePlaneChanges) {
    std::mt19937 rng(3);
    osg_geoset geoset;
    int differ = 0;
    for (int round = 0; round < 2000; ++round) {
        const ::osg::Pnt3d p(randomPoint(rng, 0)), q(randomPoint(rng, 0));
        const double plane = p[1] * 0.3 + q[1] * 0.7;
        ::osg::Pnt3d forward, backward, anew;
        ASSERT_TRUE(geoset.calcSplitPoint(p, q, plane, 1, &forward));
        ASSERT_TRUE(geoset.calcSplitPoint(q, p, plane, 1, &backward));
        ASSERT_TRUE(geoset.calcSplitPoint(q, p, plane + 1e-9, 1, &anew));
        ASSERT_TRUE(geoset.calcSplitPoint(q, p, plane, 1, &anew));
        EXPECT_EQ(forward[1], plane);
        for (::osg::UInt32 i = 0; i < 3; ++i) {
            ASSERT_EQ(forward[i], backward[i]);
            ASSERT_NEAR(forward[i], anew[i], 1e-9);
            differ += forward[i] != anew[i] ? 1 : 0;
        }
    }
    EXPECT_GT(differ, 0) << "without a memory the two directions do not always agree";
}

// ---- what a cut conserves

/// Edges that are not met by exactly one triangle running the other way.
std::size_t openEdges(const osg_geoset& geoset) {
    std::map<std::vector<float>, int> balance;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const piece t = cornersOf(geoset, i);
        for (std::size_t k = 0; k < 3; ++k) {
            ++balance[numbersOf(piece{t[k], t[(k + 1) % 3]})];
            --balance[numbersOf(piece{t[(k + 1) % 3], t[k]})];
        }
    }
    return static_cast<std::size_t>(std::count_if(
        balance.begin(), balance.end(), [](const auto& edge) { return edge.second != 0; }));
}

TEST(CutElement, KeepsAClosedSurfaceClosedAndItsAreaAndWinding) {
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        osg_geoset geoset;
        fillGeoset(geoset, roughBall(rng, 12, 24), true);
        ASSERT_EQ(openEdges(geoset), 0U);
        geoset.convert();
        const rows uncut = rowsOf(geoset.geometry.get(), geoset.vertex_count);
        const double area = areaOfAll(geoset);
        const int axis = static_cast<int>(seed % 3);
        const unsigned long count = geoset.size;
        unsigned long cuts = 0;
        for (unsigned long e = 0; e < count; ++e) {
            if (!(geoset.axis_min[axis][e] < 0.123F && geoset.axis_max[axis][e] > 0.123F))
                continue;
            const ::osg::Vec3d before = areaOf(cornersOf(geoset, e));
            const cut_result found = cut(geoset, e, static_cast<double>(0.123F), axis);
            ASSERT_GT(found.pieces, 0) << found.told;
            ++cuts;
            ::osg::Vec3d sum = areaOf(cornersOf(geoset, e));
            for (int i = 0; i < found.pieces; ++i) {
                const ::osg::Vec3d part =
                    areaOf(cornersOf(geoset, found.first + static_cast<unsigned long>(i)));
                EXPECT_GT(part.dot(before), 0.0);
                sum += part;
            }
            EXPECT_NEAR((sum - before).length(), 0.0, 1e-6);
        }
        EXPECT_GT(cuts, 20U);
        EXPECT_EQ(openEdges(geoset), 0U);
        EXPECT_NEAR(areaOfAll(geoset), area, 1e-5 * area);
        EXPECT_EQ(broken_rule_of(geoset), "");

        // Colours and coordinates are the positions; IDs say which triangle a piece came from.
        const rows all = rowsOf(geoset.geometry.get(), geoset.vertex_count);
        for (const corner& c : all) {
            for (::osg::UInt32 k = 0; k < 3; ++k)
                ASSERT_NEAR(c.color[k], c.position[k], 2e-4F);
            ASSERT_NEAR(c.uv[0][1], c.position[1], 2e-4F);
            ASSERT_LT(c.id, static_cast<float>(count));
            ASSERT_EQ(c.normal, uncut[3 * static_cast<std::size_t>(c.id)].normal);
        }
    }
}

TEST(CutInTree, EveryPieceLiesOnItsSideAndNothingIsLost) {
    std::mt19937 rng(12);
    osg_geoset geoset;
    fillGeoset(geoset, roughBall(rng, 30, 60), true);
    const double area = areaOfAll(geoset);
    const std::uint64_t count = geoset.size;
    morva::kd_tree<float> tree;
    const morva::kd_build_setup setup{50, 20, 1, 1.0F, 2.0F, 0.95F, false};
    const std::string told =
        toldBy([&] { morva::compile(geoset, tree, setup, morva::kd_strategy_ObjMedian()); });
    EXPECT_GT(geoset.size, count);
    EXPECT_EQ(broken_rule_of(geoset), "");
    EXPECT_EQ(morva_test::broken_rule_of(tree, geoset, setup), "");
    EXPECT_NEAR(areaOfAll(geoset), area, 1e-5 * area);
    EXPECT_LT(std::count(told.begin(), told.end(), '\n'), 10) << told;
}

} // namespace
