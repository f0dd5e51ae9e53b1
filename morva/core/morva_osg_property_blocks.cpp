#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

/// Copies value by value, whatever the stored form.
template <typename Value, typename Role>
property_block<Value> convertedBlock(const Role& property) {
    std::vector<Value> values(property->size());
    for (::osg::UInt32 i = 0; i < values.size(); ++i)
        values[i] = static_cast<Value>(property->getValue(i));
    return property_block<Value>(std::move(values));
}

/// Copies the stored values of a form that is not the plain one.
template <typename Value, typename ConcretePtr>
property_block<Value> widenedBlock(const ConcretePtr& property) {
    const auto stored = editSpan(property);
    return property_block<Value>(std::vector<Value>(stored.begin(), stored.end()));
}

/// Points into the property if its form is `Plain`, else converts.
template <typename Value, typename Plain, typename Role>
property_block<Value> blockOf(const Role& property) {
    if (property == ::osg::NullFC)
        return {};
    const Plain plain = Plain::dcast(property);
    if (plain == ::osg::NullFC)
        return convertedBlock<Value>(property);
    return property_block<Value>(editSpan(plain), property);
}

} // namespace

property_block<::osg::Pnt3f> readBlock(const ::osg::GeoPositionsPtr& property) {
    return blockOf<::osg::Pnt3f, ::osg::GeoPositions3fPtr>(property);
}
property_block<::osg::Vec3f> readBlock(const ::osg::GeoNormalsPtr& property) {
    return blockOf<::osg::Vec3f, ::osg::GeoNormals3fPtr>(property);
}
property_block<::osg::Color3f> readBlock(const ::osg::GeoColorsPtr& property) {
    return blockOf<::osg::Color3f, ::osg::GeoColors3fPtr>(property);
}
property_block<::osg::Vec2f> readBlock(const ::osg::GeoTexCoordsPtr& property) {
    return blockOf<::osg::Vec2f, ::osg::GeoTexCoords2fPtr>(property);
}
property_block<::osg::UInt32> readBlock(const ::osg::GeoIndicesPtr& property) {
    const ::osg::GeoIndicesUI16Ptr narrow = ::osg::GeoIndicesUI16Ptr::dcast(property);
    if (narrow != ::osg::NullFC)
        return widenedBlock<::osg::UInt32>(narrow);
    return blockOf<::osg::UInt32, ::osg::GeoIndicesUI32Ptr>(property);
}
property_block<::osg::UInt32> readBlock(const ::osg::GeoPLengthsPtr& property) {
    return blockOf<::osg::UInt32, ::osg::GeoPLengthsUI32Ptr>(property);
}
property_block<::osg::UInt32> readBlock(const ::osg::GeoPTypesPtr& property) {
    if (property == ::osg::NullFC)
        return {};
    return convertedBlock<::osg::UInt32>(property);
}

} // namespace morva::osg
