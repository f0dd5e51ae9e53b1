// What baking occlusion holds beside the scene: a program of its own, since it counts allocations.

#include <algorithm>
#include <cstddef>

#include <benchmark/benchmark.h>

#include <morva/occlusion/morva_osg_ambient_occlusion.h>

#include "scenes.h"
#include "tests/support/shortage.h"

namespace {

/// The engine. Parts that share a core get copies of it, which stay and count here; with cores of
/// their own they need none.
void bakeMemory(benchmark::State& state) {
    const morva_bench::silence quiet;
    const bool own_cores = state.range(0) != 0;
    std::size_t most = 0;
    for (auto _ : state) {
        const ::osg::NodeRefPtr root = morva_bench::engineGrid(1, own_cores);
        most = std::max(most, morva_test::shortage::mostHeldBy([&] {
                            morva::osg::AddAmbientOcclusion(root.get(), true, 1, 0);
                        }));
    }
    state.counters["bytes_each"] =
        static_cast<double>(most) / static_cast<double>(morva_bench::triangles_per_engine);
}
BENCHMARK(bakeMemory)
    ->ArgNames({"own_cores"})
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
