#include "OSGBinarySceneFile.h"
#include "OSGSceneBytes.h"
#include "OSGSceneFields.h"
#include "OSGScenePictures.h"
#include "OpenSG/OSGGeoProperty.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGMFBaseTypes.h"
#include "OpenSG/OSGRemoteAspect.h"

#include <algorithm>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <unordered_map>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace osb {

namespace {

/// What a text has room for in a file: nothing behind a null byte.
std::string_view cutAtNull(const std::string& text) { return std::string_view(text.c_str()); }

UInt64 bytesOfText(std::string_view text) { return sizeof(UInt32) + text.size() + 1; }

/// Puts numbers and texts out; large blocks go in portions.
class byte_sink {
  public:
    explicit byte_sink(std::ostream& out) : _out(out) {}

    bool good() const { return static_cast<bool>(_out); }
    template <class T> void number(T value) { block(&value, 1, sizeof(T)); }
    void text(std::string_view value) {
        number(static_cast<UInt32>(value.size() + 1));
        block(value.data(), value.size(), 1);
        number(UInt8(0));
    }
    void block(const void* numbers, std::size_t count, UInt32 bytesOfNumber) {
        constexpr std::size_t portion = 1u << 15;
        const auto* from = static_cast<const UInt8*>(numbers);
        while (count > 0) {
            const std::size_t now = std::min(count, portion);
            const std::size_t end = _bytes.size();
            _bytes.resize(end + now * bytesOfNumber);
            osgCopyBigEndian(from, _bytes.data() + end, now, bytesOfNumber);
            from += now * bytesOfNumber;
            count -= now;
            if (_bytes.size() >= portion)
                flush();
        }
    }
    void flush() {
        _out.write(reinterpret_cast<const char*>(_bytes.data()),
                   static_cast<std::streamsize>(_bytes.size()));
        _bytes.clear();
    }

  private:
    std::ostream& _out;
    std::vector<UInt8> _bytes;
};

/// Numbers containers by first reference and writes them in that order, so that no recursion is
/// needed and what is shared is written once.
class scene_writer {
  public:
    explicit scene_writer(std::ostream& out) : _sink(out) {}

    bool write(const NodePtr& root) {
        _sink.text(formatName);
        _sink.text(""); // a name for the scene
        _sink.text(""); // options
        _sink.number(UInt64(0));
        numberOf(root, 0);
        for (std::size_t i = 0; i < _order.size() && _sink.good(); ++i) {
            if (_order[i].depth > maxDepth)
                throw std::length_error("the scene is nested too deep");
            putObject(_order[i], static_cast<UInt32>(i + 1));
        }
        _sink.text("");
        _sink.number(UInt32(0));
        _sink.flush();
        return _sink.good();
    }

  private:
    struct numbered {
        FieldContainerPtr container;
        UInt32 depth; ///< references from the root by the shortest way; in a tree, the only one
    };

    UInt32 numberOf(const FieldContainerPtr& container, UInt32 depth) {
        if (container == NullFC)
            return 0;
        const auto entered = _numbers.emplace(container.getFieldContainerId(), 0);
        if (entered.second) {
            _order.push_back({container, depth});
            entered.first->second = static_cast<UInt32>(_order.size());
        }
        return entered.first->second;
    }

    const scene_type& typeOf(FieldContainer& container) {
        FieldContainerType& type = container.getType();
        const auto known = _types.find(type.getId());
        if (known != _types.end())
            return known->second;
        return _types.emplace(type.getId(), osgSceneTypeOf(type)).first->second;
    }

    void putObject(const numbered entry, UInt32 id) { // by value: _order grows meanwhile
        FieldContainer& container = *entry.container;
        const scene_type& type = typeOf(container);
        _sink.text(type.name);
        _sink.number(id);
        if (type.kind != scene_kind::none)
            _sink.number(static_cast<UInt8>(type.kind));
        _sink.number(objectVersion);
        const ImagePtr image = ImagePtr::dcast(entry.container);
        if (image != NullFC) {
            putHead("dimension", "SFInt32", sizeof(Int32));
            _sink.number(osgDimensionOf(*image));
        }
        for (const scene_field& field : type.fields) {
            Field& values = *field.desc->getField(container);
            if (image != NullFC && field.name == "pixel")
                putPixels(field, *image);
            else
                putField(field, values, entry.depth + 1);
        }
        _sink.text("");
    }

    void putHead(std::string_view name, std::string_view type, UInt64 bytes) {
        if (bytes > 0xFFFFFFFFu)
            throw std::length_error("a list has more than 4 GiB");
        _sink.text(name);
        _sink.text(type);
        _sink.number(static_cast<UInt32>(bytes));
    }

    void putField(const scene_field& field, Field& values, UInt32 depth) {
        switch (field.form) {
        case field_form::plain:
            putPlain(field, field.codec->data(values), values.getSize());
            break;
        case field_form::texts:
            putTexts(field, values);
            break;
        case field_form::link:
            putLinks(field, values, depth);
            break;
        case field_form::attachments:
            putAttachments(field, static_cast<SFAttachmentMap&>(values).getValue(), depth);
            break;
        }
    }

    void putPlain(const scene_field& field, const UInt8* values, UInt32 count) {
        const plain_codec& codec = *field.codec;
        const UInt64 bytes = UInt64(count) * codec.elementBytes;
        putHead(field.name, field.type, bytes + (codec.isList ? sizeof(count) : 0));
        if (codec.isList)
            _sink.number(count);
        _sink.block(values, static_cast<std::size_t>(bytes / codec.numberBytes), codec.numberBytes);
    }

    void putPixels(const scene_field& field, const Image& image) {
        const MFUInt8& pixels = image.getPixel();
        const UInt32 count = pixels.getSize();
        if (!image.isValid() || image.getFrameCount() < 2 || image.getSideCount() < 2) {
            putPlain(field, pixels.getValues().data(), count);
            return;
        }
        const std::vector<UInt8> turned = osgExchangeBlocks(
            pixels.getValues().data(), count, static_cast<UInt32>(image.getSideCount()),
            static_cast<UInt32>(image.getFrameCount()));
        putPlain(field, turned.data(), count);
    }

    void putTexts(const scene_field& field, const Field& values) {
        if (!field.isList) {
            const std::string_view text =
                cutAtNull(static_cast<const SFString&>(values).getValue());
            putHead(field.name, field.type, bytesOfText(text));
            _sink.text(text);
            return;
        }
        const MFString& texts = static_cast<const MFString&>(values);
        UInt64 bytes = sizeof(UInt32);
        for (const std::string& text : texts)
            bytes += bytesOfText(cutAtNull(text));
        putHead(field.name, field.type, bytes);
        _sink.number(texts.getSize());
        for (const std::string& text : texts)
            _sink.text(cutAtNull(text));
    }

    void putLinks(const scene_field& field, const Field& values, UInt32 depth) {
        const UInt32 count = values.getSize();
        if (field.isList && count == 0)
            return;
        const UInt64 bytes = UInt64(count) * sizeof(UInt32);
        putHead(field.name, field.type, bytes + (field.isList ? sizeof(count) : 0));
        if (field.isList)
            _sink.number(count);
        for (UInt32 i = 0; i < count; ++i)
            _sink.number(numberOf(values.pointerAt(i), depth));
    }

    /// Whether an attachment concerns this program alone: it is marked so, or its type is kept from
    /// other machines with the attachments that refer to it.
    static bool isPrivate(const AttachmentPtr& attachment) {
        const BitVector kept = RemoteAspect::getFieldFilter(attachment->getType().getId());
        return attachment->getInternal().getValue() ||
               (kept & AttachmentContainer::AttachmentsFieldMask) != 0;
    }

    /// Those that are no program's own business; bindings only if one is not 0.
    void putAttachments(const scene_field& field, const AttachmentMap& map, UInt32 depth) {
        std::vector<std::pair<UInt16, AttachmentPtr>> shown;
        for (const auto& entry : map) {
            if (!isPrivate(entry.second))
                shown.emplace_back(static_cast<UInt16>(entry.first & 0xFFFF), entry.second);
        }
        if (shown.empty())
            return;
        const bool haveBindings = std::any_of(shown.begin(), shown.end(),
                                              [](const auto& entry) { return entry.first != 0; });
        const UInt32 count = static_cast<UInt32>(shown.size());
        putHead(field.name, field.type, sizeof(count) + UInt64(count) * (haveBindings ? 6 : 4));
        _sink.number(count);
        for (const auto& entry : shown)
            _sink.number(numberOf(entry.second, depth));
        for (std::size_t i = 0; i < shown.size() && haveBindings; ++i)
            _sink.number(shown[i].first);
    }

    byte_sink _sink;
    std::unordered_map<UInt32, UInt32> _numbers;   ///< by container id
    std::unordered_map<UInt32, scene_type> _types; ///< by type number
    std::vector<numbered> _order;
};

} // namespace

bool writeScene(const NodePtr& root, std::ostream& out) {
    try {
        scene_writer writer(out);
        if (writer.write(root))
            return true;
        SWARNING << "Scene file: cannot be written" << endLog;
    } catch (const std::length_error& reason) {
        SWARNING << "Scene file: cannot be written: " << reason.what() << endLog;
    }
    return false;
}

} // namespace osb

OSG_END_NAMESPACE
