// Smaller images: halves for a packing, in a scene, powers of two.

#include "atlas_support.h"

#include <morva/textures/morva_osg_kept_images.h>
#include <morva/textures/texturatlas.h>

namespace {

using namespace morva::osg;

const char* const bad_share = "Morva::osg::scaleImages() scalepercentvalue has to be in (0,1].\n";

/// A record's picture at half its size, the long way round: a seed, scaled up, filled, scaled down.
bytes halved(const ImageData& image) {
    const ::osg::ImageRefPtr made(
        imageOf(image.hasAlpha ? 6408 : 6407, 2, 2, 0)); // small, then the size
    made->scale(::osg::Int32(image.width), ::osg::Int32(image.height));
    made->setData(image.data);
    made->scale(std::max(::osg::Int32(image.width >> 1), 1),
                std::max(::osg::Int32(image.height >> 1), 1));
    return pixelsOf(made.get());
}

/// What a call is to do: which images are halved, and all priorities, by looking for the next one
/// each time.
std::vector<std::size_t> twinOfScaleImages(std::vector<double>& priorities,
                                           std::vector<ImageData> images, double percent,
                                           unsigned min_side) {
    std::vector<std::size_t> shrunk, turn(images.size()); // turn: when it was entered last
    for (std::size_t i = 0; i < turn.size(); ++i)
        turn[i] = i;
    const double share = percent > 0 && percent <= 1 ? percent : 0.25;
    const auto wanted = std::max(1U, static_cast<unsigned>(share * double(images.size())));
    for (std::size_t looks = 0; looks < images.size() && shrunk.size() < wanted; ++looks) {
        std::size_t next = 0;
        for (std::size_t i = 1; i < images.size(); ++i) {
            const bool tie = priorities[i] == priorities[next] && turn[i] > turn[next];
            next = priorities[i] > priorities[next] || tie ? i : next;
        }
        if (std::min(images[next].width, images[next].height) > min_side) {
            shrunk.push_back(next);
            images[next].width = std::max(images[next].width / 2, 1U);
            images[next].height = std::max(images[next].height / 2, 1U);
        }
        priorities[next] = priorities[next] > 0 ? priorities[next] / 3 : priorities[next] - 1;
        turn[next] = images.size() + looks;
    }
    return shrunk;
}

TEST(ScaleImages, HalvesThePicturesThatAreNextLikeItsTwin) {
    strays_expected = true;
    std::mt19937 rng(12);
    const stream_capture out(std::cout);
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        std::vector<bytes> store;
        std::vector<ImageData> images;
        std::vector<double> priorities;
        for (unsigned i = 0; i < rng() % 9; ++i) {
            const unsigned width = 1 + rng() % 40, height = 1 + rng() % 40;
            const bool alpha = rng() % 2 == 0;
            store.push_back(randomPixels(rng, width * height, alpha));
            images.push_back(recordOf(width, height, &store.back(), alpha));
            images.back().scalePriority = double(rng() % 3) - 1;
            priorities.push_back(images.back().scalePriority);
        }
        const std::vector<bytes> untouched = store;
        for (int call = 0; call < 4; ++call) {
            const double percent = double(rng() % 9) / 7;
            const unsigned min_side = rng() % 12;
            const std::vector<ImageData> before = images;
            const auto expected = twinOfScaleImages(priorities, before, percent, min_side);
            const std::size_t kept = keptImages();
            ASSERT_EQ(scaleImages(images, percent, min_side), !expected.empty());
            ASSERT_EQ(keptImages() - kept, expected.size());
            for (std::size_t i = 0; i < images.size(); ++i) {
                ASSERT_EQ(images[i].scalePriority, priorities[i]);
                const auto times = std::count(expected.begin(), expected.end(), i);
                ASSERT_EQ(images[i].data != before[i].data, times > 0);
                if (times != 1)
                    continue;
                const bytes half = halved(before[i]);
                ASSERT_EQ(images[i].width, std::max(before[i].width / 2, 1U));
                ASSERT_TRUE(std::equal(half.begin(), half.end(), images[i].data));
            }
        }
        EXPECT_EQ(store, untouched);
    }
}

TEST(ScaleImages, SaysWhatItMakesOfItsShare) {
    strays_expected = true;
    const struct {
        double percent;
        std::string reset; ///< as it is printed; empty if it is taken
        unsigned shrunk;   ///< of eight
    } cases[] = {{1.0, "", 8},   {1.5, "1.5", 2}, {0.0, "0", 2}, {-0.111111, "-0.111111", 2},
                 {0.001, "", 1}, {0.5, "", 4}};
    for (const auto& row : cases) {
        std::vector<ImageData> images(8, recordOf(70, 33)); // black ones
        const stream_capture out(std::cout);
        EXPECT_TRUE(scaleImages(images, row.percent, 32));
        EXPECT_EQ(out.text(),
                  row.reset.empty() ? "" : bad_share + ("Reset from " + row.reset + " to 0.25\n"));
        // The last ones go first.
        for (std::size_t i = 0; i < 8; ++i)
            EXPECT_EQ(images[i].width, i + row.shrunk >= 8 ? 35U : 70U) << row.percent;
        EXPECT_EQ(images[7].data[0], 0);
    }
    std::vector<ImageData> small(3, recordOf(32, 900)), odd(2, recordOf(9, 9));
    EXPECT_FALSE(scaleImages(small, 1, 32));
    EXPECT_EQ(small[1].scalePriority, -1);
    odd[1].scalePriority = static_cast<double>(not_a_number);
    EXPECT_TRUE(scaleImages(odd, 0.5, 0));
    EXPECT_EQ(odd[0].width, 4U) << "a NaN is last";
    std::vector<ImageData> nothing;
    EXPECT_FALSE(scaleImages(nothing, 0.5, 0));
}

TEST(CreateAtlas, ShrinksUntilBothSidesAreAccepted) {
    strays_expected = true;
    const std::string reset = bad_share + std::string("Reset from "),
                      failed = "Morva::osg::createAtlas failed! Vec: 1 maxSize: 10000 percent: ";
    const struct {
        const char* name;
        unsigned side, other; ///< of the one image
        float u;
        unsigned max_size; ///< 10000, or that of a fixed size
        bool made;
        int width, height;
        std::string text;
    } cases[] = {
        {"fits", 8192, 70, 1, 10000, true, 8192, 70, ""},
        {"8193", 8193, 70, 1, 10000, true, 4096, 35, reset + "-0.220554 to 0.25\n"},
        {"10000", 10000, 70, 1, 10000, true, 5000, 35, reset + "0 to 0.25\n"},
        {"above", 10001, 70, 1, 10000, true, 5000, 35, ""},
        {"twice", 30000, 140, 1, 10000, true, 7500, 35, ""},
        {"tiles", 100, 70, 150.5F, 10000, true, 7550, 35, ""},
        {"floor", 12000, 32, 1, 10000, false, 1, 1, failed + "0.166667\n"},
        {"floor later", 100, 33, 200, 10000, false, 1, 1, reset + "0 to 0.25\n" + failed + "0\n"},
        {"no limit to tiles", 33, 33, 1e9F, 10000, false, 1, 1, failed + "0.999995\n"},
        {"fixed, above", 9000, 70, 1, 4096, false, 9000, 70, ""},
        {"fixed, but too large", 9000, 70, 1, 9999, false, 1, 1, ""},
        {"fixed, at the limit", 4096, 70, 1, 4096, true, 4096, 70, ""}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        morva::texturatlas atlas;
        for (const bool upright : {false, true}) { // then with what the first one left
            std::vector<ImageData> images = {upright
                                                 ? tiled(recordOf(row.other, row.side), 1, row.u)
                                                 : tiled(recordOf(row.side, row.other), row.u, 1)};
            const stream_capture out(std::cout);
            EXPECT_EQ(createAtlas(atlas, images, row.max_size != 10000, row.max_size), row.made);
            EXPECT_EQ(atlas.width, upright ? row.height : row.width);
            EXPECT_EQ(atlas.height, upright ? row.width : row.height);
            EXPECT_EQ(atlas.placed.size(), atlas.itemCount);
            EXPECT_EQ(out.text(), row.text);
        }
    }
    morva::texturatlas atlas;
    std::vector<ImageData> nothing;
    EXPECT_TRUE(createAtlas(atlas, nothing, false, 10000) && atlas.width == 1);
}

TEST(ScaleImagesInTree, DividesEachImageOnce) {
    const struct {
        int width, height;
        unsigned factor, min_side;
        int new_width, new_height;
    } cases[] = {{64, 32, 1, 0, 64, 32},  {64, 32, 0, 0, 64, 32}, {64, 33, 4, 32, 16, 8},
                 {64, 32, 4, 32, 64, 32}, {64, 9, 9, 8, 1, 1},    {64, 10, 9, 9, 7, 1},
                 {64, 32, 7, 8, 9, 4},    {5, 8, 6, 3, 1, 1}};
    for (const auto& row : cases) {
        const ::osg::ImageRefPtr image(imageOf(6408, row.width, row.height)),
            other(imageOf(6407, row.width, row.height)), hidden(imageOf(6407, 64, 64));
        const node_ref root(
            group({meshNode(quads(1), chunked({1, 1, 1, 1}, image)),
                   meshNode(quads(1), chunked({0, 1, 1, 1}, image)),
                   meshNode(quads(1), chunked({1, 1, 1, 0}, other)), meshNode(quads(1)),
                   switched(0, {meshNode(quads(1), chunked({1, 1, 1, 1}, hidden))})}));
        const stream_capture out(std::cout);
        ScaleImagesInTree(root, row.factor, row.min_side);
        EXPECT_EQ(out.text(), row.factor < 2
                                  ? ""
                                  : "Scaling Images by factor of " + std::to_string(row.factor) +
                                        ". Ignored if an Image has a smaller side than " +
                                        std::to_string(row.min_side) + "\n");
        for (const auto& scaled : {image, other}) {
            EXPECT_EQ(scaled->getWidth(), row.new_width);
            EXPECT_EQ(scaled->getHeight(), row.new_height);
        }
        EXPECT_EQ(hidden->getWidth(), 64);
    }
    ScaleImagesInTree(::osg::NullFC, 2, 1);
}

TEST(ScaleImageToPowerof2, TakesTheNearerPowerAndNamesTheImage) {
    const struct {
        int side, power;
    } cases[] = {{1, 1},   {2, 2},   {3, 4},       {5, 4},        {6, 8},        {7, 8},
                 {48, 64}, {47, 32}, {8191, 8192}, {12000, 8192}, {12288, 8192}, {30000, 8192}};
    int number = -1; // of the first image, which others may have been named before
    for (const auto& row : cases) {
        SCOPED_TRACE(row.side);
        const ::osg::ImageRefPtr image(imageOf(6407, row.side, 3));
        ASSERT_TRUE(ScaleImageToPowerof2(image));
        EXPECT_EQ(image->getWidth(), row.power);
        EXPECT_EQ(image->getHeight(), 4);
        const std::string name = image->getName();
        number = number < 0 ? std::stoi(name.substr(16)) : number + 1;
        EXPECT_EQ(name, "TexFiles/texture" + std::to_string(number) + ".png");
        EXPECT_EQ(::osg::getName(image), name);
        EXPECT_EQ(*image->findAttachmentField("fileName"), name);
    }
    const stream_capture out(std::cout);
    EXPECT_FALSE(ScaleImageToPowerof2(::osg::NullFC));
    EXPECT_FALSE(ScaleImageToPowerof2(::osg::ImageRefPtr(::osg::Image::create())));
    EXPECT_EQ(out.text(), "Scaling failed...\nScaling failed...\n");
}

} // namespace
