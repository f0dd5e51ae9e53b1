#pragma once

// The layer's own scene format, extension osb. All numbers in the byte order of the machine that
// wrote the file; a machine of the other order refuses it.
//
//     file        = magic (8 bytes), UInt32 0x01020304, UInt32 version, container*, UInt32 0
//     container   = text type, UInt32 number, UInt64 bytes, field*
//     field       = text name, UInt8 kind, UInt64 bytes, data
//     text        = UInt32 length, characters
//     data, kind  = 0: what the field writes by itself
//                   1: links: UInt32 count, that many UInt32 container numbers
//                   2: attachments: UInt32 count, that many (UInt16 binding, UInt32 number)
//
// Containers are numbered from 1 in the order of the file; the first is the root node. A reader
// passes over types and fields that it does not know.

#include "OpenSG/OSGSceneFileType.h"

OSG_BEGIN_NAMESPACE

namespace osb {

constexpr Char8 magic[8] = {'\x89', 'O', 'S', 'B', '\r', '\n', '\x1a', '\n'};
constexpr UInt32 byteOrder = 0x01020304;
constexpr UInt32 version = 1;
constexpr UInt32 maxTextLength = 4096;
/// Longest chain of references: walks over a scene go one call deep per node.
constexpr UInt32 maxDepth = 2000;

enum class FieldKind : UInt8 { plain = 0, links = 1, attachments = 2 };

bool writeScene(const NodePtr& root, std::ostream& out);
/// A new root of count 0; null, with a warning, for damaged data.
NodePtr readScene(std::istream& in);

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
