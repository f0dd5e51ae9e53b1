#include "merge_scenes.h"

namespace {

using morva::osg::GeoMerge;

/// The groups as lists of nodes, in order.
std::vector<node_list> groupsOf(const GeoMerge& merge) {
    std::vector<node_list> result;
    for (const auto& [material, nodes] : merge.groups())
        result.push_back(nodes);
    return result;
}

TEST(GeoMerge, GroupsAreThoseOfAListSearchedFromTheFront) {
    std::mt19937 rng(5100);
    const material_ref materials[] = {material_ref(), material_ref(plain(0)),
                                      material_ref(plain(1))};
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        GeoMerge merge;
        merge.mergeSameName = round % 2 == 1;
        merge.ignoreMaterial = round % 3 == 1;
        std::vector<std::size_t> met = {0}; // materials; none comes first, whenever it is met
        std::vector<std::pair<std::size_t, node_list>> expected; // place of the material first
        const node_ref root(group());
        merge.insertNode(root.get(), false); // no geometry
        merge.insertNode(::osg::NullFC, false);
        for (unsigned i = rng() % 40; i > 0; --i) {
            std::size_t material = rng() % 3;
            const ::osg::NodePtr node = part(materials[material].get(), 0);
            root->addChild(node);
            const auto name = [&] { return "n" + std::to_string(rng() % 4); };
            std::string wanted = "NoName";
            if (rng() % 3 == 0)
                ::osg::setName(node->getCore(), wanted = name());
            if (rng() % 2 == 0)
                named(wanted = name(), node);
            merge.insertNode(node, false);
            if (merge.mergeSameName) {
                ASSERT_EQ(::osg::getName(node), wanted) << "a nameless node is named for good";
            }
            if (merge.ignoreMaterial)
                material = 0;
            if (std::find(met.begin(), met.end(), material) == met.end())
                met.push_back(material);
            material =
                static_cast<std::size_t>(std::find(met.begin(), met.end(), material) - met.begin());
            const auto same = [&](const auto& entry) {
                return entry.first == material &&
                       (!merge.mergeSameName || ::osg::getName(entry.second[0]) == wanted);
            };
            auto entry = std::find_if(expected.begin(), expected.end(), same);
            if (entry == expected.end()) {
                const auto behind = [&](const auto& other) { return other.first > material; };
                entry = expected.emplace(std::find_if(expected.begin(), expected.end(), behind),
                                         material, node_list());
            }
            entry->second.push_back(node);
        }
        std::vector<node_list> lists;
        for (const auto& entry : expected)
            lists.push_back(entry.second);
        EXPECT_EQ(groupsOf(merge), lists);
    }
}

TEST(GeoMerge, TheTopmostMaterialGroupGivesTheMaterial) {
    const material_ref outer(plain(0)), inner(plain(1));
    const ::osg::NodePtr bare = part(::osg::NullFC, 0);
    const ::osg::NodePtr own = part(inner.get(), 1);
    const ::osg::NodePtr low = materialGroup(inner.get(), {group({bare}), own});
    const node_ref root(materialGroup(outer.get(), {low}));
    EXPECT_EQ(GeoMerge::searchMaterialGroup(bare), root.get());

    GeoMerge merge;
    merge.insertNode(own, false);
    merge.insertNode(bare, true); // groups do not count
    merge.insertNode(bare, false);
    std::vector<::osg::MaterialPtr> keys;
    for (const auto& entry : merge.groups())
        keys.push_back(entry.first);
    EXPECT_EQ(keys, (std::vector<::osg::MaterialPtr>{::osg::NullFC, inner.get(), outer.get()}));
}

TEST(GeoMerge, GroupsBelowTheLimitLoseTheirMaterialToTheirVertices) {
    struct limit_case {
        int limit;
        bool ignore, baked;
    };
    for (const limit_case& c : {limit_case{4, false, true}, {3, false, false}, {4, true, false}}) {
        SCOPED_TRACE(testing::Message() << c.limit << c.ignore);
        // Nobody else holds the material: it must outlive the baking.
        const node_ref root(group({part(::osg::NullFC, 9), part(plain(1), 0, 1)}));
        root->addChild(part(coreOf(root->getChild(1))->getMaterial(), 5, 2));
        GeoMerge merge;
        merge.ignoreMaterial = c.ignore;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            merge.insertNode(root->getChild(i), false);
        merge.bakeSmallGroups(c.limit);
        std::vector<std::size_t> sizes;
        for (const node_list& list : groupsOf(merge))
            sizes.push_back(list.size());
        // The emptied group stays; the group without a material is passed over.
        EXPECT_EQ(sizes, c.ignore  ? (std::vector<std::size_t>{3})
                         : c.baked ? (std::vector<std::size_t>{3, 0})
                                   : (std::vector<std::size_t>{1, 2}));
        const ::osg::GeometryPtr core = coreOf(root->getChild(2));
        EXPECT_EQ(core->getMaterial() == ::osg::NullFC, c.baked);
        ASSERT_EQ(core->getColors() != ::osg::NullFC, c.baked);
        if (c.baked) {
            EXPECT_EQ(core->getColors()->getValue(0), ::osg::Color3f(1, 0.5F, 0.25F));
        }
    }
}

} // namespace
