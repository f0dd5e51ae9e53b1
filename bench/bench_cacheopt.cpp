// Order for the vertex cache: ours beside meshoptimizer's, on the same index lists.
//
// Inputs: a sheet of 1M triangles row by row, the same with its triangles shuffled, and the parts
// of the engine. Counters are cache misses per triangle (acmr) and per vertex used (atvr), for an
// LRU cache of 32 entries and a FIFO of 16.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/draworder/morva_osg_cache_walk.h>
#include <morva/draworder/morva_osg_cacheopt.h>

#include "scenes.h"

namespace {

/// Triangles by position index, every three a triangle.
struct index_list {
    std::vector<std::uint32_t> indices;
    std::size_t vertices = 0;
};
using index_lists = std::vector<index_list>;

index_list listOf(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    index_list list;
    list.vertices = core->getPositions()->size();
    for (::osg::TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it) {
        for (int corner = 0; corner < 3; ++corner)
            list.indices.push_back(static_cast<std::uint32_t>(it.getPositionIndex(corner)));
    }
    return list;
}

/// The lists of all geometry below a node.
index_lists listsOf(const ::osg::NodePtr& root) {
    std::list<::osg::NodePtr> nodes;
    morva::osg::collect_geo_nodes(root, nodes);
    index_lists lists;
    for (const ::osg::NodePtr& node : nodes)
        lists.push_back(listOf(node));
    return lists;
}

constexpr unsigned sheet_triangles = 1000000;

const index_lists& sheet() {
    static const index_lists lists =
        listsOf(morva_bench::triangleGrid(sheet_triangles, true).get());
    return lists;
}

const index_lists& shuffledSheet() {
    static const index_lists lists = [] {
        index_lists made = sheet();
        std::vector<std::uint32_t> order(sheet_triangles);
        for (std::uint32_t i = 0; i < order.size(); ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), std::mt19937(1));
        for (std::size_t i = 0; i < order.size(); ++i) {
            for (std::size_t k = 0; k < 3; ++k)
                made[0].indices[3 * i + k] = sheet()[0].indices[3 * order[i] + k];
        }
        return made;
    }();
    return lists;
}

/// Equal positions of a part share an index, so that triangles have neighbours.
const index_lists& engine() {
    static const index_lists lists = [] {
        const ::osg::NodeRefPtr root = morva_bench::engineGrid(1, true);
        std::list<::osg::NodePtr> nodes;
        morva::osg::collect_geo_nodes(root.get(), nodes);
        for (const ::osg::NodePtr& node : nodes)
            morva::osg::joinEqualVertices(::osg::GeometryPtr::dcast(node->getCore()));
        return listsOf(root.get());
    }();
    return lists;
}

/// Misses of a cache of `size` entries; `refreshed`: a hit makes an entry the newest (LRU).
std::size_t missesOf(const index_list& list, std::size_t size, bool refreshed) {
    std::vector<std::uint32_t> cache; // newest first
    std::size_t misses = 0;
    for (const std::uint32_t v : list.indices) {
        const auto found = std::find(cache.begin(), cache.end(), v);
        if (found != cache.end() && refreshed)
            std::rotate(cache.begin(), found, found + 1);
        if (found != cache.end())
            continue;
        ++misses;
        if (cache.size() == size)
            cache.pop_back();
        cache.insert(cache.begin(), v);
    }
    return misses;
}

void countMisses(benchmark::State& state, const index_lists& lists) {
    double triangles = 0, used = 0, lru = 0, fifo = 0;
    for (const index_list& list : lists) {
        std::vector<bool> is_used(list.vertices);
        for (const std::uint32_t v : list.indices)
            is_used[v] = true;
        used += static_cast<double>(std::count(is_used.begin(), is_used.end(), true));
        triangles += static_cast<double>(list.indices.size() / 3);
        lru += static_cast<double>(missesOf(list, 32, true));
        fifo += static_cast<double>(missesOf(list, 16, false));
    }
    state.counters["acmr_lru32"] = lru / triangles;
    state.counters["atvr_lru32"] = lru / used;
    state.counters["acmr_fifo16"] = fifo / triangles;
    state.counters["atvr_fifo16"] = fifo / used;
}

index_list asItComes(const index_list& list) { return list; }

/// The walk alone, on the list and in one piece.
index_list walked(const index_list& list) {
    const std::vector<morva::osg::counted_column> columns = {
        {list.indices.data(), 1, list.vertices}};
    morva::osg::cache_walk<morva::osg::triangle_rules> walk(
        morva::span<const std::uint32_t>(list.indices), list.vertices, {}, columns, 0xFFFFFFFFU);
    const morva::osg::draw_order order = walk.run();
    index_list made{std::vector<std::uint32_t>(list.indices.size()), list.vertices};
    for (std::size_t i = 0; i < order.elements.size(); ++i)
        std::copy_n(&list.indices[std::size_t{3} * order.elements[i]], 3, &made.indices[3 * i]);
    return made;
}

index_list byMeshoptimizer(const index_list& list) {
    index_list made{std::vector<std::uint32_t>(list.indices.size()), list.vertices};
    meshopt_optimizeVertexCache(made.indices.data(), list.indices.data(), list.indices.size(),
                                list.vertices);
    return made;
}

void order(benchmark::State& state, const index_lists& (*input)(),
           index_list (*optimise)(const index_list&)) {
    const index_lists& lists = input();
    index_lists made;
    std::size_t triangles = 0;
    for (auto _ : state) {
        made.clear();
        triangles = 0;
        for (const index_list& list : lists) {
            made.push_back(optimise(list));
            triangles += list.indices.size() / 3;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(triangles));
    countMisses(state, made);
}

/// The whole call: index, order, pieces with their properties and names.
void whole(benchmark::State& state, bool indexed) {
    index_lists made;
    for (auto _ : state) {
        state.PauseTiming();
        const ::osg::NodeRefPtr node = morva_bench::triangleGrid(sheet_triangles, indexed);
        bool above_limit = false;
        state.ResumeTiming();
        const ::osg::NodeRefPtr result(
            morva::osg::optimizeCache(node.get(), above_limit, 65533, false));
        state.PauseTiming();
        made = listsOf(result.get());
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{sheet_triangles});
    countMisses(state, made);
}

void timed(benchmark::internal::Benchmark* family) {
    family->Iterations(5)->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK_CAPTURE(order, sheet_as_it_comes, sheet, asItComes)->Apply(timed);
BENCHMARK_CAPTURE(order, sheet_walk, sheet, walked)->Apply(timed);
BENCHMARK_CAPTURE(order, sheet_meshoptimizer, sheet, byMeshoptimizer)->Apply(timed);
BENCHMARK_CAPTURE(order, shuffled_sheet_as_it_comes, shuffledSheet, asItComes)->Apply(timed);
BENCHMARK_CAPTURE(order, shuffled_sheet_walk, shuffledSheet, walked)->Apply(timed);
BENCHMARK_CAPTURE(order, shuffled_sheet_meshoptimizer, shuffledSheet, byMeshoptimizer)
    ->Apply(timed);
BENCHMARK_CAPTURE(order, engine_as_it_comes, engine, asItComes)->Apply(timed);
BENCHMARK_CAPTURE(order, engine_walk, engine, walked)->Apply(timed);
BENCHMARK_CAPTURE(order, engine_meshoptimizer, engine, byMeshoptimizer)->Apply(timed);
BENCHMARK_CAPTURE(whole, indexed_sheet, true)->Apply(timed);
BENCHMARK_CAPTURE(whole, corner_per_vertex_sheet, false)->Apply(timed);
