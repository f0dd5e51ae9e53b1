// The whole pass with all settings: what comes out, and the same on workers as on one thread.

#include "tests/support/described_tree.h"
#include "tests/support/merge_scenes.h"
#include "tests/support/random_scenes.h"
#include "tests/support/temporary_folder.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmap_file.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge_stages.h>
#include <morva/merge/morva_osg_helpers.h>

namespace {

using ::osg::GeometryPtr, ::osg::NodePtr;

GeometryPtr anyCore(std::mt19937& rng, bool own_ids) {
    mesh_data mesh = withCoordinates(withNormals(soup(rng, 30), rng), rng);
    for (::osg::Vec2f& pair : mesh.coordinates)
        pair *= 3.0F; // beyond the limit: triangles are cut
    const unsigned kind = rng() % 8;
    const GeometryPtr core = geometryOf(kind == 0   ? row(2 + rng() % 9, rng() % 4)
                                        : kind == 1 ? withIndex(mixture(rng, 4), rng)
                                        : kind == 2 ? strip(4 + 2 * (rng() % 5), rng() % 2 ? 5 : 8)
                                        : own_ids && kind < 5 ? withIds(mesh)
                                                              : mesh);
    if (kind == 2)
        core->setLengths(::osg::NullFC);
    return core;
}

/// Parts of all kinds, in all that workers could get in each other's way with: shared cores, parts
/// below parts, names for several or none, perhaps IDs of their own or many batches in a group.
node_ref crowded(unsigned seed, bool backwards, bool own_ids_in_batches) {
    std::mt19937 rng(seed);
    const palette first, second; // of two materials either may be made first
    material_map names = second.names;
    names[backwards ? "red" : "blue"] = first.names.at(backwards ? "red" : "blue");
    const bool own_ids = rng() % 2 == 0 || own_ids_in_batches,
               short_strips = rng() % 4 == 0 || own_ids_in_batches;
    const char* const tops[] = {"#red(", "#choice(", "g(", "g(", "g(", "g("};
    std::string text = tops[rng() % 6];
    for (int i = 0; i < 6; ++i)
        text += (rng() % 4 == 0 ? "$image(" : "~t(") + randomScene(rng, 3) + (i < 5 ? ") " : "))");
    const node_ref root(sceneOf(text, names));
    const geometry_ref shared(geometryOf(withCoordinates(soup(rng, 30), rng)));
    for (const NodePtr& node : geometryNodes(root.get())) {
        if (rng() % 7 == 0) {
            node->setCore(shared.get());
            continue;
        }
        const GeometryPtr core = anyCore(rng, own_ids);
        core->setMaterial(rng() % 6 == 0 ? ::osg::MaterialPtr() : coreOf(node)->getMaterial());
        if (rng() % 5 == 0 && core->getPositions()->size() == 90)
            core->setTexCoords(shared->getTexCoords());
        for (int i = 0; short_strips && i < 99 && core->getLengths() != ::osg::NullFC; ++i) {
            core->getTypes()->addValue(5); // counted as billions
            core->getLengths()->addValue(0);
        }
        node->setCore(core);
        named("part" + std::to_string(rng() % 20), node);
        if (rng() % 9 == 0)
            node->subAttachment(node->findAttachment(::osg::Name::getClassType().getGroupId()));
    }
    return root;
}

/// What is to come out of a scene, part by part.
node_ref expectedOf(const NodePtr& root, const mergeGeo_setup& setup) {
    const node_ref top(group({root}));
    node_list parts, transparent, hidden;
    morva::osg::getGeometryNodes(top.get(), parts, transparent, false);
    if (setup.keeprenderfalse)
        morva::osg::getTravMaskZeroNodes(top.get(), hidden, false);
    parts.insert(parts.end(), transparent.begin(), transparent.end());
    parts.insert(parts.end(), hidden.begin(), hidden.end());
    const node_ref all(group());
    for (const NodePtr& node : parts)
        all->addChild(transformed(node->getToWorld(), {nodeOf(node->getCore())}));
    return all;
}

/// Takes the steps from the last to the first.
struct backwards_help : morva::step_help {
    void share(std::size_t count, const morva::numbered_step& step) override {
        for (std::size_t i = count; i-- > 0;)
            step(i);
    }
};

mergeGeo_setup anySetup(std::mt19937& rng) {
    mergeGeo_setup setup = quiet();
    setup.opt = int(rng() % 4);
    setup.cacheopt = rng() % 4 == 0;
    setup.idmap = rng() % 2 == 0 ? "map" : "";
    setup.vertexcolor = rng() % 4 == 0 ? 150 : -1;
    setup.mergehierarchy = rng() % 2 == 0;
    setup.optimizetc = rng() % 3 == 0 ? 2 : -1;
    for (bool* flag : {&setup.mergesamename, &setup.ignorematerial, &setup.calcnormals,
                       &setup.keeprenderfalse, &setup.alphageometry})
        *flag = rng() % 3 == 0;
    return setup;
}

TEST(MergeThreads, TheResultIsThatOfOneThreadAndShowsWhatItsPartsDo) {
    std::mt19937 rng(seedOf(5202));
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    const temporary_folder folder;
    backwards_help backwards;
    std::size_t largest = 0; // core in the cache order, which cells would cut
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(round);
        mergeGeo_setup setup = anySetup(rng);
        const bool own_ids_in_batches = round % 5 == 0;
        if (own_ids_in_batches) { // names can't be foretold
            setup.idmap.clear();
            setup.mergehierarchy = true;
        }
        const auto seed = unsigned(rng());
        const node_ref twin = crowded(seed, false, own_ids_in_batches);
        const world_mesh before = shapeOf(twin.get());
        const world_mesh expected = shapeOf(expectedOf(twin.get(), setup).get());
        std::string alone;
        for (const int threads : {1, -7, 2, 3, 8, 0x7fffffff}) { // the second one in any order
            handler.reset();
            handler.mergedCount = handler.maxGeoCount = 0;
            setup.numthreads = threads;
            const node_ref root = crowded(seed, threads % 2 == 0, own_ids_in_batches);
            std::ostringstream text;
            text.precision(9);
            const stream_capture out(std::cout);
            const morva::step_help::scope helped(threads < 0 ? &backwards : nullptr);
            node_list poured;
            const node_ref result(mergeGeo(root.get(), cells(20), setup, &poured));
            EXPECT_EQ(handler.releaseHeldLock(), 0U);
            describe(result.get(), text);
            handler.registerGeometryUsage(result.get());
            morva::osg::writeMapFile(folder.file("map"), handler);
            text << bytesOf(folder.file("map")) << (setup.cacheopt ? 0 : out.text().size());
            alone = threads == 1 ? text.str() : alone;
            ASSERT_TRUE(text.str() == alone) << threads << " threads";
            if (setup.optimizetc > 0)
                continue; // pieces of triangles
            ASSERT_EQ(firstDifference(expected, shapeOf(result.get())), "");
            for (const NodePtr& node : geometryNodes(result.get())) {
                const std::size_t size = morva::osg::counttriangles(coreOf(node));
                largest = std::max(largest, setup.cacheopt ? size : 0);
                EXPECT_TRUE(setup.cacheopt || !setup.alphageometry || setup.keeprenderfalse ||
                            size <= 20);
            }
            if (coreOf(root.get()) != ::osg::NullFC)
                continue; // another node stood for it
            const node_ref rest(group({root.get(), result.get()}));
            for (const NodePtr& node : poured)
                node->setCore(::osg::Group::create());
            EXPECT_EQ(firstDifference(before, shapeOf(rest.get())), "") << "once";
        }
    }
    EXPECT_GT(largest, 30U) << "several parts";
    handler.reset(); // which holds materials' names alone
}

} // namespace
