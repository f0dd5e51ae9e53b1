// The steps of the scene atlas by themselves, and what a run tells of images that stay.

#include "atlas_support.h"
#include "naive_scene_atlas.h"

#include <morva/textures/morva_osg_scene_atlas.h>

namespace {

using namespace morva::osg;
constexpr float inf = std::numeric_limits<float>::infinity();

bool same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

TEST(AdjustTexCoords, IsThatOfItsTwin) {
    std::mt19937 rng(7303);
    const float odd[] = {0, -0.F, 1, 2, 0.5F, -3, 1e9F, 3e9F, -1e30F, inf, -inf, not_a_number};
    const int sides[] = {1, 2, 3, 7, 64, 100, 1024, 8192};
    for (int round = 0; round < 40000; ++round) {
        const auto any = [&] {
            const float near = float(rng() % 5) + float(int(rng() % 2000) - 1000) * 1e-6F;
            return rng() % 4 == 0   ? odd[rng() % std::size(odd)]
                   : rng() % 2 == 0 ? near
                                    : float(rng() % 1000000) * 3e-6F;
        };
        const ::osg::Vec2f before(any(), any());
        const auto side = [&] { return rng() % 9 == 0 ? 0 : sides[rng() % std::size(sides)]; };
        const int to_width = side(), to_height = side(), width = side(), height = side(),
                  x = int(rng() % 8000), y = int(rng() % 8000);
        ::osg::Vec2f now = before;
        EXPECT_TRUE(adjustTexCoords(now, to_width, to_height, width, height, x, y));
        const float wanted[] = {
            to_width == 0 || width == 0 ? before[0]
                                        : naive::adjusted(before[0], to_width, width, x),
            to_height == 0 || height == 0 ? before[1]
                                          : naive::adjusted(before[1], to_height, height, y)};
        ASSERT_TRUE(same(now[0], wanted[0]) && same(now[1], wanted[1]))
            << before << " became " << now << " with " << width << " in " << to_width;
    }
}

::osg::ImagePtr picture(int width, int height, unsigned format = 6407) {
    static std::uint8_t value = 0;
    return imageOf(format, width, height, ++value == 0 ? ++value : value);
}

mesh_data square(float reach = 0.5F) {
    mesh_data mesh = quads(1);
    mesh.coordinates = {{0, 0}, {reach, 0}, {reach, reach}, {0, reach}};
    return mesh;
}

TEST(ReplaceTextures, MovesWhatSeveralHaveOnce) {
    const ::osg::ImageRefPtr image(picture(8, 8));
    const ::osg::MaterialPtr material = chunked({1, 1, 1, 1}, image);
    const ::osg::GeometryPtr shared = geometryOf(square(), material),
                             other = geometryOf(square(), material);
    other->setTexCoords(shared->getTexCoords()); // one property of two cores
    const node_ref root(
        group({nodeOf(shared), nodeOf(shared), nodeOf(other), switched(0, {nodeOf(shared)})}));
    std::vector<ImageData> images;
    std::vector<::osg::NodePtr> nodes = {root->getChild(0), root->getChild(1), root->getChild(2),
                                         root->getChild(0)};
    collectImageData(nodes, images);
    ASSERT_EQ(images.size(), 1U);
    images[0].x = 16;
    images[0].y = 32;
    images[0].atlasIndex = 0;
    std::vector<FixedTextureAtlas> atlases(1);
    atlases[0].width = atlases[0].height = atlases[0].usedWidth = atlases[0].usedHeight = 64;
    atlases[0].image = picture(64, 64);
    atlases[0].freeSpaces = {{32, 0, 32, 64}};
    replaceTexturesByTextureAtlas(nodes, images, atlases);
    const float far[] = {64, 32, 32}; // the first one by the whole width
    for (const ::osg::UInt32 i : {0U, 1U, 2U}) {
        const ::osg::Vec2f corner = coreOf(root->getChild(i))->getTexCoords()->getValue(2);
        EXPECT_FLOAT_EQ(corner[0], 20 / far[i]) << i;
        EXPECT_FLOAT_EQ(corner[1], 36 / 64.F) << i;
        EXPECT_TRUE(coreOf(root->getChild(i))->getMaterial() == atlases[0].minifiedMaterial.get());
    }
    EXPECT_EQ(shared->getTexCoords()->getValue(2), ::osg::Vec2f(0.5F, 0.5F)) << "still elsewhere";
    // No image, no such atlas, null: all stays.
    images[0].atlasIndex = 7;
    const node_ref rest(group({meshNode(square()), meshNode(square(), material), group()}));
    nodes = {::osg::NullFC, rest.get(), rest->getChild(0), rest->getChild(1), rest->getChild(2)};
    replaceTexturesByTextureAtlas(nodes, images, atlases);
    EXPECT_TRUE(coreOf(rest->getChild(1))->getMaterial() == material);
}

TEST(CollectImageData, TellsImagesAndHowFarTheyReach) {
    strays_expected = true; // copies as RGB stay
    const ::osg::ImageRefPtr first(picture(4, 2)), grey(picture(3, 3, 6409));
    using Image = ::osg::Image;
    const ::osg::ImageRefPtr wide(Image::create()), clear(imageOf(6410, 2, 2, 9)),
        packed(Image::create()), bare(Image::create());
    wide->set(6407, 2, 2, 1, 1, 1, 0.0, nullptr, Image::OSG_UINT16_IMAGEDATA);
    packed->set(Image::OSG_RGB_DXT1, 4, 4);
    bare->set(6407, 1, 1, 1, 1, 1, 0.0, nullptr, Image::OSG_UINT8_IMAGEDATA, false);
    const auto show = [](float reach, const ::osg::ImagePtr& image) {
        return meshNode(square(reach), chunked({1, 1, 1, 1}, image));
    };
    mesh_data plain = quads(1);
    const node_ref root(
        group({show(1, first), show(3, first), meshNode(plain, chunked({1, 1, 1, 1}, first)),
               show(2, wide), show(2, clear), show(-4, grey), hidden(show(9, first)),
               switched(0, {show(9, first)}), meshNode(square(9)), show(0, picture(5, 5, 6408))}));
    std::vector<ImageData> images;
    collectImageData(root.get(), images);
    ASSERT_EQ(images.size(), 3U);
    EXPECT_TRUE(images[0].data == first->getData() && images[0].maxTexCoordU == 3 &&
                images[0].maxTexCoordV == 3 && !images[0].hasAlpha);
    EXPECT_TRUE(images[1].data != grey->getData() && images[1].maxTexCoordU == 0);
    EXPECT_EQ(bytes(images[1].data, images[1].data + 27), bytes(27, grey->getData()[0]));
    EXPECT_TRUE(images[2].hasAlpha && images[2].width == 5 && images[2].maxTexCoordV == 0);
    for (const ImageData& image : images)
        EXPECT_TRUE(image.x == -1 && image.y == -1 && !image.inAtlas && image.atlasIndex == -1);
    collectImageData(root.get(), images);
    EXPECT_EQ(images.size(), 3U) << "what is there is known";
    collectImageData(::osg::NullFC, images);
}

TEST(CreateTextureAtlas, TellsWhyAnImageStays) {
    const auto lines = [] {
        mesh_data mesh = square();
        mesh.primitives = {{7, 4}, {1, 2}};
        mesh.positions.resize(6);
        mesh.coordinates.resize(6);
        return mesh;
    };
    const auto look = [](int side, const auto& change, unsigned format = 6407) {
        const ::osg::ChunkMaterialPtr material = chunked({1, 1, 1, 1}, picture(side, side, format));
        change(*material, ::osg::TextureChunkPtr::dcast(material->getChunks(1)));
        return material;
    };
    const auto as_it_is = [](auto&, auto) {};
    const auto clamped = [](auto&, auto texture) { texture->setWrapT(0x812F); };
    const auto twice = [](auto& material, auto) {
        const ::osg::TextureChunkPtr second = ::osg::TextureChunk::create();
        ::osg::ImagePtr image = picture(4, 4);
        second->setImage(image);
        material.addChunk(second);
    };
    const auto colored = [](auto& material, auto) {
        material.addChunk(::osg::MaterialChunk::create());
    };
    const auto second = [](auto& material, auto texture) {
        const ::osg::TextureChunkRefPtr held(texture);
        material.subChunk(texture);
        material.addChunk(texture, 1);
    };
    const ::osg::ImageRefPtr wide(imageOf(6410, 4, 4, 9)), film(::osg::Image::create());
    film->set(6407, 4, 4, 1, 1, 2);
    const struct {
        ::osg::NodePtr node;
        atlas_obstacle obstacle;
    } cases[] = {{meshNode(square(), chunked({1, 1, 1, 1}, wide)), atlas_obstacle::image_format},
                 {meshNode(square(), chunked({1, 1, 1, 1}, film)), atlas_obstacle::image_format},
                 {meshNode(lines(), look(8, as_it_is)), atlas_obstacle::no_triangles},
                 {meshNode(square(), look(33, as_it_is)), atlas_obstacle::above_half},
                 {meshNode(square(9), look(4, as_it_is)), atlas_obstacle::coordinates_beyond},
                 {meshNode(square(2), look(8, clamped)), atlas_obstacle::clamped},
                 {meshNode(square(), look(8, twice)), atlas_obstacle::several_textures},
                 {meshNode(square(), look(8, colored)), atlas_obstacle::other_effects},
                 {meshNode(square(), look(8, second)), atlas_obstacle::other_effects},
                 {meshNode(square(60.5F), look(8, as_it_is)), atlas_obstacle::coordinates_bent},
                 {meshNode(square(0), look(8, as_it_is)), atlas_obstacle::no_area},
                 {meshNode(square(4), look(20, as_it_is)), atlas_obstacle::larger_than_atlas},
                 {meshNode(square(), look(8, as_it_is, 6408)), atlas_obstacle::only_image}};
    const node_ref root(
        group({meshNode(square(), look(8, as_it_is)), meshNode(square(), look(16, as_it_is))}));
    for (const auto& row : cases)
        root->addChild(row.node);
    atlas_options options;
    options.textureSize = 64;
    options.texcoords = 5;
    options.optimizetc = 0;
    options.exact = true;
    atlas_record record;
    const stream_capture out(std::cout);
    EXPECT_EQ(createTextureAtlas(root.get(), options, record), 2U);
    ASSERT_EQ(record.left_out.size(), std::size(cases));
    for (const auto& row : cases) {
        const ::osg::ImagePtr image = getImage(row.node);
        const auto told =
            std::find_if(record.left_out.begin(), record.left_out.end(),
                         [&](const left_out_image& one) { return one.image.get() == image; });
        ASSERT_TRUE(told != record.left_out.end()) << textOf(row.obstacle);
        EXPECT_STREQ(textOf(told->obstacle), textOf(row.obstacle));
        EXPECT_EQ(told->geometries, 1U);
    }
    ASSERT_EQ(record.atlases.size(), 1U);
    EXPECT_EQ(record.geometries, 2U);
    EXPECT_DOUBLE_EQ(record.atlases[0].occupancy, 320.0 / (64 * 16));
}

TEST(CreateTextureAtlas, KeepsARootAndTakesAnySide) {
    const struct {
        unsigned asked;
        int largest; ///< side of an image that still goes in
        bool text;
    } cases[] = {{16, 4096, true}, {31, 4096, true},    {32, 16, false},    {33, 16, false},
                 {100, 50, false}, {8192, 4096, false}, {8193, 4096, true}, {0, 4096, true}};
    for (const auto& row : cases) {
        for (const int more : {0, 1}) {
            const node_ref root(
                group({meshNode(square(), chunked({1, 1, 1, 1}, picture(row.largest + more, 1))),
                       meshNode(square(), chunked({1, 1, 1, 1}, picture(3, 2)))}));
            const stream_capture out(std::cout);
            EXPECT_EQ(createTextureAtlasForScene(root.get(), row.asked, 2, 2), more == 0 ? 2U : 0U)
                << row.asked;
            const std::string line = "createTextureAtlasForScene: Texture Size must between 32x32 "
                                     "and 8192x8192.\n";
            EXPECT_EQ(out.text().compare(0, line.size(), line) == 0, row.text);
        }
    }
    const stream_capture out(std::cout);
    const node_ref geometry(meshNode(square(), chunked({1, 1, 1, 1}, picture(3, 2))));
    const ::osg::NodeCorePtr core = geometry->getCore();
    EXPECT_EQ(createTextureAtlasForScene(geometry.get(), 64, 2, 2), 0U);
    EXPECT_TRUE(geometry->getCore() == core && geometry->getParent() == ::osg::NullFC);
    EXPECT_EQ(createTextureAtlasForScene(::osg::NullFC, 16, 2, 2), 0U);
    EXPECT_EQ(out.text(), "1 solid images collected for texture atlas.\n"
                          "0 transparent images collected for texture atlas.\n"
                          "0 solid images processed.\n0 transparent images processed.\n");
}

TEST(CreateTextureAtlas, TakesManyNodesOnOneImage) {
    for (const bool exact : {false, true}) {
        const ::osg::ImageRefPtr image(picture(16, 16));
        const ::osg::NodePtr top =
            group({meshNode(square(), chunked({1, 1, 1, 1}, picture(8, 8)))});
        const node_ref root(top);
        for (int i = 0; i < 10000; ++i) // some equal looks, in materials of their own
            top->addChild(meshNode(square(), chunked({float(i % 2), 1, 1, 1}, image)));
        atlas_options options;
        options.textureSize = 512;
        options.padding = 1000; // of which 64 are taken
        options.exact = exact;
        atlas_record record;
        const stream_capture out(std::cout);
        EXPECT_EQ(createTextureAtlas(root.get(), options, record), 2U);
        EXPECT_EQ(record.geometries, 10001U);
        std::set<::osg::MaterialPtr> materials;
        for (const ::osg::NodePtr& node : geometryNodes(root))
            materials.insert(coreOf(node)->getMaterial());
        EXPECT_EQ(materials.size(), exact ? 2U : 1U);
    }
}

TEST(CreateTextureAtlas, LeavesAGroupWithoutMaterialWhereThatWouldShow) {
    const auto look = [](int side) { return chunked({1, 1, 1, 1}, picture(side, side)); };
    const ::osg::NodePtr plain = meshNode(square());
    const node_ref root(group({meshNode(square(), look(4)),
                               materialGroup(::osg::NullFC, {meshNode(square(), look(8)),
                                                             materialGroup(look(2), {plain})})}));
    atlas_options options;
    options.textureSize = 64;
    options.exact = true;
    atlas_record record;
    const stream_capture out(std::cout);
    EXPECT_EQ(createTextureAtlas(root.get(), options, record), 2U);
    EXPECT_TRUE(getMaterial(plain) == ::osg::NullFC);
}

} // namespace
