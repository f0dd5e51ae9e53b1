// Models look the same with their images in atlases.

#include "tests/support/test.h"

#include <filesystem>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/textures/morva_osg_scene_atlas.h>

#include "model.h"
#include "tests/support/picture_sampler.h"

namespace {

using namespace morva::osg;

struct model_row {
    std::string file;
    unsigned images;   ///< in atlases
    std::size_t nodes; ///< that show them
};

void expectSamePicture(const model_row& row, unsigned most, unsigned padding) {
    SCOPED_TRACE(testing::Message() << "cut at " << most << ", padding " << padding);
    const node_ref root(group({morva::host::readModel(MORVA_MODELS "/" + row.file).root.get()}));
    const picture before(root);
    const mesh_choice rest = {false, true, false, false, is_rogue};
    const world_mesh mesh = worldMesh(root, rest);
    atlas_options options;
    options.textureSize = 2048;
    options.texcoords = 7;
    options.optimizetc = most;
    options.exact = true;
    options.padding = padding;
    atlas_record record;
    const stream_capture out(std::cout);
    EXPECT_EQ(createTextureAtlas(root.get(), options, record), row.images);
    const picture_comparison seen = comparePictures(before, picture(root), record, padding);
    EXPECT_EQ(seen.fault, "");
    EXPECT_EQ(seen.moved, row.nodes);
    EXPECT_LE(seen.inset, 1.01);
    if (most == 0) {
        EXPECT_EQ(firstDifference(mesh, worldMesh(root, rest)), "");
    }
}

TEST(Models, ShowTheSamePictureWithAtlases) {
    for (const model_row& row : std::initializer_list<model_row>{
             {"OBJ/spider.obj", 4, 19},
             {"IQM/mrfixit.iqm", 2, 2},
             {"Collada/kwxport_test_vcolors.dae", 3, 3},
             {"MDL/MDL (HL1)/man.mdl", 3, 5},
             {"glTF2/textureTransform/TextureTransformTest.gltf", 4, 9}}) {
        SCOPED_TRACE(row.file);
        if (!std::filesystem::exists(MORVA_MODELS "/" + row.file)) {
            std::cout << "not installed: " << row.file << "\n";
            continue;
        }
        expectSamePicture(row, 0, 0);
        expectSamePicture(row, 2, 4);
    }
}

} // namespace
