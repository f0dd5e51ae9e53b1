// Occlusion at the engine: the rays of baking and of the hull beside Embree, one thread, the very
// same rays, in turn; then whole runs of optTree that bake, and the merge by a tree over the nodes
// beside the plain one.
//
// Linked from the library's objects, for what the library keeps to itself.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <OpenSG/OSGGeoPropPtrs.h>
#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_bake.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>

#include "embree_scene.h"
#include "scenes.h"

namespace {

using morva::float3;
using morva::osg::occlusion_ray;
using morva::osg::vertex_view;

constexpr int shots = 3;
/// Of the distinct vertices of each part 32 are taken in a row, as threads take them, then 288 not.
constexpr std::size_t taken_in_a_row = 32, all_in_a_row = 320;

template <typename Pass> double secondsOf(const Pass& pass) {
    const auto start = std::chrono::steady_clock::now();
    pass();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A vertex in the world; the zero normal sends its rays to all sides.
struct source {
    float3 position, normal;
};

std::vector<source> sourcesOf(const ::osg::NodePtr& root, vertex_view view) {
    std::vector<::osg::NodePtr> nodes;
    morva::osg::getGeometryNodes(root, nodes, false);
    std::vector<source> sources;
    for (const ::osg::NodePtr& node : nodes) {
        const morva::osg::vertex_values own = morva::osg::untraced(node, view);
        for (std::size_t i = 0; i < own.distinct.vertices.size(); ++i) {
            if (i % all_in_a_row >= taken_in_a_row)
                continue;
            const std::size_t vertex = own.distinct.vertices[i];
            sources.push_back({own.vertices.position(vertex), view == vertex_view::along_normal
                                                                  ? own.vertices.normal(vertex)
                                                                  : float3()});
        }
    }
    return sources;
}

/// Stands for the library's scene: any hit, as if where the ray starts.
class embree_any_hit {
  public:
    explicit embree_any_hit(const morva_bench::embree_scene& scene) : scene_(scene) {}
    bool operator()(const occlusion_ray& ray, float3& point) const {
        point = ray.from;
        return ray.isFired() && scene_.isStopped(ray.from, ray.direction);
    }
    morva::osg::nothing_near near(const float3&, double) const { return {}; }

  private:
    const morva_bench::embree_scene& scene_;
};

/// The same for the first hit and its place.
class embree_first_hit {
  public:
    explicit embree_first_hit(const morva_bench::embree_scene& scene) : scene_(scene) {}
    bool operator()(const occlusion_ray& ray, float3& point) const {
        if (!ray.isFired())
            return false;
        const RTCRayHit met = scene_.fire(ray.from, ray.direction);
        for (std::size_t k = 0; k < 3; ++k)
            point[k] = ray.from[k] + ray.direction[k] * met.ray.tfar;
        return met.hit.geomID != RTC_INVALID_GEOMETRY_ID;
    }
    morva::osg::nothing_near near(const float3&, double) const { return {}; }

  private:
    const morva_bench::embree_scene& scene_;
};

/// Values of all sources.
template <typename Trace>
void valuesOf(const std::vector<source>& sources, double distance, Trace& trace,
              std::vector<float>& values) {
    const morva::span<const float3> rays = morva::osg::rayVecsOf(shots);
    for (std::size_t i = 0; i < sources.size(); ++i)
        values[i] =
            morva::osg::opennessOf(rays, sources[i].position, sources[i].normal, distance, trace);
}

/// Best times of both, in turn, and how many vertices have another value: at all, and by more than
/// a ray counts.
///
/// reach  world units per unit of the scene's diagonal
template <typename Rival>
void besideEmbree(benchmark::State& state, vertex_view view, double reach) {
    const morva_bench::silence quiet;
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(1, false);
    const morva::osg::traced_scene scene(root.get());
    const morva_bench::embree_scene rival(morva_bench::trianglesOf(root.get()));
    const std::vector<source> sources = sourcesOf(root.get(), view);
    const double distance = reach * morva::osg::diagonalOf(root.get());
    const auto rays_each = static_cast<double>(morva::osg::rayVecsOf(shots).size());
    std::vector<float> mine(sources.size()), other(sources.size());
    auto trace = scene.rays();
    Rival rival_trace(rival);

    double ours = 1e9, theirs = 1e9;
    for (auto _ : state) {
        ours = std::min(ours, secondsOf([&] { valuesOf(sources, distance, trace, mine); }));
        theirs =
            std::min(theirs, secondsOf([&] { valuesOf(sources, distance, rival_trace, other); }));
    }
    double unequal = 0, apart = 0;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const double off = std::abs(static_cast<double>(mine[i]) - static_cast<double>(other[i]));
        // The share of a hit between once and twice the distance is rounded in another way.
        unequal += off > 1e-5 ? 1 : 0;
        apart += off * rays_each > 1.001 ? 1 : 0;
    }
    const double count = static_cast<double>(sources.size()) * rays_each;
    state.counters["ours_per_s"] = count / ours;
    state.counters["embree_per_s"] = count / theirs;
    state.counters["ratio"] = theirs / ours;
    state.counters["vertices"] = static_cast<double>(sources.size());
    state.counters["unequal"] = unequal;
    state.counters["apart"] = apart;
}
void bakeRays(benchmark::State& state) {
    besideEmbree<embree_any_hit>(state, vertex_view::along_normal, 1.0);
}
void hullRays(benchmark::State& state) {
    besideEmbree<embree_first_hit>(state, vertex_view::all_around, 0.75);
}
BENCHMARK(bakeRays)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(hullRays)->Iterations(5)->Unit(benchmark::kMillisecond);

/// The colours below a node, in the order of its tree.
std::vector<float> colorsOf(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> nodes;
    morva::osg::getGeometryNodes(root, nodes, false);
    std::vector<float> colors;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeoColorsPtr own = ::osg::GeometryPtr::dcast(node->getCore())->getColors();
        for (::osg::UInt32 i = 0; own != ::osg::NullFC && i < own->size(); ++i) {
            const ::osg::Color3f color = own->getValue(i);
            colors.insert(colors.end(), color.getValuesRGB(), color.getValuesRGB() + 3);
        }
    }
    return colors;
}

/// A run on a new scene.
struct whole_run {
    double seconds;
    std::vector<float> colors;
};
whole_run runOn(unsigned engines, const std::string& parameters) {
    const morva_bench::silence quiet;
    const ::osg::NodeRefPtr root = morva_bench::engineGrid(engines, false);
    ::osg::NodeRefPtr result;
    const double seconds = secondsOf([&] { result = morva::osg::optTree(root.get(), parameters); });
    return {seconds, colorsOf(result.get())};
}

std::string baking(unsigned threads) {
    return "ambientocclusion(" + std::to_string(shots) + "),numthreads(" + std::to_string(threads) +
           ")";
}

/// One thread and two in turn; an error where the colours are not the same to the last bit.
void bakeEngine(benchmark::State& state) {
    double one = 1e9, two = 1e9;
    for (auto _ : state) {
        const whole_run alone = runOn(1, baking(1)), shared = runOn(1, baking(2));
        one = std::min(one, alone.seconds);
        two = std::min(two, shared.seconds);
        if (alone.colors.empty() || alone.colors != shared.colors) {
            state.SkipWithError("two threads give other colours than one");
            break;
        }
    }
    state.counters["one_thread_s"] = one;
    state.counters["two_threads_s"] = two;
    state.counters["gain"] = one / two;
}
BENCHMARK(bakeEngine)->Iterations(2)->UseRealTime()->Unit(benchmark::kSecond);

/// Sixteen engines beside sixteen times one, one thread.
void bakeEngines(benchmark::State& state) {
    constexpr unsigned engines = 16;
    double one = 1e9, all = 1e9;
    for (auto _ : state) {
        one = std::min(one, runOn(1, baking(1)).seconds);
        all = std::min(all, runOn(engines, baking(1)).seconds);
    }
    state.counters["one_s"] = one;
    state.counters["all_s"] = all;
    state.counters["ratio"] = all / (engines * one);
}
BENCHMARK(bakeEngines)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

/// optTree whole with the merge by a tree over the nodes beside that without. Among 16 engines
/// every group is a single batch, among 100 the largest is divided.
void mergeByTree(benchmark::State& state) {
    const auto engines = static_cast<unsigned>(state.range(0));
    double plain = 1e9, by_tree = 1e9;
    for (auto _ : state) {
        plain = std::min(plain, runOn(engines, "maxtris(5000)").seconds);
        by_tree = std::min(by_tree, runOn(engines, "maxtris(5000),mergehierarchy(true)").seconds);
    }
    state.counters["plain_s"] = plain;
    state.counters["by_tree_s"] = by_tree;
    state.counters["ratio"] = by_tree / plain;
}
BENCHMARK(mergeByTree)
    ->ArgNames({"engines"})
    ->Arg(16)
    ->Arg(100)
    ->Iterations(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
