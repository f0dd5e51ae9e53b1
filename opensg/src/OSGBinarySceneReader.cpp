#include "OSGBinarySceneFile.h"
#include "OSGSceneIndex.h"
#include "OSGScenePacked.h"
#include "OSGScenePictures.h"
#include "OpenSG/OSGComponentTransform.h"
#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGStringAttributeMap.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <istream>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace osb {

namespace {

/// Grows with what is really there.
std::vector<UInt8> allOf(std::istream& in) {
    constexpr std::size_t portion = 1u << 16;
    std::vector<UInt8> bytes;
    std::size_t held = 0;
    while (in) {
        bytes.resize(std::max(held + portion, 2 * held));
        in.read(reinterpret_cast<char*>(bytes.data() + held),
                static_cast<std::streamsize>(bytes.size() - held));
        held += static_cast<std::size_t>(in.gcount());
    }
    bytes.resize(held);
    return bytes;
}

/// Fit for a line of text, whatever the file holds.
std::string shown(std::string_view name) {
    std::string text(name.substr(0, 80));
    for (char& c : text)
        c = std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '?';
    return text;
}

/// What stands in for an unknown type; null for nothing.
const Char8* standInOf(scene_kind kind) {
    switch (kind) {
    case scene_kind::core:
        return "Group";
    case scene_kind::material:
        return "ChunkMaterial";
    case scene_kind::other:
    case scene_kind::attachment:
    case scene_kind::chunk:
        return nullptr;
    default:
        return "Node";
    }
}

bool nearlyEqual(const Matrix& a, const Matrix& b) {
    constexpr Real32 rounding = 1e-5f; // of the larger number, or of 1
    for (UInt32 c = 0; c < 4; ++c) {
        for (UInt32 r = 0; r < 4; ++r) {
            const Real32 size = std::max({1.f, std::abs(a[c][r]), std::abs(b[c][r])});
            if (!(std::abs(a[c][r] - b[c][r]) <= rounding * size))
                return false;
        }
    }
    return true;
}

/// A matrix and parts that differ: what came last in the file holds. Parts that make the matrix
/// but for rounding leave it as it is.
void settleComponents(ComponentTransform& core, bool matrixCameLast) {
    Transform& asTransform = core; // the setter of the matrix belongs to the base class
    Matrix made;
    made.setTransform(core.getTranslation(), core.getRotation(), core.getScale(),
                      core.getScaleOrientation(), core.getCenter());
    if (nearlyEqual(made, core.getMatrix()))
        return;
    if (!matrixCameLast) {
        asTransform.setMatrix(made);
        return;
    }
    Matrix aroundCenter, back;
    aroundCenter.setTranslate(-core.getCenter());
    back.setTranslate(core.getCenter());
    aroundCenter.mult(core.getMatrix());
    aroundCenter.mult(back);
    Vec3f translation, scale(1.f, 1.f, 1.f);
    Quaternion rotation, scaleOrientation;
    aroundCenter.getTransform(translation, rotation, scale, scaleOrientation);
    core.setTranslation(translation);
    core.setRotation(rotation);
    core.setScale(scale);
    core.setScaleOrientation(scaleOrientation);
}

void readPlain(const scene_field& known, Field& field, byte_cursor& data) {
    const plain_codec& codec = *known.codec;
    const UInt64 count = codec.isList ? data.number<UInt32>() : 1;
    data.require(count * codec.elementBytes == data.left(), "values do not fill their field");
    if (codec.isList)
        codec.resize(field, static_cast<std::size_t>(count));
    const UInt64 bytes = data.left();
    const UInt8* values = data.take(bytes);
    if (known.desc->getType() == SFBool::getClassType())
        static_cast<SFBool&>(field).setValue(*values != 0);
    else
        osgCopyBigEndian(values, codec.data(field), bytes / codec.numberBytes, codec.numberBytes);
}

void readTexts(const scene_field& known, Field& field, byte_cursor& data) {
    if (!known.isList) {
        static_cast<SFString&>(field).setValue(std::string(data.text()));
    } else {
        const UInt32 count = data.number<UInt32>();
        data.require(UInt64(count) * sizeof(UInt32) <= data.left(),
                     "a list of texts is longer than its field");
        MFString& texts = static_cast<MFString&>(field);
        texts.clear();
        texts.reserve(count);
        for (UInt32 i = 0; i < count; ++i)
            texts.push_back(std::string(data.text()));
    }
    data.require(data.left() == 0, "texts do not fill their field");
}

/// Makes and fills containers, then looks whether their references make a tree of nodes without
/// circles, and only then ties them together.
///
/// Every container but the root is held until the end, so that after damage, and after a scene
/// that leaves some of them unused, everything goes that nothing else holds.
class scene_reader {
  public:
    scene_reader(const scene_index& index, const std::string& folder)
        : _index(index), _folder(folder) {}
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
        findTypes();
        _containers.reserve(_types.size());
        for (UInt32 i = 0; i < _types.size(); ++i) {
            make(i);
            if (_types[i] != nullptr && _types[i]->name == _index.objects()[i].type)
                readFields(i);
        }
        osgCheckSceneLinks(_types.size(), _links, maxDepth);
        for (const pending_link& link : _links)
            tie(link);
        for (UInt32 i = 0; i < _types.size(); ++i)
            announce(containerAt(i));
        noteWhatFollows();
        logNotes();
        NodePtr root = _root;
        _root = NullFC;
        return root;
    }

  private:
    void findTypes() {
        _types.reserve(_index.objects().size());
        for (const scene_object& object : _index.objects()) {
            const scene_type* type = typeOfName(object.type);
            if (type == nullptr) {
                const Char8* standIn = standInOf(object.kind);
                type = standIn != nullptr ? typeOfName(standIn) : nullptr;
                note("type " + shown(object.type) + " is unknown, read as " +
                         (standIn != nullptr ? standIn : "nothing"),
                     object.fields.place());
            }
            _types.push_back(type);
        }
        const bool hasRoot = _types[0] != nullptr && _types[0]->type->isNode();
        _index.objects()[0].fields.require(hasRoot, "the first object is no node");
    }

    /// Null for an unknown type.
    const scene_type* typeOfName(std::string_view name) {
        const auto known = _typesByName.find(name);
        if (known != _typesByName.end())
            return known->second.type != nullptr ? &known->second : nullptr;
        FieldContainerType* type =
            FieldContainerFactory::the()->findType(std::string(name).c_str());
        const bool usable = type != nullptr && !type->isAbstract();
        const auto entered =
            _typesByName.emplace(name, usable ? osgSceneTypeOf(*type) : scene_type{});
        return usable ? &entered.first->second : nullptr;
    }

    void make(UInt32 number) {
        FieldContainerPtr made;
        if (_types[number] != nullptr)
            made = _types[number]->type->createFieldContainer();
        if (number == 0)
            _root = NodePtr::dcast(made);
        else if (made != NullFC)
            addRefCP(made);
        _containers.push_back(number == 0 ? FieldContainerPtr() : made);
    }

    FieldContainerPtr containerAt(UInt32 number) const {
        return number == 0 ? FieldContainerPtr(_root) : _containers[number];
    }

    void readFields(UInt32 number) {
        const scene_object& object = _index.objects()[number];
        const FieldContainerPtr container = containerAt(number);
        byte_cursor in = object.fields;
        state_of_object state;
        while (true) {
            const scene_raw_field raw = osgNextSceneField(in, object.type);
            if (raw.name.empty())
                break;
            readField(number, container, raw, state);
        }
        finish(container, state, in);
    }

    /// What the fields read so far say about the object as a whole.
    struct state_of_object {
        std::size_t lookFrom = 0;    ///< number of the field that is likely to come next
        bool matrixCameLast = false; ///< of a component transform
        bool pixelsAsInFile = true;
    };

    void readField(UInt32 number, const FieldContainerPtr& container, const scene_raw_field& raw,
                   state_of_object& state) {
        const scene_field* known = fieldOfName(*_types[number], raw.name, state.lookFrom);
        if (known == nullptr) {
            readSpecialField(container, raw, state);
            return;
        }
        if (!osgSameSceneFieldType(known->type, raw.type)) {
            note("field " + known->name + " of " + _types[number]->name + " is of another type, " +
                     shown(raw.type) + ", and left out",
                 raw.data.place());
            return;
        }
        byte_cursor data = raw.data;
        Field& field = *known->desc->getField(*container);
        switch (known->form) {
        case field_form::plain:
            readPlain(*known, field, data);
            break;
        case field_form::texts:
            readTexts(*known, field, data);
            break;
        case field_form::link:
            readLinks(number, *known, data);
            break;
        case field_form::attachments:
            readAttachments(number, data);
            break;
        }
        if (known->form == field_form::plain)
            state.matrixCameLast = known->name == "matrix";
        state.pixelsAsInFile = state.pixelsAsInFile || known->name == "pixel";
    }

    /// Fields mostly come in the order of the layer.
    static const scene_field* fieldOfName(const scene_type& type, std::string_view name,
                                          std::size_t& lookFrom) {
        const std::size_t count = type.fields.size();
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = (lookFrom + i) % count;
            if (type.fields[at].name != name)
                continue;
            lookFrom = at + 1;
            return &type.fields[at];
        }
        return nullptr;
    }

    static void readSpecialField(const FieldContainerPtr& container, const scene_raw_field& raw,
                                 state_of_object& state) {
        const ImagePtr image = ImagePtr::dcast(container);
        if (image != NullFC && raw.name == "cpixel" && raw.type == "MFUInt8")
            state.pixelsAsInFile = osgReadCompressedPixels(*image, raw.data);
        const GeometryPtr geometry = GeometryPtr::dcast(container);
        if (geometry == NullFC)
            return;
        const Char8* standsFor = nullptr;
        const FieldContainerRefPtr property =
            osgReadPacked(raw.name, raw.type, raw.data, standsFor);
        if (property == NullFC)
            return;
        const FieldContainerType& type = geometry->getType();
        osgFindSceneLink(type, type.findFieldDescription(standsFor)->getFieldId())
            ->assign(container, property);
    }

    void readLinks(UInt32 owner, const scene_field& known, byte_cursor& data) {
        const UInt64 count = known.isList ? data.number<UInt32>() : 1;
        data.require(count * sizeof(UInt32) == data.left(), "references do not fill their field");
        for (UInt64 i = 0; i < count; ++i)
            addLink({known.link, data.place(), owner, 0, 0}, data.number<UInt32>());
    }

    void readAttachments(UInt32 owner, byte_cursor& data) {
        const UInt64 count = data.number<UInt32>();
        byte_cursor ids = data;
        data.require(count * 4 == data.left() || count * 6 == data.left(),
                     "attachments do not fill their field");
        const bool haveBindings = count * 4 != data.left();
        data.take(count * 4);
        for (UInt64 i = 0; i < count; ++i) {
            const UInt64 place = ids.place();
            const UInt16 binding = haveBindings ? data.number<UInt16>() : UInt16(0);
            addLink({nullptr, place, owner, 0, binding}, ids.number<UInt32>());
        }
    }

    void addLink(pending_link link, UInt32 id) {
        if (id == 0)
            return;
        link.target = _index.find(id);
        if (link.target == scene_index::NoObject)
            note("a reference to an object that is not in the file is left out", link.place);
        else if (_types[link.target] != nullptr)
            _links.push_back(link);
    }

    /// Values that functions of the layer trust each other about.
    void finish(const FieldContainerPtr& container, const state_of_object& state,
                const byte_cursor& at) {
        if (const ImagePtr image = ImagePtr::dcast(container); image != NullFC) {
            osgFinishImage(*image, state.pixelsAsInFile, at);
            const std::string name = image->getName();
            if (image->getPixel().empty() && !name.empty() && !osgReadNamedPicture(image, _folder))
                note("the picture " + shown(name) + " cannot be read", at.place());
        }
        if (const auto parts = ComponentTransformPtr::dcast(container); parts != NullFC)
            settleComponents(*parts, state.matrixCameLast);
        if (const auto texts = StringAttributeMapPtr::dcast(container); texts != NullFC)
            at.require(texts->getField("keys")->getSize() == texts->getField("values")->getSize(),
                       "a string map has keys without values");
    }

    void tie(const pending_link& pending) const {
        const FieldContainerPtr owner = containerAt(pending.owner);
        const FieldContainerPtr target = containerAt(pending.target);
        bool fits = false;
        if (pending.link != nullptr) {
            fits = pending.link->assign(owner, target);
        } else {
            const AttachmentContainerPtr carrier = AttachmentContainerPtr::dcast(owner);
            const AttachmentPtr attachment = AttachmentPtr::dcast(target);
            fits = carrier != NullFC && attachment != NullFC;
            if (fits)
                carrier->addAttachment(attachment, pending.binding);
        }
        if (!fits)
            throw scene_damage("a reference to an object of the wrong kind", pending.place);
    }

    /// Tells the change list and lets containers refresh what they derive from their fields.
    static void announce(const FieldContainerPtr& container) {
        if (container == NullFC)
            return;
        // A component transform would replace a matrix that is settled already.
        const TransformPtr parts = ComponentTransformPtr::dcast(container);
        const Matrix matrix = parts != NullFC ? parts->getMatrix() : Matrix();
        endEditCP(container, FieldBits::AllFields);
        if (parts != NullFC)
            parts->setMatrix(matrix);
    }

    /// The same text comes once, with the first place and how often it was meant.
    void note(const std::string& text, UInt64 place) {
        constexpr std::size_t mostNotes = 64; // no file floods the log
        const auto known = _notes.find(text);
        if (known != _notes.end())
            ++known->second.second;
        else if (_notes.size() < mostNotes)
            _notes.emplace(text, std::make_pair(place, 1));
        else
            ++_notesLeftOut;
    }
    void noteWhatFollows() {
        const byte_cursor& rest = _index.behindEnd();
        constexpr UInt64 filler = 4;
        if (rest.left() != 0 && rest.left() != filler)
            note("data behind the end is left out", rest.place());
    }
    void logNotes() const {
        for (const auto& [text, seen] : _notes) {
            const std::string times =
                seen.second > 1 ? " (" + std::to_string(seen.second) + " times)" : "";
            SWARNING << "Scene file: byte " << seen.first << ": " << text << times << endLog;
        }
        if (_notesLeftOut > 0)
            SWARNING << "Scene file: and " << _notesLeftOut << " more such lines" << endLog;
    }

    const scene_index& _index;
    const std::string& _folder; ///< of the file
    NodePtr _root;
    std::unordered_map<std::string_view, scene_type> _typesByName; ///< without type: unknown
    std::vector<const scene_type*> _types;      ///< of each object; null for nothing
    std::vector<FieldContainerPtr> _containers; ///< beside _types; null for the root, too
    std::vector<pending_link> _links;
    std::map<std::string, std::pair<UInt64, UInt32>> _notes; ///< first place, how often
    std::size_t _notesLeftOut = 0;
};

} // namespace

NodePtr readScene(std::istream& in, const std::string& folder) {
    try {
        const std::vector<UInt8> bytes = allOf(in);
        const scene_index index(byte_cursor(bytes.data(), bytes.size()));
        scene_reader reader(index, folder);
        return reader.read();
    } catch (const scene_damage& damage) {
        SWARNING << "Scene file: cannot be read: " << damage.what() << endLog;
    }
    return NullFC;
}

} // namespace osb

OSG_END_NAMESPACE
