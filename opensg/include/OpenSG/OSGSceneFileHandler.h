#pragma once

// Scenes in files, by extension. The layer's own format has the extension osb.
//
//     SceneFileHandler::the().write(root, "scene.osb");
//     NodeRefPtr again(SceneFileHandler::the().read("scene.osb"));
//
// Threads: reading and writing are safe at the same time, registering types is not.

#include "OSGNode.h"
#include "OSGSceneFileType.h"

#include <istream>
#include <list>
#include <map>
#include <ostream>
#include <string>

OSG_BEGIN_NAMESPACE

class GraphOpSeq;

class OSG_BASE_DLLMAPPING SceneFileHandler {
  public:
    static SceneFileHandler& the();

    /// A new root of count 0; null, with a warning, for an unknown extension, a missing or a
    /// damaged file. `graphOpSeq` runs on what was read. Throws std::bad_alloc.
    NodePtr read(const Char8* fileName, GraphOpSeq* graphOpSeq = nullptr) const;
    NodePtr read(std::istream& in, const Char8* extension, GraphOpSeq* graphOpSeq = nullptr) const;

    /// False, with a warning, for a null node, an unknown extension or a stream that fails. The
    /// scene does not change. `compress` asks for what no format of the layer has, and is ignored.
    bool write(const NodePtr& node, const Char8* fileName, bool compress = false) const;
    bool write(const NodePtr& node, std::ostream& out, const Char8* extension,
               bool compress = false) const;

    /// The type for an extension or the end of a file name, or null.
    SceneFileType* getFileType(const Char8* fileNameOrExtension) const;
    void getSuffixList(std::list<const Char8*>& suffixes,
                       UInt32 flags = SceneFileType::OSG_READ_SUPPORTED |
                                      SceneFileType::OSG_WRITE_SUPPORTED) const;
    bool setOptions(const Char8* suffix, const Char8* options);

    /// False if another type of equal or higher priority has all its extensions.
    bool addSceneFileType(SceneFileType& type);
    bool subSceneFileType(SceneFileType& type);

  private:
    SceneFileHandler();
    SceneFileType* usableType(const Char8* fileNameOrExtension, UInt32 flag,
                              const Char8* task) const;

    std::map<std::string, SceneFileType*> _types; ///< by extension in lower case
};

OSG_END_NAMESPACE
