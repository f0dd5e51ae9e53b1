// Simplification of a sheet to half its triangles: ours beside meshoptimizer's, which comes to as
// many triangles on the same index list. Ours reads a core and makes one; `record` is the run
// alone, as a host takes it for several levels.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/tools/morva_osg_simplify.h>

#include "scenes.h"
#include "sizes.h"
#include "tests/support/shortage.h"
#include "tests/support/temporary_folder.h"

namespace {

::osg::GeometryPtr coreOf(const ::osg::NodeRefPtr& node) {
    return ::osg::GeometryPtr::dcast(node->getCore());
}

std::uint32_t half(const benchmark::State& state) {
    return static_cast<std::uint32_t>(state.range(0)) / 2;
}

void record(benchmark::State& state) {
    const morva_bench::silence quiet;
    const auto sheet = morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), true);
    for (auto _ : state) {
        const auto run = morva::osg::simplify(coreOf(sheet), {half(state)});
        state.counters["steps"] = static_cast<double>(run.steps.size());
        state.counters["live"] = run.liveAfter(run.steps.size());
    }
    morva_bench::countTriangles(state);
}

void core(benchmark::State& state) {
    const morva_bench::silence quiet;
    const auto sheet = morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), true);
    for (auto _ : state) {
        const auto run = morva::osg::simplify(coreOf(sheet), {half(state)});
        const ::osg::RefPtr<::osg::GeometryPtr> made(
            morva::osg::simplifiedCore(run, run.stops[0].collapses));
        state.counters["triangles"] = made->getIndices()->size() / 9.0; // 3 indices per corner
    }
    morva_bench::countTriangles(state);
}

void meshoptimizer(benchmark::State& state) {
    const auto sheet = morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), true);
    const auto places = morva::osg::readBlock(coreOf(sheet)->getPositions());
    const auto indices = morva::osg::readBlock(coreOf(sheet)->getIndices());
    std::vector<std::uint32_t> made(indices.size());
    for (auto _ : state) {
        const std::size_t left =
            meshopt_simplify(made.data(), indices.data(), indices.size(), &places.data()[0][0],
                             places.size(), sizeof(::osg::Pnt3f), indices.size() / 2, 1e9F);
        state.counters["triangles"] = static_cast<double>(left) / 3.0;
    }
    morva_bench::countTriangles(state);
}

/// Bytes held at once beside the scene, per triangle.
void memory(benchmark::State& state) {
    const morva_bench::silence quiet;
    const morva_test::temporary_folder folder; // the tool leaves a file where it is called
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const auto sheet = morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), true);
    const auto target = half(state);
    std::size_t of_record = 0, of_all = 0, of_tool = 0;
    for (auto _ : state) {
        of_record = morva_test::shortage::mostHeldBy(
            [&] { morva::osg::simplify(coreOf(sheet), {target}); });
        of_all = morva_test::shortage::mostHeldBy([&] {
            const auto run = morva::osg::simplify(coreOf(sheet), {target});
            const ::osg::RefPtr<::osg::GeometryPtr> made(
                morva::osg::simplifiedCore(run, run.stops[0].collapses));
        });
        of_tool = morva_test::shortage::mostHeldBy([&] {
            const ::osg::RefPtr<::osg::GeometryPtr> made(
                morva::osg::simplifyGeometry(sheet.get(), target));
        });
    }
    std::filesystem::current_path(before);
    const auto each = [&](std::size_t bytes) {
        return static_cast<double>(bytes) / static_cast<double>(state.range(0));
    };
    state.counters["bytes_record"] = each(of_record);
    state.counters["bytes_core"] = each(of_all);
    state.counters["bytes_tool"] = each(of_tool);
}

BENCHMARK(record)->Apply(morva_bench::sizes);
BENCHMARK(core)->Apply(morva_bench::sizes);
BENCHMARK(meshoptimizer)->Apply(morva_bench::sizes);
BENCHMARK(memory)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
