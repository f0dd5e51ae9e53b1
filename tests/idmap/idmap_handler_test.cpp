// The record of where input went: IDs, names, the lock, and what is read off the output.

#include "tests/support/test.h"

#include <future>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/idmap/morva_osg_late_names.h>

namespace {

using morva::osg::idmapHandler;

/// Each test starts with an empty handler, and leaves one and a free lock behind.
class IdMapHandler : public testing::Test {
  protected:
    IdMapHandler() { handler.reset(); }
    ~IdMapHandler() override { handler.reset(); }

    int insert(std::string name, ::osg::Pnt3f low = {0, 0, 0}, ::osg::Pnt3f high = {1, 1, 1},
               const ::osg::MaterialPtr& material = ::osg::NullFC) {
        return handler.insertNodeName(name, low, high, material, "");
    }
    bool othersMayLock() {
        return std::async(std::launch::async,
                          [&] {
                              const bool taken = handler.lock->request();
                              if (taken)
                                  handler.lock->release();
                              return taken;
                          })
            .get();
    }

    idmapHandler& handler = morva::osg::getIDmapHandler();
};

TEST_F(IdMapHandler, RecordsWhatALinearSearchWouldFind) {
    std::mt19937 rng(seedOf(810));
    const ::osg::MaterialRefPtr made[] = {::osg::MaterialRefPtr(bareMaterial()),
                                          ::osg::MaterialRefPtr(bareMaterial())};
    const ::osg::MaterialPtr materials[] = {::osg::NullFC, made[0].get(), made[1].get()};
    morva::JsonFileContent twin;
    std::vector<std::size_t> seen; // materials, by the number of their appearance
    const auto placeIn = [](auto& list, const auto& value) {
        return std::size_t(std::find(list.begin(), list.end(), value) - list.begin());
    };
    for (int i = 0; i < roundsOf(500); ++i) {
        const std::string name = "part" + std::to_string(rng() % 101);
        const std::size_t material = rng() % 3, at = placeIn(twin.names, name);
        const ::osg::Pnt3f low{float(rng() % 9), float(rng() % 9), float(rng() % 9)},
            high = low + ::osg::Vec3f{float(rng() % 9), float(rng() % 9), float(rng() % 9)};
        if (at == twin.names.size()) {
            const std::size_t look = placeIn(seen, material);
            if (look == seen.size())
                seen.push_back(material);
            twin.names.push_back(name);
            twin.appearanceNames.push_back("__App_" + std::to_string(look));
            twin.mins.push_back(low);
            twin.maxs.push_back(high);
        }
        for (unsigned axis = 0; axis < 3; ++axis) {
            twin.mins[at][axis] = std::min(twin.mins[at][axis], low[axis]);
            twin.maxs[at][axis] = std::max(twin.maxs[at][axis], high[axis]);
        }
        ASSERT_EQ(insert(name, low, high, materials[material]), int(at));
        EXPECT_EQ(handler.findNodeName("none" + name), -1);
    }
    EXPECT_EQ(handler.names, twin.names);
    EXPECT_EQ(handler.mins, twin.mins);
    EXPECT_EQ(handler.maxs, twin.maxs);
    EXPECT_EQ(handler.appearanceNames, twin.appearanceNames);
    handler.names.clear(); // a caller that empties the list itself starts from 0 as well
    EXPECT_EQ(insert("part3"), 0);
}

TEST_F(IdMapHandler, NamesOfResultsGoOnOverTheRunsOfAProcess) {
    const unsigned int given = handler.maxGeoCount, merged = handler.mergedCount;
    handler.prefix = "part";
    EXPECT_EQ(handler.getNextGeometryName(), "part_G_" + std::to_string(given + 1));
    handler.merged = true;
    handler.tree << "first run";
    handler.tree.setstate(std::ios::failbit);
    insert("A");
    handler.usage[0].insert("MG_0");
    handler.texCoordMapping["MG_0"] = "TC0";
    handler.reset();
    EXPECT_TRUE(handler.names.empty() && handler.mins.empty() && handler.maxs.empty() &&
                handler.appearanceNames.empty() && handler.appearances.empty() &&
                handler.usage.empty() && handler.texCoordMapping.empty() && !handler.merged);
    EXPECT_TRUE(handler.tree.good());
    EXPECT_NE(handler.tree.str().find("first run"), std::string::npos);
    EXPECT_EQ(handler.getNextGeometryName(), "_G_" + std::to_string(given + 2));

    // Names that wait are drawn in the order of asking, once, by whom no scope of none keeps.
    const node_ref nodes[] = {node_ref(group()), node_ref(group()), node_ref(group())};
    morva::osg::late_names late;
    {
        const morva::osg::late_names::scope here(&late), nothing(nullptr);
        nameGeometry(nodes[0].get(), &idmapHandler::getNextMergedGeometryName);
        nameGeometry(nodes[1].get(), &idmapHandler::getNextMergedGeometryName);
    }
    nameGeometry(nodes[2].get(), &idmapHandler::getNextMergedGeometryName);
    late.give();
    late.give();
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(::osg::getName(nodes[i]), "MG_" + std::to_string(merged + (i + 1) % 3));
}

TEST_F(IdMapHandler, OnlyAKnownNameKeepsTheLock) {
    insert("A");
    EXPECT_TRUE(othersMayLock());
    insert("A");
    insert("B");
    EXPECT_FALSE(othersMayLock());
    insert("A");
    EXPECT_EQ(handler.releaseHeldLock(), 2U);
    EXPECT_EQ(handler.releaseHeldLock(), 0U);
    EXPECT_TRUE(othersMayLock());
    insert("A");
    handler.reset();
    EXPECT_TRUE(othersMayLock());
}

TEST_F(IdMapHandler, ThreadsThatInsertTheSameNamesAgreeOnTheIds) {
    std::vector<int> ids[2];
    inThreads(2, [&](unsigned number) {
        for (int i = 0; i < 200; ++i) {
            ids[number].push_back(insert("n" + std::to_string(i % 50)));
            if (i % 20 == 19)
                handler.releaseHeldLock();
        }
    });
    EXPECT_EQ(ids[0], ids[1]);
    ASSERT_EQ(handler.names.size(), 50U);
    for (std::size_t i = 0; i < 200; ++i)
        EXPECT_EQ(handler.names.at(std::size_t(ids[0][i])), "n" + std::to_string(i % 50));
}

/// A geometry node, nameless for "", whose TexCoords7 hold the given values.
::osg::NodePtr nodeWithIds(const std::string& name, const std::vector<float>& ids) {
    mesh_data mesh;
    mesh.ids = ids;
    return name.empty() ? meshNode(mesh) : named(name, meshNode(mesh));
}

TEST_F(IdMapHandler, UsageListsEveryOutputOncePerIdAndMovesIdsToTheFirstFreeSet) {
    using namespace morva::osg;
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = HUGE_VALF;
    const ::osg::NodePtr inner = nodeWithIds("z", {3});
    inner->addChild(nodeWithIds("below a geometry", {0}));
    const node_ref root(group({nodeWithIds("x", {0, 0, 1, 3.9F, 0}), nodeWithIds("y", {1, 1}),
                               // What fits no integer names no part.
                               nodeWithIds("odd", {nan, inf, -inf, 0x1p31F, 2, nan, -0.5F}), inner,
                               nodeWithIds("full", {4}), nodeWithIds("", {0, 1}),
                               ::osg::Node::create(), named("no ids", meshNode(quads(1)))}));
    ::osg::GeoTexCoordsPtr ids[5];
    const ::osg::UInt16 old_bit = ::osg::Geometry::MapTexCoords7;
    for (::osg::UInt32 taken = 0; taken < 5; ++taken) { // of so many sets in turn
        const ::osg::GeometryPtr core = coreOf(root->getChild(taken));
        ids[taken] = core->getTexCoords7();
        for (std::size_t unit = 0; unit < taken; ++unit)
            setProperty(core, textureUnit(unit), ::osg::GeoTexCoords2f::create());
        core->editMFIndexMapping()->resize(2, old_bit);
    }
    handler.registerGeometryUsage(root.get());
    handler.registerGeometryUsage(::osg::NullFC);
    using texts = std::map<std::string, std::string>;
    EXPECT_EQ(
        handler.usage,
        (std::map<int, std::set<std::string>>{
            {0, {"odd", "x"}}, {1, {"x", "y"}}, {2, {"odd"}}, {3, {"x", "z"}}, {4, {"full"}}}));
    EXPECT_EQ(handler.texCoordMapping,
              (texts{{"x", "TC0"}, {"y", "TC1"}, {"odd", "TC2"}, {"z", "TC3"}}));
    for (::osg::UInt32 taken = 0; taken < 5; ++taken) {
        const ::osg::GeometryPtr core = coreOf(root->getChild(taken));
        const ::osg::UInt16 bit = taken < 4 ? mappingBit(textureUnit(taken)) : old_bit;
        EXPECT_EQ(core->getProperty(bit), &*ids[taken]);
        EXPECT_EQ(core->getTexCoords7() == ::osg::NullFC, taken < 4);
        EXPECT_EQ(core->getIndexMapping(0), bit);
        EXPECT_EQ(core->getIndexMapping(1), old_bit) << "the first alone";
    }
}

} // namespace
