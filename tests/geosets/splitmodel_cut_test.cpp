#include "split_scenes.h"

#include <gtest/gtest.h>

#include <string>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/geosets/morva_osg_splitmodel.h>

namespace {

using morva::kd_build_setup;
using morva::kd_tree;
using morva::osg::calcleftpart;
using morva::osg::Make_N_GeometryCores;
using morva::osg::osg_geoset;

TEST(CalcLeftPart, SharesInProportionButNeverAllOrNothing) {
    struct share_case {
        unsigned l, r;
        int n, expected;
    };
    for (const share_case& c : {share_case{0, 5, 4, 0},
                                {5, 0, 4, 4},
                                {0, 0, 3, 0},
                                {2, 1, 3, 2},
                                {1, 2, 3, 1},
                                {1, 1000, 8, 1},
                                {1000, 1, 8, 7},
                                {5, 5, 1, 1},
                                {1, 9, 1, 1},
                                {1, 1, 5, 3},
                                {4294967295U, 1, 2147483647, 2147483646},
                                {4294967295U, 4294967295U, 2, 1},
                                {3, 5, -1, 1}}) {
        EXPECT_EQ(calcleftpart(c.l, c.r, c.n), c.expected) << c.l << " " << c.r << " " << c.n;
    }
}

struct sorted_soup {
    sorted_soup(std::mt19937& rng, std::size_t triangles, unsigned cell) {
        source = split::randomSoup(rng, triangles);
        const ::osg::NodeRefPtr node(flat::nodeOf(source.get(), "soup"));
        morva::osg::extract(node.get(), geoset, false, false, false, true, false);
        morva::compile(geoset, tree, kd_build_setup{cell, 40, 3, 1.0F, 2.0F, 0.95F, false},
                       morva::kd_strategy_ObjMedian());
    }
    ::osg::RefPtr<::osg::GeometryPtr> source;
    osg_geoset geoset;
    kd_tree<float> tree;
};

/// Shape of a scene: a number per geometry node (its triangles), brackets per group.
std::string shapeOf(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC) {
        return std::to_string(geometry->getLengths()->getValue(0) / 3);
    }
    std::string text = "[";
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        text += (i == 0 ? "" : " ") + shapeOf(node->getChild(i));
    }
    return text + "]";
}

/// The shape that a cut must have, from the tree's records alone.
std::string expectedShape(const kd_tree<float>& tree, unsigned node, int parts, unsigned limit) {
    const auto count = [&](unsigned n) {
        return static_cast<unsigned>(morva::triangle_count(tree, n));
    };
    const unsigned all = count(node);
    if (parts == 1 || tree.nodes[node].is_leaf())
        return std::to_string(all);
    if (all <= limit)
        return "[" + std::to_string(all) + "]";
    const unsigned right = static_cast<unsigned>(tree.nodes[node].right);
    const unsigned l = count(node + 1);
    const unsigned r = count(right);
    if (parts == 2)
        return "[" + std::to_string(l) + " " + std::to_string(r) + "]";
    const int left_parts = parts == 0 ? 0 : calcleftpart(l, r, parts);
    const bool go_left = parts == 0 ? l > 0 : left_parts > 0;
    const bool go_right = parts == 0 ? r > 0 : parts - left_parts >= 1;
    std::string text = "[";
    if (go_left)
        text += expectedShape(tree, node + 1, left_parts, limit);
    if (go_left && go_right)
        text += " ";
    if (go_right)
        text += expectedShape(tree, right, parts == 0 ? 0 : parts - left_parts, limit);
    return text + "]";
}

TEST(MakeNGeometryCores, CutsTheTreeAsItsRecordsTellAndLosesNothing) {
    std::mt19937 rng(4611);
    const unsigned int live = split::liveContainers();
    for (int round = 0; round < 80; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const sorted_soup soup(rng, 1 + rng() % 80, 1 + static_cast<unsigned>(rng() % 9));
        const int parts = static_cast<int>(rng() % 7);
        const unsigned limit = 1 + static_cast<unsigned>(rng() % 30);
        const ::osg::NodeRefPtr made(
            Make_N_GeometryCores(soup.tree, soup.geoset, 0, parts, limit, 0, false));
        EXPECT_EQ(shapeOf(made.get()), expectedShape(soup.tree, 0, parts, limit));
        split::triangle_bag bag;
        split::collect(made.get(), bag);
        EXPECT_EQ(bag, split::trianglesOf(soup.source.get()));
    }
    EXPECT_EQ(split::liveContainers(), live);
}

TEST(MakeNGeometryCores, StartsAtAnyNodeOfTheTree) {
    std::mt19937 rng(4612);
    const sorted_soup soup(rng, 40, 3);
    ASSERT_FALSE(soup.tree.nodes[0].is_leaf());
    const auto right = static_cast<int>(soup.tree.nodes[0].right);
    const ::osg::NodeRefPtr made(
        Make_N_GeometryCores(soup.tree, soup.geoset, right, 0, 4, 0, false));
    EXPECT_EQ(shapeOf(made.get()), expectedShape(soup.tree, static_cast<unsigned>(right), 0, 4));
    const ::osg::NodeRefPtr two(
        morva::osg::Node_to_2GeoCores(soup.tree, soup.geoset, right, 1, false));
    EXPECT_EQ(two->getNChildren(), 2U);
}

TEST(MakeNGeometryCores, OneLeafIsTheGeometryNodeItself) {
    std::mt19937 rng(4613);
    const sorted_soup soup(rng, 5, 100);
    const ::osg::NodeRefPtr made(Make_N_GeometryCores(soup.tree, soup.geoset, 0, 0, 100, 1, false));
    EXPECT_TRUE(::osg::GeometryPtr::dcast(made->getCore()) != ::osg::NullFC);
    EXPECT_EQ(made->getNChildren(), 0U);
}

TEST(MakeNGeometryCores, ATreeThatWasNeverBuiltGivesAnEmptyGeometry) {
    const osg_geoset geoset;
    const kd_tree<float> tree;
    const ::osg::NodeRefPtr made(Make_N_GeometryCores(tree, geoset, 0, 0, 5, 1, false));
    EXPECT_EQ(shapeOf(made.get()), "0");
    const ::osg::NodeRefPtr two(morva::osg::Node_to_2GeoCores(tree, geoset, 3, 1, false));
    EXPECT_EQ(shapeOf(two.get()), "[0 0]");
}

TEST(Split, MorePartsThanLeavesAreCutByTheLimitAlone) {
    std::mt19937 rng(4614);
    const sorted_soup soup(rng, 30, 10);
    const int parts = static_cast<int>(soup.tree.leaf_count) + 1;
    const ::osg::NodeRefPtr made(
        morva::osg::Split(soup.tree, soup.geoset, 0, parts, 12, ::osg::NodePtr(), 0, false));
    EXPECT_EQ(shapeOf(made.get()), expectedShape(soup.tree, 0, 0, 12));
}

TEST(Split, TakesTheCoreOfAMaterialGroupAndOfNothingElse) {
    std::mt19937 rng(4615);
    const sorted_soup soup(rng, 30, 5);
    const ::osg::NodeRefPtr model(::osg::Node::create());
    model->setCore(::osg::MaterialGroup::create());
    const ::osg::NodeRefPtr made(
        morva::osg::Split(soup.tree, soup.geoset, 0, 0, 5, model.get(), 0, false));
    EXPECT_EQ(made->getCore(), model->getCore());
    EXPECT_GT(made->getNChildren(), 0U);

    model->setCore(::osg::Group::create());
    const ::osg::NodeRefPtr other(
        morva::osg::Split(soup.tree, soup.geoset, 0, 0, 5, model.get(), 0, false));
    EXPECT_NE(other->getCore(), model->getCore());
}

} // namespace
