// The packer of atlases beside stb_rect_pack, on the same sizes, one thread, in turn. Occupancy is
// the share of the used part that items fill: width and height as they come out, in both.

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

/// Best times of both. Without a limit the other gets the width that ours chose.
void besideStb(benchmark::State& state, const sizes& items, unsigned widest) {
    outcome mine, other;
    for (auto _ : state) {
        const outcome now = ours(items, widest);
        const outcome then = theirs(items, static_cast<int>(now.width));
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

void anySides(benchmark::State& state) {
    besideStb(state, anySizes(static_cast<std::size_t>(state.range(0)), 256), 0);
}
void images(benchmark::State& state) { besideStb(state, imageSizes(3000), 4096); }
BENCHMARK(anySides)->Arg(100)->Arg(1000)->Arg(10000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(images)->Iterations(20)->Unit(benchmark::kMillisecond);

} // namespace
