#include <gtest/gtest.h>

#include <map>
#include <string>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGTransform.h>

#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::getIDmapHandler;
using morva::osg::idmapHandler;

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

    idmapHandler& handler = getIDmapHandler();
};

template <typename Core>::osg::NodePtr nodeOf(const char* name) {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(Core::create());
    if (name != nullptr)
        ::osg::setName(node, name);
    return node;
}

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
    const ::osg::NodeRefPtr node(nodeOf<::osg::Group>("n"));
    EXPECT_EQ(handler.getMetaData(node.get(), "\t"), "");
    attribute(node.get(), "path", "C:\\a \"b\"");
    attribute(node.get(), "a\"key", "\\\"");
    EXPECT_EQ(handler.getMetaData(node.get(), "\t"),
              "\n\t\"path\":\"C:\\\\a \\\"b\\\"\",\n\t\"a\"key\":\"\\\\\\\"\"");
    EXPECT_EQ(handler.getMetaData(::osg::NullFC, ""), "");
}

TEST_F(IdMapText, MetaDataOfTheCoreCountsOnlyIfTheNodeHasNone) {
    const ::osg::NodeRefPtr node(nodeOf<::osg::Group>("n"));
    attribute(node->getCore(), "from", "core");
    EXPECT_EQ(handler.getMetaData(node.get(), ""), "\n\"from\":\"core\"");
    attribute(node.get(), nullptr, nullptr); // a map without keys hides the core's
    EXPECT_EQ(handler.getMetaData(node.get(), ""), "");
}

TEST_F(IdMapText, TreeNestsByChildren) {
    const ::osg::NodeRefPtr root(nodeOf<::osg::Group>("root"));
    const ::osg::NodePtr hidden = nodeOf<::osg::Transform>(nullptr);
    ::osg::setName(hidden->getCore(), "from core");
    hidden->setTravMask(0);
    root->addChild(hidden);
    root->addChild(nodeOf<::osg::Group>(nullptr));
    attribute(root.get(), "k", "v");
    const std::string expected = R"("name":"root",
"type":"Group",
"render":"true",
"meta": {
"k":"v"},
"children":[
{
	"name":"from core",
	"type":"Transform",
	"render":"false",
	"meta": {}
},
{
	"name":"none",
	"type":"Group",
	"render":"true",
	"meta": {}
}]
)";
    EXPECT_EQ(treeText(root.get()), expected);
    EXPECT_EQ(treeText(::osg::NullFC), "");
}

TEST_F(IdMapText, TreeOfANodeWithoutCoreIsWritten) {
    const ::osg::NodeRefPtr bare(::osg::Node::create());
    EXPECT_EQ(treeText(bare.get(), 1),
              "\t\"name\":\"none\",\n\t\"type\":\"none\",\n\t\"render\":\"true\",\n"
              "\t\"meta\": {}\n");
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
    const ::osg::ChunkMaterialRefPtr plain(::osg::ChunkMaterial::create()); // without a colour
    const ::osg::ChunkMaterialRefPtr glass(::osg::ChunkMaterial::create());
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(::osg::Color4f(0.5F, 0.1F, 1.0F, 0.25F));
    glass->addChunk(chunk);
    std::string hull = "hull", deck = "deck", mast = "mast";
    ::osg::Pnt3f low(-1.5F, 0.1F, 1e7F), high(2.0F, 1.0F / 3.0F, 1e7F);
    handler.insertNodeName(hull, low, high, glass.get(), "");
    handler.insertNodeName(deck, low, high, plain.get(), "");
    handler.insertNodeName(mast, low, high, glass.get(), "");
    handler.usage[0] = {"MG_2", "MG_10"};
    handler.usage[2] = {"MG_2"};
    handler.usage[-1] = {"MG_4"}; // IDs that came with the model name nothing
    handler.usage[3] = {"MG_4"};
    handler.texCoordMapping["MG_2"] = "TC1";
    handler.appearanceNames.pop_back(); // an ID past their end has no colour

    const ::osg::NodeRefPtr root(nodeOf<::osg::Group>("root"));
    morva::osg::addIDmapInfo(root.get());
    using texts = std::map<std::string, std::string>;
    EXPECT_EQ(bound(root.get(), 1), (texts{{"MG_2", "TC1"}}));
    EXPECT_EQ(bound(root.get(), 2), (texts{{"0", "hull"}, {"1", "deck"}, {"2", "mast"}}));
    EXPECT_EQ(bound(root.get(), 3).at("0"), "-1.5 0.1 1e+07");
    EXPECT_EQ(bound(root.get(), 4).at("2"), "2 0.333333 1e+07");
    EXPECT_EQ(bound(root.get(), 5),
              (texts{{"0", "0.5 0.1 1 0.25"}, {"1", "0 0 0 0"}, {"2", "0 0 0 0"}}));
    EXPECT_EQ(bound(root.get(), 6), (texts{{"hull", "MG_10,MG_2"}, {"mast", "MG_2"}}));
    EXPECT_EQ(bound(root.get(), 0), (texts{{"no", "map"}}));
    morva::osg::addIDmapInfo(::osg::NullFC);
}

} // namespace
