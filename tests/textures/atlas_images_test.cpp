// Images as records: comparing, measuring, alpha.

#include "atlas_support.h"

#include <morva/textures/morva_osg_atlas_sources.h>
#include <morva/textures/morva_osg_image_tiles.h>
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
    float highest;
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

TEST(ImageOrder, IsByHeightThenWidthAsLaidOut) {
    const float n = not_a_number;
    const ImageData ascending[] = {
        tiled(recordOf(9, 9), n, n),     tiled(recordOf(9, 9), 1, -5),
        tiled(recordOf(9, 9), 2.5F, -5), tiled(recordOf(7, 3), 1, 1),
        tiled(recordOf(8, 3), 1, 1),     tiled(recordOf(7, 3), 1.5F, 1),
        tiled(recordOf(1, 3), 1, 1.01F), tiled(recordOf(1, 0x80000000), 1, 1)};
    for (std::size_t a = 0; a < std::size(ascending); ++a) {
        for (std::size_t b = 0; b < std::size(ascending); ++b)
            EXPECT_EQ(ascending[a] < ascending[b], a < b) << a << " " << b;
    }
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(tiledWidth(tiled(recordOf(2, 2), 1e9F, 1)), 2000000000);
    EXPECT_EQ(tiledWidth(tiled(recordOf(3, 2), 1e9F, 1)), 0x7FFFFFFF);
    EXPECT_EQ(tiledHeight(tiled(recordOf(0xFFFFFFFF, 0xFFFFFFFF), inf, inf)), 0x7FFFFFFF);
    EXPECT_EQ(tiledHeight(tiled(recordOf(0, 0), inf, inf)), 0);
    EXPECT_EQ(tiledHeight(tiled(recordOf(1, 1), 1, n)), 0);
}

TEST(AtlasSources, ShowWhatLooksTheSameAsRGB) {
    using Image = ::osg::Image;
    const struct {
        ::osg::UInt32 format;
        bytes pixel, shown; ///< of two pixels the second; the first is full throughout
    } cases[] = {{Image::OSG_RGB_PF, {1, 2, 3}, {1, 2, 3}},
                 {Image::OSG_RGBA_PF, {1, 2, 3, 4}, {1, 2, 3, 4}},
                 {Image::OSG_L_PF, {9}, {9, 9, 9}},
                 {Image::OSG_I_PF, {9}, {9, 9, 9}},
                 {Image::OSG_BGR_PF, {1, 2, 3}, {3, 2, 1}},
                 {Image::OSG_LA_PF, {9, 255}, {9, 9, 9}},
                 {Image::OSG_LA_PF, {9, 254}, {}},
                 {Image::OSG_A_PF, {255}, {255, 255, 255}},
                 {Image::OSG_A_PF, {254}, {}},
                 {Image::OSG_BGRA_PF, {1, 2, 3, 255}, {3, 2, 1}},
                 {Image::OSG_BGRA_PF, {1, 2, 3, 0}, {}}};
    atlas_sources sources(image_equality::whole);
    const ::osg::ImageRefPtr wide(Image::create()), packed(Image::create()), bare(Image::create());
    wide->set(Image::OSG_RGB_PF, 1, 1, 1, 1, 1, 0.0, nullptr, Image::OSG_UINT16_IMAGEDATA);
    packed->set(Image::OSG_RGB_DXT1, 4, 4);
    bare->set(Image::OSG_RGB_PF, 1, 1, 1, 1, 1, 0.0, nullptr, Image::OSG_UINT8_IMAGEDATA, false);
    for (const ::osg::ImagePtr& image : {wide.get(), packed.get(), bare.get()})
        EXPECT_EQ(sources.of(image).pixels, nullptr);
    for (const auto& row : cases) {
        const ::osg::ImageRefPtr image(imageOf(row.format, 2, 1));
        std::copy(row.pixel.begin(), row.pixel.end(), image->getData() + row.pixel.size());
        const bytes before = pixelsOf(image);
        const atlas_source& source = sources.of(image);
        ASSERT_EQ(source.pixels != nullptr, !row.shown.empty()) << row.format;
        if (source.pixels == nullptr)
            continue;
        const std::size_t channels = row.shown.size();
        EXPECT_EQ(source.hasAlpha, channels == 4);
        EXPECT_EQ(source.pixels == image->getData(), row.pixel.size() >= 3 && row.shown[0] == 1);
        EXPECT_EQ(bytes(source.pixels, source.pixels + channels), bytes(channels, 255));
        EXPECT_EQ(bytes(source.pixels + channels, source.pixels + 2 * channels), row.shown);
        EXPECT_EQ(sources.of(image).pixels, source.pixels) << "one copy";
        EXPECT_EQ(pixelsOf(image), before);
    }
}

TEST(ImageFinder, FindsWhatTheSearchFinds) {
    std::mt19937 rng(64);
    for (const image_equality equality : {image_equality::first_bytes, image_equality::whole}) {
        atlas_sources sources(equality);
        image_finder finder(equality);
        std::vector<ImageData> images;
        std::vector<::osg::ImageRefPtr> held;
        std::vector<std::size_t> first;             // of `held`: those that made a record
        for (int round = 0; round < 300; ++round) { // few sizes, few values: many are equal
            const bool alpha = rng() % 2 == 0;
            const int width = 1 + int(rng() % 3), height = 1 + int(rng() % 3);
            held.emplace_back(imageOf(alpha ? 6408 : 6407, width, height, 3));
            held.back()->getData()[rng() % held.back()->getSize()] = 4;
            const atlas_source& source = sources.of(held.back());
            std::uint32_t expected =
                searchImageData(images, source.pixels, source.width, source.height);
            if (equality == image_equality::whole) {
                const auto same = std::find_if(first.begin(), first.end(), [&](std::size_t number) {
                    return *held[number].get() == *held.back().get();
                });
                expected = same == first.end() ? none : std::uint32_t(same - first.begin());
            }
            EXPECT_EQ(finder.find(images, source), expected);
            if (expected != none)
                continue;
            finder.enter(std::uint32_t(images.size()), source);
            first.push_back(held.size() - 1);
            images.push_back(recordOf(source.width, source.height, nullptr, source.hasAlpha));
            images.back().data = source.pixels;
        }
        EXPECT_GT(images.size(), 20U);
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
