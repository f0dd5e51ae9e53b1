// Images as records: comparing, measuring, alpha.

#include "atlas_support.h"

#include <morva/textures/morva_osg_kept_images.h>

namespace {

using namespace morva::osg;

struct measured_case {
    const char* name;
    std::vector<std::array<float, 2>> coordinates;
    unsigned side;    ///< of all images
    unsigned indices; ///< for each image
    double highest;
    double ignored; ///< at a limit of 2
    double cut;     ///< from 1 to 3
    unsigned cut_at, ceiling;
    bool pays;
};

TEST(ImageMeasures, FollowTheirTable) {
    const float n = not_a_number, inf = std::numeric_limits<float>::infinity();
    std::vector<std::array<float, 2>> several = {
        {3, 3}, {2.5F, 3.5F}, {7, n}, {1, 2}, {4.5F, 4.5F}};
    several.resize(14); // the rest is never cut
    const measured_case cases[] = {
        {"none", {}, 1, 0, 0, n, n, 77, 77, true},
        {"too few indices", {{1, 1}}, 400, 499, 1, 0, 0, 1, 1, false},
        {"200,000 and a bit", {{1, 1}}, 448, 500, 1, 0, 0, 1, 1, false},
        {"too large", {{4, 1}}, 775, 500, 4, 1, n, 1, 1, false},
        {"limits count out", {{1, 3}, {2, 2}}, 9, 500, 3, 1, 1, 2, 3, true},
        {"cut at 2", {{2, 2}, {9, 2}, {2, 1}}, 9, 500, 9, 1, 1.5, 2, 5, true},
        {"cut at 4", several, 9, 500, 7, 5.0 / 14, 2.0 / 10, 4, 5, true},
        {"all are cut", {{2.5F, 1}, {3, 1}, {4.5F, 1}}, 9, 500, 4.5F, 1, 1, 5, 5, true},
        {"NaN and below 0", {{n, -1}, {-3, n}}, 9, 500, 0, 0, n, 0, 0, true},
        {"infinite", {{inf, 1}}, 9, 500, inf, 1, n, 5, 5, true}};
    for (const measured_case& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<ImageData> images;
        for (const auto& uv : row.coordinates)
            images.push_back(tiled(recordOf(row.side, row.side), uv[0], uv[1]));
        const auto count = unsigned(images.size());
        unsigned cut_at = 77, ceiling = 77;
        EXPECT_EQ(highestTC(images), row.highest);
        EXPECT_EQ(told(percentIgnoreTC(images, 2)), told(row.ignored));
        EXPECT_EQ(told(percentCuttedTex(images, 1, 3)), told(row.cut));
        EXPECT_EQ(told(averageImageSize(images)), told(count == 0 ? n : row.side * row.side));
        EXPECT_EQ(Indexrebuild(images, cut_at, ceiling, count * row.indices), row.pays);
        EXPECT_EQ(cut_at, row.cut_at);
        EXPECT_EQ(ceiling, row.ceiling);
    }
}

TEST(ImageConversion, KeepsColoursAndStaysForGood) {
    strays_expected = true;
    std::mt19937 rng(seedOf(31));
    for (const auto& [width, height] :
         {std::pair(1U, 1U), {3U, 8191U}, {8191U, 3U}, {5U, 2U}, {0U, 4U}, {4U, 0U}}) {
        for (const bool alpha : {false, true}) {
            SCOPED_TRACE(testing::Message() << width << " x " << height << " " << alpha);
            const bytes original = randomPixels(rng, std::size_t(width) * height, alpha);
            bytes pixels = original;
            const bool black = width == 5 || original.empty();
            const ImageData image = recordOf(width, height, width == 5 ? nullptr : &pixels, alpha);
            EXPECT_EQ(alpha ? image.convertToRGBA() : image.convertToRGB(), image.data);
            const unsigned live = liveContainers();
            const std::size_t kept = keptImages();
            const unsigned char* made = alpha ? image.convertToRGB() : image.convertToRGBA();
            EXPECT_EQ(keptImages(), kept + 1);
            EXPECT_EQ(liveContainers(), live + 1) << "the image, and nothing but it";
            ASSERT_NE(made, nullptr);
            for (std::size_t i = 0; i < std::max(std::size_t(width) * height, std::size_t{1});
                 ++i) {
                for (std::size_t c = 0; c < 3; ++c)
                    ASSERT_EQ(*made++, black ? 0 : original[i * (alpha ? 4 : 3) + c]);
                ASSERT_TRUE(alpha || *made++ == 255);
            }
            EXPECT_EQ(pixels, original);
        }
    }
    EXPECT_EQ(recordOf(40000, 50000).convertToRGBA(), nullptr) << "more than a store can hold";
}

} // namespace
