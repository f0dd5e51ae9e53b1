#pragma once

// How a geometry core keeps what files have in several ways. All readers go through here, so that
// a model is the same whoever read it.

#include <array>
#include <cstddef>
#include <cstring>

#include <OpenSG/OSGGeometry.h>

namespace morva::host {

/// Colours from `count` times four floats: without alpha if all are opaque, or none shows at all.
::osg::GeoColorsPtr colorsOf(const float* rgba, std::size_t count);

/// The channels of texture coordinates in a file; null where it has none.
using coordinate_channels = std::array<::osg::GeoTexCoordsPtr, 4>;

/// Sets the coordinates of a core. Channel `first` (0 if there is no such) comes in front and
/// changes places with channel 0: the library keeps four, and the first is that of the texture.
void setCoordinates(const ::osg::GeometryPtr& geometry, const coordinate_channels& channels,
                    unsigned first);

/// Whether indices of so many vertices are kept in 16 bits.
inline bool hasNarrowIndices(std::size_t vertex_count) { return vertex_count <= 0x10000u; }

/// A new property of `count` entries, filled with their bytes.
template <typename Property>
typename Property::PtrType filled(const void* values, std::size_t count, std::size_t bytes) {
    typename Property::PtrType property = Property::create();
    beginEditCP(property);
    property->resize(count);
    if (count != 0)
        std::memcpy(property->getData(), values, count * bytes);
    endEditCP(property);
    return property;
}

} // namespace morva::host
