#include <morva/textures/morva_osg_atlas_nodes.h>

#include <algorithm>
#include <optional>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/textures/morva_osg_atlas_materials.h>
#include <morva/textures/morva_osg_texcoord_form.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace morva::osg {

namespace {

/// Whether flattening would leave something out: it takes triangles alone.
bool hasMoreThanTriangles(const ::osg::GeometryPtr& geometry) {
    if (getNumberOfTriangles(geometry) == 0)
        return true;
    const ::osg::UInt32 count =
        std::min(geometry->getTypes()->size(), geometry->getLengths()->size());
    for (::osg::UInt32 i = 0; i < count; ++i) {
        if (geometry->getTypes()->getValue(i) <= GL_LINE_STRIP &&
            geometry->getLengths()->getValue(i) > 0)
            return true;
    }
    return false;
}

/// Coordinates of what a geometry draws.
struct coordinate_reach {
    bool leaves_unit[2] = {false, false}; ///< u and v, beyond what the normal form puts right
    bool bends = false;                   ///< a triangle is too large for the normal form
};

void look(const triangle_uv& t, coordinate_reach& reach) {
    for (const ::osg::Vec2f* point : {&t.a, &t.b, &t.c}) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
            const auto value = static_cast<double>((*point)[axis]);
            reach.leaves_unit[axis] =
                reach.leaves_unit[axis] || value < -snap_distance || value > 1.0 + snap_distance;
        }
    }
    triangle_uv moved = t;
    snapAll(moved);
    shiftUpFromNegative(moved);
    shiftDownToZero(moved);
    reach.bends = reach.bends || largest(moved) > static_cast<float>(usual_cut_limit);
}

coordinate_reach reachOf(const ::osg::GeometryPtr& geometry) {
    coordinate_reach reach;
    forEachTriangleUv(geometry, [&reach](const triangle_uv& t) { look(t, reach); });
    return reach;
}

/// What an atlas of several pictures has no room for: slices, frames and levels.
bool isPlain(const ::osg::ImagePtr& image) {
    return image->getDepth() <= 1 && image->getFrameCount() <= 1 && image->getMipMapCount() <= 1;
}

} // namespace

std::optional<atlas_obstacle> obstacleToExactness(const ::osg::NodePtr& node,
                                                  const ::osg::ImagePtr& image, bool transparent,
                                                  atlas_sources& sources) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (sources.of(image).pixels == nullptr || !isPlain(image))
        return atlas_obstacle::image_format;
    const texture_use use = textureUse(getMaterial(node), image, transparent);
    if (use.obstacle)
        return use.obstacle;
    if (geometry->getTexCoords() == ::osg::NullFC)
        return atlas_obstacle::no_area;
    const coordinate_reach reach = reachOf(geometry);
    if (reach.bends)
        return atlas_obstacle::coordinates_bent;
    if ((!use.repeats_u && reach.leaves_unit[0]) || (!use.repeats_v && reach.leaves_unit[1]))
        return atlas_obstacle::clamped;
    return std::nullopt;
}

namespace {

/// Why a node stays out.
///
/// image  null for a node without one
std::optional<atlas_obstacle> obstacleOf(const ::osg::NodePtr& node, const ::osg::ImagePtr& image,
                                         const atlas_options& options, bool transparent,
                                         atlas_sources& sources) {
    const auto half = static_cast<int>(options.textureSize / 2);
    if (image != ::osg::NullFC && (image->getWidth() > half || image->getHeight() > half))
        return atlas_obstacle::above_half;
    if (hasTCabove(node, static_cast<float>(options.texcoords), true))
        return atlas_obstacle::coordinates_beyond;
    if (hasMoreThanTriangles(geometryOf(node)))
        return atlas_obstacle::no_triangles;
    if (image == ::osg::NullFC)
        return std::nullopt;
    if (sources.of(image).pixels == nullptr)
        return atlas_obstacle::image_format;
    return options.exact ? obstacleToExactness(node, image, transparent, sources) : std::nullopt;
}

} // namespace

void keepAtlasNodes(std::vector<::osg::NodePtr>& nodes, const atlas_options& options,
                    bool transparent, atlas_sources& sources, atlas_record& record) {
    const auto staysOut = [&](const ::osg::NodePtr& node) {
        const ::osg::ImagePtr image = getImage(node);
        const auto obstacle = obstacleOf(node, image, options, transparent, sources);
        if (obstacle && image != ::osg::NullFC)
            record.leaveOut(image, *obstacle);
        return obstacle.has_value();
    };
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(), staysOut), nodes.end());
}

} // namespace morva::osg
