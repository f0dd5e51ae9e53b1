#include "merge_scenes.h"

#include <gtest/gtest.h>

namespace {

using morva::osg::GeoMerge;

/// The groups as lists of nodes, in order.
std::vector<scene::nodes> groupsOf(const GeoMerge& merge) {
    std::vector<scene::nodes> result;
    for (const auto& [material, nodes] : merge.groups())
        result.push_back(nodes);
    return result;
}

TEST(GeoMerge, GroupsByMaterialInOrderOfCreationWithNoMaterialFirst) {
    const ::osg::MaterialRefPtr older(scene::plain(0));
    const ::osg::MaterialRefPtr newer(scene::plain(1));
    const ::osg::NodeRefPtr root(
        scene::group({scene::strip(newer.get(), 0), scene::strip(older.get(), 1),
                      scene::strip(::osg::NullFC, 2), scene::strip(newer.get(), 3)}));
    GeoMerge merge;
    for (::osg::UInt32 i = 0; i < 4; ++i)
        merge.insertNode(root->getChild(i), false);
    merge.insertNode(root.get(), false); // no geometry
    merge.insertNode(::osg::NullFC, false);
    EXPECT_EQ(groupsOf(merge), (std::vector<scene::nodes>{{root->getChild(2)},
                                                          {root->getChild(1)},
                                                          {root->getChild(0), root->getChild(3)}}));
}

TEST(GeoMerge, TheTopmostMaterialGroupGivesTheMaterial) {
    const ::osg::MaterialRefPtr outer(scene::plain(0));
    const ::osg::MaterialRefPtr inner(scene::plain(1));
    const ::osg::NodePtr bare = scene::strip(::osg::NullFC, 0);
    const ::osg::NodePtr own = scene::strip(inner.get(), 1);
    const ::osg::NodePtr low = scene::materialGroup(inner.get(), {scene::group({bare}), own});
    const ::osg::NodeRefPtr root(scene::materialGroup(outer.get(), {low}));
    EXPECT_EQ(GeoMerge::searchMaterialGroup(bare), root.get());
    EXPECT_EQ(GeoMerge::searchMaterialGroup(low), root.get());
    EXPECT_TRUE(GeoMerge::searchMaterialGroup(root.get()) == ::osg::NullFC);
    EXPECT_TRUE(GeoMerge::searchMaterialGroup(::osg::NullFC) == ::osg::NullFC);

    GeoMerge merge;
    merge.insertNode(bare, false);
    merge.insertNode(own, false);
    ASSERT_EQ(merge.groups().size(), 2U);
    EXPECT_EQ(merge.groups().begin()->first, outer.get());

    GeoMerge alone;
    alone.insertNode(bare, true); // groups do not count
    EXPECT_TRUE(alone.groups().begin()->first == ::osg::NullFC);
}

TEST(GeoMerge, IgnoringMaterialsGivesOneGroup) {
    const ::osg::NodeRefPtr root(
        scene::group({scene::strip(scene::plain(0), 0), scene::strip(scene::plain(1), 1)}));
    GeoMerge merge;
    merge.ignoreMaterial = true;
    merge.insertNode(root->getChild(0), false);
    merge.insertNode(root->getChild(1), false);
    ASSERT_EQ(merge.groups().size(), 1U);
    EXPECT_TRUE(merge.groups().begin()->first == ::osg::NullFC);
    merge.bakeSmallGroups(100); // passes the null material over
    EXPECT_TRUE(scene::coreOf(root->getChild(0))->getColors() == ::osg::NullFC);
}

TEST(GeoMerge, SameNameGroupsByMaterialAndName) {
    const ::osg::MaterialRefPtr red(scene::plain(0));
    const ::osg::MaterialRefPtr blue(scene::plain(1));
    const ::osg::NodeRefPtr root(scene::group(
        {scene::strip(red.get(), 0, 1, "door"), scene::strip(red.get(), 1, 1, "wall"),
         scene::strip(red.get(), 2, 1, "door"), scene::strip(blue.get(), 3, 1, "door"),
         scene::strip(red.get(), 4), scene::strip(red.get(), 5), scene::strip(red.get(), 6)}));
    ::osg::setName(root->getChild(6)->getCore(), "wall");
    GeoMerge merge;
    merge.mergeSameName = true;
    for (::osg::UInt32 i = 0; i < 7; ++i)
        merge.insertNode(root->getChild(i), false);
    const auto child = [&](::osg::UInt32 i) { return root->getChild(i); };
    EXPECT_EQ(groupsOf(merge),
              (std::vector<scene::nodes>{
                  {child(0), child(2)}, {child(1), child(6)}, {child(4), child(5)}, {child(3)}}));
    EXPECT_STREQ(::osg::getName(child(4)), "NoName");
    EXPECT_STREQ(::osg::getName(child(6)), "wall");
    EXPECT_TRUE(::osg::getName(child(4)->getCore()) == nullptr);
}

TEST(GeoMerge, GroupsBelowTheLimitLoseTheirMaterialToTheirVertices) {
    struct limit_case {
        int limit;
        bool baked;
    };
    for (const limit_case& c : {limit_case{4, true}, {3, false}, {2, false}}) {
        SCOPED_TRACE(c.limit);
        const ::osg::NodeRefPtr root(scene::group({scene::strip(::osg::NullFC, 9)}));
        {
            const ::osg::MaterialRefPtr red(scene::plain(1));
            root->addChild(scene::strip(red.get(), 0, 1));
            root->addChild(scene::strip(red.get(), 5, 2));
        }
        GeoMerge merge;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            merge.insertNode(root->getChild(i), false);
        merge.bakeSmallGroups(c.limit);
        const std::vector<scene::nodes> groups = groupsOf(merge);
        ASSERT_EQ(groups.size(), 2U); // the emptied group stays
        EXPECT_EQ(groups[0].size(), c.baked ? 3U : 1U);
        EXPECT_EQ(groups[1].size(), c.baked ? 0U : 2U);
        const ::osg::GeometryPtr core = scene::coreOf(root->getChild(2));
        EXPECT_EQ(core->getMaterial() == ::osg::NullFC, c.baked);
        if (c.baked) {
            EXPECT_EQ(core->getColors()->getValue(0), ::osg::Color3f(1, 0.5F, 0.25F));
        }
    }
}

TEST(GeoMerge, ManyNamesAreFoundAsFirstOfTheirGroup) {
    const ::osg::MaterialRefPtr red(scene::plain(0));
    const ::osg::NodeRefPtr root(scene::group({}));
    std::vector<scene::nodes> expected;
    std::vector<std::string> first_names;
    GeoMerge merge;
    merge.mergeSameName = true;
    for (int i = 0; i < 300; ++i) {
        const std::string name = "n" + std::to_string(i * 37 % 53);
        const ::osg::NodePtr node = scene::strip(red.get(), 0, 1, name.c_str());
        root->addChild(node);
        merge.insertNode(node, false);
        std::size_t k = 0;
        while (k < first_names.size() && first_names[k] != name)
            ++k;
        if (k == first_names.size()) {
            first_names.push_back(name);
            expected.emplace_back();
        }
        expected[k].push_back(node);
    }
    EXPECT_EQ(groupsOf(merge), expected);
}

} // namespace
