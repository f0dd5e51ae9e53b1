// Atlases when memory runs out: one large allocation fails, every one in turn.

#include "tests/support/shortage.h"

#include "atlas_support.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/textures/morva_osg_kept_images.h>
#include <morva/textures/morva_osg_scene_atlas.h>
#include <morva/textures/texturatlas.h>

namespace {

using namespace morva::osg;

/// Large enough that their pixels are watched, and nothing else.
constexpr unsigned side = 80;

TEST(AtlasShortage, LeavesEachStepWholeOrUndone) {
    strays_expected = true; // of conversions, which are counted
    std::mt19937 rng(1);
    bytes pixels = randomPixels(rng, side * side, true);
    failInTurn(2048, [&](const auto& starved) {
        const ::osg::ImageRefPtr target(imageOf(6407, 2, 2));
        std::vector<ImageData> images(3, recordOf(side, side, &pixels, true)), one(1, images[0]),
            two(2, images[0]);
        morva::texturatlas packed;
        ASSERT_TRUE(createAtlas(packed, one, false, 10000));
        const std::size_t before = keptImages();
        unsigned char* converted = nullptr;
        bool filled = false;
        const stream_capture out(std::cout), err(std::cerr);
        const bool failed = starved([&] {
            converted = images[0].convertToRGB();
            EXPECT_TRUE(scaleImages(images, 1, 32)) << "the others are halved";
            filled = fillNewTexture(packed, one, target, false);
            buildAtlases({}, two, false, 256, false);
        });
        std::size_t made = converted != nullptr ? 1 : 0;
        for (const ImageData& record : images) {
            made += record.width == side / 2 ? 1 : 0;
            EXPECT_TRUE(record.width == side / 2 || record.data == pixels.data());
        }
        EXPECT_EQ(keptImages() - before, made);
        EXPECT_EQ(packed.placed.size(), filled ? 0U : 1U);
        EXPECT_EQ(target->getWidth(), filled ? int(side) : 2);
        EXPECT_EQ(two[0].inAtlas, two[0].atlasIndex == 0);
        EXPECT_EQ(failed, made < 4 || !filled || !two[0].inAtlas);
    });
}

TEST(AtlasShortage, GivesAMaterialAllItsChunksOrNone) {
    strays_expected = true; // a container whose first reference finds no room in the change list
    for (long index = 0; index < 200; ++index) {
        FixedTextureAtlas fixed;
        fixed.transparent = fixed.hasVertexColors = true;
        fixed.minifiedMaterial = ::osg::ChunkMaterial::create();
        fixed.width = fixed.height = 64;
        fixed.image = imageOf(6408, 64, 64);
        fixed.freeSpaces = {{0, 32, 64, 32}};
        try {
            const shortage one(index, 1, 1);
            fixed.getMinifiedMaterial();
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fixed.minifiedMaterial->getMFChunks()->empty()) << index;
        }
        EXPECT_EQ(fixed.getMinifiedMaterial()->getMFChunks()->size(), 3U) << index;
        const bool cut = fixed.minifiedImage.get() != fixed.image.get();
        EXPECT_EQ(fixed.usedHeight, cut ? 32U : 64U) << "uncut, and the sides say so";
    }
}

/// Two opaque images, and one that two nodes share a core for; a transparent pair; one that stays.
::osg::NodePtr texturedScene() {
    const auto shown = [](unsigned format, std::uint8_t value) {
        mesh_data mesh = quads(2);
        mesh.coordinates = {{0, 0}, {1, 0}, {1, 1}, {0, 3}, {0, 0}, {1, 0}, {1, 1}, {0, 1}};
        return meshNode(mesh, chunked({1, 1, 1, 1}, imageOf(format, 12, 16, value)));
    };
    const ::osg::NodePtr first = shown(6407, 3), grouped = shown(6407, 7);
    const ::osg::MaterialPtr look = coreOf(grouped)->getMaterial();
    const ::osg::NodePtr root = group(
        {first, nodeOf(first->getCore()), shown(6409, 4), shown(6408, 5), shown(6408, 6),
         materialGroup(look, {grouped, meshNode(row(4, 1)), switched(0, {meshNode(quads(1))})}),
         shown(6410, 8)});
    coreOf(grouped)->setMaterial(::osg::NullFC);
    return root;
}

TEST(AtlasShortage, LeavesASceneWithAllItsGeometry) {
    atlas_options options;
    options.textureSize = 64;
    options.texcoords = 5;
    options.optimizetc = 0;
    for (const bool exact : {false, true}) {
        options.exact = exact;
        failInTurn(33, [&](const auto& starved) {
            const node_ref root(texturedScene());
            const mesh_choice shape = {false, false, false, false, nullptr};
            const world_mesh before = worldMesh(root, shape);
            atlas_record record;
            const stream_capture out(std::cout), err(std::cerr);
            unsigned placed = 0;
            std::size_t shown = 0;
            bool ended = false;
            const bool failed = starved([&] {
                placed = createTextureAtlas(root.get(), options, record);
                ended = true;
            });
            EXPECT_EQ(broken_rule_of(root.get()), "");
            EXPECT_EQ(firstDifference(before, worldMesh(root, shape)), "");
            EXPECT_TRUE(failed || placed == 5) << placed;
            for (const ::osg::NodePtr& node : geometryNodes(root)) {
                ASSERT_TRUE(getMaterial(node) != ::osg::NullFC && getImage(node) != ::osg::NullFC);
                for (const recorded_atlas& atlas : record.atlases)
                    shown += getImage(node) == atlas.image.get() ? 1 : 0;
            }
            EXPECT_TRUE(!ended || shown == record.geometries);
            // What failed can be tried again.
            EXPECT_TRUE(!failed || createTextureAtlas(root.get(), options, record) <= 5);
        });
    }
}

} // namespace
