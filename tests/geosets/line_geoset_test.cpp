// Lines cut at planes, alone and in a tree.

#include "triangle_scenes.h"

#include "../support/kd_checks.h"

#include <gtest/gtest.h>

#include <limits>

#include <morva/trees/kd_tree.h>

namespace {

using namespace tri;

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// A geoset over lines given by their ends: colours by end (first red, second blue), IDs the
/// number of the line, normals by end.
void fill(osg_line_geoset& lines, const piece& ends) {
    mesh_data mesh = meshOf({{1, static_cast<unsigned>(ends.size())}}, ends);
    for (std::size_t i = 0; i < ends.size(); i += 2) {
        mesh.colors.insert(mesh.colors.end(), {{1, 0, 0}, {0, 0, 1}});
        mesh.secondary.insert(mesh.secondary.end(), {{0, 0, 0}, {0, 1, 0}});
        mesh.normals.insert(mesh.normals.end(), {{0, 1, 2}, {0, 0.5F, 2}});
    }
    const registration_off kept;
    pour(morva_test::withIds(mesh, 2), lines, set_up);
}

TEST(LineSplit, NewLineIsTheFirstHalfAndTheElementKeepsTheSecond) {
    osg_line_geoset lines;
    fill(lines, {{1, 1, 1}, {2, 2, 2}, {0, 0, 0}, {8, 4, 0}});
    const cut_result found = cut(lines, 1, 2.0, 0);
    EXPECT_EQ(found.pieces, 1);
    EXPECT_EQ(found.first, 2U);
    ASSERT_EQ(lines.size, 3U);
    EXPECT_EQ(cornersOf(lines, 2), (piece{{0, 0, 0}, {2, 1, 0}}));
    EXPECT_EQ(cornersOf(lines, 1), (piece{{2, 1, 0}, {8, 4, 0}}));
    EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 6U);

    const rows all = rowsOf(lines.geometry.get(), 6);
    const ::osg::Color3f quarter(0.75F, 0, 0.25F), colors[] = {quarter, {0, 0, 1}, {1, 0, 0}};
    for (std::size_t k = 0; k < 4; ++k)
        EXPECT_EQ(all[2 + k].color, colors[k % 3]) << k;
    EXPECT_EQ(all[5].secondary, ::osg::Color3f(0, 0.25F, 0));
    EXPECT_EQ(all[5].normal, ::osg::Vec3f(0, 0.5F, 2)) << "end by end";
    EXPECT_EQ(all[4].id + all[5].id, 2.0F);

    lines.setup(); // the piece is not lost
    EXPECT_EQ(lines.size, 3U);
    EXPECT_EQ(broken_rule_of(lines), "");
}

TEST(LineSplit, ColourGoesByXAloneWhateverTheAxis) {
    osg_line_geoset lines;
    fill(lines, {{3, 0, 0}, {3, 4, 0}});
    ASSERT_EQ(cut(lines, 0, 1.0, 1).pieces, 1);
    EXPECT_EQ(cornersOf(lines, 0)[0], ::osg::Pnt3f(3, 1, 0));
    EXPECT_TRUE(std::isnan(lines.geometry->getColors()->getValue(0)[0])); // 0 divided by 0
    EXPECT_EQ(lines.interpolate_color(1, ::osg::Pnt3f(3, 0, 0), 0), ::osg::Color3f(1, 0, 0));
}

TEST(LineSplit, RefusesWithoutChange) {
    const std::string factor = "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( ";
    const std::string not_finite =
        "Morva::osg::osg_line_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n";
    struct refusal {
        const char* name;
        piece ends;
        double plane;
        std::string line;
    };
    const refusal cases[] = {
        {"at the first end", {{2, 0, 0}, {1, 0, 0}}, 2.0, factor + "0 ).\n"},
        {"past the second end", {{1, 0, 0}, {2, 0, 0}}, 3.0, factor + "2 ).\n"},
        {"a hair before it", {{0, 0, 0}, {1, 0, 0}}, 0.999995, factor + "0.999995 ).\n"},
        {"line in the plane", {{1, 0, 0}, {1, 1, 0}}, 1.0, not_finite},
        {"other coordinate is NaN", {{0, 0, 0}, {2, nan_value, 0}}, 1.0, not_finite}};
    for (const refusal& c : cases) {
        SCOPED_TRACE(c.name);
        osg_line_geoset lines;
        fill(lines, c.ends);
        const cut_result found = cut(lines, 0, c.plane, 0);
        EXPECT_EQ(found.told, c.line);
        EXPECT_EQ(found.pieces, 0);
        EXPECT_EQ(found.first, 1U);
        EXPECT_EQ(lines.size, 1U);
        EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 2U);
    }
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {1, 0, 0}});
    EXPECT_EQ(cut(lines, 3, 0.5, 0).pieces, 0) << "there is no line 3";
    EXPECT_EQ(cut(lines, 0, 0.5, 3).pieces, 0) << "there is no axis 3";
    lines.resize_failed = true;
    EXPECT_EQ(cut(lines, 0, 0.5, 0).pieces, 0);
    EXPECT_EQ(lines.size, 1U);
}

TEST(LineTree, CuttingBuildKeepsTheLengthOfAllLines) {
    std::mt19937 rng(11);
    for (int round = 0; round < 40; ++round) {
        osg_line_geoset lines;
        fill(lines, morva_test::soup(rng, 2 * (1 + rng() % 13)).positions);
        const auto total = [&] {
            double sum = 0.0;
            for (unsigned i = 0; i < lines.size; ++i)
                sum +=
                    static_cast<double>((cornersOf(lines, i)[1] - cornersOf(lines, i)[0]).length());
            return sum;
        };
        const double before = total();
        morva::kd_tree<float> tree;
        const morva::kd_build_setup setup{3, 20, round % 4, 1.0F, 2.0F, 0.95F, false};
        // Cuts very near an end are refused and told.
        toldBy([&] { morva::compile(lines, tree, setup, morva::kd_strategy_ObjMedian()); });
        EXPECT_NEAR(total(), before, 1e-4);
        EXPECT_EQ(broken_rule_of(lines), "");
        EXPECT_EQ(morva_test::broken_rule_of(tree, lines, setup), "");
    }
}

} // namespace
