#include <morva/merge/morva_osg_geomerge_stages.h>

#include "tests/support/merge_scenes.h"

namespace {

using morva::osg::GeoMerge;

/// A group of one material, by the order of meeting, and of one name.
struct naive_group {
    std::size_t material;
    std::string name;
    node_list nodes;

    std::size_t triangles() const {
        std::size_t sum = 0;
        for (const ::osg::NodePtr& node : nodes)
            sum += coreOf(node)->getLengths()->getValue(0) / 3;
        return sum;
    }
};

TEST(GeoMerge, GroupsAreThoseOfAListSearchedFromTheFront) {
    std::mt19937 rng(seedOf(5100));
    for (int round = 0; round < roundsOf(200); ++round) {
        SCOPED_TRACE(round);
        std::vector<material_ref> materials = {material_ref(), material_ref(plain(0)),
                                               material_ref(plain(1))};
        GeoMerge merge;
        merge.mergeSameName = round % 2 == 1;
        merge.ignoreMaterial = round % 3 == 1;
        std::vector<std::size_t> met = {0}; // materials; none comes first, whenever it is met
        std::vector<naive_group> expected;
        const auto put = [&](std::size_t material, const std::string& name,
                             const ::osg::NodePtr& node) {
            auto entry = std::find_if(expected.begin(), expected.end(), [&](const auto& other) {
                return other.material == material && (!merge.mergeSameName || other.name == name);
            });
            if (entry == expected.end()) {
                entry = std::find_if(expected.begin(), expected.end(),
                                     [&](const auto& other) { return other.material > material; });
                entry = expected.insert(entry, {material, name, {}});
            }
            entry->nodes.push_back(node);
        };
        const node_ref root(group());
        merge.insertNode(root.get(), false); // no geometry
        merge.insertNode(::osg::NullFC, false);
        for (unsigned i = rng() % 40; i > 0; --i) {
            std::size_t material = rng() % 3;
            // The topmost group gives it where the core has none, if groups are asked.
            const bool from_group = rng() % 4 == 0, asks = rng() % 4 != 0;
            const ::osg::NodePtr node =
                part(materials[from_group ? 0 : material].get(), 0, 1 + rng() % 4);
            const auto inner = materialGroup(materials[rng() % 3].get(), {group({node})});
            root->addChild(materialGroup(materials[material].get(), {inner}));
            EXPECT_EQ(GeoMerge::searchMaterialGroup(node), inner->getParent());
            if (merge.ignoreMaterial || (from_group && !asks))
                material = 0;
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
            if (std::find(met.begin(), met.end(), material) == met.end())
                met.push_back(material);
            put(std::size_t(std::find(met.begin(), met.end(), material) - met.begin()), wanted,
                node);
        }
        const std::size_t limit = rng() % 2 * (rng() % 20); // below it the material is lost
        const std::vector<naive_group> before = expected;
        materials.clear(); // nobody else holds them: they must outlive the baking
        merge.bakeSmallGroups(static_cast<int>(limit));
        for (naive_group& each : expected)
            if (each.material != 0 && each.triangles() < limit)
                each.nodes.clear(); // the emptied group stays
        for (const naive_group& each : before) {
            for (const ::osg::NodePtr& node : each.nodes) {
                const bool baked = each.material != 0 && each.triangles() < limit;
                EXPECT_EQ(coreOf(node)->getColors() != ::osg::NullFC, baked);
                if (baked)
                    put(0, each.name, node);
            }
        }
        std::vector<node_list> lists, found;
        for (const naive_group& entry : expected)
            lists.push_back(entry.nodes);
        for (const auto& [material, nodes] : merge.groups())
            found.push_back(nodes);
        EXPECT_EQ(found, lists);
    }
}

} // namespace
