#include "cell_ids.h"

#include <set>

#include <OpenSG/OSGGeometry.h>

#include "feature_ids.h"
#include "geometry_view.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

/// Bindings of an ID map at a root: coordinate set by node name, and name by ID.
constexpr ::osg::UInt16 map_bindings[] = {1, 2};
constexpr ::osg::UInt16 names_binding = 2;

/// The ID of each position of a node's core: `none` where it has none. Empty: two parts share a
/// vertex.
std::vector<float> idsOf(const ::osg::NodePtr& node, const geometry_view& view,
                         const feature_ids& features, std::size_t none) {
    std::vector<float> ids(view.positions.rows, -1.0F);
    std::size_t triangle = 0;
    bool clash = false;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        unsigned corner = 0;
        for (const std::uint32_t at : {a, b, c}) {
            const part_row* const part = features.partOf(node, triangle, corner++);
            const auto row =
                part != nullptr ? static_cast<std::size_t>(part - features.parts().data()) : none;
            float& id = ids[view.positions.row(at)];
            clash = clash || (id >= 0.0F && id != static_cast<float>(row));
            id = static_cast<float>(row);
        }
        ++triangle;
    });
    for (float& id : ids)
        id = id < 0.0F ? static_cast<float>(none) : id;
    return clash ? std::vector<float>() : ids;
}

void setIds(const ::osg::GeometryPtr& core, const std::vector<float>& ids) {
    const ::osg::GeoTexCoords2fPtr set = ::osg::GeoTexCoords2f::create();
    beginEditCP(core, ::osg::Geometry::TexCoords7FieldMask);
    core->setTexCoords7(set);
    set->editField().reserve(ids.size());
    for (const float id : ids)
        set->editField().push_back(::osg::Vec2f(id, 0.0F));
    endEditCP(core, ::osg::Geometry::TexCoords7FieldMask);
}

/// Puts the IDs of a file into its cores; returns how many can't have them.
std::size_t bringIds(const ::osg::NodePtr& root, const feature_ids& features) {
    std::size_t failed = 0;
    std::set<::osg::UInt32> seen;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        if (!seen.insert(core.getFieldContainerId()).second)
            continue;
        const geometry_view view(core);
        if (view.runs.empty())
            continue;
        const std::vector<float> ids = idsOf(node, view, features, features.parts().size());
        // With several indices per corner there may be none that leads to them.
        if (ids.empty() || core->getMFIndexMapping()->size() != 0)
            ++failed;
        else
            setIds(core, ids);
    }
    return failed;
}

/// The names of a map in the root as a table: numbers run from 0.
part_table tableOf(const ::osg::StringAttributeMapPtr& names) {
    part_table table;
    for (std::size_t id = 0;; ++id) {
        std::string path;
        if (!names->getAttribute(std::to_string(id), path))
            break;
        part_row row;
        row.name = path.substr(path.rfind('/') + 1);
        row.path = path;
        table.rows.push_back(row);
    }
    table.ids = table.rows.size();
    return table;
}

} // namespace

cell_ids::cell_ids(const std::string& path, const model& read, std::vector<std::string>& notes) {
    const feature_ids features = readFeatureIds(path, read);
    if (!features.empty()) {
        const std::size_t failed = bringIds(read.root.get(), features);
        if (failed != 0)
            notes.push_back("the IDs of " + std::to_string(failed) +
                            " geometries are not in the cells: parts share their vertices");
        table_.emplace();
        table_->rows = features.parts();
        table_->ids = table_->rows.size();
    }
    for (const ::osg::UInt16 binding : map_bindings) {
        const auto map = ::osg::StringAttributeMapPtr::dcast(
            read.root->findAttachment(::osg::StringAttributeMap::getClassType(), binding));
        if (map == ::osg::NullFC)
            continue;
        maps_.push_back({::osg::StringAttributeMapRefPtr(map), binding});
        if (binding == names_binding && !table_)
            table_ = tableOf(map);
    }
}

void cell_ids::attachTo(const ::osg::NodePtr& root) const {
    for (const bound_map& bound : maps_)
        root->addAttachment(bound.map.get(), bound.binding);
}

} // namespace morva::host
