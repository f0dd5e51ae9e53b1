#include "OpenSG/OSGSceneFileHandler.h"

#include "OSGBinarySceneFile.h"
#include "OpenSG/OSGGraphOpSeq.h"
#include "OpenSG/OSGLog.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <utility>

OSG_BEGIN_NAMESPACE

namespace {

/// What stands behind the last dot, or all of it, in lower case.
std::string extensionOf(const Char8* fileNameOrExtension) {
    std::string extension = fileNameOrExtension != nullptr ? fileNameOrExtension : "";
    extension.erase(0, extension.find_last_of("./\\") + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

const Char8* shown(const Char8* text) { return text != nullptr ? text : "(null)"; }

} // namespace

SceneFileType::SceneFileType(const Char8* suffixes[], UInt16 suffixByteCount, bool override,
                             UInt32 overridePriority, UInt32 flags)
    : _override(override), _overridePriority(overridePriority), _flags(flags), _registered(true) {
    for (std::size_t i = 0; i < suffixByteCount / sizeof(suffixes[0]); ++i) {
        _suffixes.push_back(IDString(extensionOf(suffixes[i]).c_str()));
    }
    SceneFileHandler::the().addSceneFileType(*this);
}

SceneFileType::SceneFileType(std::list<IDString> suffixes, UInt32 flags)
    : _suffixes(std::move(suffixes)), _override(false), _overridePriority(0), _flags(flags),
      _registered(false) {}

SceneFileType::~SceneFileType() {
    if (_registered)
        SceneFileHandler::the().subSceneFileType(*this);
}

NodePtr SceneFileType::read(std::istream&, const Char8*) const {
    SWARNING << getName() << ": reading is not supported" << endLog;
    return NullFC;
}

bool SceneFileType::write(const NodePtr&, std::ostream&, const Char8*) const {
    SWARNING << getName() << ": writing is not supported" << endLog;
    return false;
}

void SceneFileType::setOptions(const Char8*) {}

BinarySceneFileType::BinarySceneFileType()
    : SceneFileType({IDString("osb")}, OSG_READ_SUPPORTED | OSG_WRITE_SUPPORTED) {}

NodePtr BinarySceneFileType::read(std::istream& in, const Char8* fileNameOrExtension) const {
    const std::string name = fileNameOrExtension != nullptr ? fileNameOrExtension : "";
    return osb::readScene(in, name.substr(0, name.find_last_of('/') + 1));
}

bool BinarySceneFileType::write(const NodePtr& node, std::ostream& out, const Char8*) const {
    return osb::writeScene(node, out);
}

SceneFileHandler& SceneFileHandler::the() {
    static SceneFileHandler& handler = *new SceneFileHandler;
    return handler;
}

SceneFileHandler::SceneFileHandler() {
    static SceneFileType& binary = *new BinarySceneFileType;
    addSceneFileType(binary);
}

SceneFileType* SceneFileHandler::getFileType(const Char8* fileNameOrExtension) const {
    const auto found = _types.find(extensionOf(fileNameOrExtension));
    return found != _types.end() ? found->second : nullptr;
}

SceneFileType* SceneFileHandler::usableType(const Char8* fileNameOrExtension, UInt32 flag,
                                            const Char8* task) const {
    SceneFileType* type = getFileType(fileNameOrExtension);
    if (type != nullptr && (type->getFlags() & flag) != 0)
        return type;
    SWARNING << "SceneFileHandler: no file type can " << task << " " << shown(fileNameOrExtension)
             << endLog;
    return nullptr;
}

NodePtr SceneFileHandler::read(const Char8* fileName, GraphOpSeq* graphOpSeq) const {
    if (usableType(fileName, SceneFileType::OSG_READ_SUPPORTED, "read") == nullptr)
        return NullFC;
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        SWARNING << "SceneFileHandler: cannot open " << fileName << endLog;
        return NullFC;
    }
    return read(file, fileName, graphOpSeq);
}

NodePtr SceneFileHandler::read(std::istream& in, const Char8* extension,
                               GraphOpSeq* graphOpSeq) const {
    const SceneFileType* type = usableType(extension, SceneFileType::OSG_READ_SUPPORTED, "read");
    if (type == nullptr)
        return NullFC;
    NodePtr root = type->read(in, extension);
    if (root != NullFC && graphOpSeq != nullptr)
        graphOpSeq->traverse(root);
    return root;
}

bool SceneFileHandler::write(const NodePtr& node, const Char8* fileName, bool compress) const {
    if (node == NullFC) {
        SWARNING << "SceneFileHandler: no scene to write to " << shown(fileName) << endLog;
        return false;
    }
    if (usableType(fileName, SceneFileType::OSG_WRITE_SUPPORTED, "write") == nullptr)
        return false;
    std::ofstream file(fileName, std::ios::binary);
    if (!file) {
        SWARNING << "SceneFileHandler: cannot open " << fileName << " for writing" << endLog;
        return false;
    }
    if (!write(node, file, fileName, compress))
        return false;
    file.close();
    if (!file)
        SWARNING << "SceneFileHandler: cannot write " << fileName << endLog;
    return !file.fail();
}

bool SceneFileHandler::write(const NodePtr& node, std::ostream& out, const Char8* extension,
                             bool) const {
    if (node == NullFC) {
        SWARNING << "SceneFileHandler: no scene to write" << endLog;
        return false;
    }
    const SceneFileType* type = usableType(extension, SceneFileType::OSG_WRITE_SUPPORTED, "write");
    return type != nullptr && type->write(node, out, extension);
}

void SceneFileHandler::getSuffixList(std::list<const Char8*>& suffixes, UInt32 flags) const {
    for (const auto& entry : _types) {
        if ((entry.second->getFlags() & flags) != 0)
            suffixes.push_back(entry.first.c_str());
    }
}

bool SceneFileHandler::setOptions(const Char8* suffix, const Char8* options) {
    SceneFileType* type = getFileType(suffix);
    if (type != nullptr)
        type->setOptions(options);
    return type != nullptr;
}

bool SceneFileHandler::addSceneFileType(SceneFileType& type) {
    bool entered = false;
    for (const IDString& suffix : type.suffixList()) {
        SceneFileType*& slot = _types[suffix.str()];
        const bool free = slot == nullptr || (type.doOverride() && type.getOverridePriority() >
                                                                       slot->getOverridePriority());
        if (free)
            slot = &type;
        entered = entered || free;
    }
    return entered;
}

bool SceneFileHandler::subSceneFileType(SceneFileType& type) {
    bool left = false;
    for (auto entry = _types.begin(); entry != _types.end();) {
        const bool own = entry->second == &type;
        entry = own ? _types.erase(entry) : std::next(entry);
        left = left || own;
    }
    return left;
}

OSG_END_NAMESPACE
