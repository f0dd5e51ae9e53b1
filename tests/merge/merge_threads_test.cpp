// The merge pass on workers: the same result as on one thread, whatever the timing.

#include "merge_scenes.h"
#include "tests/support/described_tree.h"
#include "tests/support/temporary_folder.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmap_file.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge_stages.h>
#include <morva/merge/morva_osg_helpers.h>
#include <morva/merge/morva_osg_name_order.h>

namespace {

using morva::osg::mergeGeo;
using morva::osg::threadHandler;

/// The file of the ID map of the last run, with the cores below a node.
std::string mapOf(const ::osg::NodePtr& result) {
    const temporary_folder folder;
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    handler.registerGeometryUsage(result);
    morva::osg::writeMapFile(folder.file("map"), handler);
    return bytesOf(folder.file("map"));
}

/// Parts of many materials, in all that workers could get in each other's way with: cores that
/// nodes of several groups share, parts below parts, coordinates of the same property with and
/// without an image, all kinds of primitives, glass, names for several nodes or none, and if asked
/// for IDs of their own.
struct crowded_scene {
    crowded_scene(bool images_by_group, bool own_ids, bool backwards, bool short_strips)
        : root(group({})) {
        std::mt19937 rng(5202);
        materials.resize(9);
        for (std::size_t i = 0; i < 9; ++i) { // whichever the scene graph made first
            const std::size_t k = backwards ? 8 - i : i;
            materials[k] = plain(0.1F * static_cast<float>(k));
        }
        materials.emplace_back(chunked({1, 1, 1, 1}, imageOf(6407, 2, 2)));
        materials.emplace_back(chunked({0, 0, 1, 0.5F}));
        const ::osg::GeometryRefPtr shared(meshOf(rng));
        const ::osg::GeometryPtr with_coordinates = meshOf(rng);
        const ::osg::GeoTexCoordsPtr coordinates = with_coordinates->getTexCoords();
        ::osg::NodePtr above = root.get();
        for (int i = 0; i < 40; ++i) {
            const ::osg::MaterialPtr material = materials[rng() % 10].get();
            const bool by_group = i % 7 == 0;
            const ::osg::GeometryPtr core = by_group ? shared.get()
                                            : i == 1 ? with_coordinates
                                            : i % 4 == 2
                                                ? geometryOf(withIndex(mixture(rng, 4), rng))
                                                : meshOf(rng, own_ids && i % 3 == 0);
            if (!by_group) {
                core->setMaterial(material);
                if (i % 5 == 0)
                    core->setTexCoords(coordinates);
            }
            if (short_strips && i % 2 == 0) // counted as billions, so that a group has many batches
                addShortStrips(core);
            const ::osg::NodePtr node = nodeOf(core);
            if (i % 9 != 8)
                named("part" + std::to_string(i * 7 % 23), node);
            const ::osg::MaterialPtr plain = materials[rng() % (images_by_group ? 10 : 9)].get();
            above->addChild(by_group ? materialGroup(plain, {node})
                                     : moved({1, float(i), 2}, {node}));
            above = i % 3 == 0 ? node : root.get(); // the next one below this one
        }
        root->addChild(moved({3, 2, 1}, {part(materials[10].get(), 0, 5, "pane")}));
        root->addChild(named("wire", meshNode(row(9, 3))));
    }
    static void addShortStrips(const ::osg::GeometryPtr& core) {
        for (int i = 0; i < 99; ++i) {
            core->getTypes()->addValue(5);
            core->getLengths()->addValue(0);
        }
    }
    static ::osg::GeometryPtr meshOf(std::mt19937& rng, bool own_ids = false) {
        mesh_data mesh = withCoordinates(withNormals(soup(rng, 30), rng), rng);
        if (own_ids)
            mesh = withIds(mesh);
        for (::osg::Vec2f& pair : mesh.coordinates)
            pair *= 3.0F; // beyond the limit: triangles are cut
        return geometryOf(mesh);
    }

    std::vector<::osg::MaterialRefPtr> materials;
    ::osg::NodeRefPtr root;
};

/// All that `run` makes of a scene as text, with the names that it generates counted from 0.
template <typename Scene, typename Run> std::string textAfter(const Scene& make, const Run& run) {
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    handler.reset();
    handler.mergedCount = handler.maxGeoCount = 0;
    std::ostringstream text;
    text.precision(9);
    {
        const stream_capture out(std::cout);
        const crowded_scene source = make();
        const ::osg::NodeRefPtr result(run(source.root.get()));
        EXPECT_EQ(handler.releaseHeldLock(), 0U);
        describe(result.get(), text);
        text << mapOf(result.get());
        if (out.text().find("Cacheopt") == std::string::npos)
            text << out.text();
    }
    handler.reset(); // which holds materials' names alone
    return text.str();
}

TEST(MergeThreads, TheResultIsThatOfOneThreadToTheLastName) {
    struct setup_case {
        const char* name;
        bool cacheopt, ids, same_name, images_by_group, own_ids;
        int opt;
        int vertexcolor = -1;
        bool by_tree = false, one_group = false;
    };
    for (const setup_case& c :
         {setup_case{"plain", false, false, false, false, false, 1},
          {"unindexed", false, true, false, false, false, 0},
          {"strips", false, false, true, false, false, 3},
          {"cache order", true, true, false, false, false, 1},
          {"cache order per property", true, false, true, false, false, 2},
          {"the order of groups decides", false, true, true, true, false, 1},
          {"baked", false, true, false, false, false, 1, 150},
          {"IDs of their own", false, true, false, false, true, 1},
          {"one group", false, true, false, false, false, 1, -1, false, true},
          {"one group, own normals", false, false, false, false, false, 2, -1, false, true},
          {"batches by a tree", false, true, false, false, false, 1, -1, true},
          {"batches by a tree, IDs of their own", false, false, false, false, true, 1, -1, true},
          {"IDs of their own, none wanted: volumes were asked for below those of another group",
           false, false, false, false, true, 1}}) {
        SCOPED_TRACE(c.name);
        std::string alone;
        for (int run = 0; run <= 12; ++run) {
            const auto scene = [&] {
                return crowded_scene(c.images_by_group, c.own_ids, run % 4 > 1, c.by_tree);
            };
            mergeGeo_setup setup = quiet();
            setup.numthreads = run == 12      ? 0x7fffffff
                               : run == 0     ? 1
                               : run % 3 == 0 ? 3
                               : run % 2 == 0 ? 2
                                              : 8;
            setup.cacheopt = c.cacheopt;
            setup.idmap = c.ids ? "map" : "";
            setup.mergesamename = c.same_name;
            setup.opt = c.opt;
            setup.vertexcolor = c.vertexcolor;
            setup.mergehierarchy = c.by_tree;
            setup.ignorematerial = c.one_group;
            setup.calcnormals = c.one_group && !c.ids;
            const std::string text = textAfter(scene, [&setup](const ::osg::NodePtr& root) {
                return mergeGeo(root, cells(20), setup);
            });
            if (run == 0)
                alone = text;
            ASSERT_TRUE(text == alone) << "run " << run;
        }
        EXPECT_GT(alone.size(), 10000U);
    }
}

/// Takes the steps from the last to the first.
struct backwards_help : morva::step_help {
    void share(std::size_t count, const morva::numbered_step& step) override {
        for (std::size_t i = count; i-- > 0; ++taken)
            step(i);
    }
    std::size_t taken = 0;
};

TEST(MergeThreads, CoresOfABatchAreMadeInAnyOrder) {
    threadHandler handler("TEST_HELP", 8);
    handler.noMoreTasks();
    morva::osg::task_helpers helpers(handler);
    backwards_help backwards;
    for (int opt = 0; opt <= 3; ++opt) {
        for (const unsigned limit : {90U, 100000U}) { // several batches, one
            SCOPED_TRACE(testing::Message() << "level " << opt << ", batches of " << limit);
            mergeGeo_setup setup = quiet();
            setup.opt = opt;
            setup.idmap = limit == 90 ? "map" : "";
            const auto textBy = [&](morva::step_help* help) {
                const auto scene = [] { return crowded_scene(false, false, false, false); };
                return textAfter(scene, [&](const ::osg::NodePtr& root) {
                    const morva::step_help::scope helped(help);
                    const morva::osg::held_lock_end end;
                    return morva::osg::mergeGeometryInVector(::osg::NullFC, geometryNodes(root),
                                                             cells(20), setup, limit);
                });
            };
            const std::string alone = textBy(nullptr);
            EXPECT_TRUE(textBy(&backwards) == alone);
            for (int round = 0; round < 10; ++round)
                ASSERT_TRUE(textBy(&helpers) == alone);
        }
    }
    EXPECT_GT(backwards.taken, 400U);
}

TEST(MergeThreads, BatchesByATreeHoldTheSamePartsAsBatchesByTheList) {
    std::vector<std::string> names[2];
    world_mesh shapes[2];
    std::size_t cores[2];
    for (const bool by_tree : {false, true}) {
        mergeGeo_setup setup = quiet();
        setup.mergehierarchy = by_tree;
        setup.idmap = "map";
        morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
        handler.reset();
        const crowded_scene source(false, false, false, true);
        const node_ref result = quietMerge(source.root.get(), setup);
        handler.releaseHeldLock();
        names[by_tree] = handler.names;
        shapes[by_tree] = shapeOf(result.get());
        cores[by_tree] = geometryNodes(result.get()).size();
        handler.reset();
    }
    EXPECT_EQ(names[0], names[1]);
    EXPECT_EQ(firstDifference(shapes[0], shapes[1]), "");
    EXPECT_LT(cores[0], cores[1]);
}

TEST(MergeThreads, NamesCannotBeForetoldWhereABatchOfSomeIdsMayEnd) {
    for (const bool large : {false, true}) {
        for (const bool wanted : {false, true}) {
            const node_ref root(group({part(::osg::NullFC, 0), part(::osg::NullFC, 3)}));
            const ::osg::GeometryPtr with_ids = coreOf(root->getChild(0));
            with_ids->setTexCoords7(::osg::GeoTexCoords1f::create());
            if (large)
                with_ids->getPositions()->resize(morva::osg::batch_limit + 1);
            morva::osg::GeoMerge merge;
            for (::osg::UInt32 i = 0; i < 2; ++i)
                merge.insertNode(root->getChild(i), false);
            mergeGeo_setup setup;
            setup.idmap = wanted ? "map" : "";
            EXPECT_EQ(morva::osg::canForetellNames(merge, setup), wanted || !large);
        }
    }
}

} // namespace
