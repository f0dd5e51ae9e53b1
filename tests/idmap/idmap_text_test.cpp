#include <morva/idmap/morva_osg_idmaphandler.h>

#include "golden.h"

namespace {

class IdMapText : public testing::Test {
  protected:
    IdMapText() { handler.reset(); }
    ~IdMapText() override { handler.reset(); }

    /// What writeTree() appends for a tree.
    std::string treeText(const ::osg::NodePtr& node, unsigned depth = 0) {
        const std::size_t before = handler.tree.str().size();
        handler.writeTree(node, depth);
        return handler.tree.str().substr(before);
    }

    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
};

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

TEST_F(IdMapText, MetaDataIsJsonWithEscapedValuesAndKeysAsTheyAre) {
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

TEST_F(IdMapText, TreeNestsByChildren) {
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

TEST_F(IdMapText, RootTakesTheMapInSixAttachments) {
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
