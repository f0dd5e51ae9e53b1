// Rebuilding a scene in cells, from a scene in memory to the new one, beside the whole road of
// optTree() over the same scene.

#include <algorithm>
#include <chrono>
#include <cstdint>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSwitchMaterial.h>

#include <morva/driver/morva_osg_auto.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/geosets/morva_osg_cell_rebuild.h>

#include "scenes.h"

namespace {

constexpr unsigned engines = 16;

::osg::NodeRefPtr plainScene() { return morva_bench::engineGrid(engines, false); }

/// With one more part, which is to be left alone.
::osg::NodeRefPtr sceneWithSkippedPart() {
    const ::osg::NodeRefPtr root = plainScene();
    const ::osg::NodeRefPtr part = morva_bench::triangleGrid(2, true);
    const auto core = ::osg::GeometryPtr::dcast(part->getCore());
    beginEditCP(core, ::osg::Geometry::MaterialFieldMask);
    core->setMaterial(::osg::SwitchMaterial::create());
    endEditCP(core, ::osg::Geometry::MaterialFieldMask);
    beginEditCP(root.get(), ::osg::Node::ChildrenFieldMask);
    root->addChild(part.get());
    endEditCP(root.get(), ::osg::Node::ChildrenFieldMask);
    return root;
}

/// The shorter of the times so far and that of a pass over a new scene, in seconds.
template <typename Pass>
double bestOf(double so_far, const Pass& pass, ::osg::NodeRefPtr (*scene)() = plainScene) {
    const ::osg::NodeRefPtr root = scene();
    const auto start = std::chrono::steady_clock::now();
    const ::osg::NodeRefPtr result(pass(root.get()));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return std::min(so_far, took.count());
}

/// Both take turns, so that a slow minute of the machine meets both.
void cellsBesideOptTree(benchmark::State& state) {
    const morva_bench::silence quiet;
    const auto limit = static_cast<unsigned>(state.range(0));
    morva::osg::cell_options options;
    options.flat = state.range(1) != 0;
    morva::osg::cell_record record;
    double cells = 1e9, whole = 1e9;
    for (auto _ : state) {
        cells = bestOf(cells, [&](const ::osg::NodePtr& root) {
            return morva::osg::buildSceneTree(root, {limit, 0}, options, record);
        });
        whole = bestOf(whole, [](const ::osg::NodePtr& root) {
            return morva::osg::optTree(root, "opt(1),maxtris(5000),flat(true)");
        });
    }
    state.counters["cells_s"] = cells;
    state.counters["optTree_s"] = whole;
    state.counters["ratio"] = cells / whole;
    state.counters["cells"] = static_cast<double>(record.cells);
}
BENCHMARK(cellsBesideOptTree)
    ->ArgNames({"limit", "flat"})
    ->Args({25000, 1})
    ->Args({25000, 0})
    ->Args({5000, 1})
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

/// The whole road of optTreeAuto() to cells: merge, cells, hierarchy.
void skippedRoadBesideOptTree(benchmark::State& state) {
    const morva_bench::silence quiet;
    double cells = 1e9, whole = 1e9;
    for (auto _ : state) {
        cells = bestOf(
            cells, [](const ::osg::NodePtr& root) { return morva::osg::optTreeAuto(root); },
            sceneWithSkippedPart);
        whole = bestOf(whole, [](const ::osg::NodePtr& root) {
            return morva::osg::optTree(root, "opt(1),maxtris(5000),flat(true)");
        });
    }
    state.counters["auto_s"] = cells;
    state.counters["optTree_s"] = whole;
    state.counters["ratio"] = cells / whole;
}
BENCHMARK(skippedRoadBesideOptTree)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
