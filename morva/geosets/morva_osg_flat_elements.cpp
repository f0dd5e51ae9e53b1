#include <morva/geosets/morva_osg_flat_elements.h>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

namespace {

/// Resizes all properties of a core; false after one line on standard output if that fails.
bool triedToResize(geoset_fields& fields, std::size_t rows) {
    try {
        fields.forEachPresent([rows](auto& slot) { slot.get()->resize(rows); });
        return true;
    } catch (...) {
        say({"Error while resizing FieldContainers."});
        return false;
    }
}

} // namespace

void makePrimitive(const ::osg::GeoPTypesPtr& types, const ::osg::GeoPLengthsPtr& lengths,
                   ::osg::UInt8 type) {
    if (types->size() == 0)
        types->addValue(type);
    if (lengths->size() == 0)
        lengths->addValue(0);
}

void countVertices(const ::osg::GeoPLengthsPtr& lengths, std::uint64_t more) {
    lengths->setValue(lengths->getValue(0) + static_cast<::osg::UInt32>(more), 0);
}

void settleLength(const ::osg::GeometryPtr& core, std::uint64_t vertices) {
    if (core == ::osg::NullFC || core->getIndices() != ::osg::NullFC)
        return;
    const ::osg::GeoPLengthsPtr lengths = core->getLengths();
    if (lengths != ::osg::NullFC && lengths->size() == 1)
        lengths->setValue(static_cast<::osg::UInt32>(vertices), 0);
}

const ::osg::Char8* mapName(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry) {
    const ::osg::Char8* name = ::osg::getName(node);
    if (name != nullptr)
        return name;
    name = ::osg::getName(geometry);
    return name != nullptr && *name != '\0' ? name : nullptr;
}

int enterInMap(const ::osg::NodePtr& node, const std::string& name, bool to_world) {
    ::osg::Pnt3f min, max;
    ::osg::DynamicVolume volume;
    if (to_world) {
        node->getWorldVolume(volume);
    } else {
        node->updateVolume();
        volume = node->getVolume();
    }
    if (!volume.isEmpty())
        volume.getBounds(min, max);

    const ::osg::MaterialPtr material = getMaterial(node);
    const ::osg::Char8* material_name = ::osg::getName(material);
    std::string text = name;
    return getIDmapHandler().insertNodeName(text, min, max, material,
                                            material_name != nullptr ? material_name : "");
}

int vertexId(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry, bool to_world,
             bool& write_ids) {
    idmapHandler& handler = getIDmapHandler();
    if (!write_ids || handler.merged)
        return 0;
    const ::osg::Char8* name = mapName(node, geometry);
    if (name == nullptr) {
        say({"Node has no name and will not get an IDmap."});
        write_ids = false;
        return 0;
    }
    const int known = handler.settled ? handler.findNodeName(name) : -1;
    return known >= 0 ? known : enterInMap(node, name, to_world);
}

void adoptMaterial(const ::osg::GeometryPtr& target, const ::osg::NodePtr& node,
                   const ::osg::GeometryPtr& source, bool search) {
    if (target->getMaterial() == ::osg::NullFC)
        target->setMaterial(source->getMaterial());
    if (!search || target->getMaterial() != ::osg::NullFC)
        return;
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group == ::osg::NullFC)
        return;
    target->setMaterial(::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
}

bool resizeOrMark(geoset_fields& fields, unsigned int corners, std::size_t rows, bool& failed) {
    if (failed)
        return false;
    const std::size_t before = fields.positions.size() / corners * corners;
    if (triedToResize(fields, rows))
        return true;
    failed = true;
    // Not a third time if this fails as well: what is too short then is seen by its length.
    triedToResize(fields, before);
    return false;
}

float_box boxOfVertices(const ::osg::GeometryPtr& geometry, std::size_t vertices) {
    float_box box;
    if (geometry == ::osg::NullFC || vertices == 0)
        return box;
    const auto block = readBlock(geometry->getPositions());
    const span<const ::osg::Pnt3f> points = block.view();
    if (points.empty())
        return box;
    ::osg::Pnt3f low = points[0], high = low;
    for (const ::osg::Pnt3f& point : points.subspan(0, vertices)) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
            low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
            high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
        }
    }
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        box.min[axis] = low[axis];
        box.max[axis] = high[axis];
    }
    box.refresh_extent();
    return box;
}

} // namespace morva::osg
