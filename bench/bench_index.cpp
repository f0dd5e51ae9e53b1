// Index rebuilding of one core in which every corner has a vertex of its own.

#include <benchmark/benchmark.h>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_tools.h>

#include "scenes.h"
#include "sizes.h"

namespace {

void rebuild(benchmark::State& state, void (*index)(::osg::GeometryPtr)) {
    const morva_bench::silence quiet;
    for (auto _ : state) {
        state.PauseTiming();
        const auto triangles = static_cast<unsigned>(state.range(0));
        ::osg::NodeRefPtr sheet = morva_bench::triangleGrid(triangles, false);
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(sheet->getCore());
        state.ResumeTiming();
        index(core);
        state.PauseTiming();
        sheet = ::osg::NullFC;
        state.ResumeTiming();
    }
    morva_bench::countTriangles(state);
}

} // namespace

BENCHMARK_CAPTURE(rebuild, createSharedIndex, morva::osg::createSharedIndex)
    ->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(rebuild, createSingleIndex, morva::osg::createSingleIndex)
    ->Apply(morva_bench::sizes);
