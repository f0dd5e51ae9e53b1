// Cutting triangles at planes: against the written-out table, and what every cut must conserve.

#include "naive_cut.h"

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
    if (kind == 1 && rng() % 16 == 0)
        p[rng() % 3] = rng() % 2 == 0 ? nan_value : 3e12F; // beyond what may be kept
    return p;
}

TEST(CutElementOracle, AgreesWithTheWrittenOutTable) {
    std::cout << std::fixed; // what is told has fifteen digits all the same
    const std::streamsize digits = std::cout.precision(3);
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
        const double plane = kind == 1   ? static_cast<double>(rng() % 3) * 0.5 - 0.5
                             : round < 5 ? static_cast<double>(nan_value)
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
                EXPECT_TRUE(same(numbersOf(cornersOf(geoset, e)), numbersOf(expected.stays)));
                for (std::size_t i = 0; i < expected.added.size(); ++i)
                    EXPECT_EQ(numbersOf(cornersOf(geoset, size + i)), numbersOf(expected.added[i]));
                EXPECT_EQ(geoset.split_axis, naive.known_axis);
                if (naive.known_axis >= 0) {
                    EXPECT_EQ(geoset.split_plane, naive.known_plane) << "snapped to a corner";
                }
                cuts += expected.added.empty() ? 0 : 1;
                refusals += expected.added.empty() && !expected.told.empty() ? 1 : 0;
            }
        }
        ASSERT_EQ(broken_rule_of(geoset), "");
    }
    EXPECT_GT(cuts, 1000);
    EXPECT_GT(refusals, 1000);
    EXPECT_EQ(std::cout.precision(digits), 3);
    std::cout.unsetf(std::ios_base::fixed);
}

// ---- what a cut conserves

TEST(CutElement, CutsAnEdgeInOnePlaceAndKeepsAttributes) {
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        osg_geoset geoset;
        fillGeoset(geoset, scattered(rng, 500), true);
        const ::osg::GeometryPtr core = geoset.geometry.get();
        if (seed % 2 == 0) { // stored in other forms
            core->setPositions(inOtherForm<::osg::GeoPositions3d>(core->getPositions()));
            core->setColors(inOtherForm<::osg::GeoColors4f>(core->getColors()));
            core->setTexCoords(inOtherForm<::osg::GeoTexCoords3f>(core->getTexCoords()));
            geoset.setup();
        }
        geoset.convert();
        const rows uncut = rowsOf(core, geoset.vertex_count);
        const int axis = static_cast<int>(seed % 3);
        const unsigned long count = geoset.size;
        unsigned long cuts = 0;
        for (unsigned long e = 0; e < count; ++e) {
            if (!(geoset.axis_min[axis][e] < 0.123F && geoset.axis_max[axis][e] > 0.123F))
                continue;
            const ::osg::Pnt3d p(cornersOf(geoset, e)[0]), q(cornersOf(geoset, e)[1]);
            ::osg::Pnt3d there, back; // an edge is cut in one place, from whichever end
            toldBy([&] {
                geoset.calcSplitPoint(p, q, static_cast<double>(0.123F), axis, &there);
                geoset.calcSplitPoint(q, p, static_cast<double>(0.123F), axis, &back);
            });
            EXPECT_EQ(std::memcmp(&there, &back, sizeof there), 0);
            const cut_result found = cut(geoset, e, static_cast<double>(0.123F), axis);
            ASSERT_GT(found.pieces, 0) << found.told;
            ++cuts;
        }
        EXPECT_GT(cuts, 20U);
        EXPECT_EQ(broken_rule_of(geoset), "");

        // Colours and coordinates are the positions; IDs say which triangle a piece came from.
        const rows all = rowsOf(core, geoset.vertex_count);
        for (const corner& c : all) {
            for (::osg::UInt32 k = 0; k < 3; ++k)
                ASSERT_NEAR(c.color[k], c.position[k], 2e-4F);
            ASSERT_NEAR(c.uv[0][1], c.position[1], 2e-4F);
            ASSERT_LT(c.id, static_cast<float>(count));
            ASSERT_EQ(c.normal, uncut[3 * static_cast<std::size_t>(c.id)].normal);
        }
    }
}

// ---- halves, without a plane given

cut_result halve(osg_geoset& geoset, int edge, bool by_axis, unsigned long element = 0) {
    return cutBy([&](int& pieces, unsigned long& first) {
        geoset.splitElementInTwoParts(element, pieces, first, edge, by_axis);
    });
}

TEST(CutInHalves, TakesTheMiddleOfTheEdgeAskedForOrOfTheLongest) {
    // Edges of 4, 5 and 3.
    const ::osg::Pnt3f a(0, 0, 0), b(4, 0, 0), c(0, 3, 0);
    const ::osg::Pnt3f ab(2, 0, 0), bc(2, 1.5F, 0), ca(0, 1.5F, 0);
    // Two legs of one length from t, and their middles.
    const ::osg::Pnt3f t(0, 0, 0), l(-1, 4, 0), r(1, 4, 0), tl(-0.5F, 2, 0), tr(0.5F, 2, 0);
    const struct {
        const char* name;
        piece corners;
        int edge;
        piece added, stays;
    } cases[] = {{"A to B", {a, b, c}, 1, {ab, b, c}, {a, ab, c}},
                 {"B to C", {a, b, c}, 2, {a, bc, c}, {a, b, bc}},
                 {"C to A", {a, b, c}, 3, {b, c, ca}, {a, b, ca}},
                 {"longest is B to C", {a, b, c}, 0, {a, bc, c}, {a, b, bc}},
                 {"longest is A to B", {b, c, a}, 0, {bc, c, a}, {b, bc, a}},
                 {"longest is C to A", {c, a, b}, 0, {a, b, bc}, {c, a, bc}},
                 {"C to A before A to B", {t, r, l}, 0, {r, l, tl}, {t, r, tl}},
                 {"B to C before A to B", {l, t, r}, 0, {l, tr, r}, {l, t, tr}}};
    for (const auto& given : cases) {
        SCOPED_TRACE(given.name);
        osg_geoset geoset;
        fillRaw(geoset, given.corners);
        const cut_result found = halve(geoset, given.edge, false);
        EXPECT_EQ(found.told, "");
        EXPECT_EQ(found.first, 1U);
        ASSERT_EQ(found.pieces, 1);
        EXPECT_EQ(cornersOf(geoset, 1), given.added);
        EXPECT_EQ(cornersOf(geoset, 0), given.stays);
        EXPECT_EQ(geoset.split_axis, -1) << "no plane was asked for";
        EXPECT_EQ(broken_rule_of(geoset), "");
    }
}

TEST(CutInHalves, CutsSliversAndWhoAsksForItAcrossTheLongestAxis) {
    const struct {
        const char* name;
        ::osg::Pnt3f extent; ///< of a triangle with its lowest corner at (10, 20, 30)
        bool by_axis;
        int axis; ///< -1: an edge was halved
        double plane;
    } cases[] = {{"a sliver, the flat axis does not count", {100, 1, 0}, false, 0, 60},
                 {"fifteen times is not yet a sliver", {15, 1, 0}, false, -1, 0},
                 {"beyond fifteen times it is", {1, 16, 2}, false, 1, 28},
                 {"z before the others", {2, 2, 2}, true, 2, 31},
                 {"y before x", {3, 3, 1}, true, 1, 21.5},
                 {"x if it is the longest", {4, 3, 3}, true, 0, 12}};
    for (const auto& given : cases) {
        SCOPED_TRACE(given.name);
        const ::osg::Pnt3f low(10, 20, 30);
        const ::osg::Vec3f e(given.extent);
        osg_geoset geoset;
        fillRaw(geoset, {low, low + ::osg::Vec3f(e[0], 0, e[2]), low + ::osg::Vec3f(0, e[1], 0)});
        const cut_result found = halve(geoset, 1, given.by_axis);
        EXPECT_EQ(found.told, "");
        EXPECT_GT(found.pieces, 0);
        EXPECT_EQ(geoset.split_axis, given.axis);
        EXPECT_EQ(geoset.split_plane, given.plane);
        EXPECT_EQ(broken_rule_of(geoset), "");
    }
}

TEST(CutInHalves, RefusesWithoutChange) {
    osg_geoset flat; // its halves must not be kept
    fillRaw(flat, {{0, 0, 0}, {1, 0, 0}, {3, 0, 0}});
    for (const int edge : {4, -1, 1000, 0}) {
        const cut_result found = halve(flat, edge, false);
        EXPECT_EQ(found.told, edge == 0 ? ""
                                        : "Error in Geoset::splitElementInTwoParts(). Linevalue: " +
                                              std::to_string(edge) + "\n");
        EXPECT_EQ(found.pieces, 0);
    }
    EXPECT_EQ(flat.split_axis, -1) << "extents of (3, 0, 0) are no sliver";
    EXPECT_EQ(halve(flat, 0, false, 1).pieces, 0) << "there is no such triangle";
    for (const unsigned long element : {1UL, 4000000000UL})
        EXPECT_EQ(cut(flat, element, 0.5, 0).pieces, 0);
    EXPECT_EQ(flat.size, 1U);
}

} // namespace
