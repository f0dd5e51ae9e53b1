#pragma once

// The objects of a scene file, found by walking over all of it before anything is made. Lengths,
// ids and end marks are in order when this is done.

#include "OSGSceneBytes.h"
#include "OSGSceneFields.h"

#include <vector>

OSG_BEGIN_NAMESPACE

struct scene_object {
    std::string_view type; ///< in the bytes of the file
    UInt32 id;             ///< not 0, unique
    scene_kind kind;       ///< as the file says; may be any byte
    byte_cursor fields;    ///< up to their end mark
};

struct scene_raw_field {
    std::string_view name; ///< empty: the end mark
    std::string_view type;
    byte_cursor data;
};

class scene_index {
  public:
    enum : UInt32 { NoObject = 0xFFFFFFFFu };

    /// The data must outlive the index. Throws scene_damage, std::bad_alloc.
    explicit scene_index(byte_cursor file);

    const std::vector<scene_object>& objects() const { return _objects; }
    /// What stands behind the end mark: nothing, or four zeros that mean nothing.
    const byte_cursor& behindEnd() const { return _behindEnd; }
    /// Number of the object with this id, or NoObject.
    UInt32 find(UInt32 id) const;

  private:
    bool readObject(byte_cursor& in);
    void sortIds();

    std::vector<scene_object> _objects;
    byte_cursor _behindEnd;
    std::vector<std::pair<UInt32, UInt32>> _ids; ///< id and number, by id
};

/// Steps over one field of an object of the given type.
scene_raw_field osgNextSceneField(byte_cursor& in, std::string_view objectType);

OSG_END_NAMESPACE
