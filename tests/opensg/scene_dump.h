#pragma once

// What a scene holds, as text: objects numbered breadth first from the root, one field a line in
// the order of their names, `  FIELD TYPE COUNT: VALUE VALUE ...`. Empty lists of containers and
// attachments stay away. And scene files to and fro.

#include "tests/support/test.h"

#include <OpenSG/OSGAttachmentContainer.h>
#include <OpenSG/OSGMFBaseTypes.h>
#include <OpenSG/OSGSceneFileHandler.h>

#include <cstdio>
#include <filesystem>

namespace scene_test {

using namespace osg;

/// Bytes of fields to and fro, in the order of the machine.
class byte_store : public BinaryDataHandler {
  public:
    std::vector<UInt8> bytes;
    std::size_t at = 0; ///< where to read on

  protected:
    void write(MemoryHandle source, UInt32 count) override {
        bytes.insert(bytes.end(), source, source + count);
    }
    void read(MemoryHandle target, UInt32 count) override {
        ASSERT_LE(at + count, bytes.size());
        std::copy_n(bytes.begin() + std::ptrdiff_t(at), count, target);
        at += count;
    }
};

inline std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const unsigned char c : text) {
        char escaped[8];
        std::snprintf(escaped, sizeof(escaped), "\\x%02x", c);
        out += c < 32 || c > 126 || c == '"' || c == '\\' ? escaped : std::string(1, char(c));
    }
    return out + '"';
}

template <class T> std::string numberText(const UInt8*& at) {
    T value;
    std::memcpy(&value, at, sizeof(T));
    at += sizeof(T);
    std::ostringstream text;
    text.precision(std::numeric_limits<T>::max_digits10);
    text << +value;
    return text.str();
}

/// One number of the type that its name, or the last letters of a vector's name, say.
inline std::string numberText(const std::string& type, const UInt8*& at) {
    return type == "f" || type == "Real32"   ? numberText<Real32>(at)
           : type == "d" || type == "Real64" ? numberText<Real64>(at)
           : type == "b" || type == "Int8"   ? numberText<Int8>(at)
           : type == "s" || type == "Int16"  ? numberText<Int16>(at)
           : type == "UInt16"                ? numberText<UInt16>(at)
           : type == "Int32"                 ? numberText<Int32>(at)
           : type == "UInt32"                ? numberText<UInt32>(at)
                                             : numberText<UInt8>(at);
}

/// An element of plain numbers, in brackets if there are several.
inline std::string elementText(const std::string& type, const UInt8*& at) {
    int count = type == "Matrix" ? 16 : type == "Quaternion" ? 4 : 1;
    std::string number = count > 1 ? "f" : type;
    for (const char* tuple : {"Vec", "Pnt", "Color"}) {
        if (type.rfind(tuple, 0) != 0)
            continue;
        count = type[std::strlen(tuple)] - '0';
        number = type.substr(std::strlen(tuple) + 1);
    }
    std::string text;
    for (int i = 0; i < count; ++i)
        text += (i > 0 ? " " : "") + numberText(number, at);
    return count > 1 ? "(" + text + ")" : text;
}

class scene_dump {
  public:
    explicit scene_dump(const FieldContainerPtr& root) {
        numberOf(root);
        for (std::size_t i = 0; i < _order.size(); ++i)
            dumpObject(i);
    }
    std::vector<std::string> lines;

  private:
    std::string numberOf(const FieldContainerPtr& container) {
        if (container == NullFC)
            return " @0";
        const auto entered = _numbers.emplace(container.getFieldContainerId(), _order.size() + 1);
        if (entered.second)
            _order.push_back(container);
        return " @" + std::to_string(entered.first->second);
    }

    void dumpObject(std::size_t index) {
        const FieldContainerPtr container = _order[index];
        FieldContainerType& type = container->getType();
        lines.push_back("@" + std::to_string(index + 1) + " " + type.getCName());
        std::map<std::string, FieldDescription*> byName;
        for (FieldDescription* desc : type.getFieldDescs())
            byName[fileNameOf(type.getCName(), desc->getCName())] = desc;
        for (const auto& [name, desc] : byName) {
            Field& field = *desc->getField(*container);
            const auto* map = dynamic_cast<const SFAttachmentMap*>(&field);
            const bool none = field.isEmpty() && field.holdsPointers();
            if (desc->isInternal() || none || (map != nullptr && type.isAttachment()))
                continue;
            std::size_t count = field.getSize();
            const std::string values =
                map != nullptr ? attachmentsText(*map, count) : valuesText(container, *desc, field);
            if (map == nullptr || count > 0)
                lines.push_back("  " + name + " " + desc->getType().getCName() + " " +
                                std::to_string(count) + ":" + values);
        }
    }

    /// Properties call their array by what it is.
    static std::string fileNameOf(const std::string& type, const std::string& field) {
        static const std::pair<const char*, const char*> arrays[] = {
            {"GeoPositions", "positions"}, {"GeoNormals", "normals"}, {"GeoColors3f", "colors"},
            {"GeoColors", "Colors"},       {"GeoTex", "TexCoords"},   {"GeoIndices", "indices"},
            {"GeoPTypes", "types"},        {"GeoPLengths", "lengths"}};
        for (const auto& [start, array] : arrays) {
            if (field == "geoPropData" && type.rfind(start, 0) == 0)
                return array;
        }
        return field;
    }

    std::string attachmentsText(const SFAttachmentMap& field, std::size_t& count) {
        std::vector<std::pair<std::pair<std::string, UInt32>, AttachmentPtr>> sorted;
        for (const auto& [key, attachment] : field.getValue())
            sorted.push_back({{attachment->getTypeName(), key & 0xFFFF}, attachment});
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto& a, const auto& b) { return a.first < b.first; });
        std::string text;
        for (const auto& [key, attachment] : sorted)
            text += " " + std::to_string(key.second) + "=" + numberOf(attachment).substr(1);
        count = sorted.size();
        return text;
    }

    std::string valuesText(const FieldContainerPtr& container, const FieldDescription& desc,
                           const Field& field) {
        std::string text;
        if (field.holdsPointers()) {
            for (UInt32 i = 0; i < field.getSize(); ++i)
                text += numberOf(field.pointerAt(i));
        } else if (const auto* one = dynamic_cast<const SFString*>(&field)) {
            text = " " + quoted(one->getValue());
        } else if (const auto* many = dynamic_cast<const MFString*>(&field)) {
            for (const std::string& value : *many)
                text += " " + quoted(value);
        } else {
            const std::string type = desc.getType().getCName();
            byte_store raw;
            field.copyToBin(raw);
            const ImagePtr image = ImagePtr::dcast(container);
            if (image != NullFC && type == "MFUInt8")
                raw.bytes = inFileOrder(*image, raw.bytes);
            const UInt8* at = raw.bytes.data() + (type[0] == 'M' ? sizeof(UInt32) : 0);
            for (UInt32 i = 0; i < field.getSize(); ++i)
                text += " " + elementText(type.substr(2), at);
        }
        return text;
    }

    /// Frame outermost, then side; count in front.
    static std::vector<UInt8> inFileOrder(const Image& image, const std::vector<UInt8>& stored) {
        std::vector<UInt8> bytes(stored.begin(), stored.begin() + sizeof(UInt32));
        const UInt32 frames = UInt32(image.getFrameCount());
        const UInt32 sides = UInt32(image.getSideCount());
        const UInt32 side = image.getPixel().getSize() / std::max(1u, frames * sides);
        for (UInt32 f = 0; f < frames && side > 0; ++f) {
            for (UInt32 s = 0; s < sides; ++s)
                bytes.insert(bytes.end(), image.getData(0, f, s), image.getData(0, f, s) + side);
        }
        return bytes;
    }

    std::vector<FieldContainerPtr> _order;
    std::map<UInt32, std::size_t> _numbers; ///< by container id
};

using lines = std::vector<std::string>;

inline lines dumpOf(const NodePtr& root) { return scene_dump(root).lines; }

inline std::string joined(const lines& all) {
    std::string text;
    for (const std::string& line : all)
        text += line + "\n";
    return text;
}

inline std::string written(const NodePtr& root) {
    std::ostringstream out;
    EXPECT_TRUE(SceneFileHandler::the().write(root, out, "osb"));
    return out.str();
}

inline NodePtr readBack(const std::string& bytes) {
    std::istringstream in(bytes);
    return SceneFileHandler::the().read(in, "osb", nullptr);
}

/// Files of the platform, beside dumps of what a reader finds that knows the types we have.
inline const std::filesystem::path samples = MORVA_SCENE_FILES;

inline std::set<std::filesystem::path> sampleFiles() {
    std::set<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(samples)) {
        if (entry.path().extension() == ".osb")
            files.insert(entry.path());
    }
    return files;
}

} // namespace scene_test
