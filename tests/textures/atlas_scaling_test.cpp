// Smaller images: halves for a packing, in a scene, powers of two.

#include "atlas_support.h"

#include <list>
#include <numeric>

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
    for (unsigned long i = 3; image.data == nullptr && image.hasAlpha && i < made->getSize();
         i += 4)
        made->getData()[i] = 255;
    if (image.data != nullptr)
        made->setData(image.data);
    made->scale(std::max(::osg::Int32(image.width >> 1), 1),
                std::max(::osg::Int32(image.height >> 1), 1));
    return pixelsOf(made.get());
}

/// Looks for the next one each time, and counts those that it halves.
std::size_t naiveScale(std::vector<ImageData>& images, std::list<bytes>& store, double percent,
                       unsigned min_side) {
    std::vector<std::size_t> turn(images.size()); // when it was entered last
    std::iota(turn.begin(), turn.end(), std::size_t{0});
    std::size_t shrunk = 0;
    const auto wanted = std::max<std::size_t>(1, std::size_t(percent * double(images.size())));
    for (std::size_t looks = 0; looks < images.size() && shrunk < wanted; ++looks) {
        std::size_t next = 0;
        const auto rank = [&](std::size_t i) { // a NaN is last
            const double own = images[i].scalePriority;
            return std::pair(std::isnan(own) ? -1e300 : own, turn[i]);
        };
        for (std::size_t i = 1; i < images.size(); ++i)
            next = rank(next) < rank(i) ? i : next;
        ImageData& image = images[next];
        if (std::min(image.width, image.height) > min_side) {
            ++shrunk;
            image.data = store.emplace_back(halved(image)).data();
            image.width = std::max(image.width / 2, 1U);
            image.height = std::max(image.height / 2, 1U);
        }
        double& priority = image.scalePriority;
        priority = priority > 0 ? priority / 3 : priority - 1;
        turn[next] = images.size() + looks;
    }
    return shrunk;
}

TEST(ScaleImages, HalvesThePicturesThatAreNextLikeItsTwin) {
    strays_expected = true;
    std::mt19937 rng(seedOf(12));
    for (int round = 0; round < roundsOf(200); ++round) {
        SCOPED_TRACE(round);
        std::list<bytes> store;
        std::vector<ImageData> images;
        const double priorities[] = {-1, 0, 1, double(not_a_number)};
        for (unsigned i = 0; i < rng() % 9; ++i) {
            const unsigned width = 1 + rng() % 40, height = 1 + rng() % 40;
            const bool alpha = rng() % 2 == 0;
            bytes& pixels = store.emplace_back(randomPixels(rng, width * height, alpha));
            images.push_back(recordOf(width, height, rng() % 5 == 0 ? nullptr : &pixels, alpha));
            images.back().scalePriority = priorities[rng() % 4];
        }
        std::vector<ImageData> expected = images;
        for (int call = 0; call < 4; ++call) {
            const double shares[] = {1.5, 0, -0.111111, 0.001, 1, double(rng() % 8) / 7},
                         percent = shares[rng() % 6];
            const bool taken = percent > 0 && percent <= 1;
            const unsigned min_side = rng() % 12;
            const std::size_t kept = keptImages(),
                              shrunk =
                                  naiveScale(expected, store, taken ? percent : 0.25, min_side);
            const std::list<bytes> untouched = store;
            const stream_capture out(std::cout);
            ASSERT_EQ(scaleImages(images, percent, min_side), shrunk > 0);
            ASSERT_EQ(keptImages() - kept, shrunk);
            std::ostringstream text;
            text << bad_share << "Reset from " << percent << " to 0.25\n";
            EXPECT_EQ(out.text(), taken ? "" : text.str());
            EXPECT_EQ(store, untouched);
            for (std::size_t i = 0; i < images.size(); ++i) {
                const ImageData &ours = images[i], &theirs = expected[i];
                ASSERT_EQ(told(ours.scalePriority), told(theirs.scalePriority));
                ASSERT_EQ(pixelsOf(ours), pixelsOf(theirs));
                ASSERT_EQ(ours.width, theirs.width);
            }
        }
    }
}

TEST(CreateAtlas, ShrinksUntilBothSidesAreAccepted) {
    strays_expected = true;
    const std::string reset = bad_share + std::string("Reset from "),
                      failed = "Morva::osg::createAtlas failed! Vec: 1 maxSize: 10000 percent: ";
    const struct {
        unsigned side, other; ///< of the one image
        unsigned max_size;    ///< 10000, or that of a fixed size
        bool made;
        int width, height;
        std::string text;
    } cases[] = {{8192, 70, 10000, true, 8192, 70, ""},
                 {8193, 70, 10000, true, 4096, 35, reset + "-0.220554 to 0.25\n"},
                 {30000, 140, 10000, true, 7500, 35, ""},
                 {12000, 32, 10000, false, 1, 1, failed + "0.166667\n"},
                 {9000, 70, 4096, false, 9000, 70, ""},
                 {9000, 70, 9999, false, 1, 1, ""},
                 {4096, 70, 4096, true, 4096, 70, ""}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.side);
        morva::texturatlas atlas;
        for (const bool upright : {false, true}) { // then with what the first one left
            std::vector<ImageData> images = {upright ? recordOf(row.other, row.side)
                                                     : recordOf(row.side, row.other)};
            const stream_capture out(std::cout);
            EXPECT_EQ(createAtlas(atlas, images, row.max_size != 10000, row.max_size), row.made);
            EXPECT_EQ(atlas.width, upright ? row.height : row.width);
            EXPECT_EQ(atlas.height, upright ? row.width : row.height);
            EXPECT_EQ(atlas.placed.size(), atlas.itemCount);
            EXPECT_EQ(out.text(), row.text);
        }
    }
}

TEST(ScaleImagesInTree, DividesEachImageOnce) {
    const std::array<int, 5> cases[] = {{32, 1, 0, 64, 32}, // height, factor, limit, new sides
                                        {33, 4, 32, 16, 8},
                                        {32, 4, 32, 64, 32},
                                        {9, 9, 8, 1, 1},
                                        {10, 9, 9, 7, 1}};
    for (const auto& [height, factor, min_side, new_width, new_height] : cases) {
        const ::osg::ImageRefPtr image(imageOf(6408, 64, height)), hidden(imageOf(6407, 64, 64));
        const node_ref root(
            group({meshNode(quads(1), chunked({1, 1, 1, 1}, image)),
                   meshNode(quads(1), chunked({0, 1, 1, 1}, image)), meshNode(quads(1)),
                   switched(0, {meshNode(quads(1), chunked({1, 1, 1, 1}, hidden))})}));
        const stream_capture out(std::cout);
        ScaleImagesInTree(root, unsigned(factor), unsigned(min_side));
        EXPECT_EQ(out.text().empty(), factor < 2);
        EXPECT_TRUE(image->getWidth() == new_width && image->getHeight() == new_height) << height;
        EXPECT_EQ(hidden->getWidth(), 64);
    }
    ScaleImagesInTree(::osg::NullFC, 2, 1);
}

TEST(ScaleImageToPowerof2, TakesTheNearerPowerAndNamesTheImage) {
    const std::pair<int, int> cases[] = {{1, 1},   {3, 4},       {5, 4},        {6, 8},
                                         {47, 32}, {8191, 8192}, {12288, 8192}, {30000, 8192}};
    int number = -1; // of the first image, which others may have been named before
    for (const auto& [side, power] : cases) {
        const ::osg::ImageRefPtr image(imageOf(6407, side, 3));
        ASSERT_TRUE(ScaleImageToPowerof2(image));
        EXPECT_TRUE(image->getWidth() == power && image->getHeight() == 4) << side;
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
