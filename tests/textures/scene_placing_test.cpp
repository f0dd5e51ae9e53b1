// Images into atlases of one size: places, free spaces and kept parts, beside a twin that takes
// every step as one would say it.

#include "atlas_support.h"
#include "naive_scene_atlas.h"

#include <morva/textures/morva_osg_scene_atlas.h>

namespace {

using namespace morva::osg;
using u32 = std::uint32_t;

struct placed {
    int x, y, atlas;
    auto all() const { return std::tie(x, y, atlas); }
    bool operator==(const placed& other) const { return all() == other.all(); }
};

void PrintTo(const placed& one, std::ostream* out) {
    *out << one.x << "," << one.y << " in " << one.atlas;
}

std::vector<placed> placesOf(const std::vector<ImageData>& images) {
    std::vector<placed> places;
    for (const ImageData& image : images) {
        EXPECT_EQ(image.inAtlas, image.atlasIndex >= 0);
        places.push_back({image.x, image.y, image.atlasIndex});
    }
    return places;
}

void naivePlace(const std::vector<ImageData>& images, naive::atlas& atlas, int index,
                std::vector<placed>& places) {
    for (std::size_t i = 0; i < images.size() && !atlas.spaces.empty(); ++i) {
        if (places[i].atlas >= 0)
            continue;
        const auto [x, y] = atlas.place(naive::tiledSide(images[i].maxTexCoordU, images[i].width),
                                        naive::tiledSide(images[i].maxTexCoordV, images[i].height));
        if (x >= 0)
            places[i] = {x, y, index};
    }
}

/// Sets with trouble: any sides, equal ones, powers of two, none, above the atlas, rubbish.
std::vector<ImageData> anyImages(std::mt19937& rng, u32 side) {
    const auto any = [&rng](u32 low, u32 high) { return low + u32(rng() % (high - low + 1)); };
    const u32 kind = any(0, 5), count = any(0, any(0, 9) == 0 ? 120 : 20);
    const u32 common[] = {any(1, side / 2), any(1, side / 2)};
    std::vector<ImageData> images;
    while (images.size() < count) {
        const auto length = [&](std::size_t axis) {
            switch (kind) {
            case 0:
                return any(1, side / 2);
            case 1:
                return any(0, 9) == 0 ? any(1, side / 2) : common[axis];
            case 2:
                return u32{1} << any(0, 6);
            case 3:
                return any(0, 5);
            case 4:
                return any(0, 3) == 0 ? any(side - 1, 3 * side) : any(1, side);
            default:
                return any(0, 4) == 0 ? 0xFFFFFFF0U + any(0, 15) : any(1, side);
            }
        };
        const u32 width = length(0), height = length(1);
        images.push_back(recordOf(width, height));
        const float reach[] = {1, 1, 1, 1, 0.25F, 1.5F, 2, 2.01F, 5, 0, -3, not_a_number, 1e30F};
        images.back() = tiled(images.back(), reach[any(0, any(0, 2) == 0 ? 12 : 3)],
                              reach[any(0, any(0, 2) == 0 ? 12 : 3)]);
    }
    return images;
}

TEST(BuildOneAtlas, PlacesAsItsTwin) {
    std::mt19937 rng(7301);
    std::size_t second_atlases = 0, cut = 0;
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        const u32 side = rng() % 2 == 0 ? 32U << rng() % 3 : 32U + u32(rng() % 100);
        std::vector<ImageData> images = anyImages(rng, side);
        std::vector<placed> expected(images.size(), {-1, -1, -1});
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
            const auto before = std::count_if(images.begin(), images.end(),
                                              [](const ImageData& one) { return one.inAtlas; });
            const u32 count = buildOneAtlas(images, atlas);
            naivePlace(images, twin, index, expected);
            ASSERT_EQ(placesOf(images), expected);
            ASSERT_EQ(count, std::count_if(expected.begin(), expected.end(), [](const placed& one) {
                                 return one.atlas >= 0;
                             }) - before);
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

TEST(BuildAtlases, SortsAndFillsAsManyAsItsTwin) {
    std::mt19937 rng(7302);
    int left_over = 0;
    for (int round = 0; round < 1000; ++round) {
        SCOPED_TRACE(round);
        const unsigned asked = rng() % 4 == 0 ? 40U + rng() % 60 : rng() % 34;
        const u32 side = asked <= 32 ? 32 : asked <= 64 ? 64 : 128;
        std::vector<ImageData> images = anyImages(rng, side), sorted = images;
        const unsigned placed_count = buildAtlases({}, images, round % 2 == 0, asked, false);
        if (sorted.size() < 2) {
            EXPECT_EQ(placed_count, 0U);
            continue;
        }
        // Ties are left to the sort, which goes by the outcomes of comparing alone.
        std::sort(sorted.begin(), sorted.end(), [](const ImageData& a, const ImageData& b) {
            const auto high = [](const ImageData& one) {
                return std::pair(float(naive::tiledSide(one.maxTexCoordV, one.height)),
                                 float(naive::tiledSide(one.maxTexCoordU, one.width)));
            };
            return high(a) < high(b);
        });
        std::reverse(sorted.begin(), sorted.end());
        std::vector<placed> expected(images.size(), {-1, -1, -1});
        std::size_t total = 0, now = 1;
        for (int index = 0; now > 0 && total < expected.size(); ++index) {
            naive::atlas twin{side};
            naivePlace(sorted, twin, index, expected);
            now = std::size_t(std::count_if(expected.begin(), expected.end(),
                                            [&](const placed& p) { return p.atlas == index; }));
            total += now;
        }
        EXPECT_EQ(placed_count, total);
        ASSERT_EQ(placesOf(images), expected);
        for (std::size_t i = 0; i < images.size(); ++i)
            ASSERT_EQ(images[i].width, sorted[i].width);
        left_over += total < expected.size() ? 1 : 0;
    }
    EXPECT_GT(left_over, 100);
}

} // namespace
