// Models look the same with their images in atlases.

#include "tests/support/test.h"

#include <filesystem>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/textures/morva_osg_scene_atlas.h>

#include "model.h"
#include "tests/support/picture_sampler.h"

namespace {

using namespace morva::osg;

const std::string several = "OBJ/spider.obj, IQM/mrfixit.iqm, Collada/kwxport_test_vcolors.dae, "
                            "MDL/MDL (HL1)/man.mdl, "
                            "glTF2/textureTransform/TextureTransformTest.gltf",
                  single = "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf, "
                           "glTF/BoxTextured-glTF/BoxTextured.gltf, "
                           "glTF2/BoxTextured-glTF/BoxTextured.gltf, MS3D/jeep1.ms3d, "
                           "LWO/LWO2/uvtest.lwo, MDL/MDL3 (3DGS A4)/minigun.MDL, "
                           "Collada/teapots.DAE, glTF2/ClearCoat-glTF/ClearCoatTest.gltf";

std::vector<std::string> namesIn(const std::string& list) {
    std::vector<std::string> names;
    for (std::size_t at = 0, comma = 0; comma != std::string::npos; at = comma + 2) {
        comma = list.find(", ", at);
        names.push_back(list.substr(at, comma - at));
    }
    return names;
}

/// All of them below one node; an empty scene if none is there.
::osg::NodePtr sceneOfModels(const std::vector<std::string>& names) {
    const ::osg::NodePtr root = group();
    for (const std::string& name : names) {
        const std::string file = std::string(MORVA_MODELS) + "/" + name;
        if (!std::filesystem::exists(file)) {
            std::cout << "not installed: " << file << "\n";
            continue;
        }
        const morva::host::model read = morva::host::readModel(file);
        root->addChild(read.root.get());
    }
    return root;
}

struct models_case {
    const char* name;
    std::vector<std::string> models;
    unsigned side;
    unsigned images;   ///< in atlases
    std::size_t nodes; ///< that show them
};

class Models : public testing::TestWithParam<models_case> {};

TEST_P(Models, ShowTheSamePictureWithAtlases) {
    for (const unsigned most : {0U, 2U}) {
        const unsigned padding = most == 0 ? 0 : 4;
        SCOPED_TRACE(testing::Message() << "cut at " << most << ", padding " << padding);
        const node_ref root(sceneOfModels(GetParam().models));
        if (root->getNChildren() < GetParam().models.size())
            GTEST_SKIP() << "models are missing";
        const picture before(root);
        const mesh_choice rest = {false, true, false, false, is_rogue};
        const world_mesh mesh = worldMesh(root, rest);
        atlas_options options;
        options.textureSize = GetParam().side;
        options.texcoords = 7;
        options.optimizetc = most;
        options.exact = true;
        options.padding = padding;
        atlas_record record;
        const stream_capture out(std::cout);
        const unsigned placed = createTextureAtlas(root.get(), options, record);
        EXPECT_EQ(placed, GetParam().images);
        const picture_comparison seen = comparePictures(before, picture(root), record, padding);
        EXPECT_EQ(seen.fault, "");
        EXPECT_EQ(seen.moved, GetParam().nodes);
        EXPECT_LE(seen.inset, 1.01);
        if (most == 0) {
            EXPECT_EQ(firstDifference(mesh, worldMesh(root, rest)), "");
        }
    }
}

std::vector<models_case> cases() {
    std::vector<models_case> all = {{"spider", {}, 2048, 4, 19},
                                    {"mrfixit", {}, 2048, 2, 2},
                                    {"kwxport", {}, 2048, 3, 3},
                                    {"man", {}, 2048, 3, 5},
                                    {"transforms", {}, 2048, 4, 9}};
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i].models = {namesIn(several)[i]};
    all.push_back({"all", namesIn(several + ", " + single), 8192, 23, 68});
    return all;
}

INSTANTIATE_TEST_SUITE_P(, Models, testing::ValuesIn(cases()),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
