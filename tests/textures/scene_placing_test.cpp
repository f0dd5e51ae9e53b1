// Images into atlases of one size: places, free spaces and kept parts, beside a twin that takes
// every step as one would say it.

#include "atlas_support.h"

#include <morva/textures/morva_osg_scene_atlas.h>

namespace {

using namespace morva::osg;
using u32 = std::uint32_t;

namespace naive {

struct space {
    u32 x, y, width, height;
    auto all() const { return std::tie(x, y, width, height); }
    bool operator==(const space& other) const { return all() == other.all(); }
};

u32 tiledSide(float tiles, u32 side) {
    const double count = std::ceil(double(tiles));
    return count > 0 ? u32(std::min(count * side, 2147483647.0)) : 0;
}

/// The free spaces of one atlas.
struct atlas {
    u32 side;
    std::vector<space> spaces{{0, 0, side, side}};

    bool joinOne() {
        for (auto a = spaces.begin(); a != spaces.end(); ++a) {
            for (auto b = spaces.begin(); b != spaces.end(); ++b) {
                space both = *a;
                if (a == b)
                    continue;
                if (b->y == a->y + a->height && b->width == a->width && b->x == a->x)
                    both.height += b->height;
                else if (b->x == a->x + a->width && b->height == a->height && b->y == a->y)
                    both.width += b->width;
                else
                    continue;
                spaces.erase(std::max(a, b));
                spaces.erase(std::min(a, b));
                spaces.insert(spaces.begin(), both);
                return true;
            }
        }
        return false;
    }
    void join() {
        while (joinOne()) {
        }
    }

    /// A place for a size; -1 if there is none.
    std::pair<int, int> place(u32 w, u32 h) {
        if (w == 0 || h == 0)
            return {-1, -1};
        auto found = std::find_if(spaces.begin(), spaces.end(), [&](const space& one) {
            return one.width == w && one.height == h;
        });
        const bool exact = found != spaces.end();
        for (auto one = spaces.begin(); !exact && one != spaces.end(); ++one) {
            const auto waste = [&](const space& s) { return s.width * s.height - w * h; };
            if (one->width >= w && one->height >= h &&
                (found == spaces.end() || waste(*one) < waste(*found)))
                found = one;
        }
        if (found == spaces.end())
            return {-1, -1};
        const space old = *found;
        spaces.erase(found);
        if (h < old.height)
            spaces.insert(spaces.begin(), {old.x, old.y + h, old.width, old.height - h});
        if (w < old.width)
            spaces.insert(spaces.begin(), {old.x + w, old.y, old.width - w, h});
        if (!exact)
            join();
        return {int(old.x), int(old.y)};
    }

    /// Width and height of the kept part.
    std::pair<u32, u32> kept(bool power) {
        u32 width = side, height = side;
        if (spaces.empty())
            return {side, side};
        join();
        for (const space& one : spaces)
            height = one.width == side ? one.y : height;
        for (const space& one : spaces)
            width = one.height == height ? one.x : width;
        for (u32* one : {&width, &height}) {
            u32 up = 1;
            while (up < *one && up < 8192)
                up *= 2;
            *one = power ? up : *one;
        }
        return {width, height};
    }
};

} // namespace naive

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
