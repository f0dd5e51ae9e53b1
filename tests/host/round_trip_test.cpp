#include <filesystem>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGQuaternion.h>

#include "coordinate_sets.h"
#include "geometry_view.h"
#include "gltf_buffer.h"
#include "gltf_material.h"
#include "gltf_source.h"
#include "image_codec.h"
#include "model.h"
#include "output_formats.h"
#include "scene_walk.h"
#include "statistics.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::model;
using morva::host::readModel;

/// Parts of every primitive type and layout, two places of one core, a textured material.
::osg::NodePtr variedScene() {
    std::mt19937 rng(seedOf(5));
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 2, 2);
    const ::osg::NodePtr shared = meshNode(withAttributes(soup(rng, 20), rng), simple({1, 0, 0}));
    ::osg::Matrix turn;
    turn.setRotate(::osg::Quaternion(::osg::Vec3f(0, 0, 1), 0.5f));
    return named(
        "top",
        group(
            {named("soup", shared), transformed(turn, {named("twin", nodeOf(shared->getCore()))}),
             named("tiles", meshNode(withCoordinates(quads(2), rng), chunked({0, 1, 0, 1}, image))),
             named("strip", meshNode(withNormals(strip(9), rng))), named("fan", meshNode(fan(7))),
             named("lines", meshNode(row(6, 2))), named("points", meshNode(row(5, 0)))}));
}

/// Triangles by the colour of their material, in steps that every format can tell apart; without
/// those with a texture.
std::map<std::array<int, 3>, std::uint64_t> trianglesByColor(const ::osg::NodePtr& root) {
    std::map<std::array<int, 3>, std::uint64_t> triangles;
    for (const auto& drawn : morva::host::drawnNodes(root)) {
        if (drawn.material == ::osg::NullFC || !morva::host::imagesOf(drawn.material).empty())
            continue;
        const morva::host::surface look = morva::host::surfaceOf(drawn.material);
        const auto step = [&](unsigned i) { return int(std::lround(50 * look.base[i])); };
        const morva::host::geometry_view view(drawn.core);
        morva::host::forEachTriangle(view, [&](auto, auto, auto) {
            ++triangles[{step(0), step(1), step(2)}];
        });
    }
    return triangles;
}

std::size_t placements(const ::osg::NodePtr& node) {
    ::osg::Matrix matrix;
    std::size_t count = morva::host::placementOf(node, matrix) ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += placements(node->getChild(i));
    return count;
}

/// What a scene still has of another one.
morva::host::output_format keptOf(const ::osg::NodePtr& after, const ::osg::NodePtr& before) {
    const auto counts = morva::host::measureScene(after), all = morva::host::measureScene(before);
    const auto colors = trianglesByColor(after);
    morva::host::output_format kept{};
    kept.lines = counts.lines == all.lines;
    kept.points = counts.points == all.points;
    kept.tree = placements(after) == placements(before);
    kept.names = true;
    const std::vector<std::string> names = namesOf(geometryNodes(after));
    std::set<::osg::UInt32> cores;
    for (const auto& drawn : morva::host::drawnNodes(before)) {
        const morva::host::geometry_view view(drawn.core);
        bool fills = false; // lines and points may have gone
        morva::host::forEachTriangle(view, [&](auto, auto, auto) { fills = true; });
        if (fills && cores.insert(drawn.core.getFieldContainerId()).second)
            kept.names = kept.names &&
                         std::find(names.begin(), names.end(), getName(drawn.node)) != names.end();
    }
    kept.sharing = counts.draw_calls == counts.geometry_cores + 1;
    kept.materials = true;
    for (const auto& [color, triangles] : trianglesByColor(before)) {
        const auto found = colors.find(color);
        kept.materials = kept.materials && found != colors.end() && found->second >= triangles;
    }
    kept.textures = counts.textures == all.textures;
    return kept;
}

TEST(RoundTrip, EachFormatKeepsTheTrianglesAndWhatItsTableTells) {
    const node_ref scene(variedScene());
    const temporary_folder folder;
    for (const morva::host::output_format& format : morva::host::outputFormats()) {
        const std::string extension = format.extension;
        SCOPED_TRACE(extension);
        const bool whole = extension == "glb" || extension == "gltf" || extension == "osb";
        mesh_choice choice;
        choice.normals = choice.colors = choice.coordinates = whole;
        const std::string file = folder.file("s." + extension);
        const auto notes = morva::host::writeModel(scene.get(), morva::host::image_sources(), file);
        const model again = readModel(file);
        const world_mesh before = worldMesh(scene.get(), choice);
        const world_mesh after = worldMesh(again.root.get(), choice);
        EXPECT_EQ(firstDifference(before, after, {1e-4f, 1e-4f, 1e-5f}), "");
        const auto kept = keptOf(again.root.get(), scene.get());
        EXPECT_EQ(kept.lines, format.lines);
        EXPECT_EQ(kept.points, format.points);
        EXPECT_EQ(kept.tree, format.tree);
        EXPECT_EQ(kept.names, format.names);
        EXPECT_EQ(kept.sharing, format.sharing);
        EXPECT_EQ(kept.materials, format.materials);
        EXPECT_EQ(kept.textures, format.textures);
        const bool loses = !format.lines || !format.points || !format.tree || !format.names ||
                           !format.materials || !format.textures;
        EXPECT_EQ(notes.size(), loses ? 1u : 0u) << testing::PrintToString(notes);
        if (format.tree && extension != "dae") {
            EXPECT_STREQ(getName(again.root.get()), "top");
        }
    }
}

TEST(RoundTrip, GltfKeepsTheLookOfMaterials) {
    const struct {
        ::osg::Color4f diffuse, specular, emission;
        float shininess;
        bool two_sided, blended;
    } looks[] = {{{.2f, .4f, .6f, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, 0, false, false},
                 {{.2f, .4f, .6f, 1}, {0, 0, 0, .25f}, {0, 0, 0, 1}, 32, false, false},
                 {{1, 0, 0, .5f}, {0, 0, 0, 1}, {.5f, 0, 0, 1}, 128, true, true}};
    for (const auto& wanted : looks) {
        const ::osg::ChunkMaterialPtr material = chunked(wanted.diffuse);
        const auto chunk = ::osg::MaterialChunkPtr::dcast(material->getChunks(0));
        chunk->setSpecular(wanted.specular);
        chunk->setEmission(wanted.emission);
        chunk->setShininess(wanted.shininess);
        chunk->setBackMaterial(wanted.two_sided);
        const temporary_folder folder;
        const model again =
            readModel(modelFile(folder.file("s.glb"), group({meshNode(quads(1), material)})));
        const auto drawn = morva::host::drawnNodes(again.root.get());
        ASSERT_EQ(drawn.size(), 1u);
        const auto read = ::osg::ChunkMaterialPtr::dcast(drawn[0].material);
        ASSERT_TRUE(read != ::osg::NullFC);
        EXPECT_EQ(read->isTransparent(), wanted.blended);
        const auto colors = ::osg::MaterialChunkPtr::dcast(read->getChunks(0));
        ASSERT_TRUE(colors != ::osg::NullFC);
        EXPECT_TRUE(colors->getDiffuse() == wanted.diffuse);
        EXPECT_FLOAT_EQ(colors->getSpecular()[3], wanted.specular[3]);
        EXPECT_TRUE(colors->getEmission() == wanted.emission);
        EXPECT_NEAR(colors->getShininess(), wanted.shininess, 1e-4f);
        EXPECT_EQ(colors->getBackMaterial(), wanted.two_sided);
    }
}

TEST(RoundTrip, GltfHoldsValidValuesOnlyAndSaysWhatItTouched) {
    const float nan = std::nanf(""), far = INFINITY;
    mesh_data mesh = quads(2); // two squares side by side, corners of their own
    mesh.normals = {{0, 0, 0}, {0, 0, 5}, {0, 1.004f, 0}, {nan, 0, 1},
                    {0, 0, 1}, {1, 0, 0}, {0, 1e-30f, 0}, {0, 0, 1}};
    mesh.colors = {{0, .25f, 1}, {2, -1, nan}, {0, 0, 0}, {0, 0, 0},
                   {0, 0, 0},    {0, 0, 0},    {0, 0, 0}, {far, 0, 0}};
    mesh.coordinates.assign(8, {.25f, -3});
    mesh.coordinates[2] = {nan, 0};
    mesh_data torn = mesh;
    torn.positions[1][2] = nan;
    mesh_data hung = row(4, 3);
    hung.positions[0][0] = far;
    const ::osg::NodePtr bad = group({meshNode(mesh), meshNode(torn), meshNode(hung)});
    const node_ref held(bad), good(group({meshNode(quads(2))}));
    const temporary_folder folder;
    const auto write = [&](const ::osg::NodePtr& root) {
        return morva::host::writeModel(root, morva::host::image_sources(), folder.file("s.glb"));
    };
    EXPECT_EQ(write(good.get()), std::vector<std::string>());
    EXPECT_EQ(write(bad),
              std::vector<std::string>(
                  {"as the format wants it: 2 positions that are not finite moved, 1 triangles "
                   "with such a position left out, 1 lines with such a position left out, 4 "
                   "normals without a direction made anew from their triangles, 4 normals scaled "
                   "to length 1, 8 values of colours brought between 0 and 1, 2 texture "
                   "coordinates that are not finite set to 0"}));
    const model again = readModel(folder.file("s.glb"));
    const auto nodes = geometryNodes(again.root.get());
    ASSERT_EQ(nodes.size(), 3u);
    const morva::host::geometry_view view(coreOf(nodes[0])), lines(coreOf(nodes[2]));
    const auto value = [](const morva::host::property_column& column, std::uint32_t row) {
        return std::vector<float>(column.at(row),
                                  column.at(row) + std::min<std::size_t>(column.width, 3));
    };
    using values = std::vector<float>;
    EXPECT_EQ(value(view.normals, 0), values({0, 0, 1}));
    EXPECT_EQ(value(view.normals, 1), values({0, 0, 1}));
    EXPECT_EQ(value(view.normals, 2), values({0, 1.004f, 0})) << "valid: as it was";
    EXPECT_EQ(value(view.normals, 3), values({0, 0, 1}));
    EXPECT_EQ(value(view.normals, 6), values({0, 1, 0}));
    EXPECT_EQ(value(view.colors, 0), values({0, .25f, 1}));
    EXPECT_EQ(value(view.colors, 1), values({1, 0, 1}));
    EXPECT_EQ(value(view.coordinates[0], 2), values({0, 0}));
    EXPECT_EQ(value(view.coordinates[0], 3), values({.25f, -3}));
    EXPECT_EQ(morva::host::geometry_view(coreOf(nodes[1])).usedCorners(), 9u);
    EXPECT_EQ(lines.usedCorners(), 4u);
    EXPECT_EQ(value(lines.positions, 0), value(lines.positions, 1));
}

/// A box with two sets of coordinates in a folder of its own, after `edit` of its text.
template <typename Edit> std::string editedBox(const temporary_folder& folder, Edit edit) {
    const std::string source = std::string(MORVA_MODELS) + "/glTF2/BoxTexcoords-glTF/";
    for (const char* name : {"boxTexcoords.bin", "texture.png"})
        std::filesystem::copy_file(source + name, folder.file(name));
    nlohmann::json text = nlohmann::json::parse(std::ifstream(source + "boxTexcoords.gltf"));
    edit(text);
    writeBytes(folder.file("box.gltf"), text.dump());
    return folder.file("box.gltf");
}

TEST(MaterialRecords, ComeOutAgainAndTellMaterialsApart) {
    using json = nlohmann::json;
    const temporary_folder folder;
    const std::string box = editedBox(folder, [](json& text) {
        json plain = text["materials"][0], twin = plain, lit = plain;
        plain["name"] = "plain";
        plain["pbrMetallicRoughness"].erase("metallicRoughnessTexture");
        twin["name"] = "twin";
        lit["emissiveTexture"] = {{"index", 0}, {"texCoord", 0}};
        lit["extensions"] = {{"KHR_materials_unlit", json::object()},
                             {"EXT_stranger", {{"bufferView", 7}}}};
        lit["name"] = "lit";
        lit["pbrMetallicRoughness"].erase("baseColorTexture");
        text["materials"].insert(text["materials"].end(), {plain, twin, lit});
        text["extensionsUsed"] = text["extensionsRequired"] = {"KHR_materials_unlit"};
        json& primitives = text["meshes"][0]["primitives"];
        for (int material : {1, 2, 3}) {
            primitives.push_back(primitives[0]);
            primitives.back()["material"] = material;
        }
    });
    const auto materialsWith = [&](const std::string& parameters, const std::string& out) {
        const command_result run =
            runMorva({"optimize", box, "-o", out, "-p", parameters, "--overwrite"});
        EXPECT_EQ(run.code, 0) << run.err;
        EXPECT_NE(run.err.find("EXT_stranger is left out"), std::string::npos);
        const morva::host::gltf_source file(out, "materials");
        EXPECT_EQ(file.json()["images"].size(), 1u) << "the same bytes";
        EXPECT_EQ(file.json()["extensionsRequired"], json({"KHR_materials_unlit"}));
        std::map<std::string, json> found;
        for (const json& material : file.json()["materials"])
            found[material["name"]] = material;
        for (const json& mesh : file.json()["meshes"])
            EXPECT_TRUE(mesh["primitives"][0]["attributes"].contains("TEXCOORD_1"));
        return found;
    };
    auto found = materialsWith("opt(1),maxtris(5000),deleteunusedtc(false)", folder.file("o.glb"));
    EXPECT_EQ(found.size(), 3u) << "the twin is the first one";
    found = materialsWith("opt(1),maxtris(5000)", folder.file("o.gltf"));
    ASSERT_EQ(found.count("plain") + found.count("lit"), 2u);
    EXPECT_FALSE(found["plain"]["pbrMetallicRoughness"].contains("metallicRoughnessTexture"));
    const json lit = found["lit"];
    EXPECT_EQ(lit["pbrMetallicRoughness"]["metallicRoughnessTexture"]["texCoord"], 1);
    EXPECT_FALSE(lit["pbrMetallicRoughness"].contains("baseColorTexture"));
    EXPECT_TRUE(lit["extensions"].contains("KHR_materials_unlit"));
    EXPECT_FALSE(lit["extensions"].contains("EXT_stranger"));
    EXPECT_TRUE(lit.contains("emissiveTexture"));

    const command_result other =
        runMorva({"optimize", box, "-o", folder.file("o.osb"), "-p", "opt(1),maxtris(5000)"});
    EXPECT_NE(other.err.find("and extensions of materials are left out: 'Material', 'lit'"),
              std::string::npos)
        << other.err;
}

/// What reads the set of the colour untransformed reads a copy of it, if there is room for one.
TEST(MaterialRecords, TransformsOfTheColourGoIntoItsCoordinates) {
    using json = nlohmann::json;
    const auto core = [](const model& from) {
        return coreOf(geometryNodes(from.root.get()).at(0));
    };
    const model plain =
        readModel(std::string(MORVA_MODELS) + "/glTF2/BoxTexcoords-glTF/boxTexcoords.gltf");
    const auto before = core(plain)->getTexCoords();
    for (const auto& [set, copied_to] : {std::pair(0, 2u), std::pair(3, morva::host::lost_set)}) {
        const temporary_folder folder;
        const model read = readModel(editedBox(folder, [set = set](json& text) {
            json &attributes = text["meshes"][0]["primitives"][0]["attributes"],
                 &surface = text["materials"][0]["pbrMetallicRoughness"];
            for (int other = 2; other <= set; ++other)
                attributes["TEXCOORD_" + std::to_string(other)] = attributes["TEXCOORD_0"];
            surface["metallicRoughnessTexture"]["texCoord"] = set;
            surface["baseColorTexture"] = {
                {"index", 0},
                {"texCoord", set},
                {"extensions",
                 {{"KHR_texture_transform",
                   {{"offset", {.5f, .25f}}, {"scale", {2.f, 1.f}}, {"rotation", .5f}}}}}};
        }));
        const auto uses = read.records.find(core(read)->getMaterial())->uses;
        ASSERT_EQ(uses.size(), 2u);
        for (const morva::host::texture_use& use : uses)
            EXPECT_EQ(use.unit, use.is_base ? 0u : copied_to);
        const auto after = core(read)->getTexCoords(), copy = core(read)->getTexCoords2();
        ASSERT_EQ(before->getSize(), after->getSize());
        ASSERT_EQ(before->getSize(), copy->getSize());
        const float c = std::cos(.5f), s = std::sin(.5f);
        for (::osg::UInt32 i = 0; i < before->getSize(); ++i) {
            const float u = 2 * before->getValue(i)[0], v = 1 - before->getValue(i)[1]; // downwards
            EXPECT_NEAR(after->getValue(i)[0], .5f + u * c + v * s, 1e-5f);
            EXPECT_NEAR(after->getValue(i)[1], .75f + u * s - v * c, 1e-5f);
            EXPECT_EQ(copy->getValue(i), before->getValue(i));
        }
    }
}

TEST(GltfBuffer, NumbersAreAsWideAsTheirVerticesWantAndBeginAtMultiplesOfFour) {
    morva::host::gltf_buffer buffer;
    for (const std::size_t vertices : {65535, 65536})
        buffer.addIndices({0, 1, std::uint32_t(vertices - 1)}, vertices);
    EXPECT_EQ(buffer.takeViews()[1]["byteOffset"], 8) << "6 bytes and 2 between";
    const nlohmann::json accessors = buffer.takeAccessors();
    EXPECT_EQ(accessors[0]["componentType"], 5123);
    EXPECT_EQ(accessors[1]["componentType"], 5125) << "65,535 begins a new strip";
}

void pngFile(const std::string& path, std::vector<std::uint8_t> rgba) {
    const ::osg::ImageRefPtr image(morva::host::imageFromTopRows(1, 1, std::move(rgba), true));
    const std::vector<std::uint8_t> bytes = morva::host::encodePng(image.get());
    writeBytes(path, std::string(bytes.begin(), bytes.end()));
}

TEST(MaterialRecords, OfOtherFormatsComeOutInGltfTerms) {
    using json = nlohmann::json;
    const temporary_folder folder;
    pngFile(folder.file("base.png"), {200, 90, 10, 255});
    pngFile(folder.file("normals.png"), {128, 128, 255, 255});
    pngFile(folder.file("heights.png"), {90, 90, 90, 255});
    pngFile(folder.file("glow.png"), {255, 200, 0, 255});
    pngFile(folder.file("other.png"), {0, 200, 255, 255});
    const std::string common = "Kd 1 .5 .25\nmap_Kd base.png\nnorm sub\\..\\normals.png\n";
    std::filesystem::create_directory(folder.file("sub"));
    writeBytes(folder.file("m.mtl"),
               "newmtl sun\n" + common + "map_Ke glow.png\nnewmtl twin\n" + common +
                   "map_Ke glow.png\nnewmtl moon\n" + common +
                   "map_Ke other.png\nnewmtl dent\nKd 1 1 1\nKe 0 .5 0\nmap_Ke glow.png\n"
                   "bump normals.png\nmap_Ks base.png\nnewmtl bump\nKd 0 0 1\n"
                   "map_bump heights.png\nmap_Ke gone.png\n");
    std::string text = "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\n";
    for (const char* name : {"sun", "twin", "moon", "dent", "bump"})
        text += std::string("usemtl ") + name + "\nf 1/1 2/2 3/3\n";
    writeBytes(folder.file("m.obj"), text);
    const command_result run = runMorva({"optimize", folder.file("m.obj"), "-o",
                                         folder.file("o.glb"), "-p", "opt(1),maxtris(5000)"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.err.find("2 textures are left out: height, specular"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("'gone.png' cannot be read"), std::string::npos) << run.err;

    const morva::host::gltf_source file(folder.file("o.glb"), "materials");
    std::map<std::string, json> found;
    for (const json& material : file.json()["materials"])
        found[material["name"]] = material;
    EXPECT_EQ(found.size(), 4u) << "the twin is the sun";
    EXPECT_EQ(file.json()["images"].size(), 4u);
    const auto imageAt = [&](const std::string& material, const char* place) {
        const json& info = found[material][json::json_pointer(place)];
        const json& texture = file.json()["textures"].at(info["index"].get<std::size_t>());
        EXPECT_LT(info.value("texCoord", 0), 2);
        return file.json()["images"].at(texture["source"].get<std::size_t>())["name"];
    };
    for (const char* const name : {"sun", "moon"}) {
        EXPECT_EQ(imageAt(name, "/pbrMetallicRoughness/baseColorTexture"), "base.png");
        EXPECT_EQ(imageAt(name, "/normalTexture"), "normals.png");
        EXPECT_EQ(found[name]["emissiveFactor"], json({1, 1, 1}));
    }
    EXPECT_EQ(imageAt("sun", "/emissiveTexture"), "glow.png");
    EXPECT_EQ(imageAt("moon", "/emissiveTexture"), "other.png");
    EXPECT_EQ(imageAt("dent", "/normalTexture"), "normals.png");
    EXPECT_EQ(found["dent"]["emissiveFactor"], json({0, .5, 0}));
    EXPECT_FALSE(found["bump"].contains("normalTexture") ||
                 found["bump"].contains("emissiveTexture"));
}

TEST(FacetNormals, FollowTheWindingAndAreMadeWhereThereAreNone) {
    const temporary_folder folder;
    std::string text = "solid s\n";
    for (const char* normal : {"0 0 0", "0 0 -1", "0 0.6 0.8"})
        text += "facet normal " + std::string(normal) +
                "\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\n";
    writeBytes(folder.file("s.stl"), text + "endsolid s\n");
    const model read = readModel(folder.file("s.stl"));
    ASSERT_EQ(read.notes.size(), 1u);
    EXPECT_EQ(read.notes[0],
              "normals that are 0 or against the winding are made anew for 2 triangles");
    const auto normals = coreOf(geometryNodes(read.root.get()).at(0))->getNormals();
    ASSERT_EQ(normals->getSize(), 9u);
    for (::osg::UInt32 i = 0; i < 9; ++i)
        EXPECT_TRUE(normals->getValue(i) ==
                    (i < 6 ? ::osg::Vec3f(0, 0, 1) : ::osg::Vec3f(0, .6f, .8f)));
}

TEST(ImageCodec, PngKeepsEveryChannelAndTheOrderOfRows) {
    using Image = ::osg::Image;
    const std::pair<::osg::UInt32, ::osg::UInt32> formats[] = {
        {Image::OSG_L_PF, Image::OSG_L_PF},     {Image::OSG_LA_PF, Image::OSG_LA_PF},
        {Image::OSG_RGB_PF, Image::OSG_RGB_PF}, {Image::OSG_RGBA_PF, Image::OSG_RGBA_PF},
        {Image::OSG_BGR_PF, Image::OSG_RGB_PF}, {Image::OSG_BGRA_PF, Image::OSG_RGBA_PF}};
    for (const auto& [format, read_as] : formats) {
        const ::osg::ImageRefPtr image(imageOf(format, 5, 3)), expected(Image::create());
        ::osg::UInt8* pixels = image->getData();
        for (unsigned long i = 0; i < image->getSize(); ++i)
            pixels[i] = ::osg::UInt8(7 * i + 1);
        expected->set(read_as, 5, 3, 1, 1, 1, 0.0, pixels);
        for (unsigned long i = 0; format != read_as && i < 15; ++i)
            std::swap(expected->getData()[i * image->getBpp()],
                      expected->getData()[i * image->getBpp() + 2]);
        const auto bytes = morva::host::encodePng(image.get());
        const ::osg::ImageRefPtr again(morva::host::decodeImage(bytes.data(), bytes.size(), true));
        ASSERT_TRUE(again != ::osg::NullFC);
        EXPECT_TRUE(*again.get() == *expected.get()) << format;
        EXPECT_TRUE(morva::host::decodeImage(bytes.data(), bytes.size() / 2, true) ==
                    ::osg::NullFC);
    }
    const ::osg::ImageRefPtr bare(Image::create()), long_row(imageOf(Image::OSG_L_PF, 1000001, 1));
    EXPECT_TRUE(morva::host::encodePng(bare).empty() && morva::host::encodePng(long_row).empty());
}

TEST(ImageCodec, AnEditedImageForgetsItsFile) {
    const ::osg::ImageRefPtr image(imageOf(::osg::Image::OSG_RGB_PF, 4, 4));
    morva::host::image_sources sources;
    sources.remember(image.get(), {"image/png", {1, 2, 3}});
    ASSERT_NE(sources.find(image.get()), nullptr);
    image->getData()[5] ^= 1;
    EXPECT_EQ(sources.find(image.get()), nullptr);
}

} // namespace
} // namespace morva_test
