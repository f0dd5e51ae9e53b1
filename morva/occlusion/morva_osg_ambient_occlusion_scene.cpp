#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>

#include <OpenSG/OSGDynamicVolume.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_matrix.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_value_hash.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

namespace {

constexpr build_setup parts_setup{5, 100}, tree_setup{1, 100};

/// Extraction gives no IDs meanwhile; those that a core has it copies all the same.
class registration_pause {
  public:
    registration_pause() : was_off_(getIDmapHandler().merged) { getIDmapHandler().merged = true; }
    registration_pause(const registration_pause&) = delete;
    registration_pause& operator=(const registration_pause&) = delete;
    ~registration_pause() { getIDmapHandler().merged = was_off_; }

  private:
    bool was_off_;
};

/// Frees what rays don't ask for, once the trees are built: all but corners, boxes and trees.
void keepCornersAlone(occlusion_geoset& parts) {
    for (std::uint32_t i = 0; i < parts.built_count; ++i) {
        parts.geosets[i].dropExtents();
        for (const vertex_property which : all_properties)
            setProperty(parts.geosets[i].geometry.get(), which, ::osg::NullFC);
        parts.geosets[i].prepareSimpleTris(0); // finds no field, and lets go of those before
    }
}

/// A vector of this length or more is brought to length 1.
constexpr float shortest_normal = 1e-6F;

} // namespace

traced_scene::traced_scene(const ::osg::NodePtr& root) {
    say({"Prepare Geoset: "});
    {
        const registration_pause pause;
        parts.with_geosets = true;
        parts.build(root, parts_setup);
    }
    keepCornersAlone(parts);
    say({""});
    compile(parts, tree, tree_setup);
    quick = near_hits::of(tree, parts);
}

double diagonalOf(const ::osg::NodePtr& node) {
    node->updateVolume();
    ::osg::Pnt3f min, max;
    node->getVolume().getBounds(min, max);
    return static_cast<double>((max - min).length());
}

world_vertices::world_vertices(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return;
    geometry_ = geometry;
    positions_ = readBlock(geometry->getPositions());
    normals_ = readBlock(geometry->getNormals());
    to_world_ = node->getToWorld();
}

float3 world_vertices::position(std::size_t vertex) const {
    ::osg::Pnt3f moved;
    to_world_.multMatrixPnt(positions_[vertex], moved);
    float3 position;
    set(position, moved);
    return position;
}

float3 world_vertices::normal(std::size_t vertex) const {
    if (vertex >= normals_.size())
        return {};
    ::osg::Vec3f turned;
    to_world_.multMatrixVec(normals_[vertex], turned);
    const float length = turned.length();
    if (!(length < shortest_normal))
        turned *= 1.0F / length;
    float3 normal;
    set(normal, turned);
    return normal;
}

bool world_vertices::isInWorld() const { return isIdentity(to_world_); }

world_vertices::distinct world_vertices::distinctOnes(bool by_normal) const {
    const auto normalOf = [this](std::size_t v) {
        return v < normals_.size() ? normals_[v] : ::osg::Vec3f();
    };
    distinct found;
    found.number.reserve(size());
    number_table known(size());
    for (std::size_t v = 0; v < size(); ++v) {
        std::uint64_t share = hashShare(positions_[v], 0);
        if (by_normal)
            share += hashShare(normalOf(v), 1);
        const auto next = static_cast<::osg::UInt32>(found.vertices.size());
        const auto equal = [&](::osg::UInt32 number) {
            const std::size_t other = found.vertices[number];
            return isEqual(positions_[other], positions_[v]) &&
                   (!by_normal || isEqual(normalOf(other), normalOf(v)));
        };
        found.number.push_back(known.findOrEnter(hashOfSum(share), next, equal));
        if (found.number.back() == next)
            found.vertices.push_back(static_cast<::osg::UInt32>(v));
    }
    return found;
}

} // namespace morva::osg
