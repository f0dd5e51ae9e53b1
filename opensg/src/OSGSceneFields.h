#pragma once

// How the types and fields of the layer are called in a scene file, and how their values lie
// there. Most names agree; where they differ, one table in the source file says how.

#include "OSGSceneLinks.h"

#include <string>
#include <string_view>
#include <vector>

OSG_BEGIN_NAMESPACE

/// Values of a plain field as memory: numbers side by side, `numberBytes` each.
struct plain_codec {
    UInt32 elementBytes; ///< a multiple of numberBytes
    UInt32 numberBytes;  ///< 1, 2, 4 or 8
    bool isList;
    UInt8* (*data)(Field& field);
    void (*resize)(Field& field, std::size_t count); ///< null for a single value
};

/// Byte in front of an object's version; it says what stands in for a type that a reader lacks.
/// `none`: such an object has no such byte.
enum class scene_kind : UInt8 {
    none = 0,
    other = 1,
    node = 2,
    core = 3,
    attachment = 4,
    material = 5,
    chunk = 6
};

enum class field_form { plain, texts, link, attachments };

/// A field that travels.
struct scene_field {
    const FieldDescription* desc;
    std::string name; ///< in the file
    std::string type; ///< in the file, such as MFPnt3f
    field_form form;
    bool isList;
    const plain_codec* codec; ///< of plain fields, else null
    const scene_link* link;   ///< of links, else null
};

struct scene_type {
    FieldContainerType* type;
    std::string name; ///< in the file
    scene_kind kind;
    std::vector<scene_field> fields;
};

/// Names and forms of a type that is not abstract. Fields that have no form in a file are absent.
scene_type osgSceneTypeOf(FieldContainerType& type);

/// Whether two type texts name fields of the same bytes.
bool osgSameSceneFieldType(std::string_view a, std::string_view b);

OSG_END_NAMESPACE
