#include "statistics.h"

#include <algorithm>
#include <map>
#include <set>

#include "host_error.h"
#include "parallel.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

constexpr std::uint32_t cache_size = 32;

/// The vertices in a cache as a list from the most to the least recent one, threaded through two
/// arrays, so that every touch costs a few stores.
class recent_vertices {
  public:
    explicit recent_vertices(std::uint32_t count) : newer_(count, absent), older_(count, absent) {}

    /// Returns whether the vertex had to be fetched.
    bool touch(std::uint32_t vertex) {
        if (vertex == newest_)
            return false;
        const bool cached = newer_[vertex] != absent;
        if (cached)
            unlink(vertex);
        else if (held_ == cache_size)
            unlink(oldest_);
        pushFront(vertex);
        return !cached;
    }

  private:
    static constexpr std::uint32_t absent = 0xFFFFFFFFu;
    static constexpr std::uint32_t none = 0xFFFFFFFEu;

    void unlink(std::uint32_t vertex) {
        const std::uint32_t newer = newer_[vertex], older = older_[vertex];
        if (newer != none)
            older_[newer] = older;
        else
            newest_ = older;
        if (older != none)
            newer_[older] = newer;
        else
            oldest_ = newer;
        newer_[vertex] = absent;
        --held_;
    }
    void pushFront(std::uint32_t vertex) {
        newer_[vertex] = none;
        older_[vertex] = newest_;
        if (newest_ != none)
            newer_[newest_] = vertex;
        else
            oldest_ = vertex;
        newest_ = vertex;
        ++held_;
    }

    std::vector<std::uint32_t> newer_, older_; ///< `newer_` is `absent` outside the cache
    std::uint32_t newest_ = none, oldest_ = none, held_ = 0;
};

/// The figures of one core.
struct core_figures {
    std::uint64_t triangles = 0, lines = 0, points = 0, vertices = 0, misses = 0;
};

core_figures figuresOf(const geometry_view& view, measure what) {
    core_figures figures;
    forEachTriangle(view, [&](auto, auto, auto) { ++figures.triangles; });
    forEachLine(view, [&](auto, auto) { ++figures.lines; });
    forEachPoint(view, [&](auto) { ++figures.points; });
    if (what == measure::counts)
        return figures;
    const vertex_numbering numbering = numberVertices(view);
    figures.vertices = numbering.first_corner.size();
    figures.misses =
        countCacheMisses(view, numbering.of_corner, static_cast<std::uint32_t>(figures.vertices));
    return figures;
}

/// Counts nodes, levels and leaves from a node of that level on.
void countTree(const ::osg::NodePtr& node, std::uint64_t level, scene_statistics& total) {
    ++total.nodes;
    total.levels = std::max(total.levels, level);
    total.leaves += node->getNChildren() == 0 ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        countTree(node->getChild(i), level + 1, total);
}

/// Bytes of a property, counted once for all cores that share it.
template <typename Property>
std::uint64_t bytesOf(const Property& property, std::set<::osg::UInt32>& seen) {
    if (property == ::osg::NullFC || !seen.insert(property.getFieldContainerId()).second)
        return 0;
    return std::uint64_t{property->getSize()} * property->getFormatSize() *
           property->getDimension();
}

std::uint64_t bytesOfCore(const ::osg::GeometryPtr& core, std::set<::osg::UInt32>& seen) {
    return bytesOf(core->getTypes(), seen) + bytesOf(core->getLengths(), seen) +
           bytesOf(core->getPositions(), seen) + bytesOf(core->getNormals(), seen) +
           bytesOf(core->getColors(), seen) + bytesOf(core->getSecondaryColors(), seen) +
           bytesOf(core->getTexCoords(), seen) + bytesOf(core->getTexCoords1(), seen) +
           bytesOf(core->getTexCoords2(), seen) + bytesOf(core->getTexCoords3(), seen) +
           bytesOf(core->getTexCoords4(), seen) + bytesOf(core->getTexCoords5(), seen) +
           bytesOf(core->getTexCoords6(), seen) + bytesOf(core->getTexCoords7(), seen) +
           bytesOf(core->getIndices(), seen);
}

} // namespace

std::uint64_t countCacheMisses(const geometry_view& view,
                               const std::vector<std::uint32_t>& vertex_of_corner,
                               std::uint32_t vertex_count) {
    recent_vertices cache(vertex_count);
    std::uint64_t misses = 0;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        for (const std::uint32_t corner : {a, b, c})
            misses += cache.touch(vertex_of_corner[corner]) ? 1 : 0;
    });
    return misses;
}

scene_statistics measureScene(const ::osg::NodePtr& root, measure what, view_store* known) {
    view_store own;
    view_store& store = known != nullptr ? *known : own;
    scene_statistics total;
    countTree(root, 1, total);
    std::map<::osg::UInt32, std::size_t> place_of_core;
    std::vector<const geometry_view*> views;
    std::vector<std::uint64_t> uses;
    std::set<::osg::UInt32> materials, images, properties;
    for (const drawn_node& drawn : drawnNodes(root)) {
        ++total.draw_calls;
        if (drawn.material != ::osg::NullFC &&
            materials.insert(drawn.material.getFieldContainerId()).second) {
            for (const ::osg::ImagePtr& image : imagesOf(drawn.material))
                images.insert(image.getFieldContainerId());
        }
        const auto place = place_of_core.emplace(drawn.core.getFieldContainerId(), views.size());
        if (place.second) {
            views.push_back(&store.of(drawn.core));
            uses.push_back(0);
            total.geometry_bytes += bytesOfCore(drawn.core, properties);
        }
        ++uses[place.first->second];
    }
    total.materials = materials.size();
    total.textures = images.size();
    total.geometry_cores = views.size();

    std::vector<core_figures> figures(views.size());
    runParallel(views.size(), [&](std::size_t i) { figures[i] = figuresOf(*views[i], what); });
    std::uint64_t misses = 0, stored_triangles = 0;
    for (std::size_t i = 0; i < views.size(); ++i) {
        total.triangles += uses[i] * figures[i].triangles;
        total.lines += uses[i] * figures[i].lines;
        total.points += uses[i] * figures[i].points;
        total.vertices += figures[i].vertices;
        (views[i]->wide_indices ? total.index_entries_32 : total.index_entries_16) +=
            views[i]->columns.indices().size();
        total.faulty_cores += views[i]->faulty ? 1 : 0;
        misses += figures[i].misses;
        stored_triangles += figures[i].triangles;
    }
    if (stored_triangles != 0)
        total.acmr = static_cast<double>(misses) / static_cast<double>(stored_triangles);
    return total;
}

void refuseFaults(const scene_statistics& scene, const std::string& path) {
    if (scene.faulty_cores != 0)
        throw host_error("'" + path + "' is damaged: " + std::to_string(scene.faulty_cores) +
                         " geometries have indices behind their last position");
}

} // namespace morva::host
