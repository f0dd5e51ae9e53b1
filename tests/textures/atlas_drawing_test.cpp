// Drawing images into atlases, the free spaces of an atlas, and what is kept of it.

#include "atlas_support.h"

#include <OpenSG/OSGBlendChunk.h>

#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_part.h>
#include <morva/textures/texturatlas.h>

namespace {

using namespace morva::osg;

/// One pixel of an image that repeats, as four values.
std::array<unsigned char, 4> pixelAt(const ImageData& image, int x, int y) {
    const auto wrapped = [](int value, unsigned side) {
        const int rest = value % int(side);
        return unsigned(rest < 0 ? rest + int(side) : rest);
    };
    const std::size_t at = wrapped(y, image.height) * image.width + wrapped(x, image.width);
    const unsigned char* p = image.data + at * (image.hasAlpha ? 4 : 3);
    return {p[0], p[1], p[2], image.hasAlpha ? p[3] : std::uint8_t{255}};
}

TEST(DrawRepeated, AgreesWithPixelByPixel) {
    std::mt19937 rng(77);
    const auto number = [&rng](int low, int high) {
        return low + int(rng() % unsigned(high - low + 1));
    };
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(round);
        const bool to_alpha = round % 2 == 0;
        const int w = number(1, 9), h = number(1, 9);
        bytes pixels = randomPixels(rng, std::size_t(w * h), round % 4 < 2);
        const ImageData image = recordOf(unsigned(w), unsigned(h), &pixels, round % 4 < 2);
        const int width = number(1, 30), height = number(1, 30);
        const int left = number(-9, 20), top = number(-9, 20), x = number(-40, 40),
                  y = number(-40, 40), wide = number(0, 40), high = number(0, 40);
        bytes drawn = randomPixels(rng, std::size_t(width * height), to_alpha), expected = drawn;
        canvas target{drawn.data(), width, height, to_alpha};
        target.opaque = round % 8 == 0;
        for (int ty = std::max(top, 0); ty < std::min(top + high, height); ++ty) {
            for (int tx = std::max(left, 0); tx < std::min(left + wide, width); ++tx) {
                auto pixel = pixelAt(image, tx - x, ty - y);
                pixel[3] = target.opaque ? 255 : pixel[3];
                std::copy_n(pixel.begin(), to_alpha ? 4 : 3,
                            expected.begin() + (ty * width + tx) * (to_alpha ? 4 : 3));
            }
        }
        drawRepeated(target, {left, top, wide, high}, image, x, y);
        ASSERT_EQ(drawn, expected);
        drawRepeated(target, {0, 0, width, height}, recordOf(4, 4), x, y);
        drawRepeated(target, {0, 0, width, height}, recordOf(0, 4, &pixels), x, y);
        ASSERT_EQ(drawn, expected) << "nothing to draw";
    }
}

TEST(Footprint, SurroundsAnImageAndEndsAtMultiples) {
    const ImageData image = tiled(recordOf(30, 17), 2, 1); // 60 x 17 texels
    const struct {
        unsigned padding;
        int width, height, inset;
    } cases[] = {{0, 60, 17, 0}, {1, 62, 19, 1}, {2, 64, 22, 2},    {3, 68, 24, 4},
                 {4, 68, 28, 4}, {5, 80, 32, 8}, {64, 192, 192, 64}};
    for (const auto& row : cases) {
        const image_footprint room = footprintOf(image, row.padding);
        EXPECT_EQ(room.width, row.width) << row.padding;
        EXPECT_EQ(room.height, row.height) << row.padding;
        EXPECT_EQ(room.inset, row.inset) << row.padding;
        EXPECT_GE(room.width - room.inset - 60, int(row.padding));
        EXPECT_EQ(room.width % room.step + room.height % room.step, 0);
    }
    EXPECT_EQ(footprintOf(tiled(image, not_a_number, 1), 5).width, 0) << "not laid out";
    EXPECT_EQ(footprintOf(tiled(image, 1e20F, 1), 64).width, 0x7FFFFFC0);
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
            drawRepeated({expected.data(), width, height, alpha},
                         {image.x, image.y, size.width, size.height}, image, image.x, image.y);
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

using space_tuple = std::tuple<unsigned, unsigned, unsigned, unsigned>;

std::vector<space_tuple> tuplesOf(const std::list<FreeTextureSpace>& spaces) {
    std::vector<space_tuple> all;
    for (const FreeTextureSpace& s : spaces)
        all.emplace_back(s.x, s.y, s.width, s.height);
    return all;
}

/// Joins the first pair and begins again.
bool twinOfJoinOne(std::vector<space_tuple>& spaces) {
    for (std::size_t a = 0; a < spaces.size(); ++a) {
        for (std::size_t b = 0; b < spaces.size(); ++b) {
            const auto [ax, ay, aw, ah] = spaces[a];
            const auto [bx, by, bw, bh] = spaces[b];
            const bool below = by == ay + ah && bw == aw && bx == ax;
            const bool right = bx == ax + aw && bh == ah && by == ay;
            if (a == b || !(below || right))
                continue;
            const space_tuple both(ax, ay, below ? aw : aw + bw, below ? ah + bh : ah);
            spaces.erase(spaces.begin() + long(std::max(a, b)));
            spaces.erase(spaces.begin() + long(std::min(a, b)));
            spaces.insert(spaces.begin(), both);
            return true;
        }
    }
    return false;
}

TEST(FreeSpaces, JoinInTheOrderOfTheirTwin) {
    std::mt19937 rng(5);
    int joins = 0;
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        FixedTextureAtlas atlas;
        for (unsigned i = 0; i < rng() % 14; ++i) // a coarse grid, so that many meet
            atlas.freeSpaces.push_back({unsigned(rng() % 4), unsigned(rng() % 4),
                                        unsigned(rng() % 3), unsigned(rng() % 3)});
        std::vector<space_tuple> expected = tuplesOf(atlas.freeSpaces);
        while (twinOfJoinOne(expected))
            ++joins;
        atlas.combineFreeSpace();
        ASSERT_EQ(tuplesOf(atlas.freeSpaces), expected);
        // What was just joined is known to have no pair.
        const std::size_t more = rng() % 3;
        for (std::size_t i = 0; i < more; ++i)
            atlas.freeSpaces.push_front({unsigned(rng() % 4), unsigned(rng() % 4), 1, 1});
        expected = tuplesOf(atlas.freeSpaces);
        while (twinOfJoinOne(expected))
            ++joins;
        combineFreeSpaces(atlas.freeSpaces, more);
        ASSERT_EQ(tuplesOf(atlas.freeSpaces), expected);
    }
    EXPECT_GT(joins, 2000);
}

FixedTextureAtlas atlasWith(std::list<FreeTextureSpace> spaces, bool power, std::mt19937& rng) {
    FixedTextureAtlas atlas;
    atlas.width = atlas.height = atlas.usedWidth = atlas.usedHeight = 64;
    atlas.powerOfTwo = power;
    atlas.image = imageOf(6407, 64, 64);
    atlas.image->setData(randomPixels(rng, 64 * 64, false).data());
    atlas.freeSpaces = std::move(spaces);
    return atlas;
}

TEST(KeptPart, EndsAtFreeSpaces) {
    std::mt19937 rng(2);
    const struct {
        const char* name;
        std::list<FreeTextureSpace> spaces;
        bool power;
        unsigned width, height;
        unsigned whole_side_width; ///< where only spaces from row 0 on narrow it
    } cases[] = {{"nothing free", {}, true, 64, 64, 64},
                 {"lower part", {{0, 20, 64, 44}}, true, 64, 32, 64},
                 {"as it is", {{0, 20, 64, 44}}, false, 64, 20, 64},
                 {"joined first", {{0, 20, 30, 44}, {30, 20, 34, 44}}, false, 64, 20, 64},
                 {"the last one counts", {{0, 9, 64, 5}, {0, 20, 64, 44}}, false, 64, 20, 64},
                 {"both sides", {{0, 20, 64, 44}, {10, 0, 54, 20}}, false, 10, 20, 10},
                 {"both, rounded", {{0, 20, 64, 44}, {10, 0, 54, 19}}, true, 64, 32, 64},
                 {"half free", {{0, 32, 64, 32}}, true, 1, 32, 64},
                 {"all free", {{0, 0, 64, 64}}, true, 64, 1, 64},
                 {"all free, unrounded", {{0, 0, 64, 64}}, false, 64, 0, 64}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        FixedTextureAtlas atlas = atlasWith(row.spaces, row.power, rng), other = atlas;
        const ::osg::ChunkMaterialPtr material = atlas.getMinifiedMaterial();
        EXPECT_EQ(atlas.usedWidth, row.width);
        EXPECT_EQ(atlas.usedHeight, row.height);
        EXPECT_TRUE(material->getMFChunks()->size() == 1 &&
                    atlas.getMinifiedMaterial() == material);
        const ::osg::ImagePtr shown =
            ::osg::TextureChunkPtr::dcast(material->getChunks(0))->getImage();
        EXPECT_TRUE(shown == atlas.minifiedImage.get());
        EXPECT_EQ(shown == atlas.image.get(), row.width == 64 && row.height == 64);
        const ::osg::ImageRefPtr cut(::osg::Image::create());
        atlas.image->subImage(0, 0, 0, int(row.width), int(row.height), 1, cut);
        EXPECT_TRUE(*shown == *cut.get());
        settleKeptPart(other, cut_rule::whole_side);
        EXPECT_EQ(other.usedWidth, row.whole_side_width);
        EXPECT_TRUE(other.minifiedImage == ::osg::NullFC);
    }
}

TEST(KeptPart, IsShownByAMaterialWithWhatTheAtlasHas) {
    std::mt19937 rng(3);
    for (const int kind : {0, 1, 2, 3}) {
        FixedTextureAtlas atlas = atlasWith({{0, 16, 64, 48}}, true, rng);
        atlas.transparent = (kind & 1) != 0;
        atlas.hasVertexColors = (kind & 2) != 0;
        if (kind == 0)
            atlas.minifiedImage = atlas.image; // made by somebody else: taken as it is
        const ::osg::ChunkMaterialPtr material = atlas.getMinifiedMaterial();
        const auto texture = ::osg::TextureChunkPtr::dcast(material->getChunks(0));
        EXPECT_EQ(texture->getImage()->getHeight(), kind == 0 ? 64 : 16);
        EXPECT_EQ(texture->getEnvMode(), 7681u) << "as it was made";
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
    FixedTextureAtlas packed = atlasWith({{0, 16, 64, 48}}, true, rng), nothing;
    packed.image->set(::osg::Image::OSG_RGB_DXT1, 64, 64); // can't be cut
    packed.getMinifiedMaterial();
    EXPECT_TRUE(packed.minifiedImage.get() == packed.image.get());
    EXPECT_EQ(packed.usedHeight, 64u);
    EXPECT_EQ(nothing.getMinifiedMaterial()->getMFChunks()->size(), 1u);
}

} // namespace
