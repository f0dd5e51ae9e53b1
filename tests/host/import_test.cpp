#include "tests/support/test.h"

#include <csignal>
#include <numeric>

#include <unistd.h>

#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>

#include "assimp_import.h"
#include "assimp_record.h"
#include "child_process.h"
#include "geometry_view.h"
#include "host_error.h"
#include "mirrored_parts.h"
#include "statistics.h"
#include "tests/support/placed_scenes.h"
#include "triangle_measures.h"

namespace morva_test {
namespace {

using morva::host::host_error;
using morva::host::model;

/// Sends a scene to this process, which small ones can, and converts what arrives.
void importHandedOver(const aiScene& scene, model& target) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    morva::host::pipe_reader in(ends[0]);
    morva::host::pipe_writer out(ends[1]);
    morva::host::sendScene(scene, {}, out);
    out.flush();
    const morva::host::handed_scene handed = morva::host::receiveScene(in);
    target.materials = morva::host::importScene(
        handed, "", [&](unsigned) { return morva::host::receiveMesh(in); }, target);
}

/// A root "root" with two children, "a" and "b", that share one mesh of one triangle.
std::unique_ptr<aiScene> smallScene() {
    auto* mesh = new aiMesh;
    mesh->mName = "mesh";
    mesh->mNumVertices = 3;
    mesh->mVertices = new aiVector3D[3]{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh->mNumFaces = 1;
    mesh->mFaces = new aiFace[1];
    mesh->mFaces[0].mNumIndices = 3;
    mesh->mFaces[0].mIndices = new unsigned[3]{0, 1, 2};
    mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    auto scene = std::make_unique<aiScene>();
    scene->mNumMeshes = scene->mNumMaterials = 1;
    scene->mMeshes = new aiMesh* [1] { mesh };
    scene->mMaterials = new aiMaterial* [1] { new aiMaterial };
    scene->mRootNode = new aiNode("root");
    scene->mRootNode->mNumChildren = 2;
    scene->mRootNode->mChildren = new aiNode* [2] { new aiNode("a"), new aiNode("b") };
    for (unsigned i = 0; i < 2; ++i) {
        aiNode& child = *scene->mRootNode->mChildren[i];
        child.mParent = scene->mRootNode;
        child.mNumMeshes = 1;
        child.mMeshes = new unsigned[1]{0};
    }
    return scene;
}

TEST(Import, RecordsWhereAndHowTexturesLie) {
    const std::unique_ptr<aiScene> scene = smallScene();
    scene->mNumTextures = 1;
    scene->mTextures = new aiTexture* [1] { new aiTexture };
    scene->mTextures[0]->mWidth = scene->mTextures[0]->mHeight = 1;
    scene->mTextures[0]->pcData = new aiTexel[1]{{255, 128, 128, 255}};
    aiMaterial& material = *scene->mMaterials[0];
    const aiString name("*0");
    for (const aiTextureType type :
         {aiTextureType_NORMAL_CAMERA, aiTextureType_METALNESS, aiTextureType_DIFFUSE_ROUGHNESS})
        material.AddProperty(&name, AI_MATKEY_TEXTURE(type, 0));
    aiUVTransform transform;
    transform.mScaling = {2, 2};
    transform.mTranslation = {.25f, .5f};
    const int set = 1, clamp = aiTextureMapMode_Clamp;
    material.AddProperty(&transform, 1, AI_MATKEY_UVTRANSFORM(aiTextureType_NORMAL_CAMERA, 0));
    material.AddProperty(&set, 1, AI_MATKEY_UVWSRC(aiTextureType_METALNESS, 0));
    material.AddProperty(&clamp, 1, AI_MATKEY_MAPPINGMODE_U(aiTextureType_METALNESS, 0));
    model target;
    importHandedOver(*scene, target);
    morva::host::keepLibraryRecords(*scene, "", target);
    EXPECT_TRUE(target.notes.empty());
    const auto* const record = target.records.find(target.materials.at(0).get());
    ASSERT_NE(record, nullptr);
    ASSERT_EQ(record->uses.size(), 2u);
    EXPECT_EQ(record->material["normalTexture"]["extensions"]["KHR_texture_transform"],
              nlohmann::json::parse(R"({"offset":[0.5,-2.0],"rotation":0.0,"scale":[2.0,2.0]})"));
    EXPECT_EQ(record->uses[1].unit, 1u);
    EXPECT_EQ(target.records.textures()[record->uses[1].texture].sampler["wrapS"], 33071);
    EXPECT_EQ(record->material["pbrMetallicRoughness"]["metallicFactor"], 1);
}

TEST(Import, SortsFacesByKindAndKeepsTheirOrder) {
    const std::unique_ptr<aiScene> scene = smallScene();
    aiMesh& mesh = *scene->mMeshes[0];
    delete[] mesh.mVertices;
    delete[] mesh.mFaces;
    mesh.mNumVertices = 5;
    mesh.mVertices = new aiVector3D[5];
    const std::vector<std::vector<unsigned>> faces = {
        {4}, {0, 1, 2}, {3, 4}, {}, {0, 1, 2, 3, 4}, {2, 1, 0}, {1, 0}};
    mesh.mNumFaces = unsigned(faces.size());
    mesh.mFaces = new aiFace[faces.size()];
    for (std::size_t f = 0; f < faces.size(); ++f) {
        mesh.mFaces[f].mNumIndices = unsigned(faces[f].size());
        mesh.mFaces[f].mIndices = new unsigned[faces[f].size() + 1];
        std::copy(faces[f].begin(), faces[f].end(), mesh.mFaces[f].mIndices);
    }
    model target;
    importHandedOver(*scene, target);
    const auto core = ::osg::GeometryPtr::dcast(target.root.get()->getChild(0)->getCore());
    std::vector<std::pair<unsigned, unsigned>> primitives;
    for (::osg::UInt32 i = 0; i < core->getTypes()->getSize(); ++i)
        primitives.emplace_back(core->getTypes()->getValue(i), core->getLengths()->getValue(i));
    EXPECT_EQ(primitives,
              (std::vector<std::pair<unsigned, unsigned>>{{4, 6}, {1, 4}, {0, 1}, {9, 5}}));
    std::vector<unsigned> indices;
    for (::osg::UInt32 i = 0; i < core->getIndices()->getSize(); ++i)
        indices.push_back(core->getIndices()->getValue(i));
    EXPECT_EQ(indices, (std::vector<unsigned>{0, 1, 2, 2, 1, 0, 3, 4, 1, 0, 4, 0, 1, 2, 3, 4}));
}

template <typename T> void drop(T*& one) {
    delete one;
    one = nullptr;
}
template <typename T> void dropArray(T*& all) {
    delete[] all;
    all = nullptr;
}

void deepen(aiScene& scene) {
    aiNode* last = scene.mRootNode->mChildren[0];
    for (int i = 0; i < 2002; ++i) {
        last->mNumChildren = 1;
        last->mChildren = new aiNode* [1] { new aiNode("deeper") };
        last = last->mChildren[0];
    }
}

struct hostile_case {
    const char* name;
    std::function<void(aiScene&)> spoil;
    const char* message; ///< null: must pass
};

const hostile_case hostile_cases[] = {
    {"index_out_of_range", [](aiScene& s) { s.mMeshes[0]->mFaces[0].mIndices[1] = 3; },
     "uses vertex 3 of 3"},
    {"highest_index", [](aiScene& s) { s.mMeshes[0]->mFaces[0].mIndices[1] = 0xFFFFFFFFu; },
     "uses vertex 4294967295"},
    {"no_vertices", [](aiScene& s) { dropArray(s.mMeshes[0]->mVertices); }, "has no vertices"},
    {"no_face_array", [](aiScene& s) { dropArray(s.mMeshes[0]->mFaces); },
     "faces without an array"},
    {"face_without_indices", [](aiScene& s) { dropArray(s.mMeshes[0]->mFaces[0].mIndices); },
     "face without indices"},
    {"mesh_out_of_range", [](aiScene& s) { s.mRootNode->mChildren[0]->mMeshes[0] = 7; },
     "uses mesh 7 of 1"},
    {"null_mesh", [](aiScene& s) { drop(s.mMeshes[0]); }, "uses mesh 0"},
    {"matrix_with_nan", [](aiScene& s) { s.mRootNode->mTransformation.b2 = NAN; }, "is not finite"},
    {"node_twice_in_the_tree",
     [](aiScene& s) {
         delete s.mRootNode->mChildren[1];
         s.mRootNode->mChildren[1] = s.mRootNode->mChildren[0];
     },
     "no tree"},
    {"a_tree_too_deep_for_recursion", deepen, "is deeper than 2000"},
    {"no_root", [](aiScene& s) { drop(s.mRootNode); }, "no scene"},
    {"null_child", [](aiScene& s) { drop(s.mRootNode->mChildren[1]); }, nullptr},
    {"material_out_of_range", [](aiScene& s) { s.mMeshes[0]->mMaterialIndex = 99; }, nullptr},
    {"null_material", [](aiScene& s) { drop(s.mMaterials[0]); }, nullptr},
    {"texture_that_is_not_there",
     [](aiScene& s) {
         const aiString file("*17");
         s.mMaterials[0]->AddProperty(&file, AI_MATKEY_TEXTURE_DIFFUSE(0));
     },
     nullptr},
    {"material_with_odd_numbers",
     [](aiScene& s) {
         const float bad[] = {NAN, INFINITY};
         s.mMaterials[0]->AddProperty(bad, 2, AI_MATKEY_COLOR_DIFFUSE);
         s.mMaterials[0]->AddProperty(bad, 1, AI_MATKEY_ROUGHNESS_FACTOR);
         s.mMaterials[0]->AddProperty(bad + 1, 1, AI_MATKEY_METALLIC_FACTOR);
         s.mMaterials[0]->AddProperty(bad, 1, AI_MATKEY_OPACITY);
     },
     nullptr},
    {"mesh_without_faces", [](aiScene& s) { s.mMeshes[0]->mNumFaces = 0; }, nullptr}};

TEST(Import, AHostileSceneIsRefusedWithAReasonOrReadSafely) {
    for (const hostile_case& row : hostile_cases) {
        SCOPED_TRACE(row.name);
        const std::unique_ptr<aiScene> scene = smallScene();
        row.spoil(*scene);
        std::string message;
        try {
            model target;
            importHandedOver(*scene, target);
            morva::host::measureScene(target.root.get());
        } catch (const host_error& error) {
            message = error.what();
        }
        if (row.message == nullptr)
            EXPECT_EQ(message, "");
        else
            EXPECT_NE(message.find(row.message), std::string::npos) << message;
        // The scene's own destructor must not meet a node twice.
        if (scene->mRootNode != nullptr && scene->mRootNode->mNumChildren == 2 &&
            scene->mRootNode->mChildren[0] == scene->mRootNode->mChildren[1])
            scene->mRootNode->mNumChildren = 1;
    }
}

/// A part as it stands in the world.
struct standing_part {
    std::string name;
    ::osg::UInt32 core = 0;
    double determinant = 0;
    std::vector<std::array<::osg::Pnt3f, 3>> faces;
    std::vector<::osg::Pnt3f> ends;  ///< of lines, and points
    std::vector<::osg::Vec3f> sides; ///< normals of the corners of faces, of any length
};

std::vector<standing_part> standing(const ::osg::NodePtr& root) {
    std::vector<standing_part> parts;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        standing_part part;
        part.name = ::osg::getName(node) != nullptr ? ::osg::getName(node) : "";
        part.core = coreOf(node).getFieldContainerId();
        const morva::host::geometry_view view(coreOf(node));
        const ::osg::Matrix world = node->getToWorld();
        const auto column = [&world](::osg::UInt32 i) {
            return ::osg::Vec3f(world[i][0], world[i][1], world[i][2]);
        };
        const ::osg::Vec3f across[] = {column(1).cross(column(2)), column(2).cross(column(0)),
                                       column(0).cross(column(1))};
        part.determinant = double(column(0).dot(across[0]));
        const morva::host::placement place(node);
        const std::vector<::osg::Pnt3f> moved = morva::host::placed(view, &place);
        const auto at = [&](std::size_t corner) { return moved[view.positions.row(corner)]; };
        forEachTriangle(view, [&](std::size_t a, std::size_t b, std::size_t c) {
            part.faces.push_back({at(a), at(b), at(c)});
            for (const std::size_t corner : {a, b, c}) {
                const auto* n =
                    view.normals.present ? view.normals.find<::osg::Vec3f>(corner) : nullptr;
                ::osg::Vec3f turned(0, 0, 0);
                for (::osg::UInt32 i = 0; n != nullptr && i < 3; ++i)
                    turned += across[i] * ((*n)[i] * (part.determinant < 0 ? -1.F : 1.F));
                part.sides.push_back(turned);
            }
        });
        forEachLine(view, [&](std::size_t a, std::size_t b) {
            part.ends.insert(part.ends.end(), {at(a), at(b)});
        });
        forEachPoint(view, [&](std::size_t a) { part.ends.push_back(at(a)); });
        parts.push_back(std::move(part));
    }
    return parts;
}

TEST(Import, MakesMirroredPartsUprightWhereTheyAre) {
    std::size_t mirrored = 0;
    for (unsigned seed = 0; seed < roundsOf(60U); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seedOf(seed));
        const node_ref root(anyScene(rng, 3));
        const ::osg::NodePtr shared = meshNode(withNormals(mixture(rng, 9), rng));
        ::osg::Matrix flat;
        flat.setScale(-1, 2, 0);
        for (int i = 0; i < 3; ++i)
            root->addChild(transformed(
                anyFrame(rng), {detailed({nodeOf(shared->getCore(), {meshNode(strip(7))}),
                                          transformed(anyFrame(rng), {nodeOf(shared->getCore())}),
                                          meshNode(withIndexPerProperty(
                                              withNormals(mixture(rng, 9), rng), rng))})}));
        root->addChild(transformed(flat, {transformed(anyFrame(rng), {shared})}));
        const std::vector<standing_part> before = standing(root.get());
        morva::host::uprightMirroredParts(root.get());
        const std::vector<standing_part> after = standing(root.get());
        ASSERT_EQ(after.size(), before.size());
        std::set<std::pair<::osg::UInt32, bool>> used;
        std::set<::osg::UInt32> cores;
        for (std::size_t i = 0; i < before.size(); ++i) {
            const bool was_mirrored = before[i].determinant < 0;
            mirrored += was_mirrored ? 1 : 0;
            used.emplace(before[i].core, was_mirrored);
            cores.insert(after[i].core);
            EXPECT_EQ(after[i].determinant, std::abs(before[i].determinant));
            EXPECT_EQ(after[i].core == before[i].core, !was_mirrored);
            EXPECT_EQ(after[i].name, before[i].name);
            EXPECT_EQ(after[i].ends, before[i].ends);
            standing_part expected = before[i];
            for (std::size_t f = 0; was_mirrored && f < expected.faces.size(); ++f) {
                std::swap(expected.faces[f][1], expected.faces[f][2]);
                std::swap(expected.sides[3 * f + 1], expected.sides[3 * f + 2]);
            }
            EXPECT_EQ(after[i].faces, expected.faces);
            EXPECT_EQ(after[i].sides, expected.sides);
        }
        EXPECT_EQ(cores.size(), used.size()) << "one copy for all that share a core";
    }
    EXPECT_GT(mirrored, 100U);
}

TEST(ChildProcess, SendsValuesOfAnySizeAndTellsHowItEnded) {
    using morva::host::pipe_writer;
    std::vector<unsigned> numbers(3000000);
    std::iota(numbers.begin(), numbers.end(), 7u);
    const std::pair<std::function<void(pipe_writer&)>, std::string> rows[] = {
        {[](pipe_writer&) { std::raise(SIGABRT); }, "gave up (abort)"},
        {[](pipe_writer&) { std::raise(SIGKILL); }, "was killed"},
        {[](pipe_writer&) { throw std::bad_alloc(); }, "ended early"},
        {[](pipe_writer& out) { out.value('x'); }, "ended early"}};
    for (const auto& [end, told] : rows) {
        morva::host::child_process child([&, end = end](pipe_writer& out) {
            std::cerr << "nobody hears this";
            out.text("abc");
            out.list(numbers);
            out.list(std::vector<char>());
            out.flush();
            end(out);
        });
        EXPECT_EQ(child.output().text(), "abc");
        std::vector<unsigned> came;
        child.output().list(came);
        EXPECT_TRUE(came == numbers);
        EXPECT_EQ(child.output().value<std::uint64_t>(), 0u);
        EXPECT_THROW(child.output().value<int>(), morva::host::pipe_ended);
        EXPECT_EQ(child.crash().substr(0, told.size()), told);
    }
}

TEST(ChildProcess, GoesWithItsOwner) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        const morva::host::child_process endless([](morva::host::pipe_writer&) { pause(); });
    }
    close(ends[1]);
    char nothing = 0;
    EXPECT_EQ(read(ends[0], &nothing, 1), 0) << "somebody still has the other end";
    close(ends[0]);
}

} // namespace
} // namespace morva_test
