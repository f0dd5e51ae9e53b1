#include <nlohmann/json.hpp>

#include <morva/idmap/morva_osg_idmaphandler.h>

#include "feature_ids.h"
#include "geometry_view.h"
#include "host_error.h"
#include "part_names.h"
#include "scene_walk.h"
#include "tests/host/host_files.h"
#include "triangle_measures.h"

namespace morva_test {
namespace {

using morva::host::feature_ids;
using morva::host::model;
using morva::host::part_row;
using morva::host::part_table;
using morva::host::readFeatureIds;
using morva::host::readModel;
using nlohmann::json;

/// The corners of a triangle, whichever comes first.
using place = std::vector<std::array<float, 3>>;

/// Calls `visit` with each triangle's node, number in its core, and place in the world.
template <typename Visit> void forEachPlace(const ::osg::NodePtr& root, Visit visit) {
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const morva::host::geometry_view view(coreOf(node));
        const morva::host::placement world(node);
        const std::vector<::osg::Pnt3f> points = morva::host::placed(view, &world);
        std::size_t triangle = 0;
        morva::host::forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
            place corners;
            for (const std::uint32_t corner : {a, b, c}) {
                const ::osg::Pnt3f& point = points[view.positions.row(corner)];
                corners.push_back({point[0], point[1], point[2]});
            }
            std::sort(corners.begin(), corners.end());
            visit(node, triangle++, corners);
        });
    }
}

struct origin {
    std::string name, path;
};

/// Which part draws at each place. No two of the test's parts draw at one.
std::map<place, origin> originsOf(const ::osg::NodePtr& root) {
    std::map<::osg::NodePtr, origin> parts;
    for (const morva::host::named_part& part : morva::host::namedParts(root, true))
        parts[part.node] = {part.original_name, part.path};
    std::map<place, origin> origins;
    forEachPlace(root, [&](const ::osg::NodePtr& node, std::size_t, const place& at) {
        origins[at] = parts[node];
    });
    return origins;
}

/// Parts with and without names, properties and IDs of their own, of several materials, some in one
/// core; transparent ones of all kinds of primitives, and at two places.
::osg::NodePtr manyParts() {
    std::mt19937 rng(seedOf(31));
    node_list nodes;
    for (int i = 0; i < 24; ++i) {
        mesh_data mesh = soup(rng, 12);
        if (i % 3 == 0)
            mesh = withIds(withAttributes(withIndex(mesh, rng), rng), 5);
        if (i % 4 == 1)
            mesh = withIndexPerProperty(withAttributes(mesh, rng), rng);
        const ::osg::NodePtr part = meshNode(mesh, simple({i % 2 == 0 ? 1.f : 0.f, 0, 1}));
        for (int set = 1; i % 6 == 0 && set < 4; ++set) { // and 0: none is free for IDs
            const ::osg::GeoTexCoordsPtr full = coreOf(part)->getTexCoords();
            set == 1   ? coreOf(part)->setTexCoords1(full)
            : set == 2 ? coreOf(part)->setTexCoords2(full)
                       : coreOf(part)->setTexCoords3(full);
        }
        const ::osg::NodePtr called =
            i % 5 == 0 ? part : named(i % 2 == 0 ? "bolt" : "n\"ut", part);
        nodes.push_back(moved({100.f * float(i), 0, 0}, {called}));
    }
    const ::osg::NodePtr glass = named("glass", meshNode(quads(3), chunked({1, 1, 1, .5f})));
    nodes.push_back(moved({0, 100, 0}, {named("pane", nodeOf(glass->getCore()))}));
    nodes.push_back(moved({0, 200, 0}, {glass}));
    nodes.push_back(moved({0, 300, 0}, {named("wire", meshNode(row(6, 1)))}));
    const ::osg::NodePtr all_kinds = meshNode(mixture(rng, 30), chunked({1, 0, 0, .5f}));
    nodes.insert(nodes.begin(), moved({0, 400, 0}, {named("kinds", all_kinds)}));
    return named("top", group(nodes));
}

TEST(FeatureIds, NameThePartOfEachTriangleInTheFile) {
    const node_ref source(manyParts());
    const std::map<place, origin> origins = originsOf(source.get());
    for (const std::string parameters :
         {"opt(0),maxtris(50)", "opt(1),maxtris(5000)", "opt(2),maxtris(90),numthreads(4)",
          "opt(3),maxtris(30)", "opt(3),maxtris(10),deleteunusedtc(false)",
          "opt(2),onegeometry(true),cacheopt(true)"}) {
        for (const std::string output : {"o.glb", "o.gltf"}) {
            SCOPED_TRACE(parameters + " " + output);
            const temporary_folder folder;
            const command_result run = runMorva(
                {"optimize", modelFile(folder.file("in.osb"), manyParts()), "-o",
                 folder.file(output), "-p", parameters + ",idmap(" + folder.file("m") + ")"});
            ASSERT_EQ(run.code, 0) << run.err;
            const model read = readModel(folder.file(output));
            const feature_ids features = readFeatureIds(folder.file(output), read);
            std::size_t seen = 0, wrong = 0;
            forEachPlace(read.root.get(), [&](const ::osg::NodePtr& node, std::size_t triangle,
                                              const place& at) {
                ++seen;
                const auto expected = origins.find(at);
                for (unsigned corner = 0; corner < 3; ++corner) {
                    const part_row* const part = features.partOf(node, triangle, corner);
                    const bool right = part != nullptr && expected != origins.end() &&
                                       part->name == expected->second.name &&
                                       part->path == expected->second.path;
                    wrong += right ? 0 : 1;
                    for (::osg::UInt32 k = 0; right && k < 3; ++k)
                        EXPECT_TRUE(part->low[k] <= at[0][k] && at[0][k] <= part->high[k]);
                }
            });
            EXPECT_GT(seen, 250u);
            EXPECT_EQ(wrong, 0u);
        }
    }
}

/// A run of triangles with an ID each, and behind them one without.
::osg::NodePtr triangleEach(std::size_t ids, bool one_without) {
    mesh_data mesh;
    const std::size_t corners = 3 * (ids + (one_without ? 1 : 0));
    mesh.primitives = {{GL_TRIANGLES, unsigned(corners)}};
    for (std::size_t i = 0; i < corners; ++i) {
        const auto at = float(i / 3);
        mesh.positions.emplace_back(at, i % 3 == 1 ? 1.f : 0.f, i % 3 == 2 ? 1.f : 0.f);
        mesh.ids.push_back(i / 3 < ids ? at : std::nanf(""));
    }
    return named("parts", group({named("core", meshNode(mesh))}));
}

part_table tableOf(std::size_t rows) {
    part_table table;
    table.ids = rows;
    for (std::size_t i = 0; i < rows; ++i) {
        part_row row;
        row.path = "p" + std::to_string(i);
        table.rows.push_back(row);
    }
    return table;
}

TEST(FeatureIds, AreAsWideAsTheHighestWants) {
    const struct {
        std::size_t rows;
        bool one_without;
        int type;
    } cases[] = {{1, false, 5121},     {256, false, 5121},  {256, true, 5123},
                 {65536, false, 5123}, {65536, true, 5126}, {70000, false, 5126}};
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.rows);
        const temporary_folder folder;
        const std::string file = folder.file("s.gltf");
        const node_ref scene(triangleEach(wanted.rows, wanted.one_without));
        const part_table table = tableOf(wanted.rows);
        morva::host::writeModel(scene.get(), {}, file, &table);
        const json text = json::parse(bytesOf(file));
        const json& primitive = text["meshes"][0]["primitives"][0];
        const auto accessor = primitive["attributes"]["_FEATURE_ID_0"].get<std::size_t>();
        EXPECT_EQ(text["accessors"][accessor]["componentType"], wanted.type);
        json expected = {{"attribute", 0}, {"propertyTable", 0}, {"featureCount", wanted.rows}};
        if (wanted.one_without)
            expected["nullFeatureId"] = wanted.rows;
        EXPECT_EQ(primitive["extensions"]["EXT_mesh_features"]["featureIds"], json({expected}));
        EXPECT_FALSE(primitive["attributes"].contains("TEXCOORD_0"));

        const model read = readModel(file);
        const feature_ids features = readFeatureIds(file, read);
        ASSERT_EQ(features.parts().size(), wanted.rows);
        const ::osg::NodePtr core = geometryNodes(read.root.get())[0];
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < wanted.rows; ++i)
            wrong += features.partOf(core, i, 2) == &features.parts()[i] ? 0 : 1;
        EXPECT_EQ(wrong, 0u);
        EXPECT_EQ(features.parts().back().path, "p" + std::to_string(wanted.rows - 1));
        EXPECT_EQ(features.partOf(core, wanted.rows), nullptr) << "none, or behind the last one";
    }
}

TEST(FeatureIds, AreInFilesWithIdsAloneAndInPlaceOfCoordinates) {
    // The second part is carried over under the name that the core of the first one gets.
    std::mt19937 rng(seedOf(4));
    const ::osg::NodePtr glass = meshNode(withCoordinates(quads(2), rng), chunked({1, 1, 1, .5f}));
    const std::string next = "MG_" + std::to_string(morva::osg::getIDmapHandler().mergedCount);
    const temporary_folder keeping;
    modelFile(keeping.file("in.osb"),
              group({named("part", meshNode(quads(3))), named(next, glass)}));
    const std::string command =
        "optimize @in.osb -o @o.gltf --names keep -p maxtris(50),idmapinroot(true)";
    const command_result kept = runMorva(wordsOf(command, keeping));
    ASSERT_EQ(kept.code, 0) << kept.err;
    const json text = json::parse(bytesOf(keeping.file("o.gltf")));
    std::size_t called = 0, coordinates = 0;
    for (const json& node : text["nodes"])
        called += node.contains("mesh") && node["name"] == next ? 1 : 0;
    for (const json& mesh : text["meshes"]) {
        const json& attributes = mesh["primitives"][0]["attributes"];
        EXPECT_TRUE(attributes.contains("_FEATURE_ID_0"));
        coordinates += attributes.contains("TEXCOORD_0") ? 1 : 0;
    }
    EXPECT_EQ(called, 2u);
    EXPECT_EQ(coordinates, 1u) << "those of the second part";
    for (const std::string output : {"o.glb", "o.gltf", "o.obj"}) {
        const temporary_folder folder;
        const command_result run =
            runMorva({"optimize", modelFile(folder.file("in.osb"), manyParts()), "-o",
                      folder.file(output), "-p", "maxtris(50)"});
        ASSERT_EQ(run.code, 0) << run.err;
        EXPECT_EQ(bytesOf(folder.file(output)).find("EXT_"), std::string::npos);
        EXPECT_TRUE(readFeatureIds(folder.file(output), readModel(folder.file(output))).empty());
    }
}

/// A file with the parts of triangleEach() and what was read from it while it was whole.
struct written_parts {
    explicit written_parts(const std::string& name) : file(folder.file(name)) {
        const node_ref scene(triangleEach(20, true));
        const part_table table = tableOf(20);
        morva::host::writeModel(scene.get(), {}, file, &table);
        read = readModel(file);
    }
    /// What is wrong with the file; empty if it can be read.
    std::string fault() const {
        try {
            readFeatureIds(file, read);
        } catch (const morva::host::host_error& error) {
            return error.what();
        }
        return "";
    }

    temporary_folder folder;
    std::string file;
    model read;
};

TEST(FeatureIds, ADamagedFileIsRefusedWithAReason) {
    const written_parts whole("s.gltf");
    ASSERT_EQ(whole.fault(), "");
    const json text = json::parse(bytesOf(whole.file));
    const std::string primitive = "/meshes/0/primitives/0";
    const std::string set = primitive + "/extensions/EXT_mesh_features/featureIds/0";
    const std::string table = "/extensions/EXT_structural_metadata/propertyTables/0";
    const std::string ids =
        "/accessors/" + text[json::json_pointer(primitive)]["attributes"]["_FEATURE_ID_0"].dump();
    const std::string view = "/bufferViews/" + text[json::json_pointer(ids)]["bufferView"].dump();
    const struct {
        std::string where;
        json value;
        const char* fault;
    } cases[] = {{table + "/count", 5, "is no row of its table"},
                 {table + "/count", 21, "part table is longer than its names"},
                 {table + "/count", 1e300, "'count' is no whole number"},
                 {table + "/properties/path/values", 99, "no number 99 of its bufferViews"},
                 {table + "/properties/path/stringOffsetType", "INT8", "offsets of type 'INT8'"},
                 {table + "/properties/path/stringOffsetType", "UINT8", "lie outside their data"},
                 {set + "/propertyTable", 1, "no part table 1"},
                 {set + "/attribute", 7, "'_FEATURE_ID_7' is no whole number"},
                 {set + "/nullFeatureId", 3, "feature 20 is no row of its table"},
                 {ids + "/count", 9, "more vertices than there are feature IDs"},
                 {ids + "/count", 1u << 30, "ends before its data does"},
                 {ids + "/byteOffset", 100, "ends before its data does"},
                 {ids + "/type", "VEC2", "no list of whole numbers"},
                 {view + "/byteOffset", 0xFFFFFFFFFFFFFFFFu, "ends before its data does"},
                 {view + "/byteLength", 4, "ends before its data does"},
                 {view + "/buffer", 2, "no buffer 2"},
                 {"/buffers/0/uri", "none.bin", "cannot read"},
                 {"/buffers/0/uri", "data:;base64,AAAA", "ends before its data does"},
                 {"/nodes/1/children", {0}, "no tree"},
                 {"/nodes/1/mesh", 8, "no number 8 of its meshes"},
                 {"/scenes/0/nodes", json::array(), "draws 0 primitives, the scene 1"},
                 {"/accessors/0/count", 60, "not those of the scene"}};
    for (const auto& wanted : cases) {
        json damaged = text;
        damaged[json::json_pointer(wanted.where)] = wanted.value;
        writeBytes(whole.file, damaged.dump());
        EXPECT_NE(whole.fault().find(wanted.fault), std::string::npos)
            << wanted.where << ": " << whole.fault();
    }
    writeBytes(whole.file, text.dump().substr(1));
    EXPECT_NE(whole.fault().find("holds no glTF text"), std::string::npos);
    writeBytes(whole.file, "{\"asset\": \"\xFF\"");
    EXPECT_EQ(whole.fault(), "") << "odd, but nothing to do with parts";
}

} // namespace
} // namespace morva_test
