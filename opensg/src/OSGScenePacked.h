#pragma once

// Properties that lie packed inside a geometry of a scene file: vectors rounded to 1, 2 or 3
// bytes per number, and indices of as many bits as the greatest needs.

#include "OSGSceneBytes.h"
#include "OpenSG/OSGRefPtr.h"

OSG_BEGIN_NAMESPACE

/// The field states 4 bytes less than it has.
inline bool osgIsPackedIndices(std::string_view name, std::string_view type) {
    return name == "pindices" && type == "PMFUInt8";
}

/// The property of a packed field, new; null if the field is none. `geometryField`
/// receives the name of the field it belongs into. Throws scene_damage.
FieldContainerRefPtr osgReadPacked(std::string_view name, std::string_view type, byte_cursor data,
                                   const Char8*& geometryField);

OSG_END_NAMESPACE
