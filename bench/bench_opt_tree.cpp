// optTree whole, from a scene in memory to the rebuilt one.
//
// The peak of memory is that of the process, scene included: it means something for the largest
// scene of a process, so run one scene alone (--benchmark_filter) to read it.

#include <cstdint>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGGroup.h>

#include <morva/driver/morva_osg_scenerebuild.h>

#include "scenes.h"

namespace {

constexpr const char* parameters = "opt(1),maxtris(5000),flat(true)";

/// optTree merges materials in the scene that it is given, so each run gets a new one.
template <typename MakeScene>
void optTreeWhole(benchmark::State& state, std::int64_t triangles, const MakeScene& makeScene) {
    const morva_bench::silence quiet;
    for (auto _ : state) {
        state.PauseTiming();
        ::osg::NodeRefPtr root = makeScene();
        ::osg::NodeRefPtr result;
        state.ResumeTiming();
        result = morva::osg::optTree(root.get(), parameters);
        state.PauseTiming();
        benchmark::DoNotOptimize(result.get());
        result = ::osg::NullFC;
        root = ::osg::NullFC;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * triangles);
    state.SetComplexityN(triangles);
    state.counters["peak_bytes_per_triangle"] =
        static_cast<double>(morva_bench::peakBytes()) / static_cast<double>(triangles);
}

void optTreeGrid(benchmark::State& state) {
    const auto triangles = static_cast<unsigned>(state.range(0));
    optTreeWhole(state, triangles, [triangles] {
        const ::osg::NodeRefPtr root(::osg::Node::create());
        root->setCore(::osg::Group::create());
        root->addChild(morva_bench::triangleGrid(triangles, true).get());
        return root;
    });
}
BENCHMARK(optTreeGrid)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

void optTreeEngines(benchmark::State& state) {
    const auto engines = static_cast<unsigned>(state.range(0));
    optTreeWhole(state, morva_bench::triangles_per_engine * engines,
                 [engines] { return morva_bench::engineGrid(engines, false); });
}
BENCHMARK(optTreeEngines)
    ->Arg(1)
    ->Arg(16)
    ->Arg(100)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

} // namespace
