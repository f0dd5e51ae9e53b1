// The ID map as text, byte for byte: its file and the attachments of a root. What is expected
// stands in the folder golden beside this.

#include "tests/support/test.h"

#include <locale>

#include <boost/filesystem.hpp>

#include <morva/idmap/morva_filetools.h>
#include <morva/idmap/morva_osg_idmap_file.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using ::osg::Color4f;

class IdMapTexts : public testing::Test {
  protected:
    IdMapTexts() {
        handler.reset();
        handler.tree.str("");
    }
    ~IdMapTexts() override { handler.reset(); }

    std::string path(const char* name) const { return folder.file(name); }
    static std::string golden(const char* name) {
        return bytesOf(std::string(MORVA_GOLDEN_FOLDER "/") + name);
    }

    temporary_folder folder;
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
};

/// Gives a material without chunks the colours of both sides.
void paint(const ::osg::ChunkMaterialPtr& material, const Color4f (&front)[4], float shininess,
           const Color4f& back_diffuse = {1, 1, 1, 0}) {
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(front[0]);
    chunk->setAmbient(front[1]);
    chunk->setSpecular(front[2]);
    chunk->setEmission(front[3]);
    chunk->setShininess(shininess);
    chunk->setBackDiffuse(back_diffuse);
    chunk->setBackAmbient(Color4f(0, 0.25F, 0, 1));
    chunk->setBackSpecular(Color4f(0.5F, 0, 0, 1));
    chunk->setBackEmission(Color4f(0, 0, 1e-5F, 1));
    chunk->setBackShininess(12.8F);
    material->addChunk(chunk);
}

::osg::StringAttributeMapPtr attributesOf(const ::osg::AttachmentContainerPtr& container,
                                          ::osg::UInt16 binding = 0) {
    return ::osg::StringAttributeMapPtr::dcast(
        container->findAttachment(::osg::StringAttributeMap::getClassType(), binding));
}
/// Adds to the attributes of a container, which has some from then on.
void attribute(const ::osg::AttachmentContainerPtr& container, const char* key, const char* value) {
    if (attributesOf(container) == ::osg::NullFC)
        container->addAttachment(::osg::StringAttributeMap::create());
    attributesOf(container)->setAttribute(key, value);
}

TEST_F(IdMapTexts, HoldTheWholeRecord) {
    // Bare materials under the names __App_8, __App_9, __App_10, ..., against the map's order.
    std::vector<::osg::ChunkMaterialRefPtr> made(5), looks(5);
    for (auto& material : made)
        handler.appearances[(material = bareMaterial()).get()];
    std::size_t number = made.size();
    for (auto& [material, name] : handler.appearances) {
        name = "__App_" + std::to_string(8 + --number);
        looks[number] = ::osg::ChunkMaterialPtr::dcast(material);
    }
    made.clear();
    looks.pop_back(); // gone: it tells nothing any more
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Color4f black(0, 0, 0, 1);
    paint(looks[0].get(),
          {{.5F, .5F, .5F, 1}, {.1F, .1F, .1F, 1}, {1 / 3.0F, 1e7F, 0, 1}, {0, 0, .1F, 1}}, 64);
    paint(looks[1].get(), // red is too dark for the ratio
          {{0, .5F, 0, .75F}, {.3F, .25F, 0, 1}, black, black}, 10, {1, 1, 1, 1});
    paint(looks[2].get(), // just above 0.001 in double precision
          {{.001F, .001F, 0, 1}, {.5F, .25F, 0, 1}, black, black}, 0, {1, nan, 1, 0});
    paint(looks[3].get(), {{0, 0, .5F, 1}, {1, 1, .25F, 1}, black, black}, 0);
    // Without chunks: a colour of its own, none, and a choice of none.
    const ::osg::SimpleMaterialRefPtr plain(simple({.5F, .25F, 1}));
    const ::osg::SwitchMaterialRefPtr none(choiceOf(::osg::UInt32(-1), {plain.get()}));
    handler.appearances[plain.get()] = "__App_13";
    handler.appearances[::osg::NullFC] = "__App_14";
    handler.appearances[none.get()] = "__App_15";
    handler.names = {"door", "cut away", "a \"quoted\" \\ name\t", "bare", "late"};
    handler.mins = {{-1.5F, 1.0F / 3.0F, 0}, {}, {}, {}};
    handler.maxs = {{1e7F, 2, 3000}, {}, {}}; // records of a caller's own may be short
    handler.appearanceNames = {"__App_9", "__App_12", "__App_13"};
    handler.usage[0] = {"MG_10", "MG_2", "MG_0"};
    handler.usage[2];
    handler.usage[3] = {"MG_1"};
    handler.usage[-1] = handler.usage[5] = {"of no ID"}; // counted, without a block
    handler.texCoordMapping["MG_2"] = "TC1";
    handler.maxGeoCount = 12345;

    const ::osg::NodePtr child = hidden(moved({0, 0, 0}, {})), bare = group();
    ::osg::setName(child->getCore(), "from core");
    attribute(child->getCore(), "a\"key", "C:\\a \"b\"");
    attribute(bare->getCore(), "hidden by", "the node's own map");
    bare->addAttachment(::osg::StringAttributeMap::create());
    const node_ref root(named("root", group({child, ::osg::Node::create(), bare})));
    attribute(root.get(), "k", "v");
    attribute(root.get(), "path", "\\\"");
    handler.writeTree(root.get(), 0);
    handler.writeTree(bare, 2);
    handler.writeTree(::osg::NullFC, 1);

    // Neither what stands there nor the format of the process' streams has a say.
    std::ofstream(path("map.json")) << std::string(9999, 'x');
    struct grouped : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new grouped));
    {
        const stream_capture out(std::cout);
        EXPECT_TRUE(morva::writeJsonFile(path("map.json"), handler, ::osg::NullFC));
        EXPECT_EQ(out.text(), "False SwitchMatChoice\nFalse SwitchMatChoice\n"); // for both sides
    }
    morva::osg::addIDmapInfo(root.get());
    morva::osg::addIDmapInfo(::osg::NullFC);
    std::locale::global(before);
    EXPECT_EQ(bytesOf(path("map.json")), golden("every_case.json"));

    std::ostringstream attached;
    for (::osg::UInt16 binding = 1; binding <= 6; ++binding)
        for (const std::string& key : attributesOf(root.get(), binding)->getKeys())
            attached << binding << " " << key << " = "
                     << attributesOf(root.get(), binding)->getAttribute(key) << "\n";
    EXPECT_EQ(attached.str(), golden("attachments.txt"));
}

TEST_F(IdMapTexts, AnEmptyMapGivesNoFileAndNoWordAndWhatFailsLaterIsKnown) {
    using morva::map_file;
    // 4: nothing but room, 5: but all of the tree, 6: but the folder
    for (int missing = 0; missing < 7; ++missing) {
        SCOPED_TRACE(missing);
        morva::JsonFileContent content;
        content.names.resize(missing != 0);
        content.mins.resize(missing != 1);
        content.maxs.resize(missing != 2);
        if (missing != 3)
            content.usage[0] = {"b"};
        content.tree.setstate(missing == 5 ? std::ios::badbit : std::ios::goodbit);
        const std::string file =
            missing == 4 ? "/dev/full" : path(missing == 6 ? "none/m.json" : "m.json");
        const stream_capture out(std::cout);
        EXPECT_EQ(morva::osg::writeMapFile(file, content), missing < 4    ? map_file::none
                                                           : missing == 6 ? map_file::not_opened
                                                                          : map_file::cut_short);
        EXPECT_EQ(morva::writeJsonFile(file, content, ::osg::NullFC), missing / 2 == 2);
        EXPECT_EQ(fs::exists(path("m.json")), missing >= 5);
        EXPECT_EQ(out.text().find("Unable to open " + file + ". No IDmap/Json File created.\n"),
                  missing == 6 ? 0 : std::string::npos);
    }
}

TEST_F(IdMapTexts, CreateDirMakesOneLevel) {
    std::string one = path("one"), file = path("file");
    morva::createDir(one.data());
    EXPECT_TRUE(fs::is_directory(one));
    std::ofstream(file) << "x";
    for (char* stays : {one.data(), file.data(), static_cast<char*>(nullptr)})
        morva::createDir(stays);
    EXPECT_TRUE(fs::is_regular_file(file));
    for (std::string wrong : {path("none/two"), std::string(), file + "/x"})
        EXPECT_THROW(morva::createDir(wrong.data()), boost::filesystem::filesystem_error) << wrong;
}

} // namespace
