// Images: stores, blocks, sampling, formats, files.

#include "tests/support/test.h"

#include <OpenSG/OSGImageFileHandler.h>

#include <cstdio>

namespace {

using namespace osg;
using bytes = std::vector<UInt8>;

ImageRefPtr imageOf(Image::PixelFormat format, Int32 w, Int32 h, Int32 d, const bytes& pixels) {
    ImageRefPtr image(Image::create());
    EXPECT_TRUE(image->set(format, w, h, d, 1, 1, 0., pixels.data()));
    EXPECT_EQ(image->getSize(), pixels.size());
    return image;
}

ImageRefPtr row(const bytes& pixels) {
    return imageOf(Image::OSG_L_PF, Int32(pixels.size()), 1, 1, pixels);
}

bytes pixelsOf(const ImageRefPtr& image) {
    return image->getData() ? bytes(image->getData(), image->getData() + image->getSize())
                            : bytes();
}

bytes randomBytes(std::mt19937& rng, std::size_t count) {
    bytes made(count);
    for (UInt8& b : made)
        b = UInt8(1 + rng() % 255); // never the 0 of "outside"
    return made;
}

TEST(ImageSet, WithoutDataTheStoreKeepsWhatItCan) {
    const ImageRefPtr image = row({1, 2, 3, 4});
    EXPECT_TRUE(image->set(Image::OSG_L_PF, 2, 2));
    EXPECT_EQ(pixelsOf(image), (bytes{1, 2, 3, 4})) << "same size";
    EXPECT_TRUE(image->set(Image::OSG_L_PF, 6));
    EXPECT_EQ(pixelsOf(image), (bytes{1, 2, 3, 4, 0, 0})) << "larger";
    EXPECT_TRUE(image->set(Image::OSG_RGB_PF, 0, -3, 0, 0, -1, 0., nullptr,
                           Image::OSG_UINT8_IMAGEDATA, true, 0));
    EXPECT_EQ(pixelsOf(image), (bytes{0, 0, 0})) << "smaller; sizes below 1 are 1";
    EXPECT_EQ(image->getBpp() * image->getSideCount(), 3);
    EXPECT_FALSE(
        image->set(Image::OSG_L_PF, 3, 1, 1, 1, 1, 0., nullptr, Image::OSG_UINT8_IMAGEDATA, false));
    EXPECT_EQ(image->getData(), nullptr) << "no store wanted";
}

TEST(ImageSet, RefusesWhatItCannotHoldAndStaysAsItWas) {
    const ImageRefPtr image = row({7}), copy(Image::create());
    image->setName("field");
    image->setAttachmentField("source", "camera");
    image->setAttachmentField("source", "disk");
    EXPECT_FALSE(image->set(4711, 2));
    EXPECT_FALSE(image->set(Image::OSG_RGB_PF, 2, 2, 1, 1, 1, 0., nullptr, 99));
    const Int32 most = std::numeric_limits<Int32>::max();
    EXPECT_FALSE(image->set(Image::OSG_RGBA_PF, most, most, most, most, most, 0., nullptr,
                            Image::OSG_FLOAT32_IMAGEDATA, true, most));
    EXPECT_FALSE(image->set(Image::OSG_RGBA_PF, 32768, 32768));
    EXPECT_FALSE(image->set(ImagePtr()) || image->setData(nullptr));
    EXPECT_FALSE(image->setSubData(0, 0, 0, 1, 1, 1, nullptr));
    EXPECT_TRUE(copy->set(image));
    EXPECT_TRUE(*copy.get() == *image.get());
    EXPECT_EQ(copy->getName(), "") << "pixels without name";
    EXPECT_EQ(*image->findAttachmentField("source"), "disk");
    EXPECT_EQ(image->findAttachmentField("Source"), nullptr);
    EXPECT_EQ(image->attachmentCount(), 1u);
    copy->editData()[0] = 3;
    EXPECT_TRUE(*copy.get() != *image.get());
    EXPECT_EQ(pixelsOf(image), (bytes{7}));
}

TEST(ImageLevels, StandSideByFrameByMip) {
    const ImageRefPtr image(Image::create());
    ASSERT_TRUE(image->set(Image::OSG_LA_PF, 4, 2, 1, 3, 2, 0., nullptr,
                           Image::OSG_UINT16_IMAGEDATA, true, 2));
    const unsigned long frame = 4 * (8 + 2 + 1); // 4 x 2, 2 x 1, 1 x 1
    EXPECT_EQ(image->getSize(true, false, false), frame);
    EXPECT_EQ(image->getSize(), 4 * frame);
    EXPECT_EQ(image->getData(2, 1, 1) - image->getData(), std::ptrdiff_t(3 * frame + 40));
    EXPECT_FALSE(image->getData(3) || image->getData(0, 2) || image->getData(0, 0, 2));
    image->setHeight(1000); // behind the store's back
    EXPECT_FALSE(image->getData() || image->isValid() || image->scale(2, 2));
}

TEST(ImageBlocks, WritingAndCuttingAgreeWithPixelByPixel) {
    std::mt19937 rng(seedOf(411));
    const ImageRefPtr window(Image::create()); // keeps the pixels of the round before
    const auto number = [&rng](int low, int high) {
        return low + Int32(rng() % unsigned(high - low + 1));
    };
    for (int round = 0; round < roundsOf(400); ++round) {
        SCOPED_TRACE(round);
        const Int32 w = number(1, 6), h = number(1, 6), d = number(1, 2); // of the image
        const Int32 bx = number(-4, 6), by = number(-4, 6), bz = number(-2, 3);
        const Int32 bw = number(1, 7), bh = number(1, 7), bd = number(1, 3);
        const bytes whole = randomBytes(rng, std::size_t(w * h * d * 3));
        const bytes part = randomBytes(rng, std::size_t(bw * bh * bd * 3));
        bytes written = whole, cut(part.size(), 0);
        for (Int32 i = 0; i < bw * bh * bd * 3; ++i) {
            const Int32 x = bx + i / 3 % bw, y = by + i / 3 / bw % bh, z = bz + i / 3 / bw / bh;
            if (x < 0 || y < 0 || z < 0 || x >= w || y >= h || z >= d)
                continue;
            const auto in_part = std::size_t(i);
            const auto in_whole = std::size_t(((z * h + y) * w + x) * 3 + i % 3);
            written[in_whole] = part[in_part];
            cut[in_part] = whole[in_whole];
        }

        const ImageRefPtr image = imageOf(Image::OSG_RGB_PF, w, h, d, whole);
        ASSERT_TRUE(image->subImage(bx, by, bz, bw, bh, bd, window));
        EXPECT_EQ(pixelsOf(window), cut);
        EXPECT_EQ(window->getWidth(), bw);
        EXPECT_EQ(pixelsOf(image), whole);
        ASSERT_TRUE(image->setSubData(bx, by, bz, bw, bh, bd, part.data()));
        EXPECT_EQ(pixelsOf(image), written);
        ASSERT_TRUE(image->setData(whole.data()));
        ASSERT_TRUE(image->subImage(bx, by, bz, bw, bh, bd));
        EXPECT_EQ(pixelsOf(image), cut) << "in place";
    }
}

TEST(ImageScale, TakesTheNearestSampleBelow) {
    EXPECT_FALSE(ImageRefPtr(Image::create())->scale(2, 2));
    std::mt19937 rng(seedOf(97));
    for (int round = 0; round < roundsOf(200); ++round) {
        SCOPED_TRACE(round);
        Int32 from[3], to[3];
        for (int axis = 0; axis < 3; ++axis) {
            from[axis] = 1 + Int32(rng() % (axis == 2 ? 3 : 40));
            to[axis] = round == 0 ? from[axis] : 1 + Int32(rng() % (axis == 2 ? 3 : 60));
        }
        const bytes pixels = randomBytes(rng, std::size_t(from[0] * from[1] * from[2] * 2));
        bytes expected;
        for (Int32 i = 0; i < to[0] * to[1] * to[2]; ++i) {
            const Int32 p[3] = {i % to[0], i / to[0] % to[1], i / to[0] / to[1]};
            Int32 s[3];
            for (int axis = 0; axis < 3; ++axis) {
                const Real32 factor = Real32(from[axis]) / Real32(to[axis]);
                s[axis] = Int32(Real32(p[axis]) * factor);
            }
            const auto at = pixels.begin() + 2 * ((s[2] * from[1] + s[1]) * from[0] + s[0]);
            expected.insert(expected.end(), at, at + 2);
        }
        const ImageRefPtr image = imageOf(Image::OSG_LA_PF, from[0], from[1], from[2], pixels);
        const ImageRefPtr copy(Image::create());
        ASSERT_TRUE(image->scale(to[0], to[1], to[2], copy));
        EXPECT_EQ(pixelsOf(copy), expected);
        EXPECT_EQ(pixelsOf(image), pixels);
        ASSERT_TRUE(image->scale(to[0], to[1], to[2]));
        EXPECT_EQ(pixelsOf(image), expected);
    }
}

TEST(ImageReformat, FollowsTheTable) {
    const struct {
        Image::PixelFormat from;
        bytes pixel, a, l, la, rgb, rgba;
    } cases[] = {
        {Image::OSG_A_PF, {9}, {9}, {9}, {9, 9}, {9, 9, 9}, {9, 9, 9, 9}},
        {Image::OSG_L_PF, {9}, {9}, {9}, {9, 9}, {9, 9, 9}, {9, 9, 9, 9}},
        {Image::OSG_I_PF, {9}, {9}, {9}, {9, 9}, {9, 9, 9}, {9, 9, 9, 9}},
        {Image::OSG_LA_PF, {8, 5}, {5}, {8}, {8, 5}, {8, 8, 8}, {8, 8, 8, 5}},
        {Image::OSG_RGB_PF, {10, 20, 31}, {20}, {20}, {20, 20}, {10, 20, 31}, {10, 20, 31, 255}},
        {Image::OSG_RGBA_PF, {90, 91, 95, 4}, {4}, {92}, {92, 4}, {90, 91, 95}, {90, 91, 95, 4}},
        {Image::OSG_BGR_PF, {1, 2, 3}, {2}, {2}, {2, 2}, {3, 2, 1}, {3, 2, 1, 255}},
        {Image::OSG_BGRA_PF, {1, 2, 3, 4}, {4}, {2}, {2, 4}, {3, 2, 1}, {3, 2, 1, 4}}};
    const std::set<Image::PixelFormat> with_alpha{
        Image::OSG_A_PF, Image::OSG_I_PF, Image::OSG_LA_PF, Image::OSG_RGBA_PF, Image::OSG_BGRA_PF};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.from);
        EXPECT_EQ(imageOf(c.from, 1, 1, 1, c.pixel)->hasAlphaChannel(), with_alpha.count(c.from));
        const std::pair<Image::PixelFormat, bytes> targets[] = {
            {Image::OSG_A_PF, c.a},   {Image::OSG_L_PF, c.l},     {Image::OSG_I_PF, c.l},
            {Image::OSG_LA_PF, c.la}, {Image::OSG_RGB_PF, c.rgb}, {Image::OSG_RGBA_PF, c.rgba}};
        for (const auto& [format, pixel] : targets) {
            bytes two, expected;
            for (int i = 0; i < 2; ++i) { // two pixels: the steps must be right, too
                two.insert(two.end(), c.pixel.begin(), c.pixel.end());
                expected.insert(expected.end(), pixel.begin(), pixel.end());
            }
            const ImageRefPtr image = imageOf(c.from, 1, 2, 1, two);
            const ImageRefPtr copy(Image::create());
            EXPECT_TRUE(image->reformat(format, copy));
            EXPECT_EQ(pixelsOf(copy), expected) << "to " << format;
            EXPECT_EQ(pixelsOf(image), two);
            EXPECT_EQ(image->reformat(format), format != c.from) << "the same in place: nothing";
            EXPECT_EQ(pixelsOf(image), expected);
        }
    }
}

TEST(ImageReformat, WorksOnWiderChannelsNotOnPackedPixels) {
    const Real32 pixel[3] = {.25f, .5f, .75f}, expected[4] = {.25f, .5f, .75f, 1.f};
    const ImageRefPtr image(Image::create()), packed(Image::create());
    ASSERT_TRUE(image->set(Image::OSG_RGB_PF, 1, 1, 1, 1, 1, 0.,
                           reinterpret_cast<const UInt8*>(pixel), Image::OSG_FLOAT32_IMAGEDATA));
    ASSERT_TRUE(image->reformat(Image::OSG_RGBA_PF));
    ASSERT_EQ(image->getSize(), sizeof(expected));
    EXPECT_EQ(std::memcmp(image->getData(), expected, sizeof(expected)), 0);
    ASSERT_TRUE(image->reformat(Image::OSG_L_PF));
    EXPECT_EQ(std::memcmp(image->getData(), &expected[1], sizeof(Real32)), 0);
    EXPECT_TRUE(packed->set(Image::OSG_RGB_DXT1, 5, 4));
    EXPECT_EQ(packed->getSize(), 16u) << "two blocks";
    EXPECT_FALSE(packed->scale(2, 2) || packed->subImage(0, 0, 0, 1, 1, 1) ||
                 packed->reformat(Image::OSG_RGB_PF));
}

TEST(ImageFiles, KeepPixelsAndRowOrder) {
    std::mt19937 rng(seedOf(5));
    for (const Image::PixelFormat format :
         {Image::OSG_L_PF, Image::OSG_RGB_PF, Image::OSG_RGBA_PF}) {
        const ImageRefPtr image(Image::create());
        image->set(format, 5, 3);
        image->setData(randomBytes(rng, image->getSize()).data());
        const std::string file = testing::TempDir() + "image_round.png";
        ASSERT_TRUE(image->write(file.c_str()));
        const ImageRefPtr again(ImageFileHandler::the().read(file.c_str()));
        ASSERT_NE(again, NullFC);
        EXPECT_TRUE(*again.get() == *image.get()) << format;
        EXPECT_EQ(again->getName(), file);
        std::remove(file.c_str());
    }
    const bytes pgm{'P', '5', ' ', '2', ' ', '2', ' ', '9', '\n', 1, 2, 3, 4}; // top row first
    const ImageRefPtr image(ImageFileHandler::the().read(pgm.data(), UInt32(pgm.size())));
    ASSERT_NE(image, NullFC);
    EXPECT_EQ(pixelsOf(image), (bytes{3, 4, 1, 2}));
}

TEST(ImageFiles, BadOnesAreRefused) {
    const ImageRefPtr image = row({1, 2});
    const std::string folder = testing::TempDir(), file = folder + "image_damaged.png";
    EXPECT_FALSE(image->write("no_such_folder/picture.png"));
    EXPECT_FALSE(image->write((folder + "picture.unknown").c_str()));
    EXPECT_FALSE(ImageRefPtr(Image::create())->write((folder + "x.png").c_str()));
    EXPECT_FALSE(image->read("no_such_folder/picture.png"));
    ASSERT_TRUE(image->write(file.c_str()));
    const std::string text = bytesOf(file);
    const bytes content(text.begin(), text.end());
    // The end mark alone may be missing; with less than that nothing is made up.
    for (UInt32 length = 0; length + 12 < content.size(); ++length)
        EXPECT_EQ(ImageFileHandler::the().read(content.data(), length), NullFC) << length;
    std::remove(file.c_str());
    EXPECT_EQ(pixelsOf(image), (bytes{1, 2}));
}

} // namespace
