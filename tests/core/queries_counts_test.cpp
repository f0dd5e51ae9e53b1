// Counts over primitive lists, and the tests and measures of single triangles.

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

#include <cmath>
#include <limits>

#include <OpenSG/OSGTriangleIterator.h>
#include <gtest/gtest.h>

#include "tests/support/scene_builders.h"

using namespace morva_test;

namespace {

mesh_data primitivesOnly(const std::vector<std::pair<unsigned, unsigned>>& primitives) {
    mesh_data mesh;
    mesh.primitives = primitives;
    return mesh;
}

struct count_case {
    const char* name;
    std::vector<std::pair<unsigned, unsigned>> primitives;
    unsigned triangles, lines, points, primitive_sum, classes;
};

class Counts : public testing::TestWithParam<count_case> {};

} // namespace

TEST_P(Counts, FollowTheirOwnListsOfTypes) {
    const count_case& c = GetParam();
    const node_ref node(meshNode(primitivesOnly(c.primitives)));
    const ::osg::NodePtr plain = node.get();
    EXPECT_EQ(morva::osg::getNumberOfTriangles(plain), c.triangles);
    EXPECT_EQ(morva::osg::getNumberOfLines(plain), c.lines);
    EXPECT_EQ(morva::osg::getNumberOfPoints(plain), c.points);
    EXPECT_EQ(morva::osg::getNumberOfTriangles(coreOf(plain)), c.triangles);
    EXPECT_EQ(morva::osg::getNumberOfLines(coreOf(plain)), c.lines);
    EXPECT_EQ(morva::osg::getNumberOfPoints(coreOf(plain)), c.points);
    EXPECT_EQ(morva::osg::getNumberOfPrimitives(plain), c.primitive_sum);
    EXPECT_EQ(morva::osg::getNumberOfPrimitives(node_list{plain, plain, ::osg::NullFC}),
              2 * c.primitive_sum);
    EXPECT_EQ(morva::osg::getNumberOfPrimitiveTypes(plain), c.classes);
}

INSTANTIATE_TEST_SUITE_P(
    , Counts,
    testing::Values(count_case{"points_count_as_primitives_alone", {{0, 7}}, 0, 0, 0, 7, 1},
                    count_case{"lines_count_as_points", {{1, 7}}, 0, 3, 7, 3, 1},
                    count_case{"loop", {{2, 5}}, 0, 5, 0, 0, 0},
                    count_case{"line_strip", {{3, 5}}, 0, 4, 0, 0, 0},
                    count_case{"triangles", {{4, 11}}, 3, 0, 0, 3, 1},
                    count_case{"strip", {{5, 9}}, 7, 0, 0, 7, 1},
                    count_case{"fan", {{6, 9}}, 7, 0, 0, 7, 1},
                    count_case{"quads_are_two_each", {{7, 8}}, 4, 0, 0, 4, 1},
                    count_case{"quad_strip_is_nothing", {{8, 10}}, 0, 0, 0, 0, 0},
                    count_case{"polygon", {{9, 6}}, 4, 0, 0, 4, 1},
                    count_case{"strip_of_one_wraps", {{5, 1}}, ~0U, 0, 0, ~0U, 1},
                    count_case{"line_strip_of_none_wraps", {{3, 0}}, 0, ~0U, 0, 0, 0},
                    count_case{"wrapped_terms_add_up", {{5, 1}, {4, 6}}, 1, 0, 0, 1, 1},
                    count_case{"all_classes", {{0, 1}, {1, 2}, {9, 3}}, 1, 1, 2, 3, 3},
                    count_case{"unknown_type", {{10, 9}}, 0, 0, 0, 0, 0},
                    count_case{"none", {}, 0, 0, 0, 0, 0}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(CountsOfOddInput, StopAtTheShorterList) {
    const node_ref node(meshNode(primitivesOnly({{4, 3}, {4, 6}, {4, 9}})));
    coreOf(node)->getLengths()->resize(2);
    EXPECT_EQ(morva::osg::getNumberOfTriangles(node.get()), 3U);
    EXPECT_EQ(morva::osg::getNumberOfPrimitives(node.get()), 3U);
    coreOf(node)->getTypes()->resize(1);
    EXPECT_EQ(morva::osg::getNumberOfTriangles(node.get()), 1U);
}

TEST(CountsOfOddInput, AreZeroForWhatIsNoGeometry) {
    const node_ref bare(::osg::Node::create()), holder(group()), empty(meshNode(mesh_data()));
    for (const ::osg::NodePtr& node :
         {::osg::NodePtr(::osg::NullFC), bare.get(), holder.get(), empty.get()}) {
        EXPECT_EQ(morva::osg::getNumberOfTriangles(node), 0U);
        EXPECT_EQ(morva::osg::getNumberOfLines(node), 0U);
        EXPECT_EQ(morva::osg::getNumberOfPoints(node), 0U);
        EXPECT_EQ(morva::osg::getNumberOfPrimitives(node), 0U);
        EXPECT_EQ(morva::osg::getNumberOfPrimitiveTypes(node), 0U);
        EXPECT_TRUE(morva::osg::isVertexCountBelowThreshold(node, 0));
        EXPECT_EQ(morva::osg::counttriangles(coreOf(node)), 0U);
        EXPECT_EQ(morva::osg::count_triangles(coreOf(node)), 0U);
    }
    EXPECT_EQ(morva::osg::getNumberOfTriangles(::osg::GeometryPtr(::osg::NullFC)), 0U);
}

TEST(GetVertexCountOfPrimitiveType, KnowsThreeClasses) {
    const int classes[] = {-2147483647, -1, 0, 1, 2, 3, 4, 5, 9, 2147483647};
    const unsigned expected[] = {0, 0, 1, 2, 0, 0, 3, 0, 0, 0};
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_EQ(morva::osg::getVertexCountOfPrimitiveType(classes[i]), expected[i]) << classes[i];
}

TEST(IsVertexCountBelowThreshold, LooksAtTheListedPropertiesAlone) {
    const auto coordinates = [](std::size_t count) {
        const ::osg::GeoTexCoords2fPtr property = ::osg::GeoTexCoords2f::create();
        property->resize(count);
        return property;
    };
    std::mt19937 rng(1);
    const auto fresh = [&] { return meshNode(withAttributes(soup(rng, 2), rng)); };
    const node_ref node(fresh());
    EXPECT_TRUE(morva::osg::isVertexCountBelowThreshold(node.get(), 6)); // equal still passes
    EXPECT_FALSE(morva::osg::isVertexCountBelowThreshold(node.get(), 5));

    // Each examined property alone above the threshold.
    using change = void (*)(const ::osg::GeometryPtr&, const ::osg::GeoTexCoordsPtr&);
    const change examined[] = {[](const auto& g, const auto&) { g->getPositions()->resize(9); },
                               [](const auto& g, const auto&) { g->getNormals()->resize(9); },
                               [](const auto& g, const auto&) { g->getColors()->resize(9); },
                               [](const auto& g, const auto& c) { g->setTexCoords(c); },
                               [](const auto& g, const auto& c) { g->setTexCoords1(c); },
                               [](const auto& g, const auto& c) { g->setTexCoords2(c); },
                               [](const auto& g, const auto& c) { g->setTexCoords7(c); },
                               [](const auto& g, const auto&) {
                                   const ::osg::GeoColors3fPtr secondary =
                                       ::osg::GeoColors3f::create();
                                   secondary->resize(9);
                                   g->setSecondaryColors(secondary);
                               },
                               [](const auto& g, const auto&) {
                                   const ::osg::GeoIndicesUI16Ptr indices =
                                       ::osg::GeoIndicesUI16::create();
                                   indices->resize(9);
                                   g->setIndices(indices);
                               }};
    const change passed_over[] = {[](const auto& g, const auto& c) { g->setTexCoords3(c); },
                                  [](const auto& g, const auto& c) { g->setTexCoords4(c); },
                                  [](const auto& g, const auto& c) { g->setTexCoords5(c); },
                                  [](const auto& g, const auto& c) { g->setTexCoords6(c); }};
    for (const change& apply : examined) {
        const node_ref changed(fresh());
        const ::osg::RefPtr<::osg::GeoTexCoordsPtr> nine(coordinates(9));
        apply(coreOf(changed), nine);
        EXPECT_FALSE(morva::osg::isVertexCountBelowThreshold(changed.get(), 8));
        EXPECT_TRUE(morva::osg::isVertexCountBelowThreshold(changed.get(), 9));
    }
    for (const change& apply : passed_over) {
        const node_ref changed(fresh());
        const ::osg::RefPtr<::osg::GeoTexCoordsPtr> nine(coordinates(9));
        apply(coreOf(changed), nine);
        EXPECT_TRUE(morva::osg::isVertexCountBelowThreshold(changed.get(), 8));
    }
}

TEST(GetVertexCount, SumsAllLengthsWhateverTheType) {
    const node_ref root(group({meshNode(primitivesOnly({{2, 5}, {8, 4}})), group(),
                               switched(0, {meshNode(primitivesOnly({{4, 3}}))}),
                               hidden(meshNode(primitivesOnly({{4, 300}})))}));
    node_list all = geometryNodes(root.get());
    all.push_back(root.get()); // no geometry: adds nothing
    EXPECT_EQ(morva::osg::getVertexCount(all), 312U);
    node_list none;
    EXPECT_EQ(morva::osg::getVertexCount(none), 0U);
    // From a root: neither what is hidden nor what stands under a switch.
    EXPECT_EQ(morva::osg::getVertexCount(root.get()), 9U);
    EXPECT_EQ(morva::osg::getVertexCount(::osg::NodePtr(::osg::NullFC)), 0U);
}

TEST(HasVertexColors, NeedsOneEntryInOneNode) {
    std::mt19937 rng(2);
    const node_ref without(meshNode(soup(rng, 1))), with(meshNode(withColors(soup(rng, 1), rng)));
    const node_ref hollow(meshNode(soup(rng, 1)));
    coreOf(hollow)->setColors(::osg::GeoColors3f::create());
    node_list nodes;
    EXPECT_FALSE(morva::osg::hasVertexColors(nodes));
    nodes = {::osg::NullFC, without.get(), hollow.get()};
    EXPECT_FALSE(morva::osg::hasVertexColors(nodes));
    nodes.push_back(with.get());
    EXPECT_TRUE(morva::osg::hasVertexColors(nodes));
}

namespace {

using point = ::osg::Pnt3f;

/// The rules for triangles that are not kept, one after the other.
bool naiveRogue(const point& a, const point& b, const point& c) {
    const point* pairs[3][2] = {{&a, &b}, {&b, &c}, {&a, &c}};
    for (const auto& pair : pairs) {
        bool apart = false;
        for (unsigned i = 0; i < 3; ++i) {
            const float d = (*pair[0])[i] - (*pair[1])[i];
            apart = apart || !(d <= 1e-6F) || !(-d <= 1e-6F);
        }
        if (!apart)
            return true;
    }
    const auto level = [&](unsigned i) { return a[i] == b[i] && b[i] == c[i]; };
    if ((level(0) && level(1)) || (level(0) && level(2)) || (level(1) && level(2)))
        return true;
    for (const point* p : {&a, &b, &c}) {
        for (unsigned i = 0; i < 3; ++i) {
            if (std::isnan((*p)[i]) || std::abs((*p)[i]) > 999999995904.0F)
                return true;
        }
    }
    return false;
}

struct rogue_case {
    const char* name;
    point a, b, c;
    bool rogue;
};

class IsRogue : public testing::TestWithParam<rogue_case> {};

constexpr float huge = 999999995904.0F;
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

} // namespace

TEST_P(IsRogue, InEveryOrderOfCornersAndAxes) {
    const rogue_case& t = GetParam();
    const point corners[3] = {t.a, t.b, t.c};
    const unsigned orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (const auto& corner : orders) {
        for (const auto& axis : orders) {
            point p[3];
            for (unsigned k = 0; k < 3; ++k)
                for (unsigned i = 0; i < 3; ++i)
                    p[k][i] = corners[corner[k]][axis[i]];
            EXPECT_EQ(morva::osg::is_rogue(p[0], p[1], p[2]), t.rogue);
            EXPECT_EQ(naiveRogue(p[0], p[1], p[2]), t.rogue);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    , IsRogue,
    testing::Values(
        rogue_case{"plain", {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, false},
        rogue_case{"two_equal", {1, 2, 3}, {1, 2, 3}, {0, 1, 0}, true},
        rogue_case{"within_the_tolerance", {0, 0, 0}, {1e-6F, -1e-6F, 0}, {0, 1, 1}, true},
        rogue_case{"just_outside", {0, 0, 0}, {1.1e-6F, 0, 0}, {0, 1, 1}, false},
        rogue_case{"along_an_axis", {0, 2, 2}, {1, 2, 2}, {5, 2, 2}, true},
        rogue_case{"along_a_slope_is_kept", {0, 0, 0}, {1, 1, 1}, {2, 2, 2}, false},
        rogue_case{"signed_zeros_are_equal", {0, 0, -0.0F}, {1, -0.0F, 0}, {5, 0, 0}, true},
        rogue_case{"at_the_limit", {huge, 0, 0}, {0, -huge, 0}, {0, 0, 1}, false},
        rogue_case{
            "above_the_limit", {std::nextafter(huge, HUGE_VALF), 0, 0}, {0, 1, 0}, {0, 0, 1}, true},
        rogue_case{"below_the_limit",
                   {-std::nextafter(huge, HUGE_VALF), 0, 0},
                   {0, 1, 0},
                   {0, 0, 1},
                   true},
        rogue_case{"infinite", {HUGE_VALF, 0, 0}, {0, 1, 0}, {0, 0, 1}, true},
        rogue_case{"nan", {not_a_number, 0, 0}, {0, 1, 0}, {0, 0, 1}, true}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(CountTriangles, LeavesRoguesOutAndFollowsTheIndex) {
    std::mt19937 rng(3);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        mesh_data mesh = withNormals(mixture(rng, rng() % 9), rng);
        if (round % 3 == 1)
            mesh = withIndex(std::move(mesh), rng);
        if (round % 3 == 2)
            mesh = withIndexPerProperty(std::move(mesh), rng);
        const geometry_ref geometry(geometryOf(mesh));
        unsigned expected = 0;
        for (auto it = geometry->beginTriangles(); it != geometry->endTriangles(); ++it)
            expected += naiveRogue(it.getPosition(0), it.getPosition(1), it.getPosition(2)) ? 0 : 1;
        EXPECT_EQ(morva::osg::counttriangles(geometry.get()), expected);
        EXPECT_EQ(morva::osg::count_triangles(geometry.get()), expected);
    }
}

TEST(TriangleArea, IsFiniteAlways) {
    using morva::osg::triangle_area;
    EXPECT_EQ(triangle_area({0, 0, 0}, {2, 0, 0}, {0, 3, 0}), 3.0);
    EXPECT_EQ(triangle_area({5, 5, 5}, {5, 5, 8}, {9, 5, 5}), 6.0);
    EXPECT_EQ(triangle_area({1, 2, 3}, {1, 2, 3}, {4, 5, 6}), 0.0);
    EXPECT_EQ(triangle_area({0, 0, 0}, {1, 0, 0}, {1, 1, 1}), 0.5 * std::sqrt(2.0)); // in double
    const float most = std::numeric_limits<float>::max();
    EXPECT_EQ(triangle_area({most, 0, 0}, {0, 1, 0}, {0, 0, 1}), 0.0);
    EXPECT_EQ(triangle_area({not_a_number, 0, 0}, {0, 1, 0}, {0, 0, 1}), 0.0);
    // Single precision up to the root: the products of this sliver round to a negative number or
    // to a positive one, and the first gives 0.
    const point a{0, 0, 0}, b{3, 1e-4F, 0}, c{6, 2e-4F, 1e-5F};
    const float u = 9.0F + 1e-4F * 1e-4F, uv = 18.0F + 1e-4F * 2e-4F;
    const float v = 36.0F + 2e-4F * 2e-4F + 1e-5F * 1e-5F;
    const double expected = 0.5 * std::sqrt(static_cast<double>(u * v - uv * uv));
    EXPECT_EQ(triangle_area(a, b, c), std::isfinite(expected) ? expected : 0.0);
}

TEST(ModelExtents, AreThoseOfTheNodesVolume) {
    mesh_data mesh = row(2, 1);
    mesh.positions = {{-1, 2, 3}, {4, 10, 3.5F}};
    const node_ref root(moved({100, 0, 0}, {meshNode(mesh)}));
    EXPECT_FLOAT_EQ(morva::osg::ModelWidth(root.get()), 5.0F);
    EXPECT_FLOAT_EQ(morva::osg::ModelHeight(root.get()), 8.0F);
    EXPECT_FLOAT_EQ(morva::osg::ModelLength(root.get()), 0.5F);
    // Brought up to date on each call.
    root->addChild(moved({0, 0, 20}, {meshNode(mesh)}));
    EXPECT_FLOAT_EQ(morva::osg::ModelLength(root.get()), 20.5F);
}
