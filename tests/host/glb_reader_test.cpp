#include <filesystem>

#include <OpenSG/OSGQuaternion.h>
#include <nlohmann/json.hpp>

#include "assimp_import.h"
#include "glb_reader.h"
#include "gltf_document.h"
#include "host_error.h"
#include "model.h"
#include "scene_walk.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::model;
using nlohmann::json;

/// All that a reader hands over, as text. The scene's own file tells nodes, names, order, sharing
/// and every value to the last bit.
std::string toldBy(const model& read, const temporary_folder& folder) {
    std::string text = bytesOf(modelFile(folder.file("told.osb"), read.root.get()));
    for (const std::string& note : read.notes)
        text += "\n" + note;
    const std::set<std::string> files(read.files_read.begin(), read.files_read.end());
    for (const std::string& file : files)
        text += "\n" + file;
    for (const auto& drawn : morva::host::drawnNodes(read.root.get())) {
        for (const ::osg::ImagePtr& image : morva::host::imagesOf(drawn.material)) {
            const auto* const source = read.images.find(image);
            text += "\n" + (source == nullptr ? "-" : source->mime_type) + " " +
                    std::to_string(source == nullptr ? 0 : source->bytes.size());
        }
    }
    return text;
}

model freshModel(const std::string& file) {
    model fresh;
    fresh.file_bytes = std::filesystem::file_size(file);
    fresh.files_read = {file};
    return fresh;
}

/// Reads a file on both roads; whether the direct one took it.
bool isTakenAndSame(const std::string& file) {
    const temporary_folder folder;
    model direct = freshModel(file), library = freshModel(file);
    if (!morva::host::readGlb(file, direct)) {
        EXPECT_TRUE(direct.root == ::osg::NullFC && direct.notes.empty());
        return false;
    }
    morva::host::importThroughAssimp(file, library);
    EXPECT_TRUE(toldBy(direct, folder) == toldBy(library, folder)) << file;
    return true;
}

std::vector<std::string> modelsWith(const std::set<std::string>& extensions) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(MORVA_MODELS)) {
        if (extensions.count(entry.path().extension().string()) != 0)
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST(GlbReader, MakesTheSceneThatTheImportLibraryMakes) {
    std::size_t taken = 0;
    for (const std::string& file : modelsWith({".glb"}))
        taken += isTakenAndSame(file) ? 1 : 0;
    EXPECT_GE(taken, 3u); // one is of version 1.0, one has positions that are not finite
    // Models of other formats, written as .glb: textures, colours, lines, many parts.
    const temporary_folder folder;
    std::size_t written = 0;
    taken = 0;
    for (const std::string& file : modelsWith({".obj", ".gltf", ".dae", ".ply", ".3ds"})) {
        if (file.find("/invalid/") != std::string::npos)
            continue;
        SCOPED_TRACE(file);
        try {
            const model source = morva::host::readModel(file);
            morva::host::writeModel(source.root.get(), source.images, folder.file("m.glb"));
        } catch (const morva::host::host_error&) {
            continue;
        }
        ++written;
        taken += isTakenAndSame(folder.file("m.glb")) ? 1 : 0;
    }
    EXPECT_GE(written, 80u);
    EXPECT_EQ(taken, written);
    std::cout << taken << " of " << written << " written models taken\n";
}

template <typename T> void put(std::string& bytes, std::initializer_list<T> values) {
    for (const T value : values)
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// A file whose text may be changed before it is written.
struct small_file {
    json text;
    std::string binary;

    small_file() {
        // Four corners; normals, coordinates, colours of several kinds, indices of all widths.
        put<float>(binary, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, .5f}); // at 0
        put<float>(binary, {0, 0, 1, 0, 0, 1, 0, 1, 0, 0, 0, 1});   // 48
        put<float>(binary, {0, 0, 1, 0, 1, 1, .25f, -2});           // 96
        put<std::uint8_t>(binary,
                          {255, 0, 9, 255, 1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255});     // 128
        put<std::uint16_t>(binary, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 65535, 1, 2, 3, 4}); // 144
        put<std::uint8_t>(binary, {0, 1, 2, 0, 2, 3, 0, 0});                               // 176
        put<std::uint16_t>(binary, {3, 2, 1, 0, 2, 1});                                    // 184
        put<std::uint32_t>(binary, {0, 2, 3, 1, 2, 3});                                    // 196
        put<float>(binary, {0, 0, 0, 5, 5, 1, 0, 0, 6, 6, 1, 1, 0, 7, 7, 0, 1, 0, 8, 8});  // 220
        text = json::parse(R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
            "nodes":[{"mesh":0,"name":"top"}],"buffers":[{"byteLength":300}],"images":[],
            "meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":5}]}],
            "accessors":[],"bufferViews":[]})");
        accessor(0, 5126, 4, "VEC3", 48);       // 0: positions
        accessor(48, 5126, 4, "VEC3", 48);      // 1: normals
        accessor(96, 5126, 4, "VEC2", 32);      // 2: coordinates
        accessor(128, 5121, 4, "VEC4", 16);     // 3: colours in bytes
        accessor(144, 5123, 4, "VEC4", 32);     // 4: and in shorts
        accessor(176, 5121, 6, "SCALAR", 6);    // 5: indices
        accessor(184, 5123, 6, "SCALAR", 12);   // 6
        accessor(196, 5125, 6, "SCALAR", 24);   // 7
        accessor(220, 5126, 4, "VEC3", 80, 20); // 8: positions beside
        accessor(220, 5126, 4, "VEC2", 80, 20); // 9: coordinates
        text["accessors"][9]["byteOffset"] = 12;
        accessor(128, 5121, 4, "VEC3", 16, 4); // 10: colours without alpha
        accessor(48, 5126, 4, "VEC3", 48);     // 11: the same in floats
    }

    void accessor(int offset, int type, int count, const char* kind, int bytes, int stride = 0) {
        json view = {{"buffer", 0}, {"byteOffset", offset}, {"byteLength", bytes}};
        if (stride != 0)
            view["byteStride"] = stride;
        text["accessors"].push_back({{"bufferView", text["bufferViews"].size()},
                                     {"componentType", type},
                                     {"count", count},
                                     {"type", kind}});
        text["bufferViews"].push_back(view);
    }

    /// Three textured materials, which come upon two images in the order 1, 0.
    void addLooks() {
        for (const ::osg::UInt32 format : {::osg::Image::OSG_RGB_PF, ::osg::Image::OSG_RGBA_PF}) {
            const auto png =
                morva::host::encodePng(::osg::ImageRefPtr(imageOf(format, 3, 2)).get());
            text["images"].push_back(
                {{"bufferView", text["bufferViews"].size()}, {"mimeType", "image/png"}});
            text["bufferViews"].push_back(
                {{"buffer", 0}, {"byteOffset", binary.size()}, {"byteLength", png.size()}});
            binary.append(png.begin(), png.end());
        }
        text["samplers"] = json::parse(R"([{"wrapS":33071,"wrapT":33648,"magFilter":9728,
            "minFilter":9987},{"name":"plain"}])");
        text["textures"] = json::parse(R"([{"source":0,"sampler":0},{"source":1,"sampler":1},
            {"source":1},{"sampler":0}])");
        text["materials"] = json::parse(R"([
            {"name":"never"},
            {"name":"a","pbrMetallicRoughness":{"baseColorTexture":{"index":0,"texCoord":1},
             "baseColorFactor":[0.5,0.25,1,0.5],"metallicFactor":0.5,"roughnessFactor":0.3},
             "alphaMode":"MASK","alphaCutoff":0.25,"emissiveFactor":[1,0.1,0]},
            {"pbrMetallicRoughness":{"baseColorTexture":{"index":1},"metallicRoughnessTexture":
             {"index":2}},"normalTexture":{"index":0},"occlusionTexture":{"index":3},
             "alphaMode":"BLEND","doubleSided":true},
            {"emissiveTexture":{"index":2},"extensions":{"KHR_materials_unlit":{}},
             "pbrMetallicRoughness":{"roughnessFactor":-1}}])");
    }

    std::string writtenTo(const temporary_folder& folder) const {
        std::string characters = text.dump(), bytes = "glTF";
        characters.resize((characters.size() + 3) / 4 * 4, ' ');
        std::string values = binary;
        values.resize((values.size() + 3) / 4 * 4, '\0');
        const auto length = [](const std::string& part) { return std::uint32_t(part.size()); };
        put<std::uint32_t>(
            bytes, {2, 28 + length(characters) + length(values), length(characters), 0x4E4F534A});
        bytes += characters;
        put<std::uint32_t>(bytes, {length(values), 0x004E4942});
        writeBytes(folder.file("small.glb"), bytes + values);
        return folder.file("small.glb");
    }
};

struct small_case {
    const char* name;
    std::function<void(small_file&)> change;
};

void setPrimitive(small_file& file, const char* one) {
    file.text["meshes"][0]["primitives"] = {json::parse(one)};
}

const char* const taken_primitives[] = {
    R"({"attributes":{"POSITION":0},"indices":5})", R"({"attributes":{"POSITION":0},"mode":0})",
    R"({"attributes":{"POSITION":0,"NORMAL":1},"indices":6,"mode":1})", // short indices, lines
    R"({"attributes":{"POSITION":0,"COLOR_0":3},"indices":7})",         // long ones, bytes
    R"({"attributes":{"POSITION":0,"COLOR_0":4},"indices":7})",         // shorts
    R"({"attributes":{"POSITION":0,"COLOR_0":10},"indices":7})",        // without alpha
    R"({"attributes":{"POSITION":0,"COLOR_0":11},"indices":7})",        // the same in floats
    // Values side by side, attributes of an application.
    R"({"attributes":{"POSITION":8,"TEXCOORD_0":9,"TEXCOORD_1":2,"_X":77},"indices":5})"};

const small_case taken_cases[] = {
    {"several primitives, materials and images; the mesh twice; names",
     [](small_file& f) {
         f.addLooks();
         f.text["meshes"] = json::parse(R"([{"name":"two","primitives":[
             {"attributes":{"POSITION":0,"TEXCOORD_0":2,"TEXCOORD_1":9},"indices":5,"material":2},
             {"attributes":{"POSITION":8,"TEXCOORD_0":2,"TEXCOORD_1":9},"indices":6,"material":1}]},
             {"primitives":[{"attributes":{"POSITION":0},"indices":7,"material":3}]},
             {"primitives":[{"attributes":{"POSITION":0},"indices":7}]}])");
         f.text["nodes"] = json::parse(R"([{"children":[1,2,3],"mesh":2,"name":"top"},
             {"mesh":0,"translation":[1,2,3],"rotation":[0.1,0.2,0.3,0.92],"scale":[1,-2,0.1]},
             {"mesh":0,"name":"nodes[7]","rotation":[0.6,0,0,0.8]},{"name":"pair","children":[4,5]},
             {"mesh":1},{"mesh":2,"matrix":[1,2,3,0,4,5,6,0,7,8,10,0,11,12,13,1]}])");
     }},
    {"several roots, none with a name", [](small_file& f) {
         f.text["nodes"] = json::parse(R"([{"mesh":0},{"children":[2]},{"mesh":0}])");
         f.text["scenes"] = json::parse(R"([{"nodes":[2]},{"nodes":[1,0],"name":"x"}])");
         f.text["scene"] = 1;
         f.text["nodes"][1]["camera"] = 1;
         f.text["cameras"] = json::parse(R"([{},{"type":"orthographic","orthographic":{}}])");
     }}};

TEST(GlbReader, TakesWhatIsPlain) {
    const temporary_folder folder;
    for (const char* const one : taken_primitives) {
        SCOPED_TRACE(one);
        small_file file;
        setPrimitive(file, one);
        EXPECT_TRUE(isTakenAndSame(file.writtenTo(folder)));
    }
    for (const small_case& row : taken_cases) {
        SCOPED_TRACE(row.name);
        small_file file;
        row.change(file);
        EXPECT_TRUE(isTakenAndSame(file.writtenTo(folder)));
    }
}

/// A chain of nodes, the last one with the mesh.
void chain(small_file& f, int length) {
    f.text["nodes"] = json::array();
    for (int i = 0; i < length; ++i)
        f.text["nodes"].push_back({{"children", {i + 1}}});
    f.text["nodes"].push_back({{"mesh", 0}});
}

const small_case left_cases[] = {
    {"an index that leads out", [](small_file& f) { f.binary[178] = 4; }},
    {"a position that is not finite", [](small_file& f) { f.binary.replace(2, 2, "\x80\x7F"); }},
    {"a chain too deep for recursion", [](small_file& f) { chain(f, 60000); }},
    {"a chain too deep for the scene", [](small_file& f) { chain(f, 1999); }}};

/// Places in the text of the file with looks, and what makes it none of the plain kind there.
const std::pair<const char*, std::string> left_texts[] = {
    {"/accessors", "5"},
    {"/accessors/0", "\"x\""},
    {"/accessors/0/count", "5"},
    {"/accessors/0/count", "18446744073709551615"},
    {"/accessors/0/byteOffset", "18446744073709551615"},
    {"/accessors/0/byteOffset", "-1"},
    {"/accessors/0/componentType", "5122"},
    {"/accessors/0/sparse", "{}"},
    {"/accessors/1/count", "3"},
    {"/accessors/5/count", "5"},
    {"/bufferViews/0/buffer", "1"},
    {"/bufferViews/0/byteLength", "1000000"},
    {"/bufferViews/0/byteStride", "8"},
    {"/bufferViews/0/extensions", "{\"EXT_meshopt_compression\":{}}"},
    {"/buffers/0/uri", "\"other.bin\""},
    {"/meshes/0/primitives/0/attributes", R"({"POSITION":0,"TEXCOORD_1":2})"},
    {"/meshes/0/primitives/0/attributes", R"({"POSITION":0,"SHADE":2})"},
    {"/meshes/0/primitives/0/mode", "5"},
    {"/meshes/0/primitives/0/targets", "[]"},
    {"/meshes/0/primitives/0/material", "7"},
    {"/meshes/0/primitives", "[]"},
    {"/images/1", R"({"uri":"x.png"})"},
    {"/materials/3/emissiveTexture/extensions", R"({"KHR_texture_transform":{}})"},
    {"/materials/3/extensions", R"({"KHR_materials_clearcoat":{}})"},
    {"/nodes/0/mesh", "7"},
    {"/nodes/0/children", "[0]"},
    {"/nodes", R"([{"children":[1,1]},{"mesh":0}])"},
    {"/nodes/0/matrix", "[1,0,0,0,0,1,0,0,0,0,1,0,0,0,0]"},
    {"/nodes/0/camera", "0"},
    {"/nodes/0/skin", "0"},
    {"/animations", "[{}]"},
    {"/extensionsRequired", "[\"X\"]"},
    {"/extras", std::string(501, '[') + std::string(501, ']')},
    {"/asset/version", "\"3.0\""},
    {"/scene", "4"}};

TEST(GlbReader, LeavesTheRestToTheImportLibrary) {
    const temporary_folder folder;
    for (const small_case& row : left_cases) {
        SCOPED_TRACE(row.name);
        small_file file;
        row.change(file);
        EXPECT_FALSE(isTakenAndSame(file.writtenTo(folder)));
    }
    small_file plain;
    plain.addLooks();
    setPrimitive(plain, R"({"attributes":{"POSITION":0,"NORMAL":1},"indices":5,"material":3})");
    EXPECT_TRUE(isTakenAndSame(plain.writtenTo(folder)));
    for (const auto& [place, value] : left_texts) {
        SCOPED_TRACE(place + (" " + value));
        small_file file = plain;
        file.text[json::json_pointer(place)] = json::parse(value);
        EXPECT_FALSE(isTakenAndSame(file.writtenTo(folder)));
    }
}

/// The same place by another way: where three unit steps from the node's origin lead.
::osg::Pnt3f placedBy(const json& node, ::osg::Pnt3f point) {
    if (node.contains("matrix")) {
        const auto m = node["matrix"].get<std::vector<float>>();
        ::osg::Pnt3f to;
        for (unsigned i = 0; i < 3; ++i)
            to[i] = m[i] * point[0] + m[4 + i] * point[1] + m[8 + i] * point[2] + m[12 + i];
        return to;
    }
    const auto at = node.value("translation", std::vector<float>{0, 0, 0});
    const auto turn = node.value("rotation", std::vector<float>{0, 0, 0, 1});
    const auto by = node.value("scale", std::vector<float>{1, 1, 1});
    const ::osg::Quaternion rotation(turn[0], turn[1], turn[2], turn[3]);
    ::osg::Vec3f stretched(point[0] * by[0], point[1] * by[1], point[2] * by[2]);
    rotation.multVec(stretched, stretched);
    return ::osg::Pnt3f(stretched[0] + at[0], stretched[1] + at[1], stretched[2] + at[2]);
}

TEST(OldGltf, NodesStandWhereTheirFileSays) {
    std::size_t placed = 0, wheels = 0;
    for (const std::string& file : modelsWith({".gltf"})) {
        if (file.find("/glTF/") == std::string::npos)
            continue;
        SCOPED_TRACE(file);
        const morva::host::gltf_document document(file);
        const model read = morva::host::readModel(file);
        std::vector<::osg::NodePtr> todo = {read.root.get()};
        while (!todo.empty()) {
            const ::osg::NodePtr node = todo.back();
            todo.pop_back();
            for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
                todo.push_back(node->getChild(i));
            const auto core = ::osg::TransformPtr::dcast(node->getCore());
            if (core == ::osg::NullFC)
                continue;
            const json& told = document.json()["nodes"].at(getName(node));
            for (const ::osg::Pnt3f& point :
                 {::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(1, 2, 3), ::osg::Pnt3f(-4, 0, 1)}) {
                ::osg::Pnt3f moved;
                core->getMatrix().multMatrixPnt(point, moved);
                EXPECT_LT((moved - placedBy(told, point)).length(), 1e-5f) << getName(node);
            }
            ++placed;
            wheels += std::abs(core->getMatrix()[3][1] - .427722f) < 1e-6f ? 1 : 0;
        }
    }
    EXPECT_GE(placed, 14u);
    EXPECT_EQ(wheels, 2u); // those of the truck, which are turned and moved
}

} // namespace
} // namespace morva_test
