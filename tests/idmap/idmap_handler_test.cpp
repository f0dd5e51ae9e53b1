// The record of where input went: IDs, names, the lock, and what is read off the output.

#include "tests/support/test.h"

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
        bool taken = false;
        inThreads(1, [&](unsigned) {
            if ((taken = handler.lock->request()))
                handler.lock->release();
        });
        return taken;
    }

    idmapHandler& handler = morva::osg::getIDmapHandler();
};

TEST_F(IdMapHandler, RecordsEachNameOnceAndOnlyAKnownOneKeepsTheLock) {
    const ::osg::MaterialRefPtr look(bareMaterial());
    EXPECT_EQ(insert("a", {0, 5, 0}, {1, 6, 1}, look.get()), 0);
    EXPECT_EQ(insert("b"), 1);
    EXPECT_EQ(insert("c", {0, 0, 0}, {0, 0, 0}, look.get()), 2);
    EXPECT_TRUE(othersMayLock());
    EXPECT_EQ(insert("a", {-2, 7, 0}, {3, 8, 0}), 0);
    EXPECT_FALSE(othersMayLock());
    EXPECT_EQ(handler.releaseHeldLock(), 1U);
    EXPECT_TRUE(handler.findNodeName("c") == 2 && handler.findNodeName("none") == -1);
    EXPECT_EQ(handler.mins[0], ::osg::Pnt3f(-2, 5, 0));
    EXPECT_EQ(handler.maxs[0], ::osg::Pnt3f(3, 8, 1));
    EXPECT_EQ(handler.appearanceNames[1] + handler.appearanceNames[2], "__App_1__App_0");
    handler.names.clear(); // a caller that empties the list itself starts from 0 as well
    EXPECT_EQ(insert("b"), 0);
    EXPECT_EQ(insert("b"), 0);
    handler.reset();
    EXPECT_TRUE(othersMayLock());
}

TEST_F(IdMapHandler, NamesOfResultsGoOnOverTheRunsOfAProcess) {
    handler.maxGeoCount = handler.mergedCount = 7;
    handler.prefix = "part";
    EXPECT_EQ(handler.getNextGeometryName(), "part_G_8");
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
    EXPECT_EQ(handler.getNextGeometryName(), "_G_9");

    // Names that wait are drawn in the order of asking, once, by whom no scope of none keeps.
    const node_ref root(group({group(), group(), group()}));
    morva::osg::late_names late;
    for (const ::osg::UInt32 i : {0U, 1U, 2U}) {
        const morva::osg::late_names::scope here(i < 2 ? &late : nullptr), nothing(nullptr);
        nameGeometry(root->getChild(i), &idmapHandler::getNextMergedGeometryName);
    }
    late.give();
    late.give();
    EXPECT_EQ(textOf(root.get()), "-(MG_8 MG_9 MG_7)");
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

TEST_F(IdMapHandler, UsageListsEveryOutputOncePerIdAndMovesIdsToTheFirstFreeSet) {
    using namespace morva::osg;
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = HUGE_VALF;
    const node_ref root(sceneOf("r(x y odd #z(below) full nameless .e none)"));
    root->getChild(5)->subAttachment(
        root->getChild(5)->findAttachment(::osg::Name::getClassType().getGroupId()));
    const std::vector<float> ids[] = {
        // what fits no integer names no part
        {0, 0, 1, 3.9F, 0}, {1, 1}, {nan, inf, -inf, 0x1p31F, 2, nan, -0.5F}, {3}, {4}, {0, 1}};
    const ::osg::UInt16 old_bit = ::osg::Geometry::MapTexCoords7;
    for (::osg::UInt32 taken = 0; taken < 6; ++taken) { // of so many sets in turn
        const ::osg::GeometryPtr core = coreOf(root->getChild(taken));
        core->setTexCoords7(propertyOf<::osg::GeoTexCoords1f>(ids[taken]));
        for (std::size_t unit = 0; unit < taken; ++unit)
            setProperty(core, textureUnit(unit), ::osg::GeoTexCoords2f::create());
        core->editMFIndexMapping()->resize(2, old_bit);
    }
    const ::osg::GeometryPtr below = coreOf(root->getChild(3)->getChild(0));
    below->setTexCoords7(coreOf(root->getChild(0))->getTexCoords7());
    handler.registerGeometryUsage(root.get());
    handler.registerGeometryUsage(::osg::NullFC);
    EXPECT_EQ(
        handler.usage,
        (std::map<int, std::set<std::string>>{
            {0, {"odd", "x"}}, {1, {"x", "y"}}, {2, {"odd"}}, {3, {"x", "z"}}, {4, {"full"}}}));
    EXPECT_EQ(handler.texCoordMapping,
              (std::map<std::string, std::string>{
                  {"x", "TC0"}, {"y", "TC1"}, {"odd", "TC2"}, {"z", "TC3"}}));
    for (::osg::UInt32 taken = 0; taken < 6; ++taken) {
        const ::osg::GeometryPtr core = coreOf(root->getChild(taken));
        const ::osg::UInt16 bit = taken < 4 ? mappingBit(textureUnit(taken)) : old_bit;
        EXPECT_EQ(core->getProperty(bit)->getSize(), ids[taken].size());
        EXPECT_EQ(core->getTexCoords7() == ::osg::NullFC, taken < 4);
        EXPECT_EQ(core->getIndexMapping(0), bit);
        EXPECT_EQ(core->getIndexMapping(1), old_bit) << "the first alone";
    }
}

} // namespace
