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
        putNumber(_head, UInt32(0));
        flush(_head);
        return static_cast<bool>(_out);
    }

  private:
    struct numbered {
        FieldContainerPtr container;
        UInt32 depth; ///< references from the root by the shortest way; in a tree, the only one
    };

    void putHeader() {
        _head.assign(std::begin(magic), std::end(magic));
        putNumber(_head, byteOrder);
        putNumber(_head, version);
        flush(_head);
    }

    void flush(std::vector<UInt8>& bytes) {
        _out.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        bytes.clear();
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
        putText(_head, container.getTypeName());
        putNumber(_head, numberOf(entry.container, entry.depth));
        putNumber(_head, static_cast<UInt64>(_body.bytes().size()));
        flush(_head);
        flush(_body.bytes());
    }

    /// Name, kind and place for the size of a field; where its data starts.
    std::size_t beginField(const FieldDescription& desc, FieldKind kind) {
        putText(_body.bytes(), desc.getCName());
        putNumber(_body.bytes(), static_cast<UInt8>(kind));
        putNumber(_body.bytes(), UInt64(0));
        return _body.bytes().size();
    }

    void endField(std::size_t start) {
        const UInt64 bytes = _body.bytes().size() - start;
        std::memcpy(_body.bytes().data() + start - sizeof(bytes), &bytes, sizeof(bytes));
    }

    void putPlain(const FieldDescription& desc, FieldContainer& container, const Field& field) {
        const bool isList = field.getCardinality() == FieldType::MULTI_FIELD;
        if (isList && field.isEmpty())
            return;
        const std::size_t before = _body.bytes().size();
        const std::size_t start = beginField(desc, FieldKind::plain);
        // Through the container: an attachment may keep its field from travelling.
        container.copyToBin(_body, desc.getFieldMask());
        // A list whose elements have no bytes cannot be told from damage when read.
        const std::size_t least = isList ? field.getSize() : 0;
        if (_body.bytes().size() - start > least) {
            endField(start);
        } else {
            _body.bytes().resize(before);
        }
    }

    void putLinks(const FieldDescription& desc, const Field& field, UInt32 depth) {
        std::vector<UInt32> targets;
        for (UInt32 i = 0; i < field.getSize(); ++i) {
            const UInt32 number = numberOf(field.pointerAt(i), depth);
            if (number != 0)
                targets.push_back(number);
        }
        if (targets.empty())
            return;
        const std::size_t start = beginField(desc, FieldKind::links);
        putNumber(_body.bytes(), static_cast<UInt32>(targets.size()));
        for (const UInt32 number : targets)
            putNumber(_body.bytes(), number);
        endField(start);
    }

    void putAttachments(const FieldDescription& desc, const AttachmentMap& map, UInt32 depth) {
        if (map.empty())
            return;
        const std::size_t start = beginField(desc, FieldKind::attachments);
        putNumber(_body.bytes(), static_cast<UInt32>(map.size()));
        for (const auto& entry : map) {
            putNumber(_body.bytes(), static_cast<UInt16>(entry.first & 0xFFFF));
            putNumber(_body.bytes(), numberOf(entry.second, depth));
        }
        endField(start);
    }

    std::ostream& _out;
    std::unordered_map<UInt32, UInt32> _numbers; ///< by container id
    std::vector<numbered> _order;
    std::vector<UInt8> _head; ///< what goes to the stream next
    field_bytes_out _body;    ///< fields of the container in hand
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
