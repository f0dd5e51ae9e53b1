// Scene files made by hand, good ones and hostile ones. Any damage is the fuzz entry's.

#include "scene_dump.h"

namespace {

using namespace osg;
using namespace scene_test;

std::string big(UInt64 number, int bytes) {
    std::string text;
    for (int i = bytes; i-- > 0;)
        text += char(number >> 8 * i & 0xFF);
    return text;
}
std::string words(const std::vector<UInt32>& numbers) {
    std::string data;
    for (const UInt32 number : numbers)
        data += big(number, 4);
    return data;
}
std::string word(UInt32 number) { return big(number, 4); }
std::string counted(const std::string& data, std::size_t element = 1) {
    return word(UInt32(data.size() / element)) + data;
}
std::string list(const std::vector<UInt32>& numbers) { return counted(words(numbers), 4); }
std::string text(const std::string& characters) { return counted(characters + '\0'); }
std::string field(const std::string& name, const std::string& type, const std::string& data) {
    return text(name) + text(type) + counted(data);
}
std::string object(const std::string& type, UInt32 id, UInt8 kind, const std::string& fields = "") {
    return text(type) + word(id) + (kind != 0 ? big(kind, 1) : "") + big(100, 2) + fields +
           text("");
}
std::string node(UInt32 id, const std::string& fields = "") {
    return object("Node", id, 2, fields);
}
std::string children(const std::vector<UInt32>& ids) {
    return field("children", "MFNodePtr", list(ids));
}
std::string core(UInt32 id) { return field("core", "SFNodeCorePtr", word(id)); }
std::string attachments(const std::string& data) {
    return field("attachments", "SFAttachmentMap", data);
}
std::string material(UInt32 id) { return field("material", "SFMaterialPtr", word(id)); }

const std::string header = text("OpenSG binary V1.0") + text("") + text("") + big(0, 8);
const std::string finish = text("") + word(0);
std::string fileOf(const std::string& objects) { return header + objects + finish; }
/// A root with this core, number 2.
std::string coreFile(const std::string& type, UInt8 kind, const std::string& fields = "",
                     const std::string& others = "") {
    return fileOf(node(1, core(2)) + object(type, 2, kind, fields) + others);
}
/// A root with this attachment, number 2.
std::string noteFile(const std::string& type, const std::string& fields) {
    return fileOf(node(1, attachments(list({2}))) + object(type, 2, 4, fields));
}
std::string chainOf(UInt32 nodes) {
    std::string objects;
    for (UInt32 i = 1; i <= nodes; ++i)
        objects += node(i, i < nodes ? children({i + 1}) : "");
    return fileOf(objects);
}
std::string image(const std::string& fields) {
    return coreFile("MaterialGroup", 3, material(3),
                    object("SimpleTexturedMaterial", 3, 5, field("image", "SFImagePtr", word(4))) +
                        object("Image", 4, 0, fields));
}
std::string imageOf(Int32 width, UInt32 format, UInt32 type, const std::string& pixels) {
    return image(field("width", "SFInt32", word(UInt32(width))) +
                 field("pixelFormat", "SFUInt32", word(format)) +
                 field("dataType", "SFInt32", word(type)) +
                 field("pixel", "MFUInt8", counted(pixels)));
}
/// Compressed pixels of a grey image, by default of 2 * 1, shown for 2.5 seconds.
std::string picture(const std::string& suffix, const std::string& data, UInt16 width = 2,
                    UInt16 height = 1) {
    std::string head = suffix + std::string(8 - suffix.size(), '\0');
    for (const UInt16 number :
         {UInt16(6409), width, height, UInt16(1), UInt16(1), UInt16(1), UInt16(2500), UInt16(1),
          UInt16(5121), UInt16(0), UInt16(0), UInt16(0)})
        head += big(number, 2);
    return image(field("cpixel", "MFUInt8", counted(head + data)));
}
/// The first bytes of a grey picture.
std::string pngStart(UInt32 width, UInt32 height) {
    return "\x89PNG\r\n\x1a\n" + word(13) + "IHDR" + words({width, height}) + '\10' +
           std::string(8, '\0');
}
/// One vector in this resolution, with room for one of resolution 1 in two numbers.
std::string vectors(const char* name, const char* type, UInt8 resolution) {
    return coreFile("Geometry", 0,
                    field(name, type, big(resolution, 1) + words({0, 0, 1}) + "\1\2\3"));
}
std::string indices(UInt32 greatest, UInt32 count, const std::string& data) {
    // The size leaves out one of the three numbers.
    return coreFile("Geometry", 0,
                    text("pindices") + text("PMFUInt8") + word(UInt32(data.size() + 8)) +
                        words({greatest, count}) + counted(data));
}
std::string components(const std::string& fields) {
    return coreFile("ComponentTransform", 3, fields);
}

struct hand_made {
    const char* name;
    std::string bytes;
    std::string found; ///< in the log, or in the dump
};

const std::string stale = field("matrix", "SFMatrix", words(std::vector<UInt32>(16, 0)));
const UInt32 one = 0x3f800000, two = 0x40000000;
const std::string moved =
    field("matrix", "SFMatrix", words({two, 0, 0, 0, 0, one, 0, 0, 0, 0, one, 0, one, 0, 0, one}));
const std::string shifted = field("translation", "SFVec3f", words({one, two, 0})) +
                            field("scale", "SFVec3f", words({two, two, two}));

/// `found` stands in the dump or in the log.
const hand_made readable[] = {
    {"no bytes behind the end", header + node(1) + text(""), "  travMask SFUInt32 1: 4294967295"},
    {"data behind the end", fileOf(node(1)) + "x", "data behind the end"},
    {"empty texts of no bytes",
     text("OpenSG binary V1.0") + word(0) + word(0) + big(9, 8) + node(1) + word(0), "@1 Node"},
    {"core unknown", coreFile("Mystery", 3, attachments(list({1}))),
     "Mystery is unknown, read as Group"},
    {"material unknown", coreFile("MaterialGroup", 3, material(3), object("Mystery", 3, 5)),
     "@3 ChunkMaterial"},
    {"root unknown", fileOf(object("Mystery", 1, 2, "")), "@1 Node"},
    {"abstract core", coreFile("NodeCore", 3), "@2 Group"},
    {"chunk unknown", coreFile("Mystery", 6), "read as nothing"},
    {"old attachments",
     fileOf(node(1, attachments(list({2, 3}))) + object("GenericAtt", 2, 4) +
            object("GenericAtt", 3, 0)),
     "read as nothing (2 times)"},
    {"not in the file", fileOf(node(1, core(7))), "an object that is not in the file"},
    {"null child", fileOf(node(1, children({0, 2, 0})) + node(2)), "  children MFNodePtr 1: @2"},
    {"unused object", fileOf(node(1) + node(2, children({3})) + node(3)), "@1 Node"},
    {"longest chain", chainOf(2001), "@2001 Node"},
    {"same bytes", fileOf(node(1, field("travMask", "SFGLenum", word(5)))),
     "  travMask SFUInt32 1: 5"},
    {"other type", fileOf(node(1, field("travMask", "SFReal32", word(5)))),
     "travMask of Node is of another type"},
    {"any true byte",
     coreFile("MaterialGroup", 3, material(3),
              object("SimpleTexturedMaterial", 3, 5, field("envMap", "SFBool", "\7"))),
     "  envMap SFBool 1: 1"},
    {"matrix alone", components(moved), "  scale SFVec3f 1: (2 1 1)"},
    {"matrix last", components(shifted + moved), "  translation SFVec3f 1: (1 0 0)"},
    {"parts last", components(stale + shifted),
     "  matrix SFMatrix 1: (2 0 0 0 0 2 0 0 0 0 2 0 1 2 0 1)"},
    {"choice", coreFile("Switch", 3, field("choice", "SFInt32", word(7))), "  choice SFInt32 1: 7"},
    {"ranges", coreFile("DistanceLOD", 3, field("range", "MFReal32", list({one, two}))),
     "  range MFReal32 2: 1 2"},
    {"fields missing",
     coreFile("MaterialGroup", 3, material(3),
              object("ChunkMaterial", 3, 5, field("chunks", "MFStateChunkPtr", list({4}))) +
                  object("BlendChunk", 4, 6)),
     "  alphaSrcFactor SFUInt32 1: 65535"},
    {"plain picture", picture("mtd", "ab"), "  pixel MFUInt8 2: 97 98"},
    {"delay of a picture", picture("mtd", "ab"), "  frameDelay SFReal64 1: 2.5"},
    {"32 bits", indices(0xFFFFFFFF, 1, "\xFF\xFF\xFF\xFE"), "  indices MFUInt32 1: 4294967294"},
    {"no bits", indices(0, 9, std::string(2, '\0')), "  indices MFUInt32 9: 0 0 0 0 0 0 0 0 0"}};

const hand_made refused[] = {
    {"nothing", "", "byte 0: this is no OpenSG binary scene"},
    {"gzip", "\x1F\x8B\x08", "byte 0: this file is compressed by gzip"},
    {"older format", "\x89OSB\r\n\x1a\n", "byte 0: this is an .osb of an older version"},
    {"header alone", header, "byte 41: the data ends early"},
    {"no object", header + finish, "there is no root node"},
    {"no end", header + node(1), "the data ends early"},
    {"core on top", fileOf(object("Group", 1, 3)), "the first object is no node"},
    {"id 0", fileOf(node(0)), "byte 50: an object has the id 0"},
    {"id twice", fileOf(node(1) + node(1)), "two objects have the same id"},
    {"endless type", header + word(0xFFFFFFF0) + "Node", "byte 41: a name has an unlikely length"},
    {"endless name", noteFile("Name", field("name", "SFString", word(99))), "the data ends early"},
    {"open text", noteFile("Name", field("name", "SFString", word(2) + "ab")), "null byte"},
    {"null in a text", noteFile("Name", field("name", "SFString", text(std::string("a\0b", 3)))),
     "null byte"},
    {"endless field", fileOf(node(1, text("travMask") + text("SFUInt32") + word(0xFFFFFFFF))),
     "longer than the rest"},
    {"value too long", fileOf(node(1, field("travMask", "SFUInt32", "abcde"))), "do not fill"},
    {"long list", image(field("pixel", "MFUInt8", words({0xFFFFFFFF, 0}))), "do not fill"},
    {"many texts", noteFile("StringAttributeMap", field("keys", "MFString", word(1u << 30))),
     "longer than its field"},
    {"keys without values",
     noteFile("StringAttributeMap", field("keys", "MFString", word(1) + text("a"))),
     "keys without values"},
    {"many children", fileOf(node(1, field("children", "MFNodePtr", words({0x40000001, 2})))),
     "do not fill"},
    {"many attachments", fileOf(node(1, attachments(words({0x80000000})))), "do not fill"},
    {"bindings too many", fileOf(node(1, attachments(list({2}) + std::string(4, '\0')))),
     "do not fill"},
    {"core as child", fileOf(node(1, children({2})) + object("Group", 2, 3)), "of the wrong kind"},
    {"group as attachment", noteFile("Group", ""), "of the wrong kind"},
    {"normals as positions",
     coreFile("Geometry", 0, field("positions", "SFGeoPositionsPtr", word(3)),
              object("GeoNormals3f", 3, 4)),
     "of the wrong kind"},
    {"own child", fileOf(node(1, children({1}))), "the root hangs below something"},
    {"circle", fileOf(node(1) + node(2, children({3})) + node(3, children({2}))), "in a circle"},
    {"chain too long", chainOf(2002), "nested too deep"},
    {"two parents",
     fileOf(node(1, children({2, 3})) + node(2, children({4})) + node(3, children({4})) + node(4)),
     "two parents"},
    {"too few pixels", imageOf(4000, 6407, 5121, "ab"), "pixels that do not fit its sizes"},
    {"negative size", imageOf(-1, 6409, 5121, "a"), "a negative size"},
    {"no size", imageOf(0, 6409, 5121, "a"), "pixels, but no size"},
    {"huge size", imageOf(0x7FFFFFFF, 6408, 5126, ""), "too large"},
    {"unknown format", imageOf(1, 6411, 5121, "a"), "unknown pixel format"},
    {"unknown data", imageOf(1, 6409, 5120, "a"), "unknown data type"},
    {"no head", image(field("cpixel", "MFUInt8", word(31) + std::string(31, '\1'))), "no head"},
    {"head alone", picture("png", ""), "are missing"},
    {"no picture", picture("png", "hello"), "neither PNG nor JPEG"},
    {"rotten picture", picture("jpg", "\xFF\xD8\xFF\xE0hello"), "pixels are damaged"},
    {"picture too large", picture("png", pngStart(60000, 60000), 60000, 60000), "are damaged"},
    {"picture of nothing", picture("png", pngStart(9000, 9000), 9000, 9000), "are too few"},
    {"picture of other size", picture("png", pngStart(3, 1)), "do not fit the sizes"},
    {"plain picture too short", picture("mtd", "a"), "do not fit its sizes"},
    {"resolution 4", vectors("qnormals", "QMFUInt83f", 4), "unknown resolution"},
    {"vectors too few", vectors("qtexCoords", "QMFUInt82f", 1), "do not fill"},
    {"indices too many", indices(1, 17, "ab"), "do not fill"}};

TEST(SceneFilesByHand, AreReadOrRefusedWithoutALeak) {
    const unsigned int alive = liveContainers();
    const auto tryAll = [alive](const auto& files, bool good) {
        for (const hand_made& file : files) {
            SCOPED_TRACE(file.name);
            testing::internal::CaptureStderr();
            NodeRefPtr root(readBack(file.bytes));
            std::string said = testing::internal::GetCapturedStderr();
            EXPECT_EQ(root != NullFC, good);
            EXPECT_TRUE(good || std::count(said.begin(), said.end(), '\n') == 1) << said;
            if (root != NullFC) {
                EXPECT_EQ(root.get().getRefCount(), 1u);
                const lines dump = dumpOf(root);
                EXPECT_EQ(dumpOf(NodeRefPtr(readBack(written(root)))), dump);
                said += joined(dump);
            }
            EXPECT_NE(said.find(file.found), std::string::npos) << said;
            root = NullFC;
            ASSERT_EQ(liveContainers(), alive);
        }
    };
    tryAll(readable, true);
    tryAll(refused, false);
}

} // namespace
