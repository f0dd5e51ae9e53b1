// Kd-trees over a sheet, in cells of 5000 triangles, by what happens to triangles across a plane.

#include <memory>

#include <benchmark/benchmark.h>

#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/trees/kd_tree.h>

#include "scenes.h"
#include "sizes.h"

namespace {

constexpr int cut = 1;
constexpr int both_sides = 2;
constexpr int whole = 3;

/// The geoset that a build may change is made anew each time, off the clock.
template <typename Strategy> void kdBuild(benchmark::State& state, int straddle_mode) {
    const auto triangles = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr sheet = morva_bench::triangleGrid(triangles, true);
    const morva_bench::silence quiet;
    for (auto _ : state) {
        state.PauseTiming();
        auto geoset = std::make_unique<morva::osg::osg_geoset>();
        morva::osg::extract(sheet.get(), *geoset, false, false, false, true, false);
        auto tree = std::make_unique<morva::kd_tree<float>>();
        state.ResumeTiming();
        morva::compile(*geoset, *tree, morva_bench::treeSetup(5000, straddle_mode), Strategy());
        state.PauseTiming();
        benchmark::DoNotOptimize(tree->nodes);
        tree.reset();
        geoset.reset();
        state.ResumeTiming();
    }
    morva_bench::countTriangles(state);
}

void kdBuildWhole(benchmark::State& state) { kdBuild<morva::kd_strategy_ObjMedian>(state, whole); }
BENCHMARK(kdBuildWhole)->Apply(morva_bench::sizes);

void kdBuildCut(benchmark::State& state) { kdBuild<morva::kd_strategy_ObjMedian>(state, cut); }
BENCHMARK(kdBuildCut)->Apply(morva_bench::sizes);

void kdBuildBothSides(benchmark::State& state) {
    kdBuild<morva::kd_strategy_ObjMedian>(state, both_sides);
}
BENCHMARK(kdBuildBothSides)->Apply(morva_bench::sizes);

void kdBuildByCost(benchmark::State& state) { kdBuild<morva::kd_strategy_SAH>(state, whole); }
BENCHMARK(kdBuildByCost)->Apply(morva_bench::sizes);

} // namespace
