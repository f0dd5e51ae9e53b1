// The packers of atlases beside stb_rect_pack, on the same sizes, one thread, in turn. Occupancy is
// the share of the used part that items fill: width and height as they come out, in both; of
// atlases of one size it is the share of all of them.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#define STB_RECT_PACK_IMPLEMENTATION
#define STBRP_STATIC
#include <stb/stb_rect_pack.h>

#include <morva/textures/morva_osg_scene_atlas.h>
#include <morva/textures/texturatlas.h>

namespace {

using sizes = std::vector<morva::texturinfo>;

constexpr int no_limit = 1 << 30; ///< a strip that never ends

/// What a packing came to.
struct outcome {
    std::int64_t width = 0, height = 0;
    double seconds = 1e9;
};

template <typename Pack> double secondsOf(const Pack& pack) {
    const auto start = std::chrono::steady_clock::now();
    pack();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double areaOf(const sizes& items) {
    double area = 0;
    for (const morva::texturinfo& item : items)
        area += static_cast<double>(item.width) * item.height;
    return area;
}

/// From a list of sizes to places, as each of both wants it.
outcome ours(const sizes& items, unsigned widest) {
    morva::texturatlas atlas;
    atlas.items.assign(items.begin(), items.end());
    outcome packed;
    packed.seconds = secondsOf([&] { atlas.calculate(widest); });
    packed.width = atlas.width;
    packed.height = atlas.height;
    return packed;
}

outcome theirs(const sizes& items, int width) {
    std::vector<stbrp_rect> rects;
    for (const morva::texturinfo& item : items)
        rects.push_back({static_cast<int>(rects.size()), item.width, item.height, 0, 0, 0});
    std::vector<stbrp_node> nodes(static_cast<std::size_t>(width));
    stbrp_context context;
    outcome packed;
    packed.seconds = secondsOf([&] {
        stbrp_init_target(&context, width, no_limit, nodes.data(), width);
        stbrp_pack_rects(&context, rects.data(), static_cast<int>(rects.size()));
    });
    for (const stbrp_rect& rect : rects) {
        packed.width = std::max<std::int64_t>(packed.width, rect.x + rect.w);
        packed.height = std::max<std::int64_t>(packed.height, rect.y + rect.h);
    }
    return packed;
}

constexpr int atlas_side = 4096;

/// As many atlases as the items need, without drawing: `height` is that of all together.
outcome ourAtlases(const sizes& items) {
    std::vector<morva::osg::ImageData> images;
    for (const morva::texturinfo& item : items) {
        images.emplace_back();
        images.back().width = static_cast<std::uint32_t>(item.width);
        images.back().height = static_cast<std::uint32_t>(item.height);
        images.back().maxTexCoordU = images.back().maxTexCoordV = 1.0F;
    }
    outcome packed;
    packed.width = atlas_side;
    packed.seconds = secondsOf([&] {
        std::sort(images.begin(), images.end());
        std::reverse(images.begin(), images.end());
        for (std::size_t placed = 0; placed < images.size(); packed.height += atlas_side) {
            morva::osg::FixedTextureAtlas atlas;
            atlas.width = atlas.height = atlas_side;
            atlas.freeSpaces = {{0, 0, atlas_side, atlas_side}};
            placed += morva::osg::buildOneAtlas(images, atlas);
        }
    });
    return packed;
}

outcome theirAtlases(const sizes& items) {
    std::vector<stbrp_rect> rects;
    for (const morva::texturinfo& item : items)
        rects.push_back({static_cast<int>(rects.size()), item.width, item.height, 0, 0, 0});
    std::vector<stbrp_node> nodes(atlas_side);
    stbrp_context context;
    outcome packed;
    packed.width = atlas_side;
    packed.seconds = secondsOf([&] {
        for (auto left = rects.end(); left != rects.begin(); packed.height += atlas_side) {
            stbrp_init_target(&context, atlas_side, atlas_side, nodes.data(), atlas_side);
            stbrp_pack_rects(&context, rects.data(), static_cast<int>(left - rects.begin()));
            left = std::partition(rects.begin(), left,
                                  [](const stbrp_rect& rect) { return rect.was_packed == 0; });
        }
    });
    return packed;
}

/// Best times of two ways, the second told what the first one came to.
template <typename Ours, typename Theirs>
void inTurn(benchmark::State& state, const sizes& items, const Ours& our_way,
            const Theirs& their_way) {
    outcome mine, other;
    for (auto _ : state) {
        const outcome now = our_way();
        const outcome then = their_way(now);
        mine = now.seconds < mine.seconds ? now : mine;
        other = then.seconds < other.seconds ? then : other;
    }
    const double area = areaOf(items);
    const auto filled = [area](const outcome& packed) {
        return area / (static_cast<double>(packed.width) * static_cast<double>(packed.height));
    };
    state.counters["ours_ms"] = 1e3 * mine.seconds;
    state.counters["stb_ms"] = 1e3 * other.seconds;
    state.counters["ratio"] = mine.seconds / other.seconds;
    state.counters["ours_filled"] = filled(mine);
    state.counters["stb_filled"] = filled(other);
}

/// Any sides from 1 to `most`.
sizes anySizes(std::size_t count, int most) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> side(1, most);
    sizes made;
    while (made.size() < count)
        made.push_back({side(rng), side(rng)});
    return made;
}

/// Sides as images have them: mostly powers of two.
sizes imageSizes(std::size_t count) {
    std::mt19937 rng(12);
    std::uniform_int_distribution<int> exponent(4, 9), any(8, 512), chance(0, 4);
    sizes made;
    while (made.size() < count) {
        const auto side = [&] { return chance(rng) == 0 ? any(rng) : 1 << exponent(rng); };
        made.push_back({side(), side()});
    }
    return made;
}

/// Without a limit the other gets the width that ours chose.
void besideStb(benchmark::State& state, const sizes& items, unsigned widest) {
    inTurn(
        state, items, [&] { return ours(items, widest); },
        [&](const outcome& now) { return theirs(items, static_cast<int>(now.width)); });
}

void anySides(benchmark::State& state) {
    besideStb(state, anySizes(static_cast<std::size_t>(state.range(0)), 256), 0);
}
void images(benchmark::State& state) { besideStb(state, imageSizes(3000), 4096); }
void atlases(benchmark::State& state) {
    const sizes items = state.range(1) == 0
                            ? imageSizes(static_cast<std::size_t>(state.range(0)))
                            : anySizes(static_cast<std::size_t>(state.range(0)), 512);
    inTurn(
        state, items, [&] { return ourAtlases(items); },
        [&](const outcome&) { return theirAtlases(items); });
}
BENCHMARK(anySides)->Arg(100)->Arg(1000)->Arg(10000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(images)->Iterations(20)->Unit(benchmark::kMillisecond);
// As images have sides, and any sides up to 512.
BENCHMARK(atlases)->Args({3000, 0})->Args({3000, 1})->Iterations(20)->Unit(benchmark::kMillisecond);

} // namespace
