// Cutting lines, trees over points, and what a tree of either kind of element keeps as it cuts.

#include "tests/support/triangle_scenes.h"

namespace {

using namespace tri;

/// A geoset over lines given by their ends: colours by end (first red, second blue), IDs the
/// number of the line, normals by end.
void fill(osg_line_geoset& lines, const piece& ends) {
    mesh_data mesh = meshOf({{1, unsigned(ends.size())}}, ends);
    for (std::size_t i = 0; i < ends.size(); i += 2) {
        mesh.colors.insert(mesh.colors.end(), {{1, 0, 0}, {0, 0, 1}});
        mesh.secondary.insert(mesh.secondary.end(), {{0, 0, 0}, {0, 1, 0}});
        mesh.normals.insert(mesh.normals.end(), {{0, 1, 2}, {0, 0.5F, 2}});
    }
    const registration_off kept;
    pour(withIds(mesh, 2), lines, set_up);
}

TEST(LineSplit, NewLineIsTheFirstHalfAndTheElementKeepsTheSecond) {
    osg_line_geoset lines;
    fill(lines, {{1, 1, 1}, {2, 2, 2}, {0, 0, 0}, {8, 4, 0}});
    const cut_result found = cut(lines, 1, 2.0, 0);
    EXPECT_EQ(found.pieces, 1);
    EXPECT_EQ(found.first, 2U);
    EXPECT_EQ(cornersOf(lines, 2), (piece{{0, 0, 0}, {2, 1, 0}}));
    EXPECT_EQ(cornersOf(lines, 1), (piece{{2, 1, 0}, {8, 4, 0}}));
    const rows all = rowsOf(lines.geometry.get(), 6);
    const ::osg::Color3f quarter(0.75F, 0, 0.25F), colors[] = {quarter, {0, 0, 1}, {1, 0, 0}};
    for (std::size_t k = 0; k < 4; ++k)
        EXPECT_EQ(all[2 + k].color, colors[k % 3]) << k;
    EXPECT_EQ(all[5].secondary, ::osg::Color3f(0, 0.25F, 0));
    EXPECT_EQ(all[5].normal, ::osg::Vec3f(0, 0.5F, 2)) << "end by end";
    EXPECT_EQ(all[4].id + all[5].id, 2.0F);
    EXPECT_EQ(broken_rule_of(lines), "");
    lines.setup(); // the piece is not lost
    EXPECT_EQ(lines.size, 3U);

    osg_line_geoset upright; // colours go by x alone: 0 divided by 0
    fill(upright, {{3, 0, 0}, {3, 4, 0}});
    ASSERT_EQ(cut(upright, 0, 1.0, 1).pieces, 1);
    EXPECT_TRUE(std::isnan(upright.geometry->getColors()->getValue(0)[0]));
    EXPECT_EQ(upright.interpolate_color(1, ::osg::Pnt3f(3, 0, 0), 0), ::osg::Color3f(1, 0, 0));
}

TEST(LineSplit, RefusesWithoutChange) {
    const std::string factor = "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( ";
    const std::string not_finite =
        "Morva::osg::osg_line_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n";
    const struct {
        piece ends;
        double plane;
        std::string line;
        unsigned long element = 0;
        int axis = 0;
    } cases[] = {{{{2, 0, 0}, {1, 0, 0}}, 2.0, factor + "0 ).\n"},
                 {{{1, 0, 0}, {2, 0, 0}}, 3.0, factor + "2 ).\n"},
                 {{{0, 0, 0}, {1, 0, 0}}, 0.999995, factor + "0.999995 ).\n"},
                 {{{1, 0, 0}, {1, 1, 0}}, 1.0, not_finite},
                 {{{0, 0, 0}, {2, nan_value, 0}}, 1.0, not_finite},
                 {{{0, 0, 0}, {1, 0, 0}}, 0.5, "", 3},
                 {{{0, 0, 0}, {1, 0, 0}}, 0.5, "", 0, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        osg_line_geoset lines;
        fill(lines, c.ends);
        const cut_result found = cut(lines, c.element, c.plane, c.axis);
        EXPECT_EQ(found.told, c.line);
        EXPECT_EQ(found.pieces, 0);
        EXPECT_EQ(lines.size, 1U);
        EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 2U);
    }
}

TEST(PointTree, APointOnThePlaneGoesRight) {
    osg_point_geoset points;
    const ::osg::GeoPositions2fPtr flat = ::osg::GeoPositions2f::create(); // another form
    for (const float x : {0.0F, 2.0F, 4.0F})
        flat->editField().push_back(::osg::Pnt2f(x, 0));
    points.geometry->setPositions(flat);
    points.vertex_count = 3;
    points.setup();
    morva::kd_tree<float> tree;
    morva::compile(points, tree, {1, 1, 3, 1.0F, 2.0F, 0.95F, false},
                   morva::kd_strategy_ObjMedian());
    ASSERT_EQ(tree.node_count, 2U);
    EXPECT_EQ(tree.nodes[0].plane, 2.0F);
    EXPECT_EQ(tree.nodes[1].count, 1U);
    EXPECT_EQ(tree.nodes[2].count, 2U);
}

} // namespace
