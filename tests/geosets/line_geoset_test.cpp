#include "flat_scenes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/trees/kd_tree.h>

namespace {

using morva::osg::osg_line_geoset;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// A geoset over lines given by their ends; with `dressed` all carried properties are there:
/// colours by end (first red, second blue), IDs the number of the line, normals along z.
void fill(osg_line_geoset& lines, const std::vector<::osg::Pnt3f>& ends, bool dressed = true) {
    const ::osg::GeometryPtr source =
        flat::geometryOf({{1, static_cast<unsigned>(ends.size())}}, ends);
    if (dressed) {
        const ::osg::GeoColors3fPtr colors = ::osg::GeoColors3f::create();
        const ::osg::GeoColors3fPtr secondary = ::osg::GeoColors3f::create();
        const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
        const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
        for (std::size_t i = 0; i < ends.size(); ++i) {
            const bool first = i % 2 == 0;
            colors->editField().push_back(first ? ::osg::Color3f(1, 0, 0)
                                                : ::osg::Color3f(0, 0, 1));
            secondary->editField().push_back(first ? ::osg::Color3f(0, 0, 0)
                                                   : ::osg::Color3f(0, 1, 0));
            normals->editField().push_back(::osg::Vec3f(0, first ? 1.0F : 0.5F, 2));
            ids->editField().push_back(static_cast<float>(i / 2 + 1));
        }
        source->setColors(colors);
        source->setSecondaryColors(secondary);
        source->setNormals(normals);
        source->setTexCoords7(ids);
    }
    const ::osg::NodeRefPtr node(flat::nodeOf(source, "lines"));
    morva::osg::extract(node.get(), lines, false, false, false, true);
}

::osg::Pnt3f end(const osg_line_geoset& lines, unsigned line, unsigned k) {
    return lines.geometry->getPositions()->getValue(2 * line + k);
}

/// The first invariant that a geoset breaks, or nothing.
std::string brokenRule(const osg_line_geoset& lines) {
    if (lines.size > lines.wished_size)
        return "size is above wished_size";
    if (lines.size > 0 && lines.geometry->getPositions()->size() < 2 * lines.size) {
        return "fields are shorter than the lines";
    }
    for (unsigned i = 0; i < lines.size; ++i) {
        for (unsigned axis = 0; axis < 3; ++axis) {
            const float a = end(lines, i, 0)[axis];
            const float b = end(lines, i, 1)[axis];
            if (lines.axis_min[axis][i] != std::min(a, b) ||
                lines.axis_max[axis][i] != std::max(a, b)) {
                return "axis arrays of line " + std::to_string(i) + " are stale";
            }
        }
    }
    return "";
}

TEST(LineSetup, OverallocatesTheFieldsAndIgnoresAnOddVertex) {
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {1, 2, 3}, {-1, 5, 0}, {4, 4, 4}});
    EXPECT_EQ(lines.size, 2U);
    EXPECT_EQ(lines.wished_size, 2U);
    EXPECT_EQ(lines.geometry->getPositions()->size(), 8U); // twice the vertices
    EXPECT_EQ(lines.geometry->getTexCoords7()->size(), 8U);
    EXPECT_EQ(brokenRule(lines), "");
    EXPECT_EQ(lines.bbox.min[0], -1.0F);
    EXPECT_EQ(lines.bbox.extent[1], 5.0F);

    lines.vertex_count = 3;
    lines.setup();
    EXPECT_EQ(lines.size, 1U);
    EXPECT_EQ(lines.geometry->getPositions()->size(), 6U);
    EXPECT_EQ(brokenRule(lines), "");
}

TEST(LineSetup, WithoutPositionsOrLinesThereIsNothing) {
    osg_line_geoset lines;
    lines.setup();
    EXPECT_EQ(lines.size, 0U);
    EXPECT_TRUE(lines.axis_min == nullptr);
    fill(lines, {{0, 0, 0}, {1, 2, 3}});
    lines.vertex_count = 1;
    lines.setup();
    EXPECT_EQ(lines.size, 0U);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(lines.bbox.min[axis], 0.0F);
        EXPECT_EQ(lines.bbox.extent[axis], 0.0F);
    }
}

TEST(LineGeoset, ClearGoesBackToEmptyWithAFreshCore) {
    osg_line_geoset lines;
    EXPECT_EQ(lines.vertex_capacity, 0U);
    fill(lines, {{0, 0, 0}, {1, 2, 3}});
    lines.names.push_back("x");
    lines.resize_failed = true;
    const ::osg::RefPtr<::osg::GeometryPtr> old(lines.geometry.get());
    lines.clear();
    EXPECT_EQ(old->getPositions()->size(), 4U); // who took the core still has it
    EXPECT_TRUE(lines.geometry->getPositions() == ::osg::NullFC);
    EXPECT_EQ(lines.vertex_capacity, 500000U);
    EXPECT_TRUE(lines.size == 0 && lines.wished_size == 0 && lines.vertex_count == 0);
    EXPECT_TRUE(lines.axis_min == nullptr && lines.names.empty() && !lines.resize_failed);
}

TEST(LineGeoset, SizesAreInLinesAndRefusedAfterAFailure) {
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {1, 2, 3}});
    EXPECT_TRUE(lines.resizeFieldContainers(5));
    EXPECT_EQ(lines.geometry->getNormals()->size(), 10U);
    lines.setWishedSize(7);
    EXPECT_EQ(lines.vertex_capacity, 7U);
    EXPECT_EQ(lines.geometry->getColors()->size(), 14U);
    lines.resize_failed = true;
    lines.setWishedSize(9);
    EXPECT_EQ(lines.vertex_capacity, 9U);
    EXPECT_FALSE(lines.resizeFieldContainers(20));
    EXPECT_EQ(lines.geometry->getPositions()->size(), 14U);
}

TEST(LineSplit, NewLineIsTheFirstHalfAndTheElementKeepsTheSecond) {
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {8, 4, 0}, {1, 1, 1}, {2, 2, 2}});
    int pieces = 7;
    unsigned long first = 7;
    lines.splitElement(0, 2.0, 0, pieces, first);
    EXPECT_EQ(pieces, 1);
    EXPECT_EQ(first, 2U);
    ASSERT_EQ(lines.size, 3U);
    EXPECT_EQ(end(lines, 2, 0), ::osg::Pnt3f(0, 0, 0));
    EXPECT_EQ(end(lines, 2, 1), ::osg::Pnt3f(2, 1, 0));
    EXPECT_EQ(end(lines, 0, 0), ::osg::Pnt3f(2, 1, 0));
    EXPECT_EQ(end(lines, 0, 1), ::osg::Pnt3f(8, 4, 0));
    EXPECT_EQ(brokenRule(lines), "");

    const ::osg::GeometryPtr core = lines.geometry.get();
    EXPECT_EQ(core->getLengths()->getValue(0), 6U);
    const ::osg::Color3f quarter(0.75F, 0, 0.25F);
    EXPECT_EQ(core->getColors()->getValue(4), ::osg::Color3f(1, 0, 0));
    EXPECT_EQ(core->getColors()->getValue(5), quarter);
    EXPECT_EQ(core->getColors()->getValue(0), quarter);
    EXPECT_EQ(core->getColors()->getValue(1), ::osg::Color3f(0, 0, 1));
    EXPECT_EQ(core->getSecondaryColors()->getValue(5), ::osg::Color3f(0, 0.25F, 0));
    EXPECT_EQ(core->getNormals()->getValue(5), ::osg::Vec3f(0, 0.5F, 2)); // end by end
    EXPECT_EQ(core->getTexCoords7()->getValue(4)[0], 1.0F);
    EXPECT_EQ(core->getTexCoords7()->getValue(5)[0], 1.0F);

    lines.setup(); // the piece is not lost
    EXPECT_EQ(lines.size, 3U);
    EXPECT_EQ(brokenRule(lines), "");
}

TEST(LineSplit, ColourGoesByXAloneWhateverTheAxis) {
    osg_line_geoset lines;
    fill(lines, {{3, 0, 0}, {3, 4, 0}});
    int pieces = 0;
    unsigned long first = 0;
    lines.splitElement(0, 1.0, 1, pieces, first);
    ASSERT_EQ(pieces, 1);
    EXPECT_EQ(end(lines, 0, 0), ::osg::Pnt3f(3, 1, 0));
    EXPECT_TRUE(std::isnan(lines.geometry->getColors()->getValue(0)[0])); // 0 divided by 0
    EXPECT_EQ(lines.interpolate_color(1, ::osg::Pnt3f(3, 0, 0)), ::osg::Color3f(1, 0, 0));
}

struct refusal_case {
    const char* name;
    ::osg::Pnt3f a, b;
    double plane;
    const char* message;
};

class LineSplitRefusal : public testing::TestWithParam<refusal_case> {};

TEST_P(LineSplitRefusal, ChangesNothing) {
    osg_line_geoset lines;
    fill(lines, {GetParam().a, GetParam().b});
    int pieces = 5;
    unsigned long first = 5;
    testing::internal::CaptureStdout();
    lines.splitElement(0, GetParam().plane, 0, pieces, first);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), GetParam().message);
    EXPECT_EQ(pieces, 0);
    EXPECT_EQ(first, 1U);
    EXPECT_EQ(lines.size, 1U);
    EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 2U);
}

constexpr char nan_message[] =
    "Morva::osg::osg_line_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n";

INSTANTIATE_TEST_SUITE_P(
    , LineSplitRefusal,
    testing::Values(
        refusal_case{"plane_at_the_first_end",
                     {2, 0, 0},
                     {1, 0, 0},
                     2.0,
                     "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( 0 ).\n"},
        refusal_case{"plane_past_the_second_end",
                     {1, 0, 0},
                     {2, 0, 0},
                     3.0,
                     "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( 2 ).\n"},
        refusal_case{"plane_a_hair_before_the_second_end",
                     {0, 0, 0},
                     {1, 0, 0},
                     0.999995,
                     "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( 0.999995 ).\n"},
        refusal_case{"line_in_the_plane", {1, 0, 0}, {1, 1, 0}, 1.0, nan_message},
        refusal_case{"other_coordinate_is_nan", {0, 0, 0}, {2, nan_value, 0}, 1.0, nan_message}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(LineSplit, GrowsByTwoBelowAThousandAndByAThirdAbove) {
    struct growth_case {
        unsigned lines;
        std::uint64_t expected;
    };
    for (const growth_case& c : {growth_case{1, 2}, {999, 1998}, {1000, 1300}, {1001, 1301}}) {
        osg_line_geoset lines;
        std::vector<::osg::Pnt3f> ends;
        for (unsigned i = 0; i < c.lines; ++i) {
            ends.push_back(::osg::Pnt3f(0, 0, 0));
            ends.push_back(::osg::Pnt3f(1, 0, 0));
        }
        fill(lines, ends, false);
        int pieces = 0;
        unsigned long first = 0;
        lines.splitElement(0, 0.5, 0, pieces, first);
        EXPECT_EQ(lines.wished_size, c.expected);
        EXPECT_GE(lines.geometry->getPositions()->size(), 2 * c.expected);
        EXPECT_EQ(brokenRule(lines), "");
    }
}

TEST(LineSplit, StopsAtALineThatCannotBeStored) {
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {1, 0, 0}});
    int pieces = 5;
    unsigned long first = 5;
    lines.resize_failed = true;
    lines.splitElement(0, 0.5, 0, pieces, first);
    EXPECT_EQ(pieces, 0);
    EXPECT_EQ(first, 1U);
    lines.resize_failed = false;
    lines.splitElement(3, 0.5, 0, pieces, first); // there is no line 3
    EXPECT_EQ(lines.size, 1U);
}

TEST(LineTree, CuttingBuildKeepsTheLengthOfAllLines) {
    std::mt19937 rng(11);
    for (int round = 0; round < 40; ++round) {
        osg_line_geoset lines;
        fill(lines, flat::gridPoints(rng, 2 * (1 + rng() % 40)), round % 2 == 0);
        const auto total = [&] {
            double sum = 0.0;
            for (unsigned i = 0; i < lines.size; ++i) {
                const ::osg::Vec3f d = end(lines, i, 1) - end(lines, i, 0);
                sum += static_cast<double>(d.length());
            }
            return sum;
        };
        const double before = total();
        morva::kd_tree<float> tree;
        morva::kd_build_setup setup{3, 20, round % 4, 1.0F, 2.0F, 0.95F, false};
        testing::internal::CaptureStdout(); // cuts very near an end are refused and told
        morva::compile(lines, tree, setup, morva::kd_strategy_ObjMedian());
        testing::internal::GetCapturedStdout();
        EXPECT_NEAR(total(), before, 1e-4);
        EXPECT_EQ(brokenRule(lines), "");
        if (setup.straddle_mode != 2) {
            EXPECT_EQ(morva::triangle_count(tree, 0), lines.size);
        }
    }
}

} // namespace
