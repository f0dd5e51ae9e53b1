// Images drawn side by side into an atlas of 4096 x 4096, beside memcpy of as many bytes: RGB
// images into RGB, and what has to be converted. And such an atlas of photographs, written as PNG.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGImage.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/texturatlas.h>

#include "host/image_codec.h"

namespace {

constexpr unsigned side = 4096;

void BM_Memcpy(benchmark::State& state) {
    const std::size_t bytes = std::size_t{side} * side * 3;
    const std::vector<unsigned char> from(bytes, 1);
    std::vector<unsigned char> to(bytes, 2);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

/// image side, channels of the images, channels of the atlas
void BM_FillAtlas(benchmark::State& state) {
    const auto image_side = static_cast<unsigned>(state.range(0));
    const unsigned in_row = side / image_side;
    const bool alpha = state.range(2) == 4;
    std::vector<unsigned char> pixels(std::size_t{side} * side * 4, 1);
    morva::osg::ImageData image;
    image.width = image.height = image_side;
    image.maxTexCoordU = image.maxTexCoordV = 1;
    image.hasAlpha = state.range(1) == 4;
    std::vector<morva::osg::ImageData> images(std::size_t{in_row} * in_row, image);
    for (std::size_t i = 0; i < images.size(); ++i)
        images[i].data = pixels.data() + i * image_side * image_side * (image.hasAlpha ? 4 : 3);
    const ::osg::ImageRefPtr target(::osg::Image::create());
    target->set(alpha ? ::osg::Image::OSG_RGBA_PF : ::osg::Image::OSG_RGB_PF, side, side);
    morva::texturatlas packed;
    morva::osg::createAtlas(packed, images, false, side);
    for (auto _ : state) {
        state.PauseTiming();
        morva::texturatlas atlas = packed;
        state.ResumeTiming();
        morva::osg::fillNewTexture(atlas, images, target, alpha);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(target->getSize()));
}
BENCHMARK(BM_FillAtlas)
    ->ArgsProduct({{64, 512, 2048}, {3, 4}, {3, 4}})
    ->Unit(benchmark::kMillisecond);

/// Two times two copies of a texture of 2048 x 2048, into memory.
void BM_WritePng(benchmark::State& state) {
    std::ifstream file("/usr/share/assimp/models/glTF/CesiumMilkTruck/CesiumMilkTruck.png",
                       std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const ::osg::ImageRefPtr texture(morva::host::decodeImage(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), false));
    if (texture == ::osg::NullFC || texture->getSize() != std::size_t{2048} * 2048 * 3) {
        state.SkipWithError("the texture is missing");
        return;
    }
    morva::osg::ImageData image;
    image.data = texture->getData();
    image.width = image.height = 2048;
    image.maxTexCoordU = image.maxTexCoordV = 1;
    std::vector<morva::osg::ImageData> images(4, image);
    const ::osg::ImageRefPtr target(::osg::Image::create());
    target->set(::osg::Image::OSG_RGB_PF, 2, 2);
    morva::texturatlas atlas;
    morva::osg::createAtlas(atlas, images, false, side);
    morva::osg::fillNewTexture(atlas, images, target, false);
    for (auto _ : state)
        state.counters["bytes"] = static_cast<double>(morva::host::encodePng(target).size());
}
BENCHMARK(BM_WritePng)->Unit(benchmark::kMillisecond);

} // namespace
