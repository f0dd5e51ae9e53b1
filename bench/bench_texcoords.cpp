// Texture coordinates that reach too far, on triangles far from the origin: 8 repetitions over 2
// units at a million, where middles of edges fall on a grid of 1/16.

#include <cstdint>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGGeometry.h>

#include <morva/textures/morva_osg_texcoords.h>

#include "scenes.h"

namespace {

/// A sheet out there, eight repetitions over each of its triangles.
::osg::NodeRefPtr farSheet(unsigned triangles) {
    const ::osg::NodeRefPtr sheet = morva_bench::triangleGrid(triangles, false);
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(sheet->getCore());
    const ::osg::GeoPositionsPtr positions = core->getPositions();
    const ::osg::GeoTexCoordsPtr coordinates = core->getTexCoords();
    const ::osg::Vec2f corner[3] = {{0.F, 0.F}, {8.F, 0.F}, {0.F, 8.F}};
    for (::osg::UInt32 i = 0; i < positions->getSize(); ++i) {
        const ::osg::Pnt3f p = positions->getValue(i);
        positions->setValue(::osg::Pnt3f(1e6F + 2 * p[0], 2 * p[1], 1e6F + 2 * p[2]), i);
        coordinates->setValue(corner[i % 3], i);
    }
    return sheet;
}

void halveFarTriangles(benchmark::State& state) {
    const auto triangles = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr sheet = farSheet(triangles);
    const morva_bench::silence quiet;
    int added = 0;
    for (auto _ : state) {
        state.PauseTiming();
        morva::osg::osg_geoset geoset;
        morva::osg::extract(sheet.get(), geoset, false, false, false, true, false);
        state.ResumeTiming();
        added = morva::osg::optimizeTexCoords(geoset, 2, 50);
        benchmark::DoNotOptimize(geoset.size);
    }
    state.counters["pieces"] = static_cast<double>(added) / triangles;
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * triangles);
    state.SetComplexityN(triangles);
}
BENCHMARK(halveFarTriangles)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->Complexity();

} // namespace
