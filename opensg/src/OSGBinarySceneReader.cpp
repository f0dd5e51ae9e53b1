#include "OSGBinarySceneFile.h"
#include "OSGFieldBytes.h"
#include "OSGSceneLinks.h"
#include "OpenSG/OSGComponentTransform.h"
#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGImage.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGStringAttributeMap.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace osb {

namespace {

/// What is wrong with a file. Thrown inside the reader only.
class damage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void require(bool holds, const Char8* otherwise) {
    if (!holds)
        throw damage(otherwise);
}

/// Reads from the stream; memory grows with what is really there.
class stream_source {
  public:
    explicit stream_source(std::istream& in) : _in(in) {}

    template <class T> T number() {
        T value{};
        _in.read(reinterpret_cast<char*>(&value), sizeof(T));
        require(_in.gcount() == std::streamsize(sizeof(T)), "the file ends early");
        return value;
    }

    void block(UInt64 count, std::vector<UInt8>& out) {
        constexpr UInt64 portion = 1u << 20;
        out.clear();
        while (count > 0) {
            const std::size_t now = static_cast<std::size_t>(std::min(count, portion));
            const std::size_t at = out.size();
            out.resize(at + now);
            _in.read(reinterpret_cast<char*>(out.data() + at), static_cast<std::streamsize>(now));
            require(_in.gcount() == static_cast<std::streamsize>(now), "the file ends early");
            count -= now;
        }
    }

  private:
    std::istream& _in;
};

/// Reads from the fields of one container.
class record_source {
  public:
    record_source(const UInt8* data, std::size_t count) : _at(data), _left(count) {}

    bool atEnd() const { return _left == 0; }
    const UInt8* take(UInt64 count) {
        require(count <= _left, "a field is longer than its container");
        const UInt8* here = _at;
        _at += count;
        _left -= count;
        return here;
    }
    template <class T> T number() {
        T value;
        std::memcpy(&value, take(sizeof(T)), sizeof(T));
        return value;
    }
    std::string text() {
        const UInt32 length = number<UInt32>();
        require(length > 0 && length <= maxTextLength, "a name has an unlikely length");
        const UInt8* characters = take(length);
        return std::string(reinterpret_cast<const char*>(characters), length);
    }

  private:
    const UInt8* _at;
    std::size_t _left;
};

/// A reference between two containers of the file, by index. `link` is null for attachments.
struct pending_link {
    UInt32 owner;
    UInt32 target;
    const scene_link* link;
    UInt16 binding;
};

/// Reads all containers, then looks whether their references make a tree of nodes without
/// circles, and only then ties them together.
///
/// Every container but the root is held until the end, so that after damage, and after a scene
/// that leaves some of them unused, everything goes that nothing else holds.
class scene_reader {
  public:
    explicit scene_reader(std::istream& in) : _in(in) {}
    ~scene_reader() {
        subRefCP(_root); // of count 0, so this destroys it; null once it is handed out
        for (FieldContainerPtr& container : _containers) {
            if (container != NullFC)
                subRefCP(container);
        }
    }
    scene_reader(const scene_reader&) = delete;
    scene_reader& operator=(const scene_reader&) = delete;

    NodePtr read() {
        readHeader();
        while (readContainer()) {
        }
        require(_root != NullFC, "there is no root node");
        checkLinks();
        for (const pending_link& link : _links)
            tie(link);
        announce();
        NodePtr root = _root;
        _root = NullFC;
        return root;
    }

  private:
    void readHeader() {
        Char8 start[sizeof(magic)];
        for (Char8& c : start)
            c = _in.number<Char8>();
        require(std::memcmp(start, magic, sizeof(magic)) == 0, "this is no binary scene");
        require(_in.number<UInt32>() == byteOrder, "the file is of another byte order");
        require(_in.number<UInt32>() == version, "the file is of another version");
    }

    bool readContainer() {
        const UInt32 nameLength = _in.number<UInt32>();
        if (nameLength == 0)
            return false;
        require(nameLength <= maxTextLength, "a type name has an unlikely length");
        _in.block(nameLength, _record);
        const std::string name(_record.begin(), _record.end());
        require(_in.number<UInt32>() == _types.size() + 1, "a container is out of order");
        _in.block(_in.number<UInt64>(), _record);

        FieldContainerType* type = FieldContainerFactory::the()->findType(name.c_str());
        const bool usable = type != nullptr && !type->isAbstract();
        if (!usable)
            SNOTICE << "Scene file: unknown type " << name << " left out" << endLog;
        _types.push_back(usable ? type : nullptr);
        const FieldContainerPtr made = usable ? type->createFieldContainer() : FieldContainerPtr();
        hold(made);
        if (made != NullFC)
            readFields(made, *type);
        return true;
    }

    void hold(const FieldContainerPtr& made) {
        if (_types.size() == 1) {
            _root = NodePtr::dcast(made);
            if (_root != NullFC) {
                _containers.push_back(NullFC);
                return;
            }
        }
        addRefCP(made);
        _containers.push_back(made);
    }

    FieldContainerPtr containerAt(UInt32 index) const {
        return index == 0 && _root != NullFC ? FieldContainerPtr(_root) : _containers[index];
    }

    void readFields(const FieldContainerPtr& container, FieldContainerType& type) {
        record_source record(_record.data(), _record.size());
        while (!record.atEnd()) {
            const std::string name = record.text();
            const FieldKind kind = static_cast<FieldKind>(record.number<UInt8>());
            const UInt64 bytes = record.number<UInt64>();
            const UInt8* data = record.take(bytes);
            const FieldDescription* desc = type.findFieldDescription(name.c_str());
            if (desc == nullptr || desc->isInternal())
                continue;
            if (kind == FieldKind::plain)
                readPlain(container, *desc, data, bytes);
            if (kind == FieldKind::links)
                readLinks(type, *desc, data, bytes);
            if (kind == FieldKind::attachments)
                readAttachments(data, bytes);
        }
        checkContent(container);
    }

    static void readPlain(const FieldContainerPtr& container, const FieldDescription& desc,
                          const UInt8* data, std::size_t bytes) {
        const Field& field = *desc.getField(*container);
        const bool holdsContainers =
            field.holdsPointers() || dynamic_cast<const SFAttachmentMap*>(&field) != nullptr;
        require(!holdsContainers, "a reference is stored as a plain value");
        if (field.getCardinality() == FieldType::MULTI_FIELD) {
            UInt32 count = 0;
            require(bytes >= sizeof(count), "a list has no length");
            std::memcpy(&count, data, sizeof(count));
            require(count <= bytes, "a list is longer than its data");
        }
        field_bytes_in in(data, bytes);
        container->copyFromBin(in, desc.getFieldMask());
        require(in.left() == 0, "a field has bytes left over");
    }

    void readLinks(const FieldContainerType& type, const FieldDescription& desc, const UInt8* data,
                   std::size_t bytes) {
        const scene_link* link = osgFindSceneLink(type, desc.getFieldId());
        if (link == nullptr)
            return;
        record_source source(data, bytes);
        const UInt32 count = source.number<UInt32>();
        require(link->many || count <= 1, "a single reference has many targets");
        for (UInt32 i = 0; i < count; ++i)
            addLink(source.number<UInt32>(), link, 0);
        require(source.atEnd(), "a list of references has bytes left over");
    }

    void readAttachments(const UInt8* data, std::size_t bytes) {
        record_source source(data, bytes);
        const UInt32 count = source.number<UInt32>();
        for (UInt32 i = 0; i < count; ++i) {
            const UInt16 binding = source.number<UInt16>();
            addLink(source.number<UInt32>(), nullptr, binding);
        }
        require(source.atEnd(), "the attachments have bytes left over");
    }

    void addLink(UInt32 number, const scene_link* link, UInt16 binding) {
        if (number == 0)
            return;
        const UInt32 owner = static_cast<UInt32>(_types.size() - 1);
        _links.push_back({owner, number - 1, link, binding});
    }

    /// Values that functions of the layer trust each other about.
    static void checkContent(const FieldContainerPtr& container) {
        if (const ImagePtr image = ImagePtr::dcast(container); image != NullFC) {
            require(image->getPixel().empty() || image->isValid(),
                    "an image has pixels that do not fit its size");
        }
        if (const auto texts = StringAttributeMapPtr::dcast(container); texts != NullFC) {
            require(texts->getField("keys")->getSize() == texts->getField("values")->getSize(),
                    "a string map has keys without values");
        }
    }

    /// No circles, no chain longer than maxDepth, the root on top, one parent per node.
    void checkLinks() const {
        const std::size_t count = _types.size();
        std::vector<UInt32> owners(count, 0);
        std::vector<UInt8> isChild(count, 0);
        std::vector<UInt32> first(count + 1, 0); // links of owner i: first[i] .. first[i + 1] - 1
        for (const pending_link& link : _links) {
            require(link.target < count, "a reference to a container that is not there");
            ++owners[link.target];
            ++first[link.owner + 1];
            if (link.link == nullptr || !link.link->toChild)
                continue;
            require(isChild[link.target] == 0, "a node has two parents");
            isChild[link.target] = 1;
        }
        require(owners[0] == 0, "the root hangs below something");
        for (std::size_t i = 0; i < count; ++i)
            first[i + 1] += first[i];

        // Links are in order of their owners. Takes containers away whose owners are all gone;
        // what remains sits in a circle.
        std::vector<UInt32> open;
        std::vector<UInt32> depth(count, 0);
        for (UInt32 i = 0; i < count; ++i) {
            if (owners[i] == 0)
                open.push_back(i);
        }
        std::size_t done = 0;
        for (; !open.empty(); ++done) {
            const UInt32 owner = open.back();
            open.pop_back();
            require(depth[owner] <= maxDepth, "the scene is nested too deep");
            for (UInt32 i = first[owner]; i < first[owner + 1]; ++i) {
                const UInt32 target = _links[i].target;
                depth[target] = std::max(depth[target], depth[owner] + 1);
                if (--owners[target] == 0)
                    open.push_back(target);
            }
        }
        require(done == count, "containers refer to each other in a circle");
    }

    void tie(const pending_link& pending) const {
        const FieldContainerPtr owner = containerAt(pending.owner);
        const FieldContainerPtr target = containerAt(pending.target);
        if (owner == NullFC || target == NullFC)
            return; // of a type that is unknown here
        if (pending.link != nullptr) {
            require(pending.link->assign(owner, target), "a reference to the wrong kind");
            return;
        }
        const AttachmentContainerPtr carrier = AttachmentContainerPtr::dcast(owner);
        const AttachmentPtr attachment = AttachmentPtr::dcast(target);
        require(carrier != NullFC && attachment != NullFC, "an attachment of the wrong kind");
        carrier->addAttachment(attachment, pending.binding);
    }

    /// Tells the change list and lets containers refresh what they derive from their fields.
    void announce() const {
        for (UInt32 i = 0; i < _types.size(); ++i) {
            const FieldContainerPtr container = containerAt(i);
            if (container == NullFC)
                continue;
            // A component transform would replace a matrix that was set by itself.
            const TransformPtr parts = ComponentTransformPtr::dcast(container);
            const Matrix matrix = parts != NullFC ? parts->getMatrix() : Matrix();
            endEditCP(container, FieldBits::AllFields);
            if (parts != NullFC)
                parts->setMatrix(matrix);
        }
    }

    stream_source _in;
    NodePtr _root;
    std::vector<FieldContainerType*> _types;    ///< null for unknown ones
    std::vector<FieldContainerPtr> _containers; ///< beside _types; null for the root, too
    std::vector<pending_link> _links;
    std::vector<UInt8> _record;
};

} // namespace

NodePtr readScene(std::istream& in) {
    try {
        scene_reader reader(in);
        return reader.read();
    } catch (const std::bad_alloc&) {
        SWARNING << "Scene file: out of memory" << endLog;
    } catch (const std::exception& reason) {
        SWARNING << "Scene file: cannot be read: " << reason.what() << endLog;
    }
    return NullFC;
}

} // namespace osb

OSG_END_NAMESPACE
