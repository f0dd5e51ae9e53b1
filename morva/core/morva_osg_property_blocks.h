#pragma once

// Vertex data in blocks: a property becomes a range of plain values, read without a virtual call
// per value.
//
//     const property_block<::osg::Pnt3f> positions = readBlock(geometry->getPositions());
//     for (const ::osg::Pnt3f& p : positions) ...
//
// Where the stored form is the plain one (GeoPositions3f, GeoNormals3f, ...) the block points into
// the property and holds a reference on it; another form is converted once, into the block.
// Writing goes through editSpan(), for the forms that the library makes itself.
//
// A block that points into its property is as valid as the property keeps its length. Reads the
// calling thread's aspect; any number of threads may read one property.

#include <cstddef>
#include <memory>
#include <vector>

#include <OpenSG/OSGGeoProperty.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// The values of one property; empty for a null property. Copies share.
template <typename Value> class property_block {
  public:
    property_block() = default;
    /// Points into `property`.
    property_block(span<const Value> stored, const ::osg::AttachmentPtr& property)
        : values_(stored), owner_(property) {}
    /// Keeps converted values.
    explicit property_block(std::vector<Value> made)
        : converted_(std::make_shared<const std::vector<Value>>(std::move(made))),
          values_(*converted_) {}

    span<const Value> view() const { return values_; }
    const Value* data() const { return values_.data(); }
    std::size_t size() const { return values_.size(); }
    bool empty() const { return values_.empty(); }
    const Value* begin() const { return values_.begin(); }
    const Value* end() const { return values_.end(); }
    const Value& operator[](std::size_t index) const { return values_[index]; }

    /// What keeps the values: the property that they are stored in, or else a vector.
    const ::osg::RefPtr<::osg::AttachmentPtr>& property() const { return owner_; }
    const std::shared_ptr<const std::vector<Value>>& storage() const { return converted_; }

  private:
    std::shared_ptr<const std::vector<Value>>
        converted_; ///< null if `values_` are stored elsewhere
    span<const Value> values_;
    ::osg::RefPtr<::osg::AttachmentPtr> owner_;
};

MORVA_API property_block<::osg::Pnt3f> readBlock(const ::osg::GeoPositionsPtr& property);
MORVA_API property_block<::osg::Vec3f> readBlock(const ::osg::GeoNormalsPtr& property);
MORVA_API property_block<::osg::Color3f> readBlock(const ::osg::GeoColorsPtr& property);
MORVA_API property_block<::osg::Vec2f> readBlock(const ::osg::GeoTexCoordsPtr& property);
MORVA_API property_block<::osg::UInt32> readBlock(const ::osg::GeoIndicesPtr& property);
MORVA_API property_block<::osg::UInt32> readBlock(const ::osg::GeoPLengthsPtr& property);
MORVA_API property_block<::osg::UInt32> readBlock(const ::osg::GeoPTypesPtr& property);

/// The stored values of a property of a concrete form, for writing; until it is resized. Empty
/// for null.
template <typename ConcretePtr> auto editSpan(const ConcretePtr& property) {
    using value = std::decay_t<decltype(property->editField()[0])>;
    if (property == ::osg::NullFC || property->editField().empty())
        return span<value>();
    return span<value>(&property->editField()[0], property->editField().size());
}

} // namespace morva::osg
