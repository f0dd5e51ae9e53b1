// From the cells of a tree to geometry cores, at each level of optimisation.

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <morva/geosets/morva_osg_splitmodel.h>

#include "scenes.h"
#include "sizes.h"

namespace {

/// A core for every leaf, as the optimiser makes them.
void makeGeoCore(benchmark::State& state, int level) {
    const morva_bench::silence quiet;
    const morva_bench::sorted_sheet sheet(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        std::vector<::osg::NodeRefPtr> cores;
        for (std::uint64_t i = 0; i <= sheet.tree.node_count; ++i) {
            const morva::kd_node<float>& node = sheet.tree.nodes[i];
            if (node.is_leaf())
                cores.emplace_back(morva::osg::MakeGeoCore(sheet.tree, sheet.geoset,
                                                           node.range_first(), node.range_count(),
                                                           level, false));
        }
        state.PauseTiming();
        benchmark::DoNotOptimize(cores.data());
        cores.clear();
        state.ResumeTiming();
    }
    morva_bench::countTriangles(state);
}

} // namespace

BENCHMARK_CAPTURE(makeGeoCore, level_0, 0)->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(makeGeoCore, level_1, 1)->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(makeGeoCore, level_2, 2)->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(makeGeoCore, level_3, 3)->Apply(morva_bench::sizes);
