// Halving a triangle without a plane given.

#include "triangle_scenes.h"

#include <gtest/gtest.h>

namespace {

using namespace tri;

cut_result halve(osg_geoset& geoset, int edge, bool by_axis, unsigned long element = 0) {
    return cutBy([&](int& pieces, unsigned long& first) {
        geoset.splitElementInTwoParts(element, pieces, first, edge, by_axis);
    });
}

TEST(CutInHalves, TakesTheMiddleOfTheEdgeAskedForOrOfTheLongest) {
    // Edges of 4, 5 and 3.
    const ::osg::Pnt3f a(0, 0, 0), b(4, 0, 0), c(0, 3, 0);
    const ::osg::Pnt3f ab(2, 0, 0), bc(2, 1.5F, 0), ca(0, 1.5F, 0);
    // Two legs of one length from the top, and their middles.
    const ::osg::Pnt3f top(0, 0, 0), left(-1, 4, 0), right(1, 4, 0);
    const ::osg::Pnt3f of_left(-0.5F, 2, 0), of_right(0.5F, 2, 0);
    struct edge_case {
        const char* name;
        piece corners;
        int edge;
        piece added, stays;
    };
    const edge_case cases[] = {{"A to B", {a, b, c}, 1, {ab, b, c}, {a, ab, c}},
                               {"B to C", {a, b, c}, 2, {a, bc, c}, {a, b, bc}},
                               {"C to A", {a, b, c}, 3, {b, c, ca}, {a, b, ca}},
                               {"longest is B to C", {a, b, c}, 0, {a, bc, c}, {a, b, bc}},
                               {"longest is A to B", {b, c, a}, 0, {bc, c, a}, {b, bc, a}},
                               {"longest is C to A", {c, a, b}, 0, {a, b, bc}, {c, a, bc}},
                               {"C to A before A to B",
                                {top, right, left},
                                0,
                                {right, left, of_left},
                                {top, right, of_left}},
                               {"B to C before A to B",
                                {left, top, right},
                                0,
                                {left, of_right, right},
                                {left, top, of_right}}};
    for (const edge_case& given : cases) {
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
    struct axis_case {
        const char* name;
        ::osg::Pnt3f extent; ///< of a triangle with its lowest corner at (10, 20, 30)
        bool by_axis;
        int axis; ///< -1: an edge was halved
        double plane;
    };
    const axis_case cases[] = {
        {"a sliver, the flat axis does not count", {100, 1, 0}, false, 0, 60},
        {"fifteen times is not yet a sliver", {15, 1, 0}, false, -1, 0},
        {"beyond fifteen times it is", {1, 16, 2}, false, 1, 28},
        {"z before the others", {2, 2, 2}, true, 2, 31},
        {"y before x", {3, 3, 1}, true, 1, 21.5},
        {"x if it is the longest", {4, 3, 3}, true, 0, 12}};
    for (const axis_case& given : cases) {
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
    const ::osg::Pnt3f a(0, 0, 0), b(4, 0, 0), c(0, 3, 0);
    const std::string bad_edge = "Error in Geoset::splitElementInTwoParts(). Linevalue: ";
    for (const int edge : {4, -1, 1000}) {
        osg_geoset geoset;
        fillRaw(geoset, {a, b, c});
        const cut_result found = halve(geoset, edge, false);
        EXPECT_EQ(found.told, bad_edge + std::to_string(edge) + "\n");
        EXPECT_EQ(found.pieces, 0);
        EXPECT_EQ(geoset.size, 1U);
    }
    osg_geoset flat;
    fillRaw(flat, {a, {1, 0, 0}, {3, 0, 0}});
    EXPECT_EQ(halve(flat, 0, false).pieces, 0) << "its halves must not be kept";
    EXPECT_EQ(flat.split_axis, -1) << "extents of (3, 0, 0) are no sliver";
    EXPECT_EQ(halve(flat, 0, false, 1).pieces, 0) << "there is no such triangle";
    EXPECT_EQ(flat.size, 1U);
}

} // namespace
