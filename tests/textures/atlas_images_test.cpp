// Images as records: comparing, measuring, alpha.

#include "atlas_support.h"

#include <morva/textures/morva_osg_kept_images.h>

namespace {

using namespace morva::osg;

constexpr std::uint32_t none = 0xFFFFFFFF;

TEST(SearchImageData, ComparesSizeAndTheFirstBytesAlone) {
    bytes picture(4 * 6 * 3), late = picture, early = picture, other_size = picture;
    late[4 * 6] = 1;
    early[4 * 6 - 1] = 1;
    const std::vector<ImageData> images = {recordOf(6, 4, &other_size), recordOf(4, 6, &picture),
                                           recordOf(4, 6, &picture), recordOf(0, 5),
                                           recordOf(9, 9)};
    const struct {
        const char* name;
        const bytes* pixels;
        unsigned width, height;
        std::uint32_t found;
    } cases[] = {
        {"the first of two", &picture, 4, 6, 1}, {"differs behind", &late, 4, 6, 1},
        {"differs", &early, 4, 6, none},         {"other size", &picture, 3, 8, none},
        {"no pixels at all", nullptr, 0, 5, 3},  {"a side of 0", &early, 0, 5, 3},
        {"null is like null", nullptr, 9, 9, 4}, {"null is not black", nullptr, 4, 6, none},
        {"black is not null", &late, 9, 9, none}};
    for (const auto& row : cases) {
        EXPECT_EQ(searchImageData(images, row.pixels ? row.pixels->data() : nullptr, row.width,
                                  row.height),
                  row.found)
            << row.name;
    }
    EXPECT_EQ(searchImageData({}, nullptr, 0, 0), none);
}

struct measured_case {
    const char* name;
    std::vector<std::array<float, 2>> coordinates;
    unsigned side;    ///< of all images
    unsigned indices; ///< for each image
    double highest;
    double ignored; ///< at a limit of 2; -1 stands for a NaN, as below
    double cut;     ///< from 1 to 3
    unsigned cut_at, ceiling;
    bool pays;
};

/// NaN as a value that equals itself.
double told(double value) { return std::isnan(value) ? -1 : value; }

TEST(ImageMeasures, FollowTheirTable) {
    const float n = not_a_number, inf = std::numeric_limits<float>::infinity();
    std::vector<std::array<float, 2>> several = {
        {3, 3}, {2.5F, 3.5F}, {7, n}, {1, 2}, {4.5F, 4.5F}};
    several.resize(14); // the rest is never cut
    const measured_case cases[] = {
        {"none", {}, 1, 0, 0, -1, -1, 77, 77, true},
        {"one", {{1, 1}}, 400, 500, 1, 0, 0, 1, 1, true},
        {"too few indices", {{1, 1}}, 400, 499, 1, 0, 0, 1, 1, false},
        {"200,000 and a bit", {{1, 1}}, 448, 500, 1, 0, 0, 1, 1, false},
        {"too large", {{4, 1}}, 775, 500, 4, 1, -1, 1, 1, false},
        {"large, too few indices", {{4, 1}}, 775, 499, 4, 1, -1, 4, 4, false},
        {"limits count out", {{1, 3}, {2, 2}}, 9, 500, 3, 1, 1, 2, 3, true},
        {"a tenth", {{1.5F, 0}, {0, 1}}, 9, 500, 1.5F, 0, 0.5, 2, 2, true},
        {"cut at 2", {{2, 2}, {9, 2}, {2, 1}}, 9, 500, 9, 1, 1.5, 2, 5, true},
        {"cut at 4", several, 9, 500, 7, 5.0 / 14, 2.0 / 10, 4, 5, true},
        {"all are cut", {{2.5F, 1}, {3, 1}, {4.5F, 1}}, 9, 500, 4.5F, 1, 1, 5, 5, true},
        {"NaN and below 0", {{n, -1}, {-3, n}}, 9, 500, 0, 0, -1, 0, 0, true},
        {"infinite", {{inf, 1}}, 9, 500, inf, 1, -1, 5, 5, true}};
    for (const measured_case& row : cases) {
        SCOPED_TRACE(row.name);
        std::vector<ImageData> images;
        for (const auto& uv : row.coordinates)
            images.push_back(tiled(recordOf(row.side, row.side), uv[0], uv[1]));
        const auto count = static_cast<unsigned>(images.size());
        unsigned cut_at = 77, ceiling = 77;
        EXPECT_EQ(highestTC(images), row.highest);
        EXPECT_EQ(told(percentIgnoreTC(images, 2)), row.ignored);
        EXPECT_EQ(told(percentCuttedTex(images, 1, 3)), row.cut);
        EXPECT_EQ(told(averageImageSize(images)), count == 0 ? -1.0 : row.side * row.side);
        EXPECT_EQ(Indexrebuild(images, cut_at, ceiling, count * row.indices), row.pays);
        EXPECT_EQ(cut_at, row.cut_at);
        EXPECT_EQ(ceiling, row.ceiling);
    }
}

TEST(ImageConversion, KeepsColoursAndStaysForGood) {
    strays_expected = true;
    std::mt19937 rng(31);
    const struct {
        unsigned width, height;
        bool has_pixels;
    } cases[] = {{1, 1, true}, {3, 8191, true}, {8191, 3, true}, {5, 2, false},
                 {0, 4, true}, {4, 0, false},   {17, 9, true}};
    for (const auto& row : cases) {
        for (const bool alpha : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.width << " x " << row.height << " " << alpha);
            const std::size_t count = std::size_t(row.width) * row.height;
            const bytes original = randomPixels(rng, count, alpha);
            bytes pixels = original;
            const ImageData image =
                recordOf(row.width, row.height, row.has_pixels ? &pixels : nullptr, alpha);
            EXPECT_EQ(alpha ? image.convertToRGBA() : image.convertToRGB(), image.data);
            const unsigned live = liveContainers();
            const std::size_t kept = keptImages();
            const unsigned char* made = alpha ? image.convertToRGB() : image.convertToRGBA();
            EXPECT_EQ(keptImages(), kept + 1);
            EXPECT_EQ(liveContainers(), live + 1) << "the image, and nothing but it";
            ASSERT_NE(made, nullptr);
            bytes expected;
            for (std::size_t i = 0; i < std::max<std::size_t>(count, 1); ++i) {
                for (std::size_t c = 0; c < 3; ++c)
                    expected.push_back(count != 0 && row.has_pixels
                                           ? original[i * (alpha ? 4 : 3) + c]
                                           : std::uint8_t{0});
                if (!alpha)
                    expected.push_back(255);
            }
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), made));
            EXPECT_EQ(pixels, original);
        }
    }
    // More than a store can hold, and more than a side can be.
    for (const unsigned side : {40000U, 0x80000000U}) {
        const std::size_t kept = keptImages();
        EXPECT_EQ(recordOf(side, 50000).convertToRGBA(), nullptr);
        EXPECT_EQ(keptImages(), kept);
    }
}

} // namespace
