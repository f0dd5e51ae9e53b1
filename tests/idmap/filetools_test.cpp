// The ID map file, byte for byte, and the helpers beside it.

#include <locale>

#include <boost/filesystem.hpp>

#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_filetools.h>
#include <morva/idmap/morva_osg_idmap_file.h>

#include "golden.h"
#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using ::osg::Color4f;

/// A folder of its own, and no recorded trees.
class FileTools : public IdMap {
  protected:
    FileTools() { handler.tree.str(""); }
    std::string path(const char* name) const { return folder.file(name); }

    temporary_folder folder;
};

struct look {
    Color4f diffuse, ambient, specular, emission;
    float shininess;
    Color4f back_diffuse{1, 1, 1, 0};
};

/// Gives a material without chunks the colours of both sides.
void paint(const ::osg::ChunkMaterialPtr& material, const look& wanted) {
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(wanted.diffuse);
    chunk->setAmbient(wanted.ambient);
    chunk->setSpecular(wanted.specular);
    chunk->setEmission(wanted.emission);
    chunk->setShininess(wanted.shininess);
    chunk->setBackDiffuse(wanted.back_diffuse);
    chunk->setBackAmbient(Color4f(0, 0.25F, 0, 1));
    chunk->setBackSpecular(Color4f(0.5F, 0, 0, 1));
    chunk->setBackEmission(Color4f(0, 0, 1e-5F, 1));
    chunk->setBackShininess(12.8F);
    material->addChunk(chunk);
}

/// `count` bare materials under the names __App_8, __App_9, __App_10, ..., against the order of the
/// map.
std::vector<::osg::ChunkMaterialRefPtr> appearancesIn(morva::JsonFileContent& content,
                                                      std::size_t count) {
    std::vector<::osg::ChunkMaterialRefPtr> made(count), ordered(count);
    for (auto& material : made)
        content.appearances[(material = bareMaterial()).get()];
    for (auto& [material, name] : content.appearances) {
        name = "__App_" + std::to_string(8 + --count);
        ordered[count] = ::osg::ChunkMaterialPtr::dcast(material);
    }
    return ordered;
}

TEST_F(FileTools, TheWholeLayout) {
    morva::JsonFileContent content;
    auto materials = appearancesIn(content, 4);
    materials.pop_back(); // gone: it tells nothing any more
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Color4f black(0, 0, 0, 1);
    paint(materials[0].get(), {{0.5F, 0.5F, 0.5F, 1},
                               {0.1F, 0.1F, 0.1F, 1},
                               {1.0F / 3.0F, 1e7F, 0, 1},
                               {0, 0, 0.1F, 1},
                               64});
    paint(materials[1].get(), {{0, 0.5F, 0, 0.75F}, // red is too dark for the ratio
                               {0.3F, 0.25F, 0, 1},
                               black,
                               black,
                               10,
                               {1, 1, 1, 1}});
    paint(materials[2].get(), {{0.001F, 0.001F, 0, 1}, // just above 0.001 in double precision
                               {0.5F, 0.25F, 0, 1},
                               black,
                               black,
                               0,
                               {1, nan, 1, 0}});
    // Without chunks: a colour of its own, none, and a choice of none.
    const ::osg::SimpleMaterialRefPtr plain(simple({0.5F, 0.25F, 1}));
    const ::osg::SwitchMaterialRefPtr none(choiceOf(static_cast<::osg::UInt32>(-1), {plain.get()}));
    content.appearances[plain.get()] = "__App_12";
    content.appearances[::osg::NullFC] = "__App_13";
    content.appearances[none.get()] = "__App_14";
    content.names = {"door", "cut away", "a \"quoted\" \\ name\t", "bare"};
    content.mins = {{-1.5F, 1.0F / 3.0F, 0}, {}, {}, {}};
    content.maxs = {{1e7F, 2, 3}, {}, {}}; // records of a caller's own may be short
    content.appearanceNames = {"__App_9", "__App_8", "__App_8"};
    content.usage[0] = {"MG_10", "MG_2", "MG_0"};
    content.usage[2];
    content.usage[3] = {"MG_1"};
    content.usage[-1] = content.usage[4] = {"of no ID"}; // counted, without a block
    content.maxGeoCount = 12345;
    content.tree << "\"any\":\"text\"\n";

    // Neither what stands there nor the format of the process' streams has a say.
    std::ofstream(path("map.json")) << std::string(9999, 'x');
    struct grouped : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new grouped));
    const stream_capture out(std::cout);
    EXPECT_TRUE(morva::writeJsonFile(path("map.json"), content, ::osg::NullFC));
    std::locale::global(before);
    EXPECT_EQ(bytesOf(path("map.json")), golden("every_case.json"));
    EXPECT_EQ(out.text(), "False SwitchMatChoice\nFalse SwitchMatChoice\n"); // for both sides
    EXPECT_TRUE(morva::writeJsonFile(path("again.json"), content, ::osg::NullFC));
    EXPECT_EQ(bytesOf(path("again.json")), golden("every_case.json"))
        << "the tree is read, not used up";
}

TEST_F(FileTools, AnEmptyMapGivesNoFileAndNoWordAndWhatFailsLaterIsKnown) {
    for (int missing = 0; missing < 6; ++missing) {
        morva::JsonFileContent content;
        if (missing != 0)
            content.names = {"a"};
        if (missing != 1)
            content.mins = {{}};
        if (missing != 2)
            content.maxs = {{}};
        if (missing != 3)
            content.usage[0] = {"b"};
        const stream_capture out(std::cout);
        using morva::map_file;
        if (missing >= 4) { // nothing, but room or a part of the tree
            EXPECT_EQ(morva::osg::writeMapFile(path("m.json"), content), map_file::whole);
            EXPECT_NE(bytesOf(path("m.json")).find("\"appearance\": [ \n],\n\"mapping\": [\n{"),
                      std::string::npos);
            content.tree.setstate(missing == 4 ? std::ios::goodbit : std::ios::badbit);
            const std::string file = missing == 4 ? "/dev/full" : path("m.json");
            EXPECT_EQ(morva::osg::writeMapFile(file, content), map_file::cut_short);
            EXPECT_TRUE(morva::writeJsonFile(file, content, ::osg::NullFC));
            continue;
        }
        EXPECT_FALSE(morva::writeJsonFile(path("none.json"), content, ::osg::NullFC)) << missing;
        EXPECT_EQ(out.text(), "");
        EXPECT_FALSE(fs::exists(path("none.json")));
    }
}

node_ref namedHouse(const ::osg::MaterialPtr& material) {
    return node_ref(
        named("house", group({named("door", meshNode(quads(2), material)),
                              moved({5, 0, 0}, {named("wall", meshNode(quads(1), material))})})));
}

/// What one run of the whole road prints about its file.
std::string runRoad(const ::osg::NodePtr& root, const std::string& file) {
    const stream_capture out(std::cout);
    const node_ref result(morva::osg::optTree(root, "maxtris(100),prefix(p),idmap(" + file + ")"));
    EXPECT_EQ(morva::osg::getIDmapHandler().prefix, "p");
    EXPECT_EQ(morva::osg::getIDmapHandler().releaseHeldLock(), 0U) << "the run gave it back";
    const std::string text = out.text();
    return text.substr(text.find("Done merging.        \n") + 22);
}

TEST_F(FileTools, TwoRunsInOneProcess) {
    const ::osg::ChunkMaterialRefPtr material(bareMaterial());
    paint(material.get(),
          {{0.5F, 0.5F, 0.5F, 1}, {0.1F, 0.1F, 0.1F, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, 64});
    for (int run = 1; run <= 2; ++run) {
        const std::string core = "MG_" + std::to_string(handler.mergedCount);
        const std::string tree = golden("road_tree.txt");
        EXPECT_EQ(runRoad(namedHouse(material.get()).get(), path("road")),
                  "Write IDmap with 2 names.\n");
        // The names start anew, the recorded trees stay.
        EXPECT_EQ(bytesOf(path("road.json")),
                  golden("road.json", {{"COUNT", std::to_string(handler.maxGeoCount)},
                                       {"CORE", core},
                                       {"TREES", run == 1 ? tree : tree + tree}}))
            << "run " << run;
    }
    const node_ref nameless(group({meshNode(quads(2))}));
    EXPECT_EQ(runRoad(nameless.get(), path("none")), "Write IDmap with 0 names.\n");
    EXPECT_FALSE(fs::exists(path("none.json")));
    EXPECT_EQ(runRoad(namedHouse(material.get()).get(), path("none/road")),
              "Write IDmap with 2 names.\nUnable to open " + path("none/road") +
                  ".json. No IDmap/Json File created.\n");
}

TEST_F(FileTools, CreateDirMakesOneLevel) {
    std::string one = path("one"), two = path("none/two"), file = path("file"), nothing;
    morva::createDir(one.data());
    EXPECT_TRUE(fs::is_directory(one));
    morva::createDir(one.data());
    std::ofstream(file) << "x";
    morva::createDir(file.data());
    EXPECT_TRUE(fs::is_regular_file(file)) << "what stands there stays";
    EXPECT_THROW(morva::createDir(two.data()), boost::filesystem::filesystem_error);
    EXPECT_THROW(morva::createDir(nothing.data()), boost::filesystem::filesystem_error);
    std::string below_a_file = file + "/x";
    EXPECT_THROW(morva::createDir(below_a_file.data()), boost::filesystem::filesystem_error);
    morva::createDir(nullptr);
}

} // namespace
