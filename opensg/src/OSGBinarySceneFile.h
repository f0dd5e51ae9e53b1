#pragma once

// The platform's binary scene format, extension osb. All numbers big endian.
//
//     file    = text "OpenSG binary V1.0", text (name), text (options), UInt64 (size, 0),
//               object*, text "", 4 bytes 0
//     object  = text type, UInt32 id, UInt8 kind (not for Geometry and Image), UInt16 version,
//               field*, text ""
//     field   = text name, text type, UInt32 bytes, data
//     text    = UInt32 length, characters, a null byte that the length counts
//
// The first object is the root node. Objects name each other by id, forwards and backwards, so a
// reader walks over all of them first, makes and fills containers next and ties them last:
//
//     OSGSceneBytes      checked steps through the bytes
//     OSGSceneIndex      where each object lies; the file is whole when this is done
//     OSGSceneFields     names and forms of types and fields
//     OSGScenePictures   images         OSGScenePacked   rounded vectors, packed indices
//     OSGSceneLinks      references     OSGBinarySceneReader, OSGBinarySceneWriter

#include "OpenSG/OSGSceneFileType.h"

OSG_BEGIN_NAMESPACE

namespace osb {

constexpr Char8 formatName[] = "OpenSG binary V1.0";
constexpr UInt16 objectVersion = 100;
/// Longest chain of references: walks over a scene go one call deep per node.
constexpr UInt32 maxDepth = 2000;

/// False, with a warning, for a stream that fails, a list of 4 GiB or more, or a scene that is
/// nested too deep. Names on attachments, and what only an application knows, stay behind. Throws
/// std::bad_alloc.
bool writeScene(const NodePtr& root, std::ostream& out);

/// A new root of count 0; null, with a warning that says at which byte, for damaged data. Unknown
/// types are replaced by an empty node, group or material or by nothing, and named in a warning.
/// Images without pixels take the picture that they name: as named, or else in `folder`, which is
/// empty or ends with a slash. Throws std::bad_alloc.
NodePtr readScene(std::istream& in, const std::string& folder);

} // namespace osb

class BinarySceneFileType : public SceneFileType {
  public:
    BinarySceneFileType();
    const Char8* getName() const override { return "binary scene"; }
    NodePtr read(std::istream& in, const Char8* fileNameOrExtension) const override;
    bool write(const NodePtr& node, std::ostream& out,
               const Char8* fileNameOrExtension) const override;
};

OSG_END_NAMESPACE
