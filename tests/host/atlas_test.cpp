// Texture atlases by the command: what is reported, noted and written.

#include <regex>

#include <nlohmann/json.hpp>

#include "atlas_notes.h"
#include "atlas_report.h"
#include "contact_sheet.h"
#include "model.h"
#include "scene_walk.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::osg::atlas_record;

/// A plate that shows all of an image.
::osg::NodePtr plate(const std::string& name, const ::osg::MaterialPtr& material) {
    mesh_data mesh = quads(1);
    mesh.coordinates = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    return named(name, meshNode(mesh, material));
}

/// An image whose pixels all differ; `seed` is their first byte.
::osg::ImagePtr picture(const std::string& name, ::osg::UInt32 format, int side, unsigned seed) {
    const ::osg::ImagePtr image = imageOf(format, side, side);
    for (unsigned long i = 0; i < image->getSize(); ++i)
        image->getData()[i] = static_cast<std::uint8_t>(seed + 7 * i + i / 256);
    image->setName(name);
    return image;
}

/// Two opaque images and two transparent ones, one that is too large, and one with two textures.
::osg::NodePtr gallery() {
    const auto rgb = ::osg::Image::OSG_RGB_PF, rgba = ::osg::Image::OSG_RGBA_PF;
    const auto look = [](const ::osg::ImagePtr& image) { return chunked({1, 1, 1, 1}, image); };
    const ::osg::ChunkMaterialPtr two = look(picture("two", rgb, 4, 9));
    const ::osg::TextureChunkPtr second = ::osg::TextureChunk::create();
    second->setImage(imageOf(rgb, 4, 4));
    two->addChunk(second, 1);
    return group({plate("a", look(picture("a.jpg", rgb, 16, 1))),
                  plate("b", look(picture("sub/b.jpg", rgb, 8, 77))),
                  plate("c", look(picture("c.png", rgba, 16, 3))),
                  plate("d", look(picture("", rgba, 8, 5))),
                  plate("e", look(picture("large", rgb, 40, 8))), plate("f", two)});
}

TEST(Atlases, AreToldShownAndWrittenOnce) {
    const temporary_folder folder;
    modelFile(folder.file("in.osb"), gallery());
    const command_result done =
        runMorva(wordsOf("optimize @in.osb -o @o.gltf --report @r.json --contact-sheet @s.png -v "
                         "-p maxtexturesize(32),maxtris(100),idmap(@m)",
                         folder));
    ASSERT_EQ(done.code, 0) << done.err;
    for (const char* line :
         {"\natlas 0: 32 x 16, 2 images, 62.5 % filled\n",
          "\natlas 1: 32 x 16, 2 images, 62.5 % filled, transparent\n",
          "\n1 image of 1 geometry left out, larger than half of the atlas: 'large'\n",
          "\n2 solid images processed.\n", "\n2 transparent images processed.\n"})
        EXPECT_NE(done.out.find(line), std::string::npos) << line << done.out;
    for (const char* note : {"note: 2 transparent parts come out without indices and not merged: ",
                             "note: appearances in the ID map are those of the atlases\n"})
        EXPECT_NE(done.err.find(note), std::string::npos) << done.err;

    const auto report = nlohmann::json::parse(bytesOf(folder.file("r.json")));
    EXPECT_EQ(report["before"]["textures"], 7);
    EXPECT_EQ(report["after"]["textures"], 5) << "two atlases, one that is large, two of one part";
    const auto& made = report["atlases"]["made"];
    EXPECT_EQ(made[0]["images"][1]["name"], "sub/b.jpg");
    EXPECT_EQ(made[1]["images"][1]["name"], "image of 8 x 8");
    EXPECT_EQ(report["atlases"]["left_out"].size(), 2U);
    EXPECT_EQ(report["atlases"]["left_out"][1]["reason"], "a material with several textures");

    // Every texel is where the report says, from the lowest row on.
    const std::string sheet = bytesOf(folder.file("s.png"));
    const ::osg::ImageRefPtr shown(morva::host::decodeImage(
        reinterpret_cast<const std::uint8_t*>(sheet.data()), sheet.size(), true));
    ASSERT_EQ(shown->getWidth(), 64);
    const auto source = morva::host::readModel(folder.file("in.osb"));
    const node_list nodes = geometryNodes(source.root.get());
    for (std::size_t i = 0; i < 4; ++i) {
        const ::osg::ImagePtr image = morva::host::imagesOf(coreOf(nodes[i])->getMaterial())[0];
        const auto& placed = made[i / 2]["images"][i % 2];
        const std::size_t channels = image->getComponents();
        const auto width = std::size_t(image->getWidth());
        std::size_t wrong = 0;
        for (std::size_t texel = 0; texel < width * width; ++texel) {
            const std::size_t x = placed["x"].get<std::size_t>() + texel % width + 32 * (i / 2);
            const std::size_t y = placed["y"].get<std::size_t>() + texel / width;
            for (std::size_t k = 0; k < channels; ++k)
                wrong += shown->getData()[4 * (64 * y + x) + k] !=
                         image->getData()[channels * texel + k];
        }
        EXPECT_EQ(wrong, 0U) << placed;
    }

    const auto file = nlohmann::json::parse(bytesOf(folder.file("o.gltf")));
    std::multiset<std::string> names;
    for (const auto& image : file["images"])
        names.insert(image.value("name", ""));
    EXPECT_EQ(names, (std::multiset<std::string>{"", "atlas 0", "atlas 1", "large"}));
}

/// Many images left out and many atlases make few lines, and all stand in the report.
TEST(Atlases, OfManyImagesMakeFewLines) {
    atlas_record record;
    const ::osg::ImageRefPtr image(imageOf(::osg::Image::OSG_RGB_PF, 2, 3));
    record.atlases.assign(3000, {image, 2, 3, false, 1.0, {{image, 0, 0, 2, 3}}});
    record.left_out.assign(1500, {image, morva::osg::atlas_obstacle::clamped, 2});
    record.left_out.resize(3000, {image, morva::osg::atlas_obstacle::above_half, 2});
    const std::string lines = morva::host::atlasLines(record);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 16 + 1 + 2);
    EXPECT_LT(lines.size(), 2500U);
    EXPECT_NE(lines.find("\nand 2,984 more\n1,500 images of 3,000 geometries left out, larger"),
              std::string::npos)
        << lines;
    const auto json = morva::host::jsonOf(record);
    EXPECT_EQ(json["made"].size() + json["left_out"].size(), 6000U);
}

TEST(ContactSheet, IsAsWideAsItMayBeAndShowsMeans) {
    const auto sheetOf = [](const std::vector<::osg::ImageRefPtr>& images) {
        atlas_record record;
        for (const ::osg::ImageRefPtr& image : images)
            record.atlases.push_back({image, 0, 0, false, 0.0, {}});
        return morva::host::contactSheet(record);
    };
    const ::osg::ImageRefPtr wide(imageOf(::osg::Image::OSG_RGB_PF, 5000, 3));
    for (unsigned long i = 0; i < wide->getSize(); ++i)
        wide->getData()[i] = static_cast<std::uint8_t>(i * i);
    const ::osg::ImageRefPtr clear(imageOf(::osg::Image::OSG_RGBA_PF, 5001, 1, 90));
    const ::osg::ImageRefPtr sheet = sheetOf({wide, clear}); // a quarter: 1250 and 1251
    ASSERT_EQ(std::pair(sheet->getWidth(), sheet->getHeight()), std::pair(2501, 1));
    for (int i = 0; i < 1250 * 4; ++i) {
        int sum = i % 4 == 3 ? 12 * 255 : 6;
        for (int k = 0; k < 12 && i % 4 != 3; ++k)
            sum += wide->getData()[3 * (5000 * (k / 4) + i / 4 * 4 + k % 4) + i % 4];
        ASSERT_EQ(sheet->getData()[i], sum / 12);
    }
    EXPECT_EQ(sheet->getData()[4 * 2500 + 3], 90) << "the mean of the one texel that is left";
    // No room for all at one pixel each.
    const ::osg::ImageRefPtr many = sheetOf(std::vector<::osg::ImageRefPtr>(5000, clear));
    EXPECT_EQ(std::pair(many->getWidth(), many->getHeight()), std::pair(4096, 2));
}

TEST(Atlases, NotesSayWhatTheirKeysDoNot) {
    const std::pair<const char*, const char*> rows[] = {
        // keys, and the note, if there is one
        {"maxtexturesize(16),maxtris(9)", "8192 is taken in place of 16\n"},
        {"maxtexturesize(31),maxtris(9)", "8192 is taken in place of 31\n"},
        {"maxtexturesize(8193),maxtris(9)", "8192 is taken in place of 8,193\n"},
        {"maxtexturesize(-1),maxtris(9)", "8192 is taken in place of 4,294,967,295\n"},
        {"maxtexturesize(junk),maxtris(9)", "(junk)' takes 0 to 8192\n"},
        {"maxtexturesize(32),maxtris(9),alphageometry(1)", ""},
        {"maxtexturesize(8192),maxtris(9),alphageometry(1)", ""},
        {"maxtexturesize(4000)", "without maxtris, maxtexturesize leaves geometry"},
        {"maxtexturesize(32),maxtris(9)", "2 transparent parts come out without indices"},
        {"maxtexturesize(32),maxtris(9),exactatlas(0),alphageometry(1)",
         "images reach beyond what is kept of their atlas"}};
    const temporary_folder folder;
    modelFile(folder.file("in.osb"), gallery());
    for (const auto& [keys, note] : rows) {
        SCOPED_TRACE(keys);
        const command_result done =
            runMorva(wordsOf(std::string("optimize @in.osb -o @o.osb -p ") + keys, folder));
        EXPECT_EQ(done.code, 0) << done.err;
        EXPECT_NE(done.err.find(note), std::string::npos) << done.err;
        const std::string others = std::regex_replace(done.err, std::regex(".* grow: .*\n"), "");
        EXPECT_EQ(others.empty(), *note == 0) << done.err;
    }
    const std::string baked = "maxtexturesize(64),maxtris(9),ambientocclusion";
    EXPECT_EQ(morva::host::atlasNotes({}, baked + "(3)").size(), 1U) << "images go before";
    EXPECT_EQ(morva::host::atlasNotes({}, baked + "(3),aoreplace(0)").size(), 0U);
    EXPECT_EQ(morva::host::atlasNotes({}, baked + "(256)").size(), 0U) << "nothing is baked";
}

TEST(Atlases, ThatAreLargerThanTheirFilesSaySo) {
    atlas_record record;
    morva::host::image_sources files;
    const ::osg::ImageRefPtr atlas(picture("", ::osg::Image::OSG_RGB_PF, 64, 1));
    const ::osg::ImageRefPtr image(picture("x", ::osg::Image::OSG_RGB_PF, 8, 1));
    record.atlases.push_back({atlas, 64, 64, false, 1.0, {{image, 0, 0, 8, 8}}});
    for (const std::size_t bytes : {0, 100, 100000}) {
        if (bytes != 0)
            files.remember(image.get(), {"image/jpeg", std::vector<std::uint8_t>(bytes)});
        const std::string note = morva::host::codeAtlases(record, files);
        EXPECT_EQ(note.empty(), bytes != 100) << note;
        EXPECT_EQ(note.find("images that took 100 bytes in ") == 0, bytes == 100) << note;
        EXPECT_EQ(files.find(atlas.get()) != nullptr, bytes != 0);
    }
}

} // namespace
} // namespace morva_test
