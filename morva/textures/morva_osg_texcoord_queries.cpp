// Questions about texture coordinates, and the nodes that an answer takes out of a scene.

#include <morva/textures/morva_osg_texcoords.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/textures/morva_osg_texcoord_form.h>

namespace morva::osg {

namespace {

/// Whether a way of wrapping shows something else a whole number further on.
bool isHeldInside(::osg::UInt32 wrap) {
    constexpr ::osg::UInt32 clamp = 0x2900, clamp_to_border = 0x812D, clamp_to_edge = 0x812F,
                            mirrored = 0x8370;
    return wrap == clamp || wrap == clamp_to_border || wrap == clamp_to_edge || wrap == mirrored;
}

} // namespace

repeating_directions repeatsOf(const ::osg::MaterialPtr& material) {
    repeating_directions repeats;
    const auto chunks = ::osg::ChunkMaterialPtr::dcast(material);
    for (::osg::UInt32 i = 0; chunks != ::osg::NullFC && i < chunks->getMFChunks()->size(); ++i) {
        const auto texture = ::osg::TextureChunkPtr::dcast(chunks->getChunks(i));
        if (texture == ::osg::NullFC)
            continue;
        repeats.u = repeats.u && !isHeldInside(texture->getWrapS());
        repeats.v = repeats.v && !isHeldInside(texture->getWrapT());
    }
    return repeats;
}

namespace {

/// Above it coordinates leave the unit square.
constexpr float leaves_unit = 1.05F;
constexpr float limit_tolerance = 0.05F;
/// Largest coordinate of a collected triangle before it is halved.
constexpr int collect_max = 1000;

} // namespace

bool hasTexCoordsGreater1(::osg::GeoTexCoordsPtr coordinates, float& maxU, float& maxV,
                          bool asTriangles) {
    float high[2] = {0.0F, 0.0F};
    const auto keepLargest = [&high](const ::osg::Vec2f& point) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis)
            high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
    };
    const auto block = readBlock(coordinates);
    if (asTriangles) {
        for (std::size_t row = 0; row + 2 < block.size(); row += 3) {
            triangle_uv t{block[row], block[row + 1], block[row + 2]};
            normalise(t, static_cast<float>(usual_cut_limit));
            keepLargest(t.a);
            keepLargest(t.b);
            keepLargest(t.c);
        }
    } else {
        for (const ::osg::Vec2f& point : block)
            keepLargest(point);
    }
    maxU = high[0];
    maxV = high[1];
    return maxU > leaves_unit || maxV > leaves_unit;
}

bool hasTexCoordsSmaller0(::osg::GeoTexCoordsPtr coordinates, float& minU, float& minV) {
    float low[2] = {0.0F, 0.0F};
    const auto block = readBlock(coordinates);
    for (const ::osg::Vec2f& point : block) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis)
            low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
    }
    minU = low[0];
    minV = low[1];
    return minU < 0.0F || minV < 0.0F;
}

bool hasTCabove(::osg::NodePtr node, float limit, bool normalised) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC || geometry->getTexCoords() == ::osg::NullFC)
        return false;
    const float threshold = limit + limit_tolerance;
    if (!normalised) {
        const auto block = readBlock(geometry->getTexCoords());
        return std::any_of(block.begin(), block.end(), [threshold](const ::osg::Vec2f& point) {
            return point[0] > threshold || point[1] > threshold;
        });
    }
    bool above = false;
    forEachTriangleUv(geometry, [&](triangle_uv t) {
        if (above)
            return;
        normalise(t, static_cast<float>(usual_cut_limit));
        above = largest(t) > threshold;
    });
    return above;
}

bool checkGeoForTexIndex(::osg::NodePtr node, float limit, int maxImageSide) {
    const ::osg::ImagePtr image = getImage(node);
    if (image != ::osg::NullFC &&
        (image->getWidth() > maxImageSide || image->getHeight() > maxImageSide))
        return true;
    return hasTCabove(node, limit, true);
}

namespace {

/// Whether the normal form of a node's coordinates reaches above a limit.
bool reachesAbove(const ::osg::NodePtr& node, float limit) {
    osg_geoset geoset;
    extract_options wanted;
    wanted.run_setup = wanted.clean_texcoords = true;
    extract(node, geoset, wanted);
    optimizeTexCoords(geoset, collect_max, usual_cut_limit);
    float u = 0, v = 0;
    hasTexCoordsGreater1(coordinatesOf(geoset), u, v, false);
    return u > limit || v > limit;
}

/// Gives a node the material of the group that it is about to leave.
void takeGroupMaterial(const ::osg::NodePtr& node) {
    const ::osg::NodePtr group = searchMaterialGroup(node);
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (group == ::osg::NullFC || geometry == ::osg::NullFC)
        return;
    giveMaterial(geometry, ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
}

} // namespace

::osg::NodePtr CollectNodesWithTexCoordsGreater(::osg::NodePtr root, int limit) {
    const ::osg::NodePtr none = ::osg::NullFC;
    if (limit < 0 || root == ::osg::NullFC)
        return none;
    std::vector<::osg::NodePtr> nodes;
    if (geometryOf(root) != ::osg::NullFC) {
        nodes.push_back(root);
    } else {
        getGeometryNodes(root, nodes, false);
    }
    std::vector<::osg::NodePtr> found;
    for (const ::osg::NodePtr& node : nodes) {
        if (!reachesAbove(node, static_cast<float>(limit)))
            continue;
        takeGroupMaterial(node);
        found.push_back(node);
    }
    if (found.empty())
        return none;
    fresh<::osg::NodePtr> group(newGroupNode());
    for (const ::osg::NodePtr& node : found)
        addChildTo(group.get(), node);
    return group.release();
}

} // namespace morva::osg
