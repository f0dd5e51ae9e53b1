#include <morva/geosets/morva_osg_point_geoset_tools.h>

#include <algorithm>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_validate.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_rules.h>
#include <morva/geosets/morva_osg_stage_errors.h>

namespace morva::osg {

namespace {

/// The positions as packed floats; null if they are missing or stored otherwise.
::osg::GeoPositions3fPtr packedPositions(const osg_point_geoset& geoset) {
    if (geoset.geometry == ::osg::NullFC)
        return ::osg::NullFC;
    return ::osg::GeoPositions3fPtr::dcast(geoset.geometry->getPositions());
}

/// Gives the positions their packed form, if they have another.
void packPositions(osg_point_geoset& geoset) {
    if (packedPositions(geoset) != ::osg::NullFC)
        return;
    const property_block<::osg::Pnt3f> block = readBlock(geoset.geometry->getPositions());
    ::osg::RefPtr<::osg::GeoPositions3fPtr> packed(::osg::GeoPositions3f::create());
    packed->editField().reserve(block.view().size());
    for (const ::osg::Pnt3f& p : block.view())
        packed->editField().push_back(p);
    geoset.geometry->setPositions(packed.get());
}

} // namespace

osg_point_geoset::osg_point_geoset() : geometry(::osg::Geometry::create()) {}

void osg_point_geoset::clear() {
    clearElements(*this);
    bbox = float_box();
}

bool osg_point_geoset::resizeFieldContainers(unsigned int points) {
    geoset_fields fields = fieldsOf(*this);
    return resizeOrMark(fields, corners, points, resize_failed);
}

void osg_point_geoset::setWishedSize(unsigned long points) {
    vertex_capacity = points;
    geoset_fields fields = fieldsOf(*this);
    resizeOrMark(fields, corners, points, resize_failed);
}

void osg_point_geoset::setup() {
    size = wished_size = 0;
    bbox = float_box();
    settleLength(geometry.get(), 0);
    if (geometry == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return;
    try {
        packPositions(*this);
        resizeFieldContainers(static_cast<unsigned int>(vertex_count));
        size = std::min<std::uint64_t>(vertex_count, geometry->getPositions()->size());
        wished_size = size;
        calc_bounding_box();
        settleLength(geometry.get(), size);
        validate("setup", [this] { return broken_rule_of(*this); });
        return;
    } catch (...) {
        printSetupError();
    }
    size = wished_size = 0;
}

void osg_point_geoset::calc_bounding_box() { bbox = boxOfVertices(geometry.get(), size); }

point_extents<float> extents_on_axis(const osg_point_geoset& geoset, int axis) {
    const ::osg::GeoPositions3fPtr positions = packedPositions(geoset);
    if (positions == ::osg::NullFC || positions->editField().empty())
        return {nullptr, 3};
    return {positions->editField()[0].getValues() + axis, 3};
}

} // namespace morva::osg
