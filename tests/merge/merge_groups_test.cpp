#include <morva/merge/morva_osg_geomerge_stages.h>

#include "tests/support/merge_scenes.h"

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
    std::mt19937 rng(seedOf(5100));
    const material_ref materials[] = {material_ref(), material_ref(plain(0)),
                                      material_ref(plain(1))};
    for (int round = 0; round < roundsOf(60); ++round) {
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
            // The topmost group gives it where the core has none, if groups are asked.
            const bool from_group = rng() % 4 == 0, asks = rng() % 4 != 0;
            const ::osg::NodePtr node = part(materials[from_group ? 0 : material].get(), 0);
            const auto inner = materialGroup(materials[rng() % 3].get(), {group({node})});
            root->addChild(materialGroup(materials[material].get(), {inner}));
            EXPECT_EQ(GeoMerge::searchMaterialGroup(node), inner->getParent());
            material = from_group && !asks ? 0 : material;
            const auto name = [&] { return "n" + std::to_string(rng() % 4); };
            std::string wanted = "NoName";
            if (rng() % 3 == 0)
                ::osg::setName(node->getCore(), wanted = name());
            if (rng() % 2 == 0)
                named(wanted = name(), node);
            merge.insertNode(node, !asks);
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

TEST(GeoMerge, GroupsBelowTheLimitLoseTheirMaterialToTheirVertices) {
    for (const auto& [limit, ignore, baked] :
         {std::tuple(4, false, true), std::tuple(3, false, false), std::tuple(4, true, false)}) {
        SCOPED_TRACE(testing::Message() << limit << ignore);
        // Nobody else holds the material: it must outlive the baking.
        const node_ref root(group({part(::osg::NullFC, 9), part(plain(1), 0, 1)}));
        root->addChild(part(coreOf(root->getChild(1))->getMaterial(), 5, 2));
        GeoMerge merge;
        merge.ignoreMaterial = ignore;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            merge.insertNode(root->getChild(i), false);
        merge.bakeSmallGroups(limit);
        std::vector<std::size_t> sizes;
        for (const node_list& list : groupsOf(merge))
            sizes.push_back(list.size());
        // The emptied group stays; the group without a material is passed over.
        EXPECT_EQ(sizes, ignore  ? (std::vector<std::size_t>{3})
                         : baked ? (std::vector<std::size_t>{3, 0})
                                 : (std::vector<std::size_t>{1, 2}));
        const ::osg::GeometryPtr core = coreOf(root->getChild(2));
        EXPECT_EQ(core->getMaterial() == ::osg::NullFC, baked);
        ASSERT_EQ(core->getColors() != ::osg::NullFC, baked);
        if (baked) {
            EXPECT_EQ(core->getColors()->getValue(0), ::osg::Color3f(1, 0.5F, 0.25F));
        }
    }
}

// ---- what becomes of a group

using morva::osg::mergeGeometryInVector;

/// Triangles of each batch of a group.
std::vector<std::size_t> batchesOf(const ::osg::NodePtr& merged) {
    std::vector<std::size_t> sizes;
    for (::osg::UInt32 i = 0; i < merged->getNChildren(); ++i)
        sizes.push_back(shapeOf(merged->getChild(i)).size());
    return sizes;
}

TEST(MergeGeometryInVector, ABatchEndsWithTheNodeThatExceedsTheLimit) {
    const std::pair<std::vector<unsigned>, std::vector<std::size_t>> cases[] = {
        {{4, 6}, {10}}, {{4, 7, 1}, {11, 1}}, {{30, 1, 1}, {30, 2}}, {{5, 5, 5, 5, 5}, {15, 10}},
        {{11}, {11}},   {{0, 3, 0}, {3}}};
    for (const auto& [nodes, batches] : cases) { // triangles of each
        const material_ref red(plain(0));
        node_list list;
        for (const unsigned count : nodes)
            list.push_back(part(red.get(), 100.0F * static_cast<float>(list.size()), count));
        const node_ref root(group(list));
        const node_ref merged(mergeGeometryInVector(red.get(), list, cells(1000), quiet(), 10));
        EXPECT_EQ(batchesOf(merged.get()), batches);
        EXPECT_EQ(firstDifference(shapeOf(root.get()), shapeOf(merged.get())), "");
        for (const ::osg::NodePtr& core : geometryNodes(merged.get()))
            EXPECT_EQ(coreOf(core)->getMaterial(), red.get());
    }
}

TEST(MergeGeometryInVector, LinesAndPointsHaveBatchesOfTheirOwn) {
    const node_list list = {meshNode(row(8, 1)), meshNode(row(8, 1)), meshNode(row(8, 1))};
    const node_ref root(group(list));
    const node_ref merged(mergeGeometryInVector(::osg::NullFC, list, cells(1000), quiet(), 5));
    // 4 + 4 lines exceed the limit, then the rest; 8 points do at each node.
    std::string kinds;
    for (const ::osg::NodePtr& node : geometryNodes(merged.get())) {
        kinds += (coreOf(node)->getTypes()->getValue(0) == 1 ? " lines " : " points ") +
                 std::to_string(coreOf(node)->getLengths()->getValue(0));
    }
    EXPECT_EQ(kinds, " points 8 lines 16 points 8 lines 8 points 8");

    mesh_data claims = row(2, 1); // far more than there is
    claims.primitives = {{1, 0x7ffffffeU}};
    const node_ref node(meshNode(claims));
    const morva::osg::primitive_sums sums = morva::osg::sumPrimitives({node.get()});
    EXPECT_EQ(sums.lines, 1U);
    EXPECT_EQ(sums.points, 2U);
}

TEST(MergeGeometryInVector, NothingToMerge) {
    const node_ref hollow(nodeOf(::osg::Geometry::create()));
    const stream_capture out(std::cout);
    for (const node_list& list : {node_list(), {hollow.get()}, {::osg::NodePtr()}}) {
        const node_ref merged(mergeGeometryInVector(::osg::NullFC, list, cells(9), quiet(), 5));
        ASSERT_EQ(merged == ::osg::NullFC, list.empty());
        EXPECT_TRUE(list.empty() || merged->getNChildren() == 0);
    }
    const std::string empty = "Empty Geometry, no primitives found. \n";
    EXPECT_EQ(out.text(), empty + empty +
                              "Morva_osg_geoset_tools::Extract: No Node\n"
                              "Morva_osg_line_geoset_tools::Extract: No Node\n"
                              "Morva_osg_point_geoset_tools::Extract: No Node\n");
}

} // namespace
