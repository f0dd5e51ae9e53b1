// Drawing images into atlases, and the material of what is kept of one.

#include "atlas_support.h"

#include <OpenSG/OSGBlendChunk.h>

#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/texturatlas.h>

namespace {

using namespace morva::osg;

/// One pixel of an image that repeats, as four values.
std::array<unsigned char, 4> pixelAt(const ImageData& image, int x, int y) {
    const std::size_t at = unsigned(y) % image.height * image.width + unsigned(x) % image.width;
    const unsigned char* p = image.data + at * (image.hasAlpha ? 4 : 3);
    return {p[0], p[1], p[2], image.hasAlpha ? p[3] : std::uint8_t{255}};
}

const char* const not_found = "Textureatlas unable to find this Texture!\nParameter: \nWidth: ";

TEST(FillNewTexture, DrawsEachImageAtTheNextPlaceForItsSize) {
    std::mt19937 rng(8);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const bool alpha = rng() % 2 == 0;
        const ::osg::ImageRefPtr target(imageOf(alpha ? 6408 : 6407, 2, 2, 7));
        morva::texturatlas atlas;
        atlas.width = int(rng() % 40), atlas.height = int(rng() % 40);
        const int width = std::max(atlas.width, 1), height = std::max(atlas.height, 1);
        bytes expected(std::size_t(width * height * (alpha ? 4 : 3)), 7), pixels;
        pixels = randomPixels(rng, 25, true);
        std::vector<ImageData> images, drawn;
        for (unsigned i = 0; i < 1 + rng() % 5; ++i) {
            images.push_back(tiled(recordOf(1 + rng() % 5, 1 + rng() % 5,
                                            rng() % 9 == 0 ? nullptr : &pixels, rng() % 2 == 0),
                                   float(rng() % 7) / 2, float(rng() % 7) / 2));
            if (rng() % 8 != 0)
                atlas.placed.insert({{tiledWidth(images[i]), tiledHeight(images[i])},
                                     {int(rng() % 40), int(rng() % 40)}});
        }
        drawn = images;
        std::vector<std::pair<morva::texturinfo, morva::texturinfo>> left(atlas.placed.begin(),
                                                                          atlas.placed.end());
        std::string text;
        for (ImageData& image : drawn) {
            const morva::texturinfo size{tiledWidth(image), tiledHeight(image)};
            const auto next = std::find_if(left.begin(), left.end(),
                                           [&](const auto& entry) { return entry.first == size; });
            if (next == left.end()) {
                text += not_found + std::to_string(size.width) +
                        "\nHeigth: " + std::to_string(size.height) + "\n";
                continue;
            }
            image.x = next->second.width, image.y = next->second.height;
            left.erase(next);
            for (int y = 0; image.data != nullptr && y < size.height; ++y) {
                for (int x = 0; x < size.width; ++x) {
                    const auto pixel = pixelAt(image, x, y);
                    if (image.x + x < width && image.y + y < height)
                        std::copy_n(pixel.begin(), alpha ? 4 : 3,
                                    expected.begin() +
                                        ((image.y + y) * width + image.x + x) * (alpha ? 4 : 3));
                }
            }
        }
        const stream_capture out(std::cout);
        ASSERT_TRUE(fillNewTexture(atlas, images, target, alpha));
        ASSERT_EQ(out.text(), text);
        ASSERT_EQ(target->getWidth(), width);
        ASSERT_EQ(pixelsOf(target), expected);
        ASSERT_EQ(atlas.placed.size(), left.size());
        for (std::size_t i = 0; i < images.size(); ++i)
            ASSERT_TRUE(images[i].x == drawn[i].x && images[i].y == drawn[i].y);
    }
}

TEST(FillNewTexture, RefusesWhatItCannotDrawInto) {
    bytes pixels(4, 9);
    std::vector<ImageData> images = {recordOf(1, 1, &pixels, true)};
    morva::texturatlas atlas;
    morva::texturinfo one, origin;
    one.width = one.height = 1;
    atlas.placed.emplace(one, origin);
    const ::osg::ImageRefPtr grey(imageOf(6409, 2, 2)), wide(::osg::Image::create()),
        empty(::osg::Image::create()), clear(imageOf(6408, 2, 2));
    wide->set(6407, 2, 2, 1, 1, 1, 0.0, nullptr, ::osg::Image::OSG_UINT16_IMAGEDATA);
    for (const ::osg::ImagePtr& target : {grey.get(), wide.get(), empty.get(), ::osg::ImagePtr()}) {
        const stream_capture out(std::cout);
        EXPECT_FALSE(fillNewTexture(atlas, images, target, false));
        EXPECT_EQ(out.text(), "Scale Texture Image failed.\n");
    }
    EXPECT_TRUE(atlas.placed.size() == 1 && images[0].x == -1);
    EXPECT_TRUE(fillNewTexture(atlas, images, clear, false));
    EXPECT_EQ(pixelsOf(clear), (bytes{9, 9, 9, 255})) << "without its alpha";
}

TEST(KeptPart, IsShownByAMaterialWithWhatTheAtlasHas) {
    std::mt19937 rng(3);
    FixedTextureAtlas packed, nothing;
    packed.width = packed.height = 64;
    packed.powerOfTwo = true;
    packed.freeSpaces = {{0, 16, 64, 48}};
    for (const int kind : {0, 1, 2, 3}) {
        FixedTextureAtlas atlas = packed;
        atlas.image = imageOf(6407, 64, 64);
        atlas.image->setData(randomPixels(rng, 64 * 64, false).data());
        atlas.transparent = (kind & 1) != 0;
        atlas.hasVertexColors = (kind & 2) != 0;
        if (kind == 0)
            atlas.minifiedImage = atlas.image; // made by somebody else: taken as it is
        const ::osg::ChunkMaterialPtr material = atlas.getMinifiedMaterial();
        const auto texture = ::osg::TextureChunkPtr::dcast(material->getChunks(0));
        EXPECT_EQ(texture->getImage()->getHeight(), kind == 0 ? 64 : 16);
        EXPECT_EQ(texture->getEnvMode(), 7681u) << "as it was made";
        const ::osg::ImageRefPtr cut(::osg::Image::create());
        atlas.image->subImage(0, 0, 0, 64, kind == 0 ? 64 : 16, 1, cut);
        EXPECT_TRUE(*texture->getImage() == *cut.get());
        unsigned next = 1;
        if (atlas.transparent) {
            const auto blending = ::osg::BlendChunkPtr::dcast(material->getChunks(next++));
            EXPECT_EQ(blending->getSrcFactor(), 770u);
            EXPECT_EQ(blending->getDestFactor(), 771u);
        }
        if (atlas.hasVertexColors) {
            const auto colors = ::osg::MaterialChunkPtr::dcast(material->getChunks(next++));
            EXPECT_EQ(colors->getColorMaterial(), 5634u);
        }
        EXPECT_EQ(material->getMFChunks()->size(), next);
        // A copy shares it all, and nothing is added again.
        FixedTextureAtlas copy = atlas;
        EXPECT_TRUE(copy.getMinifiedMaterial() == material);
        EXPECT_EQ(material->getMFChunks()->size(), next);
    }
    packed.image = ::osg::Image::create();
    packed.image->set(::osg::Image::OSG_RGB_DXT1, 64, 64); // can't be cut
    packed.getMinifiedMaterial();
    EXPECT_TRUE(packed.minifiedImage.get() == packed.image.get());
    EXPECT_EQ(packed.usedHeight, 64u);
    EXPECT_EQ(nothing.getMinifiedMaterial()->getMFChunks()->size(), 1u);
}

} // namespace
