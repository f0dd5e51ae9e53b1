#include "facet_normals.h"

#include <cmath>
#include <set>

#include <OpenSG/OSGGeometry.h>

#include "geometry_view.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

::osg::Vec3f vectorAt(const float* values) { return {values[0], values[1], values[2]}; }

std::size_t mendCore(const ::osg::GeometryPtr& core) {
    const geometry_view view(core);
    const auto normals = ::osg::GeoNormals3fPtr::dcast(core->getNormals());
    if (normals == ::osg::NullFC || view.normals.rows != view.positions.rows ||
        !view.one_index_per_corner)
        return 0;
    std::size_t mended = 0;
    beginEditCP(normals);
    forEachTriangle(view, [&](std::size_t a, std::size_t b, std::size_t c) {
        const std::uint32_t rows[] = {view.positions.row(a), view.positions.row(b),
                                      view.positions.row(c)};
        const ::osg::Vec3f first = vectorAt(view.positions.at(rows[0]));
        ::osg::Vec3f made = (vectorAt(view.positions.at(rows[1])) - first)
                                .cross(vectorAt(view.positions.at(rows[2])) - first);
        const float length = made.length();
        if (!(length > 0.f) || !std::isfinite(length))
            return;
        made /= length;
        bool changed = false;
        for (const std::uint32_t row : rows) {
            const ::osg::Vec3f given = normals->getValue(row);
            if (given.dot(made) > 0.f && std::isfinite(given.length()))
                continue;
            normals->setValue(made, row);
            changed = true;
        }
        mended += changed ? 1 : 0;
    });
    endEditCP(normals);
    return mended;
}

} // namespace

std::size_t mendFacetNormals(const ::osg::NodePtr& root) {
    std::set<::osg::UInt32> seen;
    std::size_t mended = 0;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        if (seen.insert(node->getCore().getFieldContainerId()).second)
            mended += mendCore(::osg::GeometryPtr::dcast(node->getCore()));
    }
    return mended;
}

} // namespace morva::host
