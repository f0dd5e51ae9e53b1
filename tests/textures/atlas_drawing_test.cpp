// Drawing images into atlases, and the material of what is kept of one.

#include "atlas_support.h"

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
    std::mt19937 rng(seedOf(8));
    for (int round = 0; round < roundsOf(400); ++round) {
        SCOPED_TRACE(round);
        const bool alpha = rng() % 2 == 0;
        const int channels = alpha ? 4 : 3;
        const ::osg::ImageRefPtr target(imageOf(alpha ? 6408 : 6407, 2, 2, 7));
        morva::texturatlas atlas;
        atlas.width = int(rng() % 40), atlas.height = int(rng() % 40);
        const int width = std::max(atlas.width, 1), height = std::max(atlas.height, 1);
        bytes expected(std::size_t(width * height * channels), 7), pixels;
        pixels = randomPixels(rng, 25, true);
        std::vector<ImageData> images;
        for (unsigned i = 0; i < 1 + rng() % 5; ++i) {
            images.push_back(tiled(recordOf(1 + rng() % 5, 1 + rng() % 5,
                                            rng() % 9 == 0 ? nullptr : &pixels, rng() % 2 == 0),
                                   float(rng() % 7) / 2, float(rng() % 7) / 2));
            if (rng() % 8 != 0)
                atlas.placed.insert({{tiledWidth(images[i]), tiledHeight(images[i])},
                                     {int(rng() % 40), int(rng() % 40)}});
        }
        std::vector<ImageData> drawn = images;
        auto left = atlas.placed;
        std::string text;
        for (ImageData& image : drawn) {
            const morva::texturinfo size{tiledWidth(image), tiledHeight(image)};
            const auto next = left.find(size); // the first of equal ones
            if (next == left.end()) {
                text += not_found + std::to_string(size.width) +
                        "\nHeigth: " + std::to_string(size.height) + "\n";
                continue;
            }
            image.x = next->second.width, image.y = next->second.height;
            left.erase(next);
            for (int at = 0; image.data != nullptr && at < size.width * size.height; ++at) {
                const int x = at % size.width, y = at / size.width;
                const auto pixel = pixelAt(image, x, y);
                if (image.x + x < width && image.y + y < height)
                    std::copy_n(pixel.begin(), channels,
                                expected.begin() +
                                    ((image.y + y) * width + image.x + x) * channels);
            }
        }
        const stream_capture out(std::cout);
        ASSERT_TRUE(fillNewTexture(atlas, images, target, alpha));
        ASSERT_EQ(out.text(), text);
        ASSERT_EQ(target->getWidth(), width);
        ASSERT_EQ(pixelsOf(target), expected);
        ASSERT_EQ(atlas.placed, left);
        for (std::size_t i = 0; i < images.size(); ++i)
            ASSERT_TRUE(images[i].x == drawn[i].x && images[i].y == drawn[i].y);
    }
}

TEST(FillNewTexture, RefusesWhatItCannotDrawInto) {
    bytes pixels(4, 9);
    std::vector<ImageData> images = {recordOf(1, 1, &pixels, true)};
    morva::texturatlas atlas;
    atlas.placed.insert({{1, 1}, {0, 0}});
    const ::osg::ImageRefPtr grey(imageOf(6409, 2, 2)), empty(::osg::Image::create()),
        clear(imageOf(6408, 2, 2));
    for (const ::osg::ImagePtr& target : {grey.get(), empty.get(), ::osg::ImagePtr()}) {
        const stream_capture out(std::cout);
        EXPECT_FALSE(fillNewTexture(atlas, images, target, false));
        EXPECT_EQ(out.text(), "Scale Texture Image failed.\n");
    }
    EXPECT_TRUE(atlas.placed.size() == 1 && images[0].x == -1);
    EXPECT_TRUE(fillNewTexture(atlas, images, clear, false));
    EXPECT_EQ(pixelsOf(clear), (bytes{9, 9, 9, 255})) << "without its alpha";
}

} // namespace
