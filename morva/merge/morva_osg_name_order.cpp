#include <morva/merge/morva_osg_name_order.h>

#include <algorithm>
#include <cstdint>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge_stages.h>

namespace morva::osg {

namespace {

/// The core of a node if extraction reads it, or null.
::osg::GeometryPtr readCore(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC)
        return ::osg::NullFC;
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    return canBeExtracted(core) ? core : ::osg::GeometryPtr();
}

bool bringsIds(const ::osg::GeometryPtr& core) {
    return core != ::osg::NullFC && core->getTexCoords7() != ::osg::NullFC;
}

/// Whether extraction may enter some name of a group.
bool mayEnter(const std::vector<::osg::NodePtr>& nodes, const mergeGeo_setup& setup) {
    return !setup.idmap.empty() ||
           std::any_of(nodes.begin(), nodes.end(), [](const ::osg::NodePtr& node) {
               return node != ::osg::NullFC &&
                      bringsIds(::osg::GeometryPtr::dcast(node->getCore()));
           });
}

/// Follows which of a group's nodes enter their names.
class group_walk {
  public:
    explicit group_walk(bool ids_wanted) : wanted_(ids_wanted) {}

    /// Whether an extraction of this node enters its name; nodes in their order.
    bool enters(const ::osg::GeometryPtr& core) {
        const bool anyhow = wanted_ || bringsIds(core);
        const bool drawn[] = {offerOf(core, osg_geoset::corners).room != 0,
                              offerOf(core, osg_line_geoset::corners).room != 0,
                              offerOf(core, osg_point_geoset::corners).room != 0};
        bool some = false;
        for (int kind = 0; kind < 3; ++kind) {
            has_ids_[kind] = has_ids_[kind] || (drawn[kind] && anyhow);
            some = some || (drawn[kind] && has_ids_[kind]);
        }
        return some;
    }

  private:
    bool wanted_;
    bool has_ids_[3] = {}; ///< geosets of triangles, lines and points whose vertices carry IDs
};

void enterNames(const std::vector<::osg::NodePtr>& nodes, const mergeGeo_setup& setup) {
    if (!mayEnter(nodes, setup))
        return;
    group_walk walk(!setup.idmap.empty());
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr core = readCore(node);
        if (core == ::osg::NullFC)
            continue;
        const ::osg::Char8* name = mapName(node, core);
        if (name != nullptr && walk.enters(core))
            enterInMap(node, name, setup.toworld);
    }
}

} // namespace

bool canForetellNames(const GeoMerge& merge, const mergeGeo_setup& setup) {
    if (!setup.idmap.empty())
        return true;
    for (const auto& [material, nodes] : merge.groups()) {
        if (!mayEnter(nodes, setup))
            continue;
        std::uint64_t vertices = 0; // at least as many as elements of any kind
        bool some_do_not = false;
        for (const ::osg::NodePtr& node : nodes) {
            const ::osg::GeometryPtr core = readCore(node);
            if (core == ::osg::NullFC)
                continue;
            some_do_not = some_do_not || !bringsIds(core);
            vertices += cornersOf(core);
        }
        if (some_do_not && (vertices > batch_limit || setup.mergehierarchy))
            return false;
    }
    return true;
}

settled_names::settled_names(const GeoMerge& merge, const mergeGeo_setup& setup) {
    idmapHandler& handler = getIDmapHandler();
    if (handler.merged)
        return;
    for (const auto& [material, nodes] : merge.groups())
        enterNames(nodes, setup);
    handler.releaseHeldLock();
    handler.settled = true;
}

settled_names::~settled_names() { getIDmapHandler().settled = false; }

} // namespace morva::osg
