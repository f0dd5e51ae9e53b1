#include <morva/merge/morva_osg_geomerge_stages.h>

#include "tests/support/merge_scenes.h"

namespace {

using morva::osg::GeoMerge;

TEST(GeoMerge, GroupsByMaterialAndNameAndBakesThoseBelowTheLimit) {
    const struct {
        std::size_t material, inherited; ///< 0 is none
        const char *name, *core_name;
        bool alone; ///< no group is asked
        unsigned triangles;
    } rows[] = {{1, 0, "", "", false, 2},  {0, 2, "x", "", false, 1},  {0, 2, "", "y", true, 1},
                {2, 1, "", "x", false, 1}, {1, 0, "y", "x", false, 1}, {0, 0, "", "", false, 5}};
    // The nodes of each group as letters, large where a material is in the vertices; those of no
    // material come first, and emptied groups stay.
    const std::array<const char*, 2> expected[] = {{"cf ae bd ", "cfBD ae  "},
                                                   {"c f a e bd ", "cE fA BD    "},
                                                   {"abcdef ", "abcdef "},
                                                   {"af bd ce ", "af bd ce "}};
    for (const std::size_t mode : {0, 1, 2, 3}) {
        SCOPED_TRACE(mode);
        std::vector<material_ref> materials = {material_ref(), material_ref(plain(0)),
                                               material_ref(plain(1))};
        GeoMerge merge;
        merge.mergeSameName = mode % 2 == 1;
        merge.ignoreMaterial = mode / 2 == 1;
        const node_ref root(group());
        merge.insertNode(root.get(), false); // no geometry
        merge.insertNode(::osg::NullFC, false);
        node_list nodes;
        for (const auto& row : rows) {
            nodes.push_back(part(materials[row.material].get(), 0, row.triangles));
            const auto inner = materialGroup(plain(0.5F), {group({nodes.back()})});
            root->addChild(materialGroup(materials[row.inherited].get(), {inner}));
            EXPECT_EQ(GeoMerge::searchMaterialGroup(nodes.back()), inner->getParent());
            if (*row.core_name != '\0')
                ::osg::setName(nodes.back()->getCore(), row.core_name);
            if (*row.name != '\0')
                named(row.name, nodes.back());
            merge.insertNode(nodes.back(), row.alone);
        }
        materials.clear(); // nobody else holds them: they must outlive the baking
        for (const char* text : expected[mode]) {
            std::string groups;
            for (const auto& [material, members] : merge.groups()) {
                for (const ::osg::NodePtr& node : members)
                    groups += char((coreOf(node)->getColors() == ::osg::NullFC ? 'a' : 'A') +
                                   (std::find(nodes.begin(), nodes.end(), node) - nodes.begin()));
                groups += ' ';
            }
            EXPECT_EQ(groups, text);
            merge.bakeSmallGroups(3);
        }
        EXPECT_STREQ(::osg::getName(nodes[2]), merge.mergeSameName ? "y" : nullptr) << "for good";
    }
}

} // namespace
