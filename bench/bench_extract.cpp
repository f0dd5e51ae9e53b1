// From scene geometry to a geoset that trees can be built over.

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <morva/geosets/morva_osg_geoset_tools.h>

#include "scene_walk.h"
#include "scenes.h"

namespace {

void extractAll(benchmark::State& state, const std::vector<::osg::NodePtr>& nodes, bool toWorld,
                std::int64_t triangles) {
    for (auto _ : state) {
        morva::osg::osg_geoset geoset;
        geoset.vertex_capacity = 3 * static_cast<std::uint64_t>(triangles);
        for (const ::osg::NodePtr& node : nodes)
            morva::osg::extract(node, geoset, toWorld, false, false, false, false);
        geoset.setup();
        benchmark::DoNotOptimize(geoset.size);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * triangles);
    state.SetComplexityN(triangles);
}

void extractGrid(benchmark::State& state) {
    const auto triangles = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr sheet = morva_bench::triangleGrid(triangles, true);
    const morva_bench::silence quiet;
    extractAll(state, {sheet.get()}, false, triangles);
}
BENCHMARK(extractGrid)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.4)
    ->Complexity();

/// Many cores, and every vertex moved to the world.
void extractEngines(benchmark::State& state) {
    const auto engines = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, false);
    const morva_bench::silence quiet;
    std::vector<::osg::NodePtr> nodes;
    for (const auto& drawn : morva::host::drawnNodes(root.get()))
        nodes.push_back(drawn.node);
    extractAll(state, nodes, true, morva_bench::triangles_per_engine * engines);
}
BENCHMARK(extractEngines)
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(0.4)
    ->Complexity();

} // namespace
