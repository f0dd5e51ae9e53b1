#include "OSGSceneIndex.h"

#include "OSGBinarySceneFile.h"
#include "OSGScenePacked.h"

#include <algorithm>

OSG_BEGIN_NAMESPACE

namespace {

constexpr UInt32 maxNameLength = 4096;

bool startsLike(byte_cursor in, std::string_view start) {
    return in.left() >= start.size() &&
           std::memcmp(in.take(start.size()), start.data(), start.size()) == 0;
}

void readHeader(byte_cursor& in) {
    in.require(!startsLike(in, "\x1F\x8B"), "this file is compressed by gzip; unpack it first");
    in.require(!startsLike(in, "\x89OSB"),
               "this is an .osb of an older version, which no program reads any more");
    const std::string_view name(osb::formatName);
    in.require(startsLike(in, std::string_view("\0\0\0\x13", 4)) && in.left() > 4 + name.size() &&
                   in.text(maxNameLength) == name,
               "this is no OpenSG binary scene");
    in.text(); // a name for the scene
    in.text(); // options
    in.number<UInt64>();
}

/// Old files had a kind byte of 4 here, others have none; both are followed by a version.
void passOldAttachmentHeader(byte_cursor& in) {
    if (in.number<UInt8>() == UInt8(scene_kind::attachment))
        in.number<UInt16>();
    else
        in.number<UInt8>();
}

scene_kind readObjectHeader(byte_cursor& in, std::string_view type) {
    if (type == "GenericAtt") {
        passOldAttachmentHeader(in);
        return scene_kind::attachment;
    }
    const bool hasKind = type != "Geometry" && type != "Image";
    const scene_kind kind = hasKind ? scene_kind(in.number<UInt8>()) : scene_kind::none;
    in.number<UInt16>(); // a version that no reader looks at
    return kind;
}

} // namespace

scene_raw_field osgNextSceneField(byte_cursor& in, std::string_view objectType) {
    scene_raw_field field;
    field.name = in.text(maxNameLength);
    if (field.name.empty())
        return field;
    field.type = in.text(maxNameLength);
    UInt64 bytes = in.number<UInt32>();
    if (objectType == "Geometry" && osgIsPackedIndices(field.name, field.type))
        bytes += 4;
    in.require(bytes <= in.left(), "a field is longer than the rest of the file");
    field.data = in.part(bytes);
    return field;
}

scene_index::scene_index(byte_cursor file) {
    readHeader(file);
    while (readObject(file)) {
    }
    file.require(!_objects.empty(), "there is no root node");
    _behindEnd = file;
    sortIds();
}

bool scene_index::readObject(byte_cursor& in) {
    const std::string_view type = in.text(maxNameLength);
    if (type.empty())
        return false;
    const byte_cursor atId = in;
    const UInt32 id = in.number<UInt32>();
    atId.require(id != 0, "an object has the id 0");
    const scene_kind kind = readObjectHeader(in, type);
    const byte_cursor fields = in;
    while (!osgNextSceneField(in, type).name.empty()) {
    }
    _objects.push_back({type, id, kind, fields});
    return true;
}

void scene_index::sortIds() {
    _ids.reserve(_objects.size());
    for (const scene_object& object : _objects)
        _ids.emplace_back(object.id, static_cast<UInt32>(_ids.size()));
    std::sort(_ids.begin(), _ids.end());
    const auto twice = std::adjacent_find(_ids.begin(), _ids.end(),
                                          [](auto& a, auto& b) { return a.first == b.first; });
    if (twice != _ids.end())
        _objects[std::next(twice)->second].fields.fail("two objects have the same id");
}

UInt32 scene_index::find(UInt32 id) const {
    const auto found = std::lower_bound(_ids.begin(), _ids.end(), std::make_pair(id, UInt32(0)));
    return found != _ids.end() && found->first == id ? found->second : UInt32(NoObject);
}

OSG_END_NAMESPACE
