// Rays at the engine beside Embree: one thread, single rays, closest hit, back faces dropped, on
// the same triangles and rays, in turn; from vertices, beside its any hit. Then what trees cost:
// builds of two threads, companions, and equal parts.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/trees/bih_tree.h>
#include <morva/trees/ray_traversal.h>

#include "embree_scene.h"
#include "scenes.h"

namespace {

using morva::float3;
using flat_list = morva::geo_set_convertable<morva::float_triangle, morva::float_triangle>;
using ray_hit = morva::intersection_point<float, float3, float3>;

constexpr morva::build_setup picking{3, 50};

using morva_bench::embree_scene;

/// The triangles of the engine, `copies` times at the same place.
std::vector<morva::float_triangle> engineTriangles(unsigned copies) {
    const morva_bench::silence quiet;
    const std::vector<morva::float_triangle> one =
        morva_bench::trianglesOf(morva_bench::engineGrid(1, false).get());
    std::vector<morva::float_triangle> triangles;
    for (unsigned copy = 0; copy < copies; ++copy)
        triangles.insert(triangles.end(), one.begin(), one.end());
    return triangles;
}

/// A list with its tree.
struct ray_scene {
    std::vector<morva::float_triangle> triangles;
    flat_list list;
    morva::bih_tree<float> tree;

    explicit ray_scene(std::vector<morva::float_triangle> from) : triangles(std::move(from)) {
        list.triangles = triangles.data();
        list.count = triangles.size();
        compile(list, tree, picking);
    }
};

struct ray {
    float3 from, direction; ///< of unit length
};

ray_hit fire(const ray_scene& scene, const ray& r) {
    ray_hit hit;
    float entry, exit;
    if (!morva::clip_ray(scene.list.box, r.from, r.direction, entry, exit))
        return hit;
    float3 to, inverse;
    for (std::size_t a = 0; a < 3; ++a) {
        to[a] = r.from[a] + r.direction[a] * exit;
        inverse[a] = 1 / r.direction[a];
    }
    morva::empty_trace_statistics none;
    fire_ray_rec(scene.tree, 0, scene.list, r.from, to, inverse, entry, exit, hit, none, -1);
    return hit;
}

/// A camera's rays: 500 times 500, a third of which hit.
std::vector<ray> cameraRays(const ray_scene& scene) {
    float3 eye, ahead;
    const auto& box = scene.list.box;
    const float size = std::sqrt(box.extent[0] * box.extent[0] + box.extent[1] * box.extent[1] +
                                 box.extent[2] * box.extent[2]);
    const float aside[3] = {0.7f, 0.5f, 0.6f};
    for (std::size_t a = 0; a < 3; ++a) {
        eye[a] = box.min[a] + box.extent[a] / 2 + aside[a] * size;
        ahead[a] = -aside[a];
    }
    ahead.normalize();
    float3 right{-ahead[2], 0, ahead[0]};
    right.normalize();
    const float3 up{right[1] * ahead[2] - right[2] * ahead[1],
                    right[2] * ahead[0] - right[0] * ahead[2],
                    right[0] * ahead[1] - right[1] * ahead[0]};
    std::vector<ray> rays;
    for (int i = 0; i < 250000; ++i) {
        const float x = (static_cast<float>(i % 500) / 500 - 0.5f) * 0.8f;
        const float y = (static_cast<float>(i / 500) / 500 - 0.5f) * 0.8f;
        ray r{eye, {}};
        for (std::size_t a = 0; a < 3; ++a)
            r.direction[a] = ahead[a] + x * right[a] + y * up[a];
        r.direction.normalize();
        rays.push_back(r);
    }
    return rays;
}

/// A ray from just above a surface, by the cosine around its normal.
ray rayFrom(const ray_scene& scene, const float3& point, const float3& unit, std::mt19937& random) {
    std::normal_distribution<float> normal;
    float3 off{normal(random), normal(random), normal(random)};
    off.normalize();
    ray r{point, {}};
    for (std::size_t a = 0; a < 3; ++a) {
        r.direction[a] = 1.001f * unit[a] + off[a];
        r.from[a] += 1e-4f * scene.list.box.extent[0] * unit[a];
    }
    r.direction.normalize();
    return r;
}

/// Where those hit, one ray each.
std::vector<ray> bouncedRays(const ray_scene& scene) {
    std::mt19937 random(5);
    std::vector<ray> rays;
    for (const ray& r : cameraRays(scene)) {
        ray_hit hit = fire(scene, r);
        if (!hit.hit)
            continue;
        hit.normal.normalize();
        rays.push_back(rayFrom(scene, hit.point, hit.normal, random));
    }
    return rays;
}

/// From corners of every 40th triangle, 64 each.
std::vector<ray> vertexRays(const ray_scene& scene) {
    std::mt19937 random(6);
    std::vector<ray> rays;
    for (std::size_t i = 0; i < scene.triangles.size(); i += 40) {
        const auto& [a, b, c] = scene.triangles[i];
        float3 normal = morva::detail::cross(morva::detail::difference<float3>(b, a),
                                             morva::detail::difference<float3>(c, a));
        normal.normalize();
        for (int k = 0; k < 64 && std::abs(normal[0]) <= 1; ++k)
            rays.push_back(rayFrom(scene, a, normal, random));
    }
    return rays;
}

/// Between points of the box, every second one along an axis.
std::vector<ray> straightRays(const ray_scene& scene) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0, 1);
    const auto& box = scene.list.box;
    std::vector<ray> rays;
    for (std::size_t i = 0; i < 200000; ++i) {
        ray r;
        float3 end;
        for (std::size_t a = 0; a < 3; ++a) {
            r.from[a] = box.min[a] + box.extent[a] * unit(random);
            end[a] = i % 2 == 0 && i / 2 % 3 != a ? r.from[a]
                                                  : box.min[a] + box.extent[a] * unit(random);
            r.direction[a] = end[a] - r.from[a];
        }
        r.direction.normalize();
        rays.push_back(r);
    }
    return rays;
}

/// Whether both saw the same: nothing, one triangle, or two at the same place.
bool sameAnswer(const ray& r, const ray_hit& ours, const RTCRayHit& theirs) {
    if (ours.hit != (theirs.hit.geomID != RTC_INVALID_GEOMETRY_ID))
        return false;
    if (!ours.hit || static_cast<std::uint32_t>(ours.index) == theirs.hit.primID)
        return true;
    const float way =
        std::hypot(ours.point[0] - r.from[0], ours.point[1] - r.from[1], ours.point[2] - r.from[2]);
    return std::abs(way - theirs.ray.tfar) <= 1e-5f * way;
}

template <typename Fire> double secondsOf(const std::vector<ray>& rays, const Fire& fire_one) {
    const auto start = std::chrono::steady_clock::now();
    for (const ray& r : rays)
        benchmark::DoNotOptimize(fire_one(r));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Best times of both, in turn. The first round makes our tree's companion.
template <typename Same, typename Rival>
void besideEmbree(benchmark::State& state, std::vector<ray> (*raysOf)(const ray_scene&),
                  const Same& same, const Rival& rivalFire) {
    const ray_scene scene(engineTriangles(1));
    const embree_scene rival(scene.triangles);
    const std::vector<ray> rays = raysOf(scene);
    double equal = 0;
    for (const ray& r : rays)
        equal += same(r, fire(scene, r), rivalFire(rival, r)) ? 1 : 0;
    double ours = 1e9, theirs = 1e9;
    for (auto _ : state) {
        ours = std::min(ours, secondsOf(rays, [&](const ray& r) { return fire(scene, r); }));
        theirs =
            std::min(theirs, secondsOf(rays, [&](const ray& r) { return rivalFire(rival, r); }));
    }
    const auto count = static_cast<double>(rays.size());
    state.counters["ours_per_s"] = count / ours;
    state.counters["embree_per_s"] = count / theirs;
    state.counters["ratio"] = theirs / ours;
    state.counters["unequal"] = count - equal;
}
void closestHit(benchmark::State& state, std::vector<ray> (*raysOf)(const ray_scene&)) {
    besideEmbree(state, raysOf, sameAnswer, [](const embree_scene& rival, const ray& r) {
        return rival.fire(r.from, r.direction);
    });
}
void anyHit(benchmark::State& state, std::vector<ray> (*raysOf)(const ray_scene&)) {
    besideEmbree(
        state, raysOf,
        [](const ray&, const ray_hit& ours, bool theirs) { return ours.hit == theirs; },
        [](const embree_scene& rival, const ray& r) {
            return rival.isStopped(r.from, r.direction);
        });
}
BENCHMARK_CAPTURE(closestHit, camera, cameraRays)->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(closestHit, bounces, bouncedRays)->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(closestHit, straight, straightRays)
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(anyHit, vertices, vertexRays)->Iterations(10)->Unit(benchmark::kMillisecond);

/// Trees of the engine, one after the other in each thread.
void bihBuild(benchmark::State& state) {
    ray_scene scene(engineTriangles(1));
    for (auto _ : state)
        compile(scene.list, scene.tree, picking);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * scene.list.count));
}
BENCHMARK(bihBuild)->Threads(1)->Threads(2)->UseRealTime()->Unit(benchmark::kMillisecond);

/// What the rays keep with that tree.
void companionBuild(benchmark::State& state) {
    const ray_scene scene(engineTriangles(1));
    for (auto _ : state)
        benchmark::DoNotOptimize(
            morva::detail::ray_companion_builder(scene.tree, scene.triangles.data()).run());
    state.counters["pays_after"] = morva::detail::rays_before_companion(scene.list.count);
}
BENCHMARK(companionBuild)->Unit(benchmark::kMillisecond);

/// The engine several times at the same place: nodes below the root, their bound, time of a camera
/// ray, and memory of a tree that rays have gone through, list included.
void equalParts(benchmark::State& state) {
    const auto copies = static_cast<unsigned>(state.range(0));
    const ray_scene scene(engineTriangles(copies));
    const std::vector<ray> rays = cameraRays(scene);
    double best = 1e9;
    for (auto _ : state)
        best = std::min(best, secondsOf(rays, [&](const ray& r) { return fire(scene, r); }));
    const auto count = static_cast<double>(scene.list.count);
    state.counters["ns_per_ray"] = 1e9 * best / static_cast<double>(rays.size());
    state.counters["nodes"] = static_cast<double>(scene.tree.node_count);
    state.counters["bound"] =
        std::max(2.0, 2.0 * (picking.max_depth + 1) * count / (picking.max_elements + 1));
    const auto* const companion = static_cast<const morva::detail::ray_companion*>(
        scene.tree.companions.find(morva::companion_slot::rays));
    state.counters["bytes_each"] =
        (36 * count + 8 * count + 24 * static_cast<double>(scene.tree.node_capacity) +
         static_cast<double>(companion->bytes())) /
        count;
}
BENCHMARK(equalParts)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Iterations(5)->Unit(benchmark::kMillisecond);

} // namespace
