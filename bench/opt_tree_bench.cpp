// optTree whole, from a scene in memory to the rebuilt one: cost per triangle and peak memory over
// the size of the scene.

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

#include <malloc.h>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGBaseFunctions.h>

#include <morva/driver/morva_osg_scenerebuild.h>

#include "engine_grid.h"
#include "stage_clock.h"

namespace {

constexpr double triangles_per_engine = 121496.0;

/// Swallows what optTree prints.
class silence {
  public:
    silence() : saved_(std::cout.rdbuf(nothing_.rdbuf())) {}
    ~silence() { std::cout.rdbuf(saved_); }
    silence(const silence&) = delete;
    silence& operator=(const silence&) = delete;

  private:
    std::ostringstream nothing_;
    std::streambuf* saved_;
};

void optTreeWhole(benchmark::State& state, const char* parameters) {
    const auto engines = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, false);
    const silence quiet;
    std::uint64_t peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        malloc_trim(0); // what earlier scenes left in the heap is none of this one's peak
        morva::host::stage_clock clock;
        state.ResumeTiming();
        clock.begin("optimise");
        const ::osg::NodeRefPtr result(morva::osg::optTree(root.get(), parameters));
        clock.end();
        peak = std::max(peak, clock.stages()[0].peak_bytes);
        state.PauseTiming();
        benchmark::DoNotOptimize(result.get());
        state.ResumeTiming();
    }
    const double triangles = triangles_per_engine * engines;
    state.SetItemsProcessed(static_cast<std::int64_t>(triangles) *
                            static_cast<std::int64_t>(state.iterations()));
    state.SetComplexityN(state.range(0));
    state.counters["peak_bytes_per_triangle"] = static_cast<double>(peak) / triangles;
}

} // namespace

BENCHMARK_CAPTURE(optTreeWhole, level_0, "opt(0),maxtris(5000),flat(true)")
    ->Arg(1)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(optTreeWhole, level_1, "opt(1),maxtris(5000),flat(true)")
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->Arg(100)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(optTreeWhole, level_2, "opt(2),maxtris(5000),flat(true)")
    ->Arg(1)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(optTreeWhole, level_3, "opt(3),maxtris(5000),flat(true)")
    ->Arg(1)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    ::osg::osgInit(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
