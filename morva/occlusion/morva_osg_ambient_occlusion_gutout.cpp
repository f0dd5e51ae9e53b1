// Interior removal: the parts of which no vertex sees a way out.

#include <algorithm>
#include <atomic>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <OpenSG/OSGGroup.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_bake.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_exact.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_prepare.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_work.h>

namespace morva::osg {

namespace {

/// Shares of the scene's diagonal: up to where a hit counts whole, and how far a vertex is moved
/// off its surface.
constexpr double distance_share = 0.05, offset_share = 1e-5;

/// Whether a vertex is open, its rays fired in turn until that is certain.
class openness_test {
  public:
    openness_test(const traced_scene& scene, span<const float3> of_set, double diagonal,
                  float more_than)
        : rays_(of_set), distance_(diagonal * distance_share),
          offset_(static_cast<float>(diagonal * offset_share)), threshold_(more_than),
          trace_(scene.rays()),
          again_(scene.tree, scene.parts, 2.0 * distance_ + occlusion_ray::start_slack) {}

    /// For one thread at a time.
    occlusion_rays trace() const { return trace_; }

    bool operator()(const world_vertices& vertices, std::size_t vertex,
                    occlusion_rays& trace) const {
        const float3 normal = vertices.normal(vertex);
        float3 position = vertices.position(vertex);
        for (std::size_t k = 0; k < 3; ++k)
            position[k] += normal[k] * offset_;
        occlusion_sum sum;
        occlusion_rays::view near = trace.near(position, distance_);
        for (std::size_t i = 0; i < rays_.size(); ++i) {
            const occlusion_ray ray(position, normal, rays_[i]);
            if (near.stops(i, ray))
                sum.addNear();
            else
                sum.add(wayOf(ray, position, trace), distance_);
            if (isCertain(sum, rays_.size() - i - 1))
                return true;
        }
        return sum.value(rays_.size()) > threshold_;
    }

  private:
    /// How far from `position` a ray meets something; infinite for nothing. Single precision loses
    /// a few hits on the edges of boxes and between triangles, and then meets nothing or what lies
    /// behind. One open ray is enough, so that the second look has the last word.
    float wayOf(const occlusion_ray& ray, const float3& position,
                const occlusion_rays& trace) const {
        float way = std::numeric_limits<float>::infinity();
        float3 point;
        if (trace(ray, point))
            way = detail::distance<float, float3>(position, point);
        if (!(static_cast<double>(way) < distance_) && again_(ray, point))
            way = std::min(way, detail::distance<float, float3>(position, point));
        return way;
    }

    /// Whether the vertex is open even if all rays that are left count whole. Sums are rounded:
    /// what is close waits for the last ray.
    bool isCertain(occlusion_sum sum, std::size_t left) const {
        constexpr double rounding = 1e-3;
        sum.partial += static_cast<double>(left) + rounding;
        return sum.value(rays_.size()) > threshold_;
    }

    span<const float3> rays_;
    double distance_;
    float offset_; ///< world units
    float threshold_;
    occlusion_rays trace_;
    exact_rays<bih_tree<float>, occlusion_geoset> again_;
};

/// A geometry and whether a vertex of it is open.
struct questioned {
    ::osg::RefPtr<::osg::NodePtr> node;
    world_vertices vertices;
    std::atomic<bool> open{false};

    explicit questioned(const ::osg::NodePtr& asked) : node(asked), vertices(asked) {}
};

/// Takes nodes off their parents. One with children stays, with an empty group as its core.
void takeOff(const std::vector<::osg::NodePtr>& nodes) {
    std::map<::osg::UInt32, ::osg::NodePtr> parents;
    std::set<::osg::UInt32> leaving;
    for (const ::osg::NodePtr& node : nodes) {
        if (node->getNChildren() != 0) {
            const ::osg::RefPtr<::osg::GroupPtr> empty(::osg::Group::create());
            giveCore(node, empty.get());
        } else if (node->getParent() != ::osg::NullFC) {
            leaving.insert(node.getFieldContainerId());
            parents.emplace(node->getParent().getFieldContainerId(), node->getParent());
        }
    }
    for (const auto& [id, parent] : parents) {
        for (::osg::UInt32 i = parent->getNChildren(); i-- > 0;) { // those in front stay in place
            if (leaving.count(parent->getChild(i).getFieldContainerId()) != 0)
                takeChildOff(parent, i);
        }
    }
}

/// Asks the vertices of all geometries, and gives those of which none is open.
std::vector<::osg::NodePtr> closedOnes(const std::vector<std::unique_ptr<questioned>>& all,
                                       const openness_test& isOpen, unsigned int threads) {
    std::vector<::osg::NodePtr> closed;
    work_progress progress;
    vertex_work work;
    for (const auto& one : all)
        work.counts.push_back(one->vertices.size());
    work.piece = [&](std::size_t geometry, std::size_t first, std::size_t last) {
        questioned& asked = *all[geometry];
        occlusion_rays trace = isOpen.trace();
        for (std::size_t vertex = first; vertex < last && !asked.open; ++vertex) {
            if (isOpen(asked.vertices, vertex, trace))
                asked.open = true;
        }
    };
    work.end = [&](std::size_t geometry) {
        if (!all[geometry]->vertices.hasPositions())
            return sayNoPositions();
        if (!all[geometry]->open)
            closed.push_back(all[geometry]->node.get());
        progress.sayEnd(geometry, all.size());
    };
    doInOrder(work, threads, progress);
    return closed;
}

} // namespace

std::size_t takeInteriorOff(const ::osg::NodePtr& root, int shots, float threshold,
                            unsigned int threads) {
    if (root == ::osg::NullFC)
        return 0;
    const span<const float3> rays = rayVecsOf(shots);
    if (rays.empty()) {
        sayNoRays(shots);
        return 0;
    }
    const walk_start start(root);
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(start.get(), nodes, false);
    for (const ::osg::NodePtr& node : nodes)
        giveNewNormals(geometryOf(node));
    const traced_scene scene(start.get());
    const openness_test isOpen(scene, rays, diagonalOf(root), threshold);
    say({"Calc Ambient Occlusion: "});
    std::vector<std::unique_ptr<questioned>> all;
    all.reserve(nodes.size());
    for (const ::osg::NodePtr& node : nodes)
        all.push_back(std::make_unique<questioned>(node));
    const std::vector<::osg::NodePtr> closed = closedOnes(all, isOpen, threads);
    const std::string primitives = std::to_string(getNumberOfPrimitives(closed));
    takeOff(closed);
    say_over_progress({"done. Removed ", std::to_string(closed.size()), " geometries with ",
                       primitives, " primitives."});
    return closed.size();
}

void gutOutModelPerAmbientOcclusion(::osg::NodePtr root, int shots, float threshold, unsigned int) {
    takeInteriorOff(root, shots, threshold, 1);
}

} // namespace morva::osg
