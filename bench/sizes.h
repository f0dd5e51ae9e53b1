#pragma once

// Benchmarks over the number of triangles, which is `state.range(0)`.

#include <cstdint>

#include <benchmark/benchmark.h>

namespace morva_bench {

/// From ten thousand to a million triangles, with a fit.
inline void sizes(benchmark::internal::Benchmark* family) {
    for (const int triangles : {10000, 100000, 1000000})
        family->Arg(triangles);
    family->Iterations(3)->Unit(benchmark::kMillisecond)->Complexity();
}

/// At the end of a benchmark: triangles per second, and N of the fit.
inline void countTriangles(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
    state.SetComplexityN(state.range(0));
}

} // namespace morva_bench
