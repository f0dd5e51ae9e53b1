#pragma once

// The ID map: which output geometry holds which input geometry.
//
// The origin travels with the vertices. Extraction asks insertNodeName() for a small integer per
// input name and writes it into TexCoords7 of every vertex; merge, cut and index rebuilding carry
// it along like any other attribute; registerGeometryUsage() reads at the end what is left:
//
//     "hull" -> 0 --extract--> TexCoords7 0 0 0 ... --merge, split--> MG_4: 0 0 1 1 --> usage
//
// There is one handler per process: getIDmapHandler(). Containers and counters are guarded by the
// named lock "MORVA_IDMAPHANDLER_LOCK", which is re-entrant for its owner. insertNodeName() of a
// name that is already known returns with the lock HELD; the thread keeps it until it calls
// releaseHeldLock(), which every task does when it is over and the driver when it resets.
// Writers of text and attachments take no lock: driver's thread only.

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include <OpenSG/OSGLock.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/idmap/morva_osg_idmap_content.h>

namespace morva::osg {

/// The record of one run and the operations that fill it. Owns nothing but its containers; the
/// lock lives with the scene graph's thread manager.
class MORVA_API idmapHandler : public JsonFileContent {
  public:
    idmapHandler();
    idmapHandler(const idmapHandler&) = delete;
    idmapHandler& operator=(const idmapHandler&) = delete;

    std::map<int, std::set<std::string>>::iterator usageCursor; ///< last usage entry looked up
    bool merged = false;         ///< the merge has run: extraction gives no more IDs
    std::string prefix;          ///< start of the names of getNextGeometryName()
    ::osg::Lock* lock = nullptr; ///< guards all containers and counters
    std::map<std::string, std::string> texCoordMapping; ///< output name to "TC0" .. "TC3"
    std::uint32_t mergedCount = 0;  ///< names given out by getNextMergedGeometryName()
    bool settled = false;           ///< all names were entered ahead: extraction looks for IDs only
    map_file file = map_file::none; ///< what became of the file that the last optTree() wrote

    /// Forgets the last run: everything but the text of `tree` and the two name counters, which
    /// go on over the runs of one process. Gives back what the calling thread holds of the lock.
    void reset();

    /// Returns the ID of `name`, a new one at its first coming.
    ///
    /// name          of the input geometry; nodes of one name share an ID
    /// min, max      box of the node; the box of a known name grows to hold it
    /// material      of the node, null is a material like any other; fixes the appearance name
    ///               ("__App_0", "__App_1", ...) at the first coming of `name`
    /// materialName  not used
    /// lock          a known name returns with the lock held by the calling thread, see
    ///               releaseHeldLock()
    /// cost          O(log) on average, by an index beside `names`
    int insertNodeName(std::string& name, ::osg::Pnt3f& min, ::osg::Pnt3f& max,
                       ::osg::MaterialPtr material, const std::string& materialName);

    /// Returns the ID of a name that was entered, or -1. Gives the lock back at once.
    int findNodeName(const std::string& name);

    /// Gives back what the calling thread still holds of the lock from insertNodeName(), and
    /// returns how often it held it.
    unsigned int releaseHeldLock();

    /// Enters the names of all geometry nodes of a subtree under the IDs that their TexCoords7
    /// carry, and moves the IDs to the first free one of the coordinate sets 0 to 3.
    ///
    /// Nodes without a name or without TexCoords7 are left out; children of a geometry node are
    /// not visited. With all four sets taken TexCoords7 stays. Values that fit no int are no IDs.
    void registerGeometryUsage(::osg::NodePtr node);

    /// Returns `prefix`, "_G_" and the next number, from 1.
    std::string getNextGeometryName();

    /// Returns "MG_" and the next number, from 0; without prefix.
    std::string getNextMergedGeometryName();

    /// Returns the string attributes of a node, or else of its core, as members of a JSON object,
    /// one a line, each line led by `indent`. Backslashes and quotes of values are escaped, keys
    /// are written as they are. Empty without attributes.
    std::string getMetaData(::osg::NodePtr node, std::string indent);

    /// Appends the subtree below `node` to `tree` as nested JSON objects, `depth` tabs deep.
    void writeTree(::osg::NodePtr node, unsigned depth);

  private:
    int positionOf(const std::string& name);
    int appendName(const std::string& name, const ::osg::Pnt3f& min, const ::osg::Pnt3f& max,
                   const ::osg::MaterialPtr& material);
    void rebuildIndex();
    void moveIdsToLowSet(const ::osg::NodePtr& node);

    /// Position of each entry of `names`.
    std::unordered_map<std::string, int> index_of_name_;
};

/// The one handler of the process, made at first use.
MORVA_API idmapHandler& getIDmapHandler();

/// Gives back what the thread still holds of the ID map's lock at the end of a scope.
struct held_lock_end {
    held_lock_end() = default;
    held_lock_end(const held_lock_end&) = delete;
    held_lock_end& operator=(const held_lock_end&) = delete;
    ~held_lock_end() { getIDmapHandler().releaseHeldLock(); }
};

/// Attaches the ID map to `root` as six StringAttributeMaps, bindings 1 to 6: coordinate set per
/// output name; and per ID its name, lowest corner, highest corner and diffuse colour; and the
/// output names per input name. A null root is left alone.
MORVA_API void addIDmapInfo(::osg::NodePtr root);

} // namespace morva::osg
