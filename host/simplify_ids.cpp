#include "simplify_ids.h"

#include <map>
#include <vector>

#include "feature_ids.h"
#include "geometry_view.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

/// The row of each vertex of a core that a node draws; -1 for none.
std::vector<float> rowsAt(const ::osg::NodePtr& node, const geometry_view& view,
                          const feature_ids& features) {
    std::vector<float> rows(view.positions.rows, -1.F);
    std::size_t triangle = 0;
    forEachTriangle(view, [&](std::size_t a, std::size_t b, std::size_t c) {
        unsigned k = 0;
        for (const std::size_t corner : {a, b, c}) {
            const part_row* const part = features.partOf(node, triangle, k++);
            if (part != nullptr)
                rows[view.positions.row(corner)] =
                    static_cast<float>(part - features.parts().data());
        }
        ++triangle;
    });
    return rows;
}

void enter(const std::vector<float>& rows, const ::osg::GeometryPtr& core) {
    const ::osg::GeoTexCoords2fPtr ids = ::osg::GeoTexCoords2f::create();
    for (const float row : rows)
        ids->editField().push_back({row, 0.F});
    core->setTexCoords7(ids);
}

} // namespace

std::optional<part_table> enterParts(const std::string& path, const model& source) {
    const feature_ids features = readFeatureIds(path, source);
    if (features.empty())
        return std::nullopt;
    std::map<::osg::UInt32, std::vector<float>> entered; // by the core's container
    for (const ::osg::NodePtr& node : geometryNodes(source.root.get())) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        const geometry_view view(core);
        std::vector<float> rows = rowsAt(node, view, features);
        const auto [known, fresh] = entered.emplace(core.getFieldContainerId(), rows);
        if (fresh)
            enter(rows, core);
        else if (known->second != rows) // several parts draw it: its vertices tell none of them
            core->setTexCoords7(::osg::NullFC);
    }
    part_table table;
    table.rows = features.parts();
    table.ids = table.rows.size();
    table.brought = true;
    return table;
}

} // namespace morva::host
