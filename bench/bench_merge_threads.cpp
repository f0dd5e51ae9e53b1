// The merge stage alone, on one thread and on workers: from a scene whose equal materials are
// already one to the cores of all groups. IDs off.
//
// A group is extracted and sorted by one worker, and only its cores are shared out, so the largest
// one bounds what threads can gain; `largest_share` is its part of all triangles. Real time is what
// counts here. One call each: run every row in a process of its own, or the heap of the rows before
// takes part in time and peak.

#include <algorithm>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGMaterialMergeGraphOp.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/merge/morva_osg_geomerge.h>

#include "scenes.h"

namespace {

/// Part of all triangles that the largest group has.
double largestShare(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> nodes;
    morva::osg::getGeometryNodes(root, nodes, false);
    morva::osg::GeoMerge merge;
    for (const ::osg::NodePtr& node : nodes)
        merge.insertNode(node, false);
    double sum = 0.0, largest = 0.0;
    for (const auto& [material, members] : merge.groups()) {
        double triangles = 0.0;
        for (const ::osg::NodePtr& node : members)
            triangles += morva::osg::getNumberOfTriangles(node);
        sum += triangles;
        largest = std::max(largest, triangles);
    }
    return largest / sum;
}

void mergeEngines(benchmark::State& state) {
    const morva_bench::silence quiet;
    const auto engines = static_cast<unsigned>(state.range(0));
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, false);
    ::osg::NodePtr scene = root.get();
    ::osg::MaterialMergeGraphOp("MaterialMerge").traverse(scene);

    morva::osg::mergeGeo_setup setup;
    setup.silent = true;
    setup.numthreads = static_cast<int>(state.range(1));
    setup.mergehierarchy = state.range(2) != 0;
    ::osg::NodeRefPtr result;
    for (auto _ : state) {
        result = morva::osg::mergeGeo(root.get(), morva_bench::treeSetup(5000, 3), setup);
    }
    const auto triangles = std::int64_t{morva_bench::triangles_per_engine} * engines;
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * triangles);
    state.counters["largest_share"] = largestShare(root.get());
    state.counters["peak_bytes_per_triangle"] =
        static_cast<double>(morva_bench::peakBytes()) / static_cast<double>(triangles);
}
BENCHMARK(mergeEngines)
    ->ArgNames({"engines", "threads", "by_tree"})
    ->Args({16, 1, 0})
    ->Args({16, 1, 1})
    ->Args({16, 2, 0})
    ->Args({16, 2, 1})
    ->Args({100, 1, 0})
    ->Args({100, 2, 0})
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
