#include "golden.h"

namespace {

class IdMapHandler : public IdMap {
  protected:
    std::string treeText(const ::osg::NodePtr& node, unsigned depth = 0) {
        const std::size_t before = handler.tree.str().size();
        handler.writeTree(node, depth);
        return handler.tree.str().substr(before);
    }
    int insert(std::string name, ::osg::Pnt3f low = {0, 0, 0}, ::osg::Pnt3f high = {1, 1, 1},
               const ::osg::MaterialPtr& material = ::osg::NullFC) {
        return handler.insertNodeName(name, low, high, material, "");
    }
    bool othersMayLock() {
        bool taken = false;
        std::thread([&] {
            taken = handler.lock->request();
            if (taken)
                handler.lock->release();
        }).join();
        return taken;
    }
};

TEST_F(IdMapHandler, RecordsWhatALinearSearchWouldFind) {
    std::mt19937 rng(810);
    const ::osg::MaterialRefPtr materials[] = {
        ::osg::MaterialRefPtr(), ::osg::MaterialRefPtr(bareMaterial()),
        ::osg::MaterialRefPtr(bareMaterial())}; // none is one, too
    std::vector<std::string> names, appearances;
    std::vector<::osg::Pnt3f> mins, maxs;
    std::vector<std::size_t> seen; // materials, by the number of their appearance
    for (int i = 0; i < 500; ++i) {
        const std::string name = "part" + std::to_string(rng() % 101);
        const std::size_t material = rng() % 3;
        ::osg::Pnt3f low, high;
        for (unsigned axis = 0; axis < 3; ++axis) {
            low[axis] = static_cast<float>(rng() % 9);
            high[axis] = low[axis] + static_cast<float>(rng() % 9);
        }
        const auto at =
            static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
        if (at == names.size()) {
            const auto look = std::find(seen.begin(), seen.end(), material) - seen.begin();
            if (look == static_cast<std::ptrdiff_t>(seen.size()))
                seen.push_back(material);
            names.push_back(name);
            appearances.push_back("__App_" + std::to_string(look));
            mins.push_back(low);
            maxs.push_back(high);
        }
        for (unsigned axis = 0; axis < 3; ++axis) {
            mins[at][axis] = std::min(mins[at][axis], low[axis]);
            maxs[at][axis] = std::max(maxs[at][axis], high[axis]);
        }
        ASSERT_EQ(insert(name, low, high, materials[material].get()), static_cast<int>(at));
    }
    EXPECT_EQ(handler.names, names);
    EXPECT_EQ(handler.mins, mins);
    EXPECT_EQ(handler.maxs, maxs);
    EXPECT_EQ(handler.appearanceNames, appearances);
    EXPECT_EQ(handler.appearances.size(), 3U);
    handler.releaseHeldLock();

    // A caller that empties the list itself starts from 0 as well.
    handler.names.clear();
    EXPECT_EQ(insert("part3"), 0);
}

TEST_F(IdMapHandler, NamesOfResultsGoOnOverTheRunsOfAProcess) {
    const unsigned int given = handler.maxGeoCount;
    const unsigned int merged = handler.mergedCount;
    EXPECT_EQ(handler.getNextGeometryName(), "_G_" + std::to_string(given + 1));
    EXPECT_EQ(handler.getNextMergedGeometryName(), "MG_" + std::to_string(merged));
    handler.prefix = "part";
    EXPECT_EQ(handler.getNextGeometryName(), "part_G_" + std::to_string(given + 2));
    EXPECT_EQ(handler.getNextMergedGeometryName(), "MG_" + std::to_string(merged + 1));

    handler.merged = true;
    handler.tree << "first run";
    handler.tree.setstate(std::ios::failbit);
    insert("A");
    handler.usage[0].insert("MG_0");
    handler.texCoordMapping["MG_0"] = "TC0";
    handler.reset();
    EXPECT_TRUE(handler.names.empty() && handler.mins.empty() && handler.maxs.empty() &&
                handler.appearanceNames.empty() && handler.appearances.empty() &&
                handler.usage.empty() && handler.texCoordMapping.empty() &&
                handler.prefix.empty() && !handler.merged);
    EXPECT_TRUE(handler.tree.good());
    EXPECT_NE(handler.tree.str().find("first run"), std::string::npos);
    EXPECT_EQ(handler.getNextGeometryName(), "_G_" + std::to_string(given + 3));
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
    const auto work = [this](std::vector<int>& given) {
        for (int i = 0; i < 200; ++i) {
            given.push_back(insert("n" + std::to_string(i % 50)));
            if (i % 20 == 19)
                handler.releaseHeldLock();
        }
        handler.releaseHeldLock();
    };
    std::thread other([&] { work(ids[1]); });
    work(ids[0]);
    other.join();
    EXPECT_EQ(ids[0], ids[1]);
    ASSERT_EQ(handler.names.size(), 50U);
    for (std::size_t i = 0; i < 200; ++i)
        EXPECT_EQ(handler.names.at(static_cast<std::size_t>(ids[0][i])),
                  "n" + std::to_string(i % 50));
}

/// A geometry node, nameless for "", whose TexCoords7 hold the given values.
::osg::NodePtr nodeWithIds(const char* name, const std::vector<float>& ids) {
    mesh_data mesh;
    mesh.ids = ids;
    return *name == '\0' ? meshNode(mesh) : named(name, meshNode(mesh));
}

TEST_F(IdMapHandler, UsageListsEveryOutputOncePerId) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const ::osg::NodePtr inner = nodeWithIds("z", {3});
    inner->addChild(nodeWithIds("below a geometry", {0}));
    const node_ref root(group({nodeWithIds("x", {0, 0, 1, 3.9F, 0}), nodeWithIds("y", {1, 1}),
                               nodeWithIds("", {0, 1}), inner, ::osg::Node::create(),
                               named("no ids", meshNode(quads(1))),
                               // What fits no integer names no part.
                               nodeWithIds("odd", {nan, inf, -inf, 3e9F, 2, nan, -0.5F})}));
    handler.registerGeometryUsage(root.get());
    handler.registerGeometryUsage(::osg::NullFC);
    using names = std::set<std::string>;
    EXPECT_EQ(
        handler.usage,
        (std::map<int, names>{{0, {"odd", "x"}}, {1, {"x", "y"}}, {2, {"odd"}}, {3, {"x", "z"}}}));
    EXPECT_EQ(handler.texCoordMapping,
              (std::map<std::string, std::string>{
                  {"odd", "TC0"}, {"x", "TC0"}, {"y", "TC0"}, {"z", "TC0"}}));
}

TEST_F(IdMapHandler, IdsMoveToTheFirstFreeCoordinateSet) {
    using geometry = ::osg::Geometry;
    const ::osg::UInt16 ids_bit = geometry::MapTexCoords7;
    for (unsigned int taken = 0; taken <= 4; ++taken) { // sets 0 to taken - 1 are in use
        SCOPED_TRACE(taken);
        handler.reset();
        const node_ref node(nodeWithIds("x", {4}));
        const ::osg::GeometryPtr core = coreOf(node.get());
        const ::osg::GeoTexCoordsPtr ids = core->getTexCoords7();
        const ::osg::RefPtr<::osg::GeoTexCoordsPtr> made(::osg::GeoTexCoords2f::create());
        const ::osg::GeoTexCoordsPtr used = made.get();
        const ::osg::GeoTexCoordsPtr none;
        core->setTexCoords(taken > 0 ? used : none);
        core->setTexCoords1(taken > 1 ? used : none);
        core->setTexCoords2(taken > 2 ? used : none);
        core->setTexCoords3(taken > 3 ? used : none);
        ::osg::MFUInt16& mapping = *core->editMFIndexMapping();
        mapping.resize(3, ids_bit);
        mapping[0] = geometry::MapPosition;

        handler.registerGeometryUsage(node.get());
        EXPECT_EQ(handler.usage.count(4), 1U);
        const ::osg::GeoTexCoordsPtr sets[] = {core->getTexCoords(), core->getTexCoords1(),
                                               core->getTexCoords2(), core->getTexCoords3(),
                                               core->getTexCoords7()}; // where they stay at last
        const ::osg::UInt16 bits[] = {geometry::MapTexCoords, geometry::MapTexCoords1,
                                      geometry::MapTexCoords2, geometry::MapTexCoords3, ids_bit};
        EXPECT_EQ(handler.texCoordMapping.count("x"), taken < 4 ? 1U : 0U);
        EXPECT_EQ(handler.texCoordMapping["x"], taken < 4 ? "TC" + std::to_string(taken) : "");
        EXPECT_EQ(sets[taken], ids);
        EXPECT_EQ(sets[4] == ::osg::NullFC, taken < 4);
        EXPECT_EQ(mapping[1], bits[taken]);
        EXPECT_EQ(mapping[2], ids_bit) << "the first alone";
    }
}

// ---- texts

void attribute(const ::osg::AttachmentContainerPtr& container, const char* key, const char* value) {
    ::osg::StringAttributeMapPtr map = ::osg::StringAttributeMapPtr::dcast(
        container->findAttachment(::osg::StringAttributeMap::getClassType()));
    if (map == ::osg::NullFC) {
        map = ::osg::StringAttributeMap::create();
        container->addAttachment(map);
    }
    if (key != nullptr)
        map->setAttribute(key, value);
}

TEST_F(IdMapHandler, MetaDataIsJsonWithEscapedValuesAndKeysAsTheyAre) {
    const node_ref node(group());
    EXPECT_EQ(handler.getMetaData(::osg::NullFC, ""), "");
    EXPECT_EQ(handler.getMetaData(node.get(), "\t"), "");
    attribute(node->getCore(), "from", "core");
    EXPECT_EQ(handler.getMetaData(node.get(), ""), "\n\"from\":\"core\"");
    attribute(node.get(), nullptr, nullptr); // a map without keys hides the core's
    EXPECT_EQ(handler.getMetaData(node.get(), ""), "");
    attribute(node.get(), "path", "C:\\a \"b\"");
    attribute(node.get(), "a\"key", "\\\"");
    EXPECT_EQ(handler.getMetaData(node.get(), "\t"),
              "\n\t\"path\":\"C:\\\\a \\\"b\\\"\",\n\t\"a\"key\":\"\\\\\\\"\"");
}

TEST_F(IdMapHandler, TreeNestsByChildren) {
    const ::osg::NodePtr unseen = hidden(moved({0, 0, 0}, {}));
    ::osg::setName(unseen->getCore(), "from core");
    const node_ref root(named("root", group({unseen, ::osg::Node::create()})));
    attribute(root.get(), "k", "v");
    EXPECT_EQ(treeText(root.get()), golden("tree.txt"));
    EXPECT_EQ(treeText(::osg::NullFC), "");
    const node_ref alone(group());
    EXPECT_EQ(treeText(alone.get(), 2), "\t\t\"name\":\"none\",\n\t\t\"type\":\"Group\",\n"
                                        "\t\t\"render\":\"true\",\n\t\t\"meta\": {}\n");
}

/// The attributes that the root holds under a binding.
std::map<std::string, std::string> bound(const ::osg::NodePtr& root, ::osg::UInt16 binding) {
    const ::osg::StringAttributeMapPtr map = ::osg::StringAttributeMapPtr::dcast(
        root->findAttachment(::osg::StringAttributeMap::getClassType(), binding));
    std::map<std::string, std::string> result;
    if (map == ::osg::NullFC)
        return {{"no", "map"}};
    for (::osg::UInt32 i = 0; i < map->getKeys().size(); ++i) {
        result[map->getKeys()[i]] = map->getAttribute(map->getKeys()[i]);
    }
    return result;
}

TEST_F(IdMapHandler, RootTakesTheMapInSixAttachments) {
    const ::osg::MaterialRefPtr plain(bareMaterial()); // without a colour
    const ::osg::MaterialRefPtr glass(chunked({0.5F, 0.1F, 1.0F, 0.25F}));
    const auto insert = [this](std::string name, const ::osg::MaterialPtr& material) {
        ::osg::Pnt3f low(-1.5F, 0.1F, 1e7F), high(2.0F, 1.0F / 3.0F, 1e7F);
        handler.insertNodeName(name, low, high, material, "");
    };
    insert("hull", glass.get());
    insert("deck", plain.get());
    insert("mast", glass.get());
    insert("crew", ::osg::MaterialRefPtr(chunked({1, 1, 1, 1})).get()); // gone by now
    insert("flag", glass.get());
    handler.usage[0] = {"MG_2", "MG_10"};
    handler.usage[2] = {"MG_2"};
    handler.usage[-1] = {"MG_4"}; // IDs that came with the model name nothing
    handler.usage[5] = {"MG_4"};
    handler.texCoordMapping["MG_2"] = "TC1";
    handler.appearanceNames.pop_back(); // an ID past their end has no colour

    const node_ref root(group());
    morva::osg::addIDmapInfo(root.get());
    using texts = std::map<std::string, std::string>;
    EXPECT_EQ(bound(root.get(), 1), (texts{{"MG_2", "TC1"}}));
    EXPECT_EQ(bound(root.get(), 2),
              (texts{{"0", "hull"}, {"1", "deck"}, {"2", "mast"}, {"3", "crew"}, {"4", "flag"}}));
    EXPECT_EQ(bound(root.get(), 3).at("0"), "-1.5 0.1 1e+07");
    EXPECT_EQ(bound(root.get(), 4).at("2"), "2 0.333333 1e+07");
    EXPECT_EQ(bound(root.get(), 5), (texts{{"0", "0.5 0.1 1 0.25"},
                                           {"1", "0 0 0 0"},
                                           {"2", "0.5 0.1 1 0.25"},
                                           {"3", "0 0 0 0"},
                                           {"4", "0 0 0 0"}}));
    EXPECT_EQ(bound(root.get(), 6), (texts{{"hull", "MG_10,MG_2"}, {"mast", "MG_2"}}));
    EXPECT_EQ(bound(root.get(), 0), (texts{{"no", "map"}}));
    morva::osg::addIDmapInfo(::osg::NullFC);
}

} // namespace
