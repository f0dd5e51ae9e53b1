// What rebuilding in cells holds beside the scene: a program of its own, since it counts
// allocations.

#include <algorithm>
#include <cstddef>

#include <benchmark/benchmark.h>

#include <morva/geosets/morva_osg_cell_rebuild.h>

#include "scenes.h"
#include "tests/support/shortage.h"

namespace {

constexpr unsigned engines = 16;

void cellsMemory(benchmark::State& state) {
    const morva_bench::silence quiet;
    const auto limit = static_cast<unsigned>(state.range(0));
    std::size_t most = 0;
    for (auto _ : state) {
        const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, false);
        most = std::max(most, morva_test::shortage::mostHeldBy([&] {
                            const ::osg::NodeRefPtr result(morva::osg::buildSceneTree(
                                root.get(), {limit, 0}, true, 1, -1, false));
                        }));
    }
    state.counters["bytes_each"] = static_cast<double>(most) /
                                   static_cast<double>(engines * morva_bench::triangles_per_engine);
}
BENCHMARK(cellsMemory)
    ->ArgNames({"limit"})
    ->Arg(25000)
    ->Arg(5000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
