// Images into atlases of one size: places, free spaces and kept parts, beside a twin that takes
// every step as one would say it.

#include "atlas_support.h"
#include "naive_scene_atlas.h"

#include <morva/textures/morva_osg_scene_atlas.h>

namespace {

using namespace morva::osg;
using u32 = std::uint32_t;

/// x, y and number of the atlas of each image.
using places = std::vector<std::array<int, 3>>;

places placesOf(const std::vector<ImageData>& images) {
    places all;
    for (const ImageData& image : images) {
        EXPECT_EQ(image.inAtlas, image.atlasIndex >= 0);
        all.push_back({image.x, image.y, image.atlasIndex});
    }
    return all;
}

/// How many were placed.
u32 naivePlace(const std::vector<ImageData>& images, naive::atlas& atlas, int index, places& all) {
    u32 count = 0;
    for (std::size_t i = 0; i < images.size() && !atlas.spaces.empty(); ++i) {
        const auto [x, y] =
            all[i][2] >= 0
                ? std::pair(-1, -1)
                : atlas.place(naive::tiledSide(images[i].maxTexCoordU, images[i].width),
                              naive::tiledSide(images[i].maxTexCoordV, images[i].height));
        if (x >= 0)
            all[i] = {x, y, index}, ++count;
    }
    return count;
}

/// Sets with trouble: any sides, equal ones, powers of two, none, above the atlas, rubbish.
std::vector<ImageData> anyImages(std::mt19937& rng, u32 side) {
    const auto any = [&rng](u32 low, u32 high) { return low + u32(rng() % (high - low + 1)); };
    const u32 kind = any(0, 5), count = any(0, any(0, 9) == 0 ? 120 : 20);
    const u32 common[] = {any(1, side / 2), any(1, side / 2)};
    std::vector<ImageData> images;
    while (images.size() < count) {
        const auto length = [&](std::size_t axis) {
            const u32 sides[] = {any(1, side / 2),
                                 any(0, 9) == 0 ? any(1, side / 2) : common[axis],
                                 u32{1} << any(0, 6),
                                 any(0, 5),
                                 any(0, 3) == 0 ? any(side - 1, 3 * side) : any(1, side),
                                 any(0, 4) == 0 ? 0xFFFFFFF0U + any(0, 15) : any(1, side)};
            return sides[kind];
        };
        const u32 width = length(0), height = length(1);
        const float reach[] = {1, 1, 1, 1, 0.25F, 1.5F, 2, 2.01F, 5, 0, -3, not_a_number, 1e30F};
        images.push_back(tiled(recordOf(width, height), reach[any(0, any(0, 2) == 0 ? 12 : 3)],
                               reach[any(0, any(0, 2) == 0 ? 12 : 3)]));
    }
    return images;
}

TEST(BuildOneAtlas, PlacesAsItsTwin) {
    std::mt19937 rng(seedOf(7301));
    std::size_t second_atlases = 0, cut = 0;
    for (int round = 0; round < roundsOf(4000); ++round) {
        SCOPED_TRACE(round);
        const u32 side = rng() % 2 == 0 ? 32U << rng() % 3 : 32U + u32(rng() % 100);
        std::vector<ImageData> images = anyImages(rng, side);
        places expected(images.size(), {-1, -1, -1});
        const bool power = rng() % 2 == 0;
        for (int index = 0; index < 4; ++index) {
            FixedTextureAtlas atlas;
            atlas.width = atlas.height = side;
            atlas.index = u32(index);
            atlas.powerOfTwo = power;
            naive::atlas twin{side};
            if (rng() % 8 == 0) // as nobody leaves it: on a coarse grid many meet
                twin.spaces.clear();
            for (unsigned i = twin.spaces.empty() ? rng() % 14 : 0; i > 0; --i)
                twin.spaces.push_back({u32(rng() % 4) * 8, u32(rng() % 4) * 8, u32(rng() % 3) * 8,
                                       u32(rng() % 3) * 8});
            atlas.freeSpaces.clear();
            for (const naive::space& one : twin.spaces)
                atlas.freeSpaces.push_back({one.x, one.y, one.width, one.height});
            const u32 count = buildOneAtlas(images, atlas);
            ASSERT_EQ(count, naivePlace(images, twin, index, expected));
            ASSERT_EQ(placesOf(images), expected);
            ASSERT_EQ(atlas.imageCount, count);
            for (int joined = 0; joined < 2; ++joined) { // as it was left, and for the kept part
                std::vector<naive::space> spaces;
                for (const FreeTextureSpace& one : atlas.freeSpaces)
                    spaces.push_back({one.x, one.y, one.width, one.height});
                ASSERT_EQ(spaces, twin.spaces);
                atlas.getMinifiedMaterial();
                ASSERT_EQ(std::pair(atlas.usedWidth, atlas.usedHeight), twin.kept(power));
            }
            second_atlases += index > 0 && count > 0 ? 1 : 0;
            cut += atlas.usedWidth < side ? 1 : 0;
        }
    }
    EXPECT_GT(second_atlases, 1000U);
    EXPECT_GT(cut, 1000U);
}

} // namespace
