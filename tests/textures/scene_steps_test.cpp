// The steps of the scene atlas by themselves, and what a run tells of images that stay.

#include "atlas_support.h"

#include <OpenSG/OSGSimpleTexturedMaterial.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/textures/morva_osg_scene_atlas.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace {

using namespace morva::osg;

TEST(AdjustTexCoords, IsExactInSinglePrecision) {
    const float rows[][2] = {{0, 1}, {0.5F, 4}, {1, 7}, {-3, 1}, {2.9F, 22.2F}, {1.999F, 14.992F}};
    for (const auto& [before, texels] : rows) { // of an image of 8 texels, of which one is kept off
        ::osg::Vec2f now(before, 0.5F);
        EXPECT_TRUE(adjustTexCoords(now, 64, 0, 8, 8, 16, 16));
        EXPECT_FLOAT_EQ(now[0], (texels + 16) / 64) << before;
        EXPECT_EQ(now[1], 0.5F) << "no side";
    }
}

TEST(CoordinateQueries, LookAtTheStoredOrTheNormalisedOnes) {
    const node_ref root(group({meshNode(quads(1), chunked({1, 1, 1, 1}, imageOf(6407, 9, 16)))}));
    const ::osg::NodePtr node = root->getChild(0);
    const auto values = ::osg::GeoTexCoords2f::create();
    coreOf(node)->setTexCoords(values);
    for (const float u : {5.0F, 7.5F, 7.5F, 6.0F})
        values->editField().push_back(::osg::Vec2f(u, -0.5F));
    float u = 0, v = 0;
    EXPECT_TRUE(hasTexCoordsGreater1(values, u, v, false) && u == 7.5F && v == 0);
    EXPECT_TRUE(hasTexCoordsGreater1(values, u, v, true) && u == 2.5F && v == 0.5F);
    EXPECT_TRUE(hasTexCoordsSmaller0(values, u, v) && u == 0 && v == -0.5F);
    EXPECT_TRUE(hasTCabove(node, 7, false) && !hasTCabove(node, 8, false));
    EXPECT_TRUE(hasTCabove(node, 2, true) && !hasTCabove(node, 3, true));
    std::vector<ImageData> images;
    collectImageData(root.get(), images);
    EXPECT_EQ(searchImageData(images, images.at(0).data, 9, 16), 0U);
    const std::vector<unsigned char> other(9 * 16 * 3, 1);
    EXPECT_EQ(searchImageData(images, other.data(), 9, 16), ~0U);
    EXPECT_EQ(searchImageData(images, images[0].data, 9, 17), ~0U);
    EXPECT_EQ(searchImageData(images, nullptr, 9, 16), ~0U);
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

/// A square with an image of its own.
::osg::NodePtr shown(float reach, const ::osg::ImagePtr& image) {
    return meshNode(square(reach), chunked({1, 1, 1, 1}, image));
}

TEST(ReplaceTextures, MovesWhatSeveralHaveOnce) {
    const node_ref root(shown(0.5F, picture(8, 8)));
    const geometry_ref shared(coreOf(root)), other(geometryOf(square(), shared->getMaterial()));
    other->setTexCoords(shared->getTexCoords()); // one property of two cores
    const node_ref more(group({nodeOf(shared), nodeOf(other), nodeOf(shared)}));
    std::vector<ImageData> images;
    std::vector<::osg::NodePtr> nodes = {root, more->getChild(0), more->getChild(1), root};
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
    for (const std::size_t i : {0U, 1U, 2U}) {
        const ::osg::Vec2f corner = coreOf(nodes[i])->getTexCoords()->getValue(2);
        EXPECT_FLOAT_EQ(corner[0], 20 / far[i]) << i;
        EXPECT_FLOAT_EQ(corner[1], 36 / 64.F) << i;
        EXPECT_TRUE(coreOf(nodes[i])->getMaterial() == atlases[0].minifiedMaterial.get());
    }
    EXPECT_EQ(shared->getTexCoords()->getValue(2), ::osg::Vec2f(0.5F, 0.5F)) << "still elsewhere";
}

TEST(CreateTextureAtlas, TellsWhyAnImageStays) {
    mesh_data lines = square();
    lines.primitives = {{7, 4}, {1, 2}};
    lines.positions.resize(6);
    lines.coordinates.resize(6);
    using Texture = ::osg::TextureChunkPtr;
    const auto changed = [](float reach, const auto& change) {
        const ::osg::ChunkMaterialPtr material = chunked({1, 1, 1, 1}, picture(8, 8));
        change(*material, Texture::dcast(material->getChunks(1)));
        return meshNode(square(reach), material);
    };
    const auto clamped = [](auto&, Texture texture) { texture->setWrapT(0x812F); };
    const auto twice = [](auto& material, Texture) {
        const Texture second = ::osg::TextureChunk::create();
        ::osg::ImagePtr image = picture(4, 4);
        second->setImage(image);
        material.addChunk(second);
    };
    const auto colored = [](auto& material, Texture) {
        material.addChunk(::osg::MaterialChunk::create());
    };
    const auto second = [](auto& material, Texture texture) {
        const ::osg::TextureChunkRefPtr held(texture);
        material.subChunk(texture);
        material.addChunk(texture, 1);
    };
    const ::osg::SimpleTexturedMaterialPtr plain = ::osg::SimpleTexturedMaterial::create();
    ::osg::ImagePtr opaque = imageOf(6408, 16, 16);
    plain->setImage(opaque);
    plain->setEnvMode(0x1E01);
    const std::pair<::osg::NodePtr, atlas_obstacle> cases[] = {
        {shown(0.5F, imageOf(6410, 4, 4, 9)), atlas_obstacle::image_format},
        {meshNode(lines, chunked({1, 1, 1, 1}, picture(8, 8))), atlas_obstacle::no_triangles},
        {shown(0.5F, picture(33, 33)), atlas_obstacle::above_half},
        {shown(9, picture(4, 4)), atlas_obstacle::coordinates_beyond},
        {changed(2, clamped), atlas_obstacle::clamped},
        {changed(0.5F, twice), atlas_obstacle::several_textures},
        {changed(0.5F, colored), atlas_obstacle::other_effects},
        {changed(0.5F, second), atlas_obstacle::other_effects},
        {shown(60.5F, picture(8, 8)), atlas_obstacle::coordinates_bent},
        {shown(0, picture(8, 8)), atlas_obstacle::no_area},
        {shown(4, picture(20, 20)), atlas_obstacle::larger_than_atlas},
        {shown(0.5F, picture(8, 8, 6408)), atlas_obstacle::only_image}};
    const node_ref root(group({changed(1.0005F, clamped), meshNode(square(), plain)}));
    for (const auto& row : cases)
        root->addChild(row.first);
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
        const ::osg::ImagePtr image = getImage(row.first);
        const auto told =
            std::find_if(record.left_out.begin(), record.left_out.end(),
                         [&](const left_out_image& one) { return one.image.get() == image; });
        ASSERT_TRUE(told != record.left_out.end()) << textOf(row.second);
        EXPECT_STREQ(textOf(told->obstacle), textOf(row.second));
    }
    ASSERT_TRUE(record.atlases.size() == 1 && record.geometries == 2);
    EXPECT_DOUBLE_EQ(record.atlases[0].occupancy, 320.0 / (64 * 16));
}

TEST(CreateTextureAtlas, KeepsARootAndTakesAnySide) {
    // The side of an image that still goes in.
    for (const auto& [asked, largest] :
         {std::pair(31U, 4096), {32U, 16}, {100U, 50}, {8192U, 4096}, {8193U, 4096}}) {
        for (const int more : {0, 1}) {
            const node_ref root(
                group({shown(0.5F, picture(largest + more, 2)), shown(0.5F, picture(3, 2))}));
            const stream_capture out(std::cout);
            EXPECT_EQ(createTextureAtlasForScene(root.get(), asked, 2, 2), more == 0 ? 2U : 0U);
            EXPECT_EQ(out.text().find("createTextureAtlasForScene: Texture Size must between 32x32 "
                                      "and 8192x8192.\n") == 0,
                      asked < 32 || asked > 8192);
            if (asked == 100 && more == 0) { // the first one by the whole side
                EXPECT_EQ(coreOf(root->getChild(0))->getTexCoords()->getValue(2)[0], 25 / 128.F);
            }
        }
    }
    const stream_capture out(std::cout);
    const node_ref geometry(shown(0.5F, picture(3, 2)));
    const ::osg::NodeCorePtr core = geometry->getCore();
    EXPECT_EQ(createTextureAtlasForScene(geometry.get(), 64, 2, 2), 0U);
    EXPECT_TRUE(geometry->getCore() == core && geometry->getParent() == ::osg::NullFC);
    EXPECT_EQ(createTextureAtlasForScene(::osg::NullFC, 16, 2, 2), 0U);
}

TEST(CreateTextureAtlas, TakesManyNodesOnOneImage) {
    const ::osg::ImageRefPtr image(picture(16, 16));
    const node_ref root(group({shown(0.5F, picture(8, 8))}));
    for (int i = 0; i < 10000; ++i) // some equal looks, in materials of their own
        root->addChild(meshNode(square(), chunked({float(i % 2), 1, 1, 1}, image)));
    atlas_options options;
    options.textureSize = 512;
    options.padding = 1000; // of which 64 are taken
    options.exact = true;
    atlas_record record;
    const stream_capture out(std::cout);
    EXPECT_EQ(createTextureAtlas(root.get(), options, record), 2U);
    EXPECT_EQ(record.geometries, 10001U);
    std::set<::osg::MaterialPtr> materials;
    for (const ::osg::NodePtr& node : geometryNodes(root))
        materials.insert(coreOf(node)->getMaterial());
    EXPECT_EQ(materials.size(), 2U);
}

TEST(TexturesOfACell, NeedTwoImagesThatFit) {
    for (const int side : {9, 910}) { // nine times in a row, 8192 at most: a wide one, a high one
        const node_ref root(group({shown(9, picture(910, 1)), shown(9, picture(1, side))}));
        cell_options options;
        options.exact = true;
        cell_record record;
        const stream_capture out(std::cout);
        const node_ref result(buildSceneTree(root.get(), {25000, 0}, options, record));
        EXPECT_EQ(record.textures.atlases.size(), side == 9 ? 1U : 0U);
    }
}

} // namespace
