// Picks in 100 engines, one at a time, as a user at a screen makes them: the time that 99 of 100
// stay below counts, not the mean. Times are those of the thread, which waits for nobody, so that
// other load on the machine does not count.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <time.h>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGIntersectAction.h>
#include <OpenSG/OSGLine.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/picking/morva_osg_intersect_action.h>
#include <morva/picking/morva_osg_ray_hits.h>

#include "scenes.h"

namespace {

/// Rays from places around a scene to places in its box.
std::vector<::osg::Line> raysInto(const ::osg::NodePtr& root, std::size_t count) {
    root->updateVolume();
    ::osg::Pnt3f low, high;
    root->getVolume().getBounds(low, high);
    const ::osg::Vec3f size = high - low;
    std::mt19937 rng(2026);
    const auto inBox = [&](float scale) {
        ::osg::Pnt3f point;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            point[i] = low[i] + size[i] * (0.5F + std::uniform_real_distribution<float>(
                                                      -0.5F * scale, 0.5F * scale)(rng));
        return point;
    };
    std::vector<::osg::Line> rays;
    for (std::size_t i = 0; i < count; ++i) {
        const ::osg::Pnt3f eye = inBox(3.0F);
        rays.emplace_back(eye, inBox(1.0F));
    }
    return rays;
}

double threadMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

/// Picks with each ray in turn; `pick` returns whether it hit.
template <typename Pick>
void pickInEngines(benchmark::State& state, bool own_cores, const Pick& pick) {
    constexpr std::size_t rays = 4096;
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(100, own_cores);
    morva::osg::precalc_BIH(root.get());
    const std::vector<::osg::Line> lines = raysInto(root.get(), rays);
    std::vector<double> times;
    std::size_t next = 0, hits = 0;
    for (auto _ : state) {
        const double start = threadMilliseconds();
        const bool hit = pick(root.get(), lines[next++ % rays]);
        times.push_back(threadMilliseconds() - start);
        hits += hit ? 1 : 0;
    }
    std::sort(times.begin(), times.end());
    const auto part = [&times](std::size_t percent) {
        return times[std::min(times.size() - 1, times.size() * percent / 100)];
    };
    state.counters["p50_ms"] = part(50);
    state.counters["p99_ms"] = part(99);
    state.counters["max_ms"] = times.back();
    state.counters["hits"] = static_cast<double>(hits) / static_cast<double>(times.size());
}

bool byAction(const ::osg::NodePtr& root, const ::osg::Line& line) {
    const std::unique_ptr<::osg::IntersectAction> action(::osg::IntersectAction::create(line));
    action->apply(root);
    return action->didHit();
}

/// By the enter function of the trees.
void pickByTrees(benchmark::State& state) {
    morva::osg::register_morva_intersect();
    pickInEngines(state, state.range(0) != 0, byAction);
    morva::osg::unregister_morva_intersect();
}
BENCHMARK(pickByTrees)
    ->ArgName("own_cores")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

/// In world coordinates and double precision.
void pickFirstHit(benchmark::State& state) {
    pickInEngines(state, state.range(0) != 0,
                  [](const ::osg::NodePtr& root, const ::osg::Line& line) {
                      morva::osg::ray_hit hit;
                      return morva::osg::first_hit(root, line, true, hit);
                  });
}
BENCHMARK(pickFirstHit)
    ->ArgName("own_cores")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

/// Trees for all parts of eight engines by as many threads as told, each for parts of its own: the
/// library itself starts none.
void prepareParts(benchmark::State& state) {
    constexpr unsigned engines = 8;
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, true);
    std::vector<::osg::NodePtr> parts;
    morva::osg::getGeometryNodes(root.get(), parts, false);
    const auto threads = static_cast<std::size_t>(state.range(0));
    const auto prepare = [&](std::size_t first) {
        for (std::size_t i = first; i < parts.size(); i += threads) {
            morva::osg::BIHAttachPayload payload;
            morva::osg::update_bih_payload(parts[i], payload);
        }
    };
    for (auto _ : state) {
        std::vector<std::thread> others;
        for (std::size_t i = 1; i < threads; ++i)
            others.emplace_back(prepare, i);
        prepare(0);
        for (std::thread& other : others)
            other.join();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * engines *
                            morva_bench::triangles_per_engine);
}
BENCHMARK(prepareParts)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// By the scene graph itself, triangle by triangle.
void pickBySceneGraph(benchmark::State& state) { pickInEngines(state, false, byAction); }
BENCHMARK(pickBySceneGraph)->Iterations(500)->Unit(benchmark::kMicrosecond);

} // namespace
