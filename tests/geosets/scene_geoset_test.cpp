// Whole nodes as elements: what is built, and what a tree over them gives.

#include "cell_scenes.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>
#include <morva/trees/ray_traversal.h>

namespace {

using namespace morva::osg;
using bih = morva::bih_tree<float>;
using kd = morva::kd_tree<float>;

template <typename Scene> void sortNodes(Scene& scene, bih& tree) { compile(scene, tree, {1, 9}); }
template <typename Scene> void sortNodes(Scene& scene, kd& tree) {
    compile(scene, tree, {1, 9, 3, 1.0F, 2.0F, 0.95F, false}, morva::kd_strategy_ObjMedian());
}

/// A wild scene with names, masks and attachments, and with places of null in its list.
struct mixed_scene {
    explicit mixed_scene(unsigned seed) : root(wildScene(seed, seed % 2 == 0)) {
        std::mt19937 rng(seed);
        for (const ::osg::NodePtr& node : geometryNodes(root.get())) {
            while (rng() % 8 == 0)
                list.emplace_back();
            const std::string name = "n" + std::to_string(list.size());
            list.push_back(named(name, node));
            node->setTravMask(rng() % 4 == 0 ? 6 : ~::osg::UInt32(0));
            node->addAttachment(::osg::StringAttributeMap::create(), 3);
            traits[name] = {node->getCore(), getMaterial(node), node->getTravMask()};
            const bool at_origin = node->getParent()->getToWorld() == ::osg::Matrix::identity();
            labels[node] = (at_origin ? " " : " ~") + name;
        }
    }

    node_ref root;
    node_list list;
    std::map<::osg::NodePtr, std::string> labels; ///< as grownText() has them
    /// Core, material and mask.
    std::map<std::string, std::tuple<::osg::NodeCorePtr, ::osg::MaterialPtr, ::osg::UInt32>> traits;
};

/// What must hang below a node that was grown: brackets for groups, labels, and their places.
template <typename Tree, typename Label>
std::string grown(const Tree& tree, int node, const Label& label) {
    const auto& here = tree.nodes[node];
    if (!here.is_leaf()) {
        const std::string left = grown(tree, node + 1, label);
        return "(" + left + ")(" + grown(tree, int(here.right), label) + ")";
    }
    std::string text;
    for (std::uint64_t k = here.first; k < here.first + std::uint64_t(here.count); ++k)
        text += label(k);
    return text;
}

/// What hangs there: groups, names, "~" for a transform.
std::string grownText(const ::osg::NodePtr& node) {
    std::string text;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        const ::osg::NodePtr child = node->getChild(i);
        if (coreOf(child) != ::osg::NullFC)
            text += std::string(" ") + ::osg::getName(child);
        else if (::osg::TransformPtr::dcast(child->getCore()) != ::osg::NullFC)
            text += " ~" + grownText(child).substr(1);
        else
            text += "(" + grownText(child) + ")";
    }
    return text;
}

/// Compares a scene geoset with its list, and gives the nodes of its elements.
template <typename Scene> node_list expectBuilt(const Scene& scene, const node_list& list) {
    node_list nodes;
    morva::float_box here; // a null node has that of the one before it
    for (const ::osg::NodePtr& node : list) {
        unsigned count = getNumberOfTriangles(node);
        if (scene.with_geosets) {
            osg_geoset soup;
            const stream_capture quiet(std::cout);
            extract(node, soup, true, false, false, true, true);
            if (soup.size == 0)
                continue;
            here = soup.bbox;
            count = unsigned(soup.size);
        } else if (node != ::osg::NullFC) {
            ::osg::DynamicVolume volume;
            node->getWorldVolume(volume);
            ::osg::Pnt3f low, high;
            if (!volume.isEmpty())
                volume.getBounds(low, high);
            std::copy_n(&low[0], 3, &here.min[0]);
            std::copy_n(&high[0], 3, &here.max[0]);
        }
        const std::size_t e = nodes.size();
        nodes.push_back(node);
        EXPECT_EQ(scene.node(e), node);
        EXPECT_EQ(scene.triangles_of(e, 1), count);
        for (std::size_t a = 0; a < 3; ++a) {
            float low = 7, high = 7;
            scene.axis_min_max(e, int(a), low, high);
            EXPECT_TRUE(low == here.min[a] && high == here.max[a]) << e;
            EXPECT_TRUE(scene.box.min[a] <= low && high <= scene.box.max[a]) << e;
        }
        if (e < scene.built_count) {
            EXPECT_TRUE(scene.geosets[e].lean && scene.geosets[e].simple_tris != nullptr);
            EXPECT_EQ(scene.geosets[e].geometry->getMaterial(), coreOf(node)->getMaterial());
            EXPECT_EQ(scene.geosets[e].geometry->getLengths()->getValue(0), 3 * count);
        }
    }
    EXPECT_EQ(scene.element_count(), nodes.size());
    EXPECT_EQ(scene.trees != nullptr, scene.with_geosets && !list.empty());
    return nodes;
}

template <typename Scene, typename Tree>
void expectCollected(const Scene& scene, const Tree& tree, const node_list& nodes) {
    for (int node = 0; node <= int(tree.node_count); ++node) {
        std::uint32_t sum = 0;
        node_list expected;
        grown(tree, node, [&](std::uint64_t k) { // by places in the leaves, not what stands there
            sum += unsigned(scene.triangles_of(k, 1));
            expected.push_back(nodes[k]);
            return "";
        });
        EXPECT_EQ(getNumberOfTrianglesInSceneGeoset(tree, scene, node), sum);
        node_list found;
        collectNodesFromSceneGeoset(scene, tree, unsigned(node), found);
        if (!scene.with_geosets && !found.empty()) {
            EXPECT_EQ(found, expected);
        }
        std::uint32_t triangles = 0;
        for (const ::osg::NodePtr& made : found)
            triangles += getNumberOfTriangles(node_ref(made).get());
        EXPECT_EQ(triangles, tree.node_count == 0 ? 0 : sum);
    }
}

/// Grows a scene in both ways, and looks at what is drawn, and how.
template <typename Scene, typename Tree>
void expectGrown(Scene& scene, Tree& tree, const node_list& nodes, const mixed_scene& made) {
    mesh_choice listed; // a node of degenerate triangles alone may be no element
    listed.dropped = is_rogue;
    const world_mesh before = worldMesh(made.root.get(), listed);
    const auto label = [&](std::uint64_t k) {
        const auto found = made.labels.find(nodes[tree.indices[k]]);
        return found == made.labels.end() ? "" : found->second;
    };
    std::vector<node_ref> tops = {node_ref(group())};
    if constexpr (std::is_same_v<Scene, bih_scene_geoset> && std::is_same_v<Tree, kd>) {
        const std::string input = textOf(made.root.get());
        tops.emplace_back(group());
        growHierarchy(tops[1].get(), scene, tree, 0, taking::a_new_node);
        EXPECT_EQ(textOf(made.root.get()), input);
    }
    recBuild(tops[0].get(), scene, tree, 0);
    for (const node_ref& top : tops) {
        EXPECT_EQ(grownText(top), grown(tree, 0, label));
        EXPECT_EQ(firstDifference(before, worldMesh(top, listed)), "");
        EXPECT_EQ(broken_rule_of(top), "");
        std::map<std::pair<::osg::NodeCorePtr, ::osg::MaterialPtr>, ::osg::NodeCorePtr> shared;
        for (const ::osg::NodePtr& node : geometryNodes(top)) {
            const auto& [core, material, mask] = made.traits.at(::osg::getName(node));
            EXPECT_EQ(coreOf(node)->getMaterial(), material);
            EXPECT_EQ(node->getTravMask(), mask);
            const auto& same = shared.emplace(std::pair(core, material), node->getCore());
            EXPECT_EQ(same.first->second, node->getCore());
            EXPECT_TRUE(node->findAttachment(::osg::StringAttributeMap::getClassType(), 3) !=
                        ::osg::NullFC);
        }
    }
    const node_ref part(group());
    const int right = tree.nodes[0].is_leaf() ? 0 : int(tree.nodes[0].right);
    recBuild(part.get(), scene, tree, right); // what is there already moves again
    EXPECT_EQ(grownText(part.get()), grown(tree, right, label));
}

template <typename Scene, typename Tree> void compareAll(unsigned seed, bool with_geosets) {
    const mixed_scene made(seed);
    Scene scene;
    scene.with_geosets = with_geosets;
    scene.nodes = made.list;
    const stream_capture told(std::cout);
    node_list nodes;
    for (const bool again : {false, true}) { // the second time in place of the first
        scene.build(again ? made.root.get() : ::osg::NodePtr(), {3, 20});
        nodes = expectBuilt(scene, made.list);
    }
    Tree tree;
    sortNodes(scene, tree);
    if (tree.nodes != nullptr) {
        expectCollected(scene, tree, nodes);
        expectGrown(scene, tree, nodes, made);
    }
    std::string expected;
    for (const ::osg::NodePtr& node : made.list)
        expected += node == ::osg::NullFC ? "NULLFC\nNULLFC\n" : "";
    EXPECT_TRUE(with_geosets || told.text() == expected) << told.text();
}

TEST(SceneGeoset, IsBuiltCollectedAndGrownAsByItsTwin) {
    for (unsigned round = 0; round < roundsOf(100U) && !HasFailure(); ++round) {
        const unsigned seed = seedOf(round);
        SCOPED_TRACE(seed);
        compareAll<bih_scene_geoset, kd>(seed, false);
        compareAll<bih_scene_geoset, bih>(seed, seed % 2 == 0);
        compareAll<kd_scene_geoset, kd>(seed, true);
        compareAll<kd_scene_geoset, bih>(seed, seed % 2 != 0);
    }
}

TEST(SceneGeoset, SaysWhichElementThereIsNot) {
    const node_ref root(sceneOf("r(a b)"));
    const stream_capture quiet(std::cout);
    const bih_scene_geoset scene(root.get(), {5, 100}, true);
    bih_scene_geoset more(node_ref(sceneOf("r(a b c)")).get(), {5, 100}, true);
    bih tree;
    sortNodes(more, tree);
    const stream_capture told(std::cout);
    float low = 3, high = 4;
    scene.axis_min_max(2, 0, low, high);
    EXPECT_TRUE(low == 3 && high == 4);
    EXPECT_EQ(scene.node(2), ::osg::NullFC);
    // Of a tree with an element more: the last one that there is.
    EXPECT_EQ(getNumberOfTrianglesInSceneGeoset(tree, scene, 0),
              scene.triangles_of(0, 2) + scene.triangles_of(1, 1));
    const bih_scene_geoset nothing;
    for (const bih_scene_geoset* const asked : {&scene, &nothing}) {
        morva::intersection_point<float, morva::float3, morva::float3> hit;
        morva::empty_trace_statistics none;
        fire_ray_rec(tree, 0, *asked, morva::float3{0.5F, 0.4F, 9}, morva::float3{0.5F, 0.4F, -9},
                     morva::float3{HUGE_VALF, HUGE_VALF, -1}, 0.0F, 18.0F, hit, none, 7);
        EXPECT_EQ(hit.hit, asked == &scene);
    }
    const std::string no_element = "Morva_osg_scene_geoset.simple_object(), no element with ";
    EXPECT_EQ(told.text(), "Morva_osg_scene_Geost::axis_min_max: Index out of bounce. \n"
                           "Morva_osg_scene_geoset: No Node with index 2\n" +
                               no_element + "2\n" + no_element + "2\n" + no_element + "0\n" +
                               no_element + "1\n" + no_element + "2\n");
}

TEST(SceneGeoset, LeavesTheNodesThatItGrowsBelow) {
    const node_ref root(sceneOf("r(x(a) #holder(goal(b)) y)"));
    bih_scene_geoset scene(root.get(), {1, 9}, false);
    bih tree;
    compile(scene, tree, {9, 9});
    recBuild(nodeNamed(root.get(), "goal"), scene, tree, 0);
    EXPECT_EQ(textOf(root.get()), "r(x holder(goal(- -(a b y))))");
}

} // namespace
