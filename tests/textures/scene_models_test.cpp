// Models look the same with their images in atlases.

#include "tests/support/test.h"

#include <filesystem>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/textures/morva_osg_scene_atlas.h>

#include "model.h"
#include "tests/support/picture_sampler.h"

namespace {

using namespace morva::osg;

TEST(Models, ShowTheSamePictureWithAtlases) {
    const struct {
        std::string file;
        unsigned images;   ///< in atlases
        std::size_t nodes; ///< that show them
    } rows[] = {{"OBJ/spider.obj", 4, 19},
                {"IQM/mrfixit.iqm", 2, 2},
                {"Collada/kwxport_test_vcolors.dae", 3, 3},
                {"MDL/MDL (HL1)/man.mdl", 3, 5},
                {"glTF2/textureTransform/TextureTransformTest.gltf", 4, 9}};
    const mesh_choice rest = {false, true, false, false, is_rogue};
    atlas_options options;
    options.textureSize = 2048;
    options.texcoords = 7;
    options.exact = true;
    for (const auto& row : rows) {
        for (const unsigned most : {0U, 2U}) {
            SCOPED_TRACE(row.file);
            const std::string file = MORVA_MODELS "/" + row.file;
            if (!std::filesystem::exists(file))
                GTEST_SKIP() << "not installed: " << file;
            options.optimizetc = most;
            options.padding = 2 * most;
            const node_ref root(group({morva::host::readModel(file).root.get()}));
            const picture before(root);
            const world_mesh mesh = worldMesh(root, rest);
            atlas_record record;
            const stream_capture out(std::cout);
            EXPECT_EQ(createTextureAtlas(root.get(), options, record), row.images);
            const picture_comparison seen =
                comparePictures(before, picture(root), record, options.padding);
            EXPECT_EQ(seen.fault, "");
            EXPECT_EQ(seen.moved, row.nodes);
            EXPECT_LE(seen.inset, 1.01);
            EXPECT_TRUE(most > 0 || firstDifference(mesh, worldMesh(root, rest)).empty());
        }
    }
}

} // namespace
