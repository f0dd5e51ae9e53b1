#include <morva/driver/morva_osg_scene_placement.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/driver/morva_osg_scene_cleanup.h>

namespace morva::osg {

namespace {

/// Replaces every position `p` of a geometry by `change(p)`. Nodes that show the geometry learn
/// that their volumes have changed.
template <typename Change>
void changePositions(const ::osg::GeometryPtr& geometry, const Change& change) {
    const ::osg::GeoPositionsPtr positions = geometry->getPositions();
    if (positions == ::osg::NullFC)
        return;
    const open_edit edit(geometry, ::osg::Geometry::PositionsFieldMask);
    const open_edit positions_edit(positions);
    const ::osg::GeoPositions3fPtr plain = ::osg::GeoPositions3fPtr::dcast(positions);
    if (plain != ::osg::NullFC) {
        for (::osg::Pnt3f& position : editSpan(plain))
            position = change(position);
    } else {
        for (::osg::UInt32 i = 0; i < positions->getSize(); ++i)
            positions->setValue(change(positions->getValue(i)), i);
    }
}

/// The geometry nodes of a scene, also of one that is a geometry itself, while this lives.
struct scene_geometry {
    explicit scene_geometry(const ::osg::NodePtr& root, bool with_switches = false) : start(root) {
        getGeometryNodes(start.get(), nodes, with_switches);
    }
    walk_start start;
    std::vector<::osg::NodePtr> nodes;
};

/// The numbers of a text between colons, if there are at least `count`; else none.
std::vector<float> numbersIn(const std::string& list, std::size_t count) {
    std::vector<std::string> texts = tokensOf(list, ":");
    std::vector<float> values;
    string2float(texts, values);
    if (texts.size() < count || values.size() < count)
        values.clear();
    return values;
}

/// "[x/y/z]", six significant digits.
template <typename Triple> std::string bracketed(const Triple& triple) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << '[' << static_cast<double>(triple[0]) << '/' << static_cast<double>(triple[1]) << '/'
         << static_cast<double>(triple[2]) << ']';
    return text.str();
}

/// Gives the node a copy of its geometry, placed in the world and then moved by `offset`.
void bakePlace(const ::osg::NodePtr& node, const ::osg::Vec3f& offset) {
    const ::osg::Matrix to_world = node->getToWorld();
    const ::osg::GeometryPtr copy = ::osg::GeometryPtr::dcast(node->getCore())->clone();
    giveCore(node, copy);
    changePositions(copy, [&](const ::osg::Pnt3f& position) {
        ::osg::Pnt3f placed;
        to_world.multMatrixPnt(position, placed);
        return placed + offset;
    });
    reportWhole(copy);
}

bool hasTransformAbove(const ::osg::NodePtr& node) {
    for (::osg::NodePtr up = node->getParent(); up != ::osg::NullFC; up = up->getParent()) {
        // Component transforms are transforms.
        if (::osg::TransformPtr::dcast(up->getCore()) != ::osg::NullFC)
            return true;
    }
    return false;
}

/// Lowest coordinates of all positions, rounded down; the largest number where there are none.
::osg::Vec3f floorOf(const std::vector<::osg::NodePtr>& nodes) {
    const float largest = std::numeric_limits<float>::max();
    ::osg::Vec3f lowest(largest, largest, largest);
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
        if (geometry == ::osg::NullFC)
            continue;
        const property_block<::osg::Pnt3f> positions = readBlock(geometry->getPositions());
        for (const ::osg::Pnt3f& position : positions.view()) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                if (position[axis] < lowest[axis]) // never for a NaN
                    lowest[axis] = position[axis];
            }
        }
    }
    for (unsigned int axis = 0; axis < 3; ++axis)
        lowest[axis] = std::floor(lowest[axis]);
    return lowest;
}

} // namespace

void applyTransform(::osg::GeometryPtr geometry,
                    ::osg::TransformationMatrix<double> const& matrix) {
    if (geometry == ::osg::NullFC)
        return;
    changePositions(geometry, [&](const ::osg::Pnt3f& position) {
        const ::osg::Pnt3d wide(position[0], position[1], position[2]);
        ::osg::Pnt3d placed;
        matrix.multMatrixPnt(wide, placed);
        return ::osg::Pnt3f(static_cast<float>(placed[0]), static_cast<float>(placed[1]),
                            static_cast<float>(placed[2]));
    });
}

void applyTransform(::osg::NodePtr node, ::osg::TransformationMatrix<double> const& matrix) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return;
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC) {
        applyTransform(geometry, matrix);
        return;
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        applyTransform(node->getChild(i), matrix);
}

void transformSceneBB(::osg::NodePtr node, ::osg::Pnt3f const& min, ::osg::Pnt3f const& max) {
    if (min[0] >= max[0] || min[1] >= max[1] || min[2] >= max[2]) {
        say({"morva::osg::transformSceneBB: No valid Bounding Box given."});
        return;
    }
    ::osg::DynamicVolume volume(::osg::DynamicVolume::BOX_VOLUME);
    if (node != ::osg::NullFC)
        node->getWorldVolume(volume);
    if (!volume.isValid() || volume.getScalarVolume() == 0.0F) {
        say({"morva::osg::transformSceneBB: No valid Scene Bounding Box."});
        return;
    }
    ::osg::Pnt3f scene_min, scene_max;
    volume.getBounds(scene_min, scene_max);

    double scale = 0.0;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float wanted = max[axis] - min[axis];
        const float present = scene_max[axis] - scene_min[axis];
        const double ratio = static_cast<double>(wanted) / static_cast<double>(present);
        if (axis == 0 || ratio < scale)
            scale = ratio;
    }
    ::osg::TransformationMatrix<double> matrix;
    matrix.setIdentity();
    for (unsigned int axis = 0; axis < 3; ++axis) {
        matrix[axis][axis] = scale;
        matrix[3][axis] =
            static_cast<double>(min[axis]) - scale * static_cast<double>(scene_min[axis]);
    }
    applyTransform(node, matrix);
}

void transformSceneBB(::osg::NodePtr node, float size) {
    const float half = size * 0.5F;
    if (half > 0.0F) {
        transformSceneBB(node, ::osg::Pnt3f(-half, -half, -half), ::osg::Pnt3f(half, half, half));
    }
}

void transformSceneBB(::osg::NodePtr node, std::string list) {
    const std::vector<float> v = numbersIn(list, 6);
    if (v.empty()) {
        say({"morva::osg::transformSceneBB: String of Min/Max values not valid. "
             "Example \"1:2:3:4:5:6\""});
        return;
    }
    transformSceneBB(node, ::osg::Pnt3f(v[0], v[1], v[2]), ::osg::Pnt3f(v[3], v[4], v[5]));
}

void centerGeoPositions(::osg::NodePtr node, std::string list) {
    if (node == ::osg::NullFC)
        return;
    const scene_geometry scene(node, true);
    if (scene.nodes.empty())
        return;
    const std::vector<float> v = numbersIn(list, 3);
    if (v.empty()) {
        say({"morva::osg::CenterGeoPositions: String of Center values not valid. "
             "Example \"1:2:3\""});
        return;
    }
    say({"New Model Center: ", bracketed(v)});
    node->updateVolume();
    const ::osg::DynamicVolume volume = node->getVolume();
    ::osg::Pnt3f center;
    volume.getCenter(center);
    const ::osg::Vec3f offset = ::osg::Pnt3f(v[0], v[1], v[2]) - center;
    say({"Model will be moved by: ", bracketed(offset)});

    // Each node gets a copy of its core, so that it makes no difference which one comes first.
    for (const ::osg::NodePtr& geometry_node : scene.nodes)
        bakePlace(geometry_node, offset);
    RemoveTransforms(node);
}

void baseGeoPositions(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    const scene_geometry scene(node);
    if (scene.nodes.empty() ||
        std::any_of(scene.nodes.begin(), scene.nodes.end(), hasTransformAbove))
        return;
    const ::osg::Vec3f base = floorOf(scene.nodes);
    for (const ::osg::NodePtr& geometry_node : scene.nodes) {
        const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(geometry_node->getCore());
        if (geometry != ::osg::NullFC)
            changePositions(geometry, [&](const ::osg::Pnt3f& p) { return p - base; });
    }
}

void changeMaterialForNode(::osg::NodePtr node, ::osg::MaterialPtr material) {
    if (node == ::osg::NullFC || getMaterial(node) == material)
        return;
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group != ::osg::NullFC) {
        const auto core = ::osg::MaterialGroupPtr::dcast(group->getCore());
        const open_edit edit(core, ::osg::MaterialGroup::MaterialFieldMask);
        core->setMaterial(material);
        return;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC && geometry->getMaterial() != material) {
        giveMaterial(geometry, material);
    }
}

void changeMaterialsInScene(::osg::NodePtr node, ::osg::MaterialPtr material) {
    const scene_geometry scene(node);
    for (const ::osg::NodePtr& geometry_node : scene.nodes)
        changeMaterialForNode(geometry_node, material);
}

::osg::MaterialPtr getMostUsedMaterialInScene(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return ::osg::NullFC;
    const scene_geometry scene(node);
    // Null first, then as they are met: the first of equals is taken.
    std::vector<std::pair<::osg::MaterialPtr, unsigned int>> primitives(1);
    std::map<::osg::MaterialPtr, std::size_t> place = {{::osg::MaterialPtr(), 0}};
    for (const ::osg::NodePtr& geometry_node : scene.nodes) {
        const ::osg::MaterialPtr material = getMaterial(geometry_node);
        const auto met = place.emplace(material, primitives.size());
        if (met.second)
            primitives.emplace_back(material, 0);
        primitives[met.first->second].second += getNumberOfPrimitives(geometry_node);
    }
    ::osg::MaterialPtr most_used;
    unsigned int highest = 0;
    for (const auto& [material, count] : primitives) {
        if (count > highest) {
            highest = count;
            most_used = material;
        }
    }
    return most_used;
}

void reduceSceneMaterialsToOne(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    changeMaterialsInScene(node, getMostUsedMaterialInScene(node));
}

} // namespace morva::osg
