#include "part_table.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <utility>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/idmap/morva_osg_idmaphandler.h>

#include "geometry_view.h"
#include "scene_walk.h"
#include "triangle_measures.h"

namespace morva::host {

namespace {

constexpr float most = std::numeric_limits<float>::max();

/// A box without numbers that files may not hold.
void setBox(const ::osg::Pnt3f& low, const ::osg::Pnt3f& high, part_row& row) {
    for (::osg::UInt32 k = 0; k < 3; ++k) {
        const bool known = low[k] <= high[k]; // false for NaN
        row.low[k] = known ? std::clamp(low[k], -most, most) : most;
        row.high[k] = known ? std::clamp(high[k], -most, most) : -most;
    }
}

/// The box of a node's positions in the world.
void setBoxOf(const ::osg::NodePtr& node, part_row& row) {
    const geometry_view view(::osg::GeometryPtr::dcast(node->getCore()));
    const placement world(node);
    ::osg::Pnt3f low(most, most, most), high(-most, -most, -most);
    for (const ::osg::Pnt3f& point : placed(view, &world)) {
        for (::osg::UInt32 k = 0; k < 3; ++k) {
            low[k] = std::fmin(low[k], point[k]);
            high[k] = std::fmax(high[k], point[k]);
        }
    }
    setBox(low, high, row);
}

void addIdRows(const std::vector<named_part>& parts, part_table& table) {
    std::unordered_map<std::string, std::vector<const named_part*>> by_name;
    for (const named_part& part : parts)
        by_name[part.name].push_back(&part);
    const morva::osg::idmapHandler& map = morva::osg::getIDmapHandler();
    for (std::size_t id = 0; id < map.names.size(); ++id) {
        part_row row;
        row.name = map.names[id];
        const auto found = by_name.find(map.names[id]);
        if (found != by_name.end() && found->second.size() == 1) {
            row.name = found->second[0]->original_name;
            row.path = found->second[0]->path;
        }
        setBox(map.mins[id], map.maxs[id], row);
        table.rows.push_back(std::move(row));
    }
}

void addCarriedRows(const std::vector<named_part>& parts,
                    const std::vector<::osg::NodePtr>& outputs, part_table& table) {
    std::unordered_map<::osg::UInt32, const named_part*> by_node;
    for (const named_part& part : parts)
        by_node.emplace(part.node_id, &part);
    std::unordered_map<::osg::UInt32, std::size_t> users;
    for (const ::osg::NodePtr& node : outputs)
        ++users[node->getCore().getFieldContainerId()];
    for (const ::osg::NodePtr& node : outputs) {
        const auto carried = by_node.find(node.getFieldContainerId());
        if (carried == by_node.end())
            continue;
        part_row row;
        row.name = carried->second->original_name;
        row.path = carried->second->path;
        setBoxOf(node, row);
        const ::osg::UInt32 core = node->getCore().getFieldContainerId();
        if (users[core] == 1)
            table.row_of_core.emplace(core, static_cast<std::uint32_t>(table.rows.size()));
        table.rows.push_back(std::move(row));
    }
}

} // namespace

part_table partTableOf(const std::vector<named_part>& parts, const ::osg::NodePtr& result) {
    part_table table;
    table.sources = nodesOf(parts);
    addIdRows(parts, table);
    table.ids = table.rows.size();
    addCarriedRows(parts, geometryNodes(result), table);
    return table;
}

node_numbers nodesOf(const std::vector<named_part>& parts) {
    node_numbers numbers;
    for (const named_part& part : parts)
        numbers.insert(part.node_id);
    return numbers;
}

int idSetOf(const ::osg::NodePtr& node, const node_numbers& sources) {
    if (sources.count(node.getFieldContainerId()) != 0)
        return -1;
    const auto& mapping = morva::osg::getIDmapHandler().texCoordMapping;
    const ::osg::Char8* name = getName(node);
    const auto found = mapping.find(name != nullptr ? name : "");
    if (found != mapping.end() && found->second.size() == 3)
        return found->second[2] - '0';
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    return core->getTexCoords7() != ::osg::NullFC ? 7 : -1;
}

std::size_t dropBroughtIds(const std::vector<named_part>& parts) {
    std::size_t dropped = 0;
    for (const named_part& part : parts) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(part.node->getCore());
        if (core->getTexCoords7() == ::osg::NullFC)
            continue;
        beginEditCP(core, ::osg::Geometry::TexCoords7FieldMask);
        core->setTexCoords7(::osg::NullFC);
        endEditCP(core, ::osg::Geometry::TexCoords7FieldMask);
        ++dropped;
    }
    return dropped;
}

} // namespace morva::host
