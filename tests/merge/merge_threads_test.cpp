// The merge pass on workers: the same result as on one thread, whatever the timing.

#include "merge_scenes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "../support/stream_capture.h"

namespace {

using namespace morva_test;
using morva::osg::mergeGeo;

template <typename Property> void describeRows(const Property& property, std::ostream& out) {
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < property->size(); ++i)
        out << property->getValue(i) << ";";
    out << "|";
}

/// A tree as text with all properties row by row, but for the names of nodes. IDs stand for the
/// source names that they lead to.
void describe(const ::osg::NodePtr& node, std::ostream& out) {
    const ::osg::GeometryPtr core = coreOf(node);
    out << "(";
    if (core != ::osg::NullFC) {
        const ::osg::MaterialPtr material = core->getMaterial();
        out << (material != ::osg::NullFC ? material.getFieldContainerId() : 0U) << "|";
        describeRows(core->getTypes(), out);
        describeRows(core->getLengths(), out);
        describeRows(core->getIndices(), out);
        describeRows(core->getPositions(), out);
        describeRows(core->getNormals(), out);
        describeRows(core->getColors(), out);
        describeRows(core->getTexCoords(), out);
        const std::vector<std::string>& names = morva::osg::getIDmapHandler().names;
        const ::osg::GeoTexCoordsPtr ids = core->getTexCoords7();
        for (::osg::UInt32 i = 0; ids != ::osg::NullFC && i < ids->size(); ++i)
            out << names.at(static_cast<std::size_t>(ids->getValue(i)[0])) << ";";
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        describe(node->getChild(i), out);
    out << ")";
}

std::string described(const ::osg::NodePtr& node) {
    std::ostringstream out;
    out.precision(9);
    describe(node, out);
    return out.str();
}

/// Parts of many materials, in all that workers could get in each other's way with: cores that
/// nodes of several groups share, parts below parts, coordinates of the same property with and
/// without an image, lines, glass, few names for many nodes.
struct crowded_scene {
    explicit crowded_scene(unsigned seed, int parts = 40, bool images_by_group = false)
        : root(group({})) {
        std::mt19937 rng(seed);
        for (int i = 0; i < 9; ++i)
            materials.emplace_back(plain(0.1F * static_cast<float>(i)));
        materials.emplace_back(chunked({1, 1, 1, 1}, imageOf(6407, 2, 2)));
        materials.emplace_back(chunked({0, 0, 1, 0.5F}));
        const ::osg::GeometryRefPtr shared(meshOf(rng));
        const ::osg::GeometryPtr with_coordinates = meshOf(rng);
        const ::osg::GeoTexCoordsPtr coordinates = with_coordinates->getTexCoords();
        ::osg::NodePtr above = root.get();
        for (int i = 0; i < parts; ++i) {
            const ::osg::MaterialPtr material = materials[rng() % 10].get();
            const bool by_group = i % 7 == 0;
            const ::osg::GeometryPtr core = by_group ? shared.get()
                                            : i == 1 ? with_coordinates
                                                     : meshOf(rng);
            if (!by_group) {
                core->setMaterial(material);
                if (i % 5 == 0)
                    core->setTexCoords(coordinates);
            }
            const ::osg::NodePtr node = named("part" + std::to_string(i % 4), nodeOf(core));
            const ::osg::MaterialPtr plain = materials[rng() % (images_by_group ? 10 : 9)].get();
            above->addChild(by_group ? materialGroup(plain, {node})
                                     : moved({1, float(i), 2}, {node}));
            above = i % 3 == 0 ? node : root.get(); // the next one below this one
        }
        root->addChild(moved({3, 2, 1}, {part(materials[10].get(), 0, 5, "pane")}));
        root->addChild(named("wire", meshNode(row(9, 3))));
    }
    static ::osg::GeometryPtr meshOf(std::mt19937& rng) {
        mesh_data mesh = withCoordinates(withNormals(soup(rng, 30), rng), rng);
        for (::osg::Vec2f& pair : mesh.coordinates)
            pair *= 3.0F; // beyond the limit: triangles are cut
        return geometryOf(mesh);
    }

    std::vector<::osg::MaterialRefPtr> materials;
    ::osg::NodeRefPtr root;
};

/// Material numbers by order of creation differ from scene to scene: counted from the first one.
std::string withoutNumbers(const crowded_scene& scene, std::string text) {
    for (std::size_t i = 0; i < scene.materials.size(); ++i) {
        const std::string number =
            "(" + std::to_string(scene.materials[i].get().getFieldContainerId()) + "|";
        const std::string name = "(m" + std::to_string(i) + "|";
        for (std::size_t at = text.find(number); at != std::string::npos;
             at = text.find(number, at + name.size()))
            text.replace(at, number.size(), name);
    }
    return text;
}

TEST(MergeThreads, TheResultIsThatOfOneThread) {
    struct setup_case {
        const char* name;
        bool cacheopt, ids, same_name, images_by_group;
        int opt;
    };
    for (const setup_case& c : {setup_case{"plain", false, false, false, false, 1},
                                {"unindexed", false, true, false, false, 0},
                                {"strips", false, false, true, false, 3},
                                {"cache order", true, true, false, false, 1},
                                {"cache order per property", true, false, true, false, 2},
                                {"the order of groups decides", false, true, true, true, 1}}) {
        SCOPED_TRACE(c.name);
        std::map<int, std::string> texts, prints;
        for (const int threads : {1, 2, 8}) {
            const unsigned int live = morva_test::liveContainers();
            morva::osg::getIDmapHandler().reset();
            {
                const stream_capture out(std::cout);
                const crowded_scene source(5202, 40, c.images_by_group);
                mergeGeo_setup setup = quiet();
                setup.numthreads = threads;
                setup.cacheopt = c.cacheopt;
                setup.idmap = c.ids ? "map" : "";
                setup.mergesamename = c.same_name;
                setup.opt = c.opt;
                const ::osg::NodeRefPtr result(mergeGeo(source.root.get(), cells(20), setup));
                texts[threads] = withoutNumbers(source, described(result.get()));
                prints[threads] = out.text();
            }
            morva::osg::getIDmapHandler().reset(); // which holds materials' names alone
            EXPECT_EQ(morva_test::liveContainers(), live);
        }
        EXPECT_GT(texts[1].size(), 10000U);
        EXPECT_TRUE(texts[1] == texts[2]) << "on 2 threads";
        EXPECT_TRUE(texts[1] == texts[8]) << "on 8 threads";
        if (!c.cacheopt) {
            EXPECT_EQ(prints[1], prints[8]);
        }
    }
}

/// Triangles of each source name by the IDs below a node.
std::map<std::string, std::size_t> trianglesByName(const ::osg::NodePtr& root) {
    std::map<std::string, std::size_t> counts;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        for (auto it = coreOf(node)->beginTriangles(); !it.isAtEnd(); ++it) {
            const auto id = static_cast<std::size_t>(it.getTexCoords7(0)[0]);
            ++counts[morva::osg::getIDmapHandler().names.at(id)];
        }
    }
    return counts;
}

TEST(MergeThreads, ManyRepeatedNamesNeitherBlockNorLoseAnId) {
    const stream_capture out(std::cout);
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    const crowded_scene source(5203, 24);
    mergeGeo_setup setup = quiet();
    setup.idmap = "map";
    setup.optimizetc = -1; // cutting adds triangles
    setup.alphageometry = true;
    std::map<std::string, std::size_t> expected;
    for (int run = 0; run <= 200; ++run) {
        setup.numthreads = run == 0 ? 1 : run % 2 == 0 ? 2 : 8;
        setup.cacheopt = run % 5 == 4;
        handler.reset();
        const ::osg::NodeRefPtr result(mergeGeo(source.root.get(), cells(20), setup));
        const std::map<std::string, std::size_t> counts = trianglesByName(result.get());
        if (run == 0)
            expected = counts;
        ASSERT_EQ(counts, expected) << "run " << run;
        handler.registerGeometryUsage(result.get());
        ASSERT_EQ(handler.usage.size(), handler.names.size());
        ASSERT_EQ(handler.releaseHeldLock(), 0U);
    }
    EXPECT_EQ(expected.size(), 5U);
    handler.reset();
}

TEST(MergeThreads, OptTreeTakesAnyNumberOfThreads) {
    std::string texts[6];
    const char* const values[6] = {"1", "8", "abc", "-4", "0", "99999999999999"};
    for (int i = 0; i < 6; ++i) {
        const stream_capture out(std::cout);
        const crowded_scene source(5204);
        const ::osg::NodeRefPtr result(morva::osg::optTree(
            source.root.get(),
            std::string("maxtris(10),cacheopt(1),numthreads(") + values[i] + ")"));
        texts[i] = withoutNumbers(source, described(result.get()));
    }
    for (const std::string& text : texts)
        EXPECT_TRUE(text == texts[0]);
}

/// Numbers of a tree's nodes, cores and positions.
void numbersIn(const ::osg::NodePtr& node, std::set<::osg::UInt32>& numbers) {
    numbers.insert(node.getFieldContainerId());
    numbers.insert(node->getCore().getFieldContainerId());
    const ::osg::GeometryPtr core = coreOf(node);
    if (core != ::osg::NullFC)
        numbers.insert(core->getPositions().getFieldContainerId());
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        numbersIn(node->getChild(i), numbers);
}

TEST(MergeThreads, TheCallersChangeListHasWhatWorkersMade) {
    ::osg::ChangeList::setReadWriteDefault(true); // for lists of workers
    ::osg::ChangeList* changes = ::osg::Thread::getCurrentChangeList();
    changes->setReadOnly(false);
    for (const int threads : {1, 2, 8}) {
        SCOPED_TRACE(threads);
        const stream_capture out(std::cout);
        const crowded_scene source(5205, 12);
        changes->clearAll();
        mergeGeo_setup setup = quiet();
        setup.numthreads = threads;
        setup.alphageometry = true; // all of the result is new
        const ::osg::NodeRefPtr result(mergeGeo(source.root.get(), cells(20), setup));
        std::set<::osg::UInt32> numbers, changed;
        numbersIn(result.get(), numbers);
        const std::set<::osg::UInt32> made(changes->beginCreated(), changes->endCreated());
        EXPECT_TRUE(std::includes(made.begin(), made.end(), numbers.begin(), numbers.end()));
        for (auto entry = changes->beginChanged(); entry != changes->endChanged(); ++entry)
            changed.insert(entry->first);
        for (const ::osg::NodePtr& node : geometryNodes(result.get()))
            EXPECT_EQ(changed.count(node->getCore().getFieldContainerId()), 1U);
    }
    changes->clearAll();
    changes->setReadOnly(true);
    ::osg::ChangeList::setReadWriteDefault(false);
}

} // namespace
