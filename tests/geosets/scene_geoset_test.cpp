// Whole nodes as elements: what is built, what a tree over them gives, and rays through both.

#include "cell_scenes.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>
#include <morva/trees/ray_traversal.h>

namespace {

using morva::build_setup;
using morva::float3;
using morva::kd_build_setup;
using morva::osg::taking;
using bih = morva::bih_tree<float>;
using kd = morva::kd_tree<float>;
using bih_scene = morva::osg::bih_scene_geoset;
using kd_scene = morva::osg::kd_scene_geoset;
using ray_hit = morva::intersection_point<float, float3, float3>;

build_setup setupOf(const bih_scene&) { return {3, 20}; }
kd_build_setup setupOf(const kd_scene&) { return {3, 20, 3, 1.0F, 2.0F, 0.95F, false}; }
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
            materials[name] = morva::osg::getMaterial(node);
            masks[name] = node->getTravMask();
            origins[name] = node->getCore().getFieldContainerId();
        }
    }

    node_ref root;
    node_list list;
    std::map<std::string, ::osg::MaterialPtr> materials;
    std::map<std::string, ::osg::UInt32> masks, origins; ///< the latter are cores
};

/// The scene geoset once more, by the list alone.
struct naive_scene {
    naive_scene(const node_list& list, bool with_geosets) : geosets_built(with_geosets) {
        ::osg::Pnt3f low, high;
        for (const ::osg::NodePtr& node : list) {
            unsigned count = morva::osg::getNumberOfTriangles(node);
            if (with_geosets) {
                morva::osg::osg_geoset soup;
                const stream_capture quiet(std::cout);
                extract(node, soup, true, false, false, true, true);
                if (soup.size == 0)
                    continue;
                low = ::osg::Pnt3f(soup.bbox.min[0], soup.bbox.min[1], soup.bbox.min[2]);
                high = ::osg::Pnt3f(soup.bbox.max[0], soup.bbox.max[1], soup.bbox.max[2]);
                count = static_cast<unsigned>(soup.size);
            } else if (node != ::osg::NullFC) {
                ::osg::DynamicVolume volume;
                node->getWorldVolume(volume);
                low = high = ::osg::Pnt3f();
                if (!volume.isEmpty())
                    volume.getBounds(low, high);
            }
            nodes.push_back(node);
            boxes.emplace_back(low, high);
            triangles.push_back(count);
        }
    }

    bool geosets_built;
    node_list nodes; ///< of the elements
    std::vector<std::pair<::osg::Pnt3f, ::osg::Pnt3f>> boxes;
    std::vector<unsigned> triangles;
};

template <typename Scene> void expectBuilt(const Scene& scene, const naive_scene& twin) {
    ASSERT_EQ(scene.element_count(), twin.nodes.size());
    EXPECT_EQ(scene.trees != nullptr, twin.geosets_built && scene.node_count != 0);
    morva::float_box box;
    for (std::size_t a = 0; a < 3 && !twin.boxes.empty(); ++a) {
        box.min[a] = std::numeric_limits<float>::max();
        box.max[a] = -box.min[a];
    }
    for (std::size_t e = 0; e < twin.nodes.size(); ++e) {
        EXPECT_EQ(scene.node(e), twin.nodes[e]);
        EXPECT_EQ(scene.triangles_of(e, 1), twin.triangles[e]);
        for (unsigned a = 0; a < 3; ++a) {
            const float low = twin.boxes[e].first[a], high = twin.boxes[e].second[a];
            float lo = 7, hi = 7;
            scene.axis_min_max(e, int(a), lo, hi);
            EXPECT_TRUE(lo == low && hi == high) << e;
            box.min[a] = std::min(box.min[a], low);
            box.max[a] = std::max(box.max[a], high);
        }
        if (!twin.geosets_built)
            continue;
        EXPECT_TRUE(scene.geosets[e].lean && scene.geosets[e].simple_tris != nullptr);
        EXPECT_EQ(scene.geosets[e].geometry->getMaterial(), coreOf(twin.nodes[e])->getMaterial());
        EXPECT_EQ(scene.geosets[e].geometry->getLengths()->getValue(0), 3 * twin.triangles[e]);
    }
    box.refresh_extent();
    repair_flat_axes(box);
    for (std::size_t a = 0; a < 3; ++a)
        EXPECT_TRUE(scene.box.min[a] == box.min[a] && scene.box.max[a] == box.max[a]);
}

template <typename Scene, typename Tree>
void expectCollected(const Scene& scene, const Tree& tree, const naive_scene& twin) {
    unsigned all = 0;
    node_list found;
    collectNodesFromSceneGeoset(scene, tree, 0, found);
    EXPECT_EQ(found.size(), tree.node_count == 0 ? 0 : twin.nodes.size());
    for (std::size_t e = 0; e < twin.nodes.size(); ++e)
        all += twin.triangles[e];
    const auto below = [&](int node) {
        return getNumberOfTrianglesInSceneGeoset(tree, scene, node);
    };
    EXPECT_EQ(below(0), all);
    for (int node = 0; node <= int(tree.node_count); ++node)
        EXPECT_TRUE(tree.nodes[node].is_leaf() ||
                    below(node) == below(node + 1) + below(int(tree.nodes[node].right)));
    for (const ::osg::NodePtr& node : found)
        EXPECT_TRUE(node_ref(node) == ::osg::NullFC || coreOf(node) != ::osg::NullFC);
}

/// Grows a scene in both ways, and looks at what is drawn, and how.
template <typename Scene, typename Tree>
void expectGrown(Scene& scene, Tree& tree, const mixed_scene& made) {
    mesh_choice listed; // a node of degenerate triangles alone may be no element
    listed.dropped = morva::osg::is_rogue;
    const world_mesh before = worldMesh(made.root.get(), listed);
    const std::string input = textOf(made.root.get());
    const node_ref copied(group()), moved_to(group());
    if constexpr (std::is_same_v<Scene, bih_scene> && std::is_same_v<Tree, kd>) {
        growHierarchy(copied.get(), scene, tree, 0, taking::a_new_node);
        EXPECT_EQ(textOf(made.root.get()), input);
    }
    const bool was_copied = copied->getNChildren() != 0;
    recBuild(moved_to.get(), scene, tree, 0);
    for (const node_ref& top : {copied, moved_to}) {
        if (top == copied && !was_copied)
            continue;
        EXPECT_EQ(firstDifference(before, worldMesh(top.get(), listed)), "");
        EXPECT_EQ(morva::osg::broken_rule_of(top.get()), "");
        std::map<std::pair<::osg::UInt32, ::osg::MaterialPtr>, ::osg::NodeCorePtr> shared;
        for (const ::osg::NodePtr& node : geometryNodes(top.get())) {
            const std::string name = ::osg::getName(node);
            const auto own = std::pair(made.origins.at(name), made.materials.at(name));
            EXPECT_EQ(shared.emplace(own, node->getCore()).first->second, node->getCore());
            EXPECT_EQ(coreOf(node)->getMaterial(), made.materials.at(name));
            EXPECT_EQ(node->getTravMask(), made.masks.at(name));
            EXPECT_TRUE(node->findAttachment(::osg::StringAttributeMap::getClassType(), 3) !=
                        ::osg::NullFC);
        }
    }
}

template <typename Scene, typename Tree> void compareAll(unsigned seed, bool with_geosets) {
    const mixed_scene made(seed);
    const naive_scene twin(made.list, with_geosets);
    Scene scene;
    scene.with_geosets = with_geosets;
    scene.nodes = made.list;
    const stream_capture told(std::cout);
    for (const bool again : {false, true}) { // the second time in place of the first
        scene.build(again ? made.root.get() : ::osg::NodePtr(), setupOf(scene));
        expectBuilt(scene, twin);
    }
    Tree tree;
    sortNodes(scene, tree);
    if (tree.nodes != nullptr && scene.element_count() != 0)
        expectCollected(scene, tree, twin);
    expectGrown(scene, tree, made);
    const auto nulls = std::count(made.list.begin(), made.list.end(), ::osg::NullFC);
    std::string expected;
    for (std::ptrdiff_t i = 0; i < 2 * nulls; ++i)
        expected += "NULLFC\n";
    if (!with_geosets) {
        EXPECT_EQ(told.text(), expected);
    } else if (!twin.nodes.empty()) { // how many nodes were tried, empty ones too
        EXPECT_NE(told.text().find(" of " + std::to_string(made.list.size())), std::string::npos);
    }
}

TEST(SceneGeoset, IsBuiltCollectedAndGrownAsByItsTwin) {
    for (unsigned round = 0; round < roundsOf(100U) && !HasFailure(); ++round) {
        const unsigned seed = seedOf(round);
        SCOPED_TRACE(seed);
        compareAll<bih_scene, kd>(seed, false);
        compareAll<bih_scene, bih>(seed, seed % 2 == 0);
        compareAll<kd_scene, kd>(seed, true);
        compareAll<kd_scene, bih>(seed, seed % 2 != 0);
    }
}

TEST(SceneGeoset, MovesPartsBelowPartsAndOfNoTreeNothing) {
    const node_ref below(meshNode(quads(3))), root(group({meshNode(quads(1)), meshNode(quads(2))})),
        top(group());
    root->getChild(1)->addChild(group({below.get()}));
    below->addChild(nodeOf(root->getChild(0)->getCore()));
    const world_mesh before = worldMesh(root.get());
    for (const bool empty : {true, false}) {
        const stream_capture told(std::cout);
        bih_scene scene(empty ? node_ref(group()).get() : root.get(), {5, 100}, false);
        bih tree;
        compile(scene, tree, {1, 9});
        node_list found;
        collectNodesFromSceneGeoset(scene, tree, 0, found);
        recBuild(top.get(), scene, tree, 0);
        EXPECT_EQ(found.size(), empty ? 0U : 4U);
        EXPECT_EQ(worldMesh(top.get()), empty ? world_mesh() : before);
        EXPECT_EQ(told.text(), "");
    }
}

/// Sheets of three squares along x that face down, one for each place.
node_ref sheetsAt(const std::vector<::osg::Vec3f>& places) {
    const node_ref root(group());
    mesh_data sheet = quads(3);
    std::reverse(sheet.positions.begin(), sheet.positions.end());
    for (const ::osg::Vec3f& place : places)
        root->addChild(moved(place, {meshNode(sheet)}));
    return root;
}

TEST(SceneGeoset, SaysWhichElementThereIsNot) {
    const node_ref root(sheetsAt({{0, 0, 5}, {0, 0, 3}}));
    const stream_capture quiet(std::cout);
    const bih_scene scene(root.get(), {5, 100}, true), none;
    bih_scene more(sheetsAt({{0, 0, 5}, {0, 0, 3}, {0, 0, 4}}).get(), {5, 100}, true);
    bih tree;
    compile(more, tree, {1, 20});
    const stream_capture told(std::cout);
    float low = 3, high = 4;
    scene.axis_min_max(2, 0, low, high);
    EXPECT_TRUE(low == 3 && high == 4);
    EXPECT_EQ(scene.node(2), ::osg::NullFC);
    EXPECT_EQ(scene.simple_object(9), 1);
    EXPECT_EQ(none.simple_object(0), -1);
    ray_hit hit; // of a tree with an element more: the last one that there is
    morva::empty_trace_statistics statistics;
    fire_ray_rec(tree, 0, scene, float3{0.5F, 0.5F, 1}, float3{0.5F, 0.5F, 9},
                 float3{INFINITY, INFINITY, 1}, 0.0F, 8.0F, hit, statistics, 1);
    EXPECT_EQ(hit.hit ? hit.index : -1, 2);
    EXPECT_EQ(told.text(), "Morva_osg_scene_Geost::axis_min_max: Index out of bounce. \n"
                           "Morva_osg_scene_geoset: No Node with index 2\n"
                           "Morva_osg_scene_geoset.simple_object(), no element with 9\n"
                           "Morva_osg_scene_geoset.simple_object(), no element with 0\n"
                           "Morva_osg_scene_geoset.simple_object(), no element with 2\n");
}

} // namespace
