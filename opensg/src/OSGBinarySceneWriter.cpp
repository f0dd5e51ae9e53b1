#include "OSGBinarySceneFile.h"
#include "OSGFieldBytes.h"
#include "OSGSceneLinks.h"
#include "OpenSG/OSGLog.h"

#include <cstring>
#include <iterator>
#include <unordered_map>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace osb {

namespace {

template <class T> void putNumber(std::vector<UInt8>& out, T number) {
    const std::size_t at = out.size();
    out.resize(at + sizeof(T));
    std::memcpy(out.data() + at, &number, sizeof(T));
}

void putText(std::vector<UInt8>& out, const Char8* text) {
    const std::size_t length = std::strlen(text);
    putNumber(out, static_cast<UInt32>(length));
    out.insert(out.end(), text, text + length);
}

/// Numbers containers by first reference and writes them in that order, so that no recursion is
/// needed and what is shared is written once.
class scene_writer {
  public:
    explicit scene_writer(std::ostream& out) : _out(out) {}

    bool write(const NodePtr& root) {
        putHeader();
        numberOf(root, 0);
        for (std::size_t i = 0; i < _order.size() && _out; ++i) {
            if (_order[i].depth > maxDepth)
                return false;
            putContainer(_order[i]);
        }
        putNumber(_record, UInt32(0));
        flushRecord();
        return static_cast<bool>(_out);
    }

  private:
    struct numbered {
        FieldContainerPtr container;
        UInt32 depth; ///< references from the root by the shortest way; in a tree, the only one
    };

    void putHeader() {
        _record.insert(_record.end(), std::begin(magic), std::end(magic));
        putNumber(_record, byteOrder);
        putNumber(_record, version);
        flushRecord();
    }

    void flushRecord() {
        _out.write(reinterpret_cast<const char*>(_record.data()),
                   static_cast<std::streamsize>(_record.size()));
        _record.clear();
    }

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

    void putContainer(const numbered entry) { // by value: _order grows meanwhile
        FieldContainer& container = *entry.container;
        _body.clear();
        for (const FieldDescription* desc : container.getType().getFieldDescs()) {
            if (desc->isInternal())
                continue;
            Field& field = *desc->getField(container);
            if (const auto* attachments = dynamic_cast<const SFAttachmentMap*>(&field)) {
                putAttachments(*desc, attachments->getValue(), entry.depth + 1);
            } else if (!field.holdsPointers()) {
                putPlain(*desc, container, field);
            } else if (osgFindSceneLink(container.getType(), desc->getFieldId()) != nullptr) {
                putLinks(*desc, field, entry.depth + 1);
            }
        }
        putText(_record, container.getTypeName());
        putNumber(_record, numberOf(entry.container, entry.depth));
        putNumber(_record, static_cast<UInt64>(_body.size()));
        flushRecord();
        _record.swap(_body);
        flushRecord();
        _record.swap(_body); // keeps the larger buffer for the next body
    }

    void putField(const FieldDescription& desc, FieldKind kind, const std::vector<UInt8>& data) {
        putText(_body, desc.getCName());
        putNumber(_body, static_cast<UInt8>(kind));
        putNumber(_body, static_cast<UInt64>(data.size()));
        _body.insert(_body.end(), data.begin(), data.end());
    }

    void putPlain(const FieldDescription& desc, FieldContainer& container, const Field& field) {
        if (field.getCardinality() == FieldType::MULTI_FIELD && field.isEmpty())
            return;
        // Through the container: an attachment may keep its field from travelling.
        _field.clear();
        container.copyToBin(_field, desc.getFieldMask());
        const std::size_t bytes = _field.bytes().size();
        // A list whose elements have no bytes cannot be told from damage when read.
        const std::size_t least =
            field.getCardinality() == FieldType::MULTI_FIELD ? field.getSize() : 0;
        if (bytes > least)
            putField(desc, FieldKind::plain, _field.bytes());
    }

    void putLinks(const FieldDescription& desc, const Field& field, UInt32 depth) {
        std::vector<UInt8> data;
        UInt32 count = 0;
        for (UInt32 i = 0; i < field.getSize(); ++i) {
            const UInt32 number = numberOf(field.pointerAt(i), depth);
            if (number == 0)
                continue;
            putNumber(data, number);
            ++count;
        }
        if (count == 0)
            return;
        const UInt8* first = reinterpret_cast<const UInt8*>(&count);
        data.insert(data.begin(), first, first + sizeof(count));
        putField(desc, FieldKind::links, data);
    }

    void putAttachments(const FieldDescription& desc, const AttachmentMap& map, UInt32 depth) {
        if (map.empty())
            return;
        std::vector<UInt8> data;
        putNumber(data, static_cast<UInt32>(map.size()));
        for (const auto& entry : map) {
            putNumber(data, static_cast<UInt16>(entry.first & 0xFFFF));
            putNumber(data, numberOf(entry.second, depth));
        }
        putField(desc, FieldKind::attachments, data);
    }

    std::ostream& _out;
    std::unordered_map<UInt32, UInt32> _numbers; ///< by container id
    std::vector<numbered> _order;
    std::vector<UInt8> _record; ///< what goes to the stream next
    std::vector<UInt8> _body;   ///< fields of the container in hand
    field_bytes_out _field;
};

} // namespace

bool writeScene(const NodePtr& root, std::ostream& out) {
    scene_writer writer(out);
    if (writer.write(root))
        return true;
    SWARNING << "Scene file: cannot be written, or the scene is nested deeper than " << maxDepth
             << endLog;
    return false;
}

} // namespace osb

OSG_END_NAMESPACE
