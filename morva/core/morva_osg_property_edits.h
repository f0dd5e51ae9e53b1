#pragma once

// Changes of properties that every pass has to make alike. Who calls has the geometry, or the
// property, open for editing. Each works in the calling thread's aspect.

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// Lets a property share the index of the positions, where a mapping tells who takes which.
inline void mapWithPositions(const ::osg::GeometryPtr& geometry, vertex_property property) {
    auto& mapping = *geometry->editMFIndexMapping();
    const ::osg::Int16 slot = geometry->calcMappingIndex(mappingBit(vertex_property::position));
    if (mapping.size() == 0 || slot < 0)
        return;
    const unsigned int bit = mappingBit(property);
    for (::osg::UInt32 i = 0; i < mapping.size(); ++i) {
        // An entry that named the property before must not be the one that counts.
        const unsigned int bits = mapping[i] & ~bit;
        mapping[i] = static_cast<::osg::UInt16>(static_cast<int>(i) == slot ? bits | bit : bits);
    }
}

/// Changes the first `count` colours of a property of any form, which keep their alpha: writing
/// through the role alone makes them opaque.
///
/// change  called as change(color, i), with the colour to change
template <typename Change>
void changeColors(const ::osg::GeoColorsPtr& colors, ::osg::UInt32 count, const Change& change) {
    const auto floats = ::osg::GeoColors4fPtr::dcast(colors);
    const auto bytes = ::osg::GeoColors4ubPtr::dcast(colors);
    for (::osg::UInt32 i = 0; i < count; ++i) {
        const float alpha = floats != ::osg::NullFC ? floats->editField()[i][3] : 0.0F;
        const ::osg::UInt8 alpha_byte = bytes != ::osg::NullFC ? bytes->editField()[i][3] : 0;
        ::osg::Color3f color = colors->getValue(i);
        change(color, i);
        colors->setValue(color, i);
        if (floats != ::osg::NullFC)
            floats->editField()[i][3] = alpha;
        if (bytes != ::osg::NullFC)
            bytes->editField()[i][3] = alpha_byte;
    }
}

} // namespace morva::osg
