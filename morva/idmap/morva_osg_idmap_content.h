#pragma once

// What one run knows about where its input went: the plain record behind the ID map.
//
// An input geometry's ID is its position in `names`; all arrays that go by ID stand beside it.
//
//     ID           0        1        2
//     names        "hull"   "deck"   "mast"
//     mins, maxs   box of all nodes of that name, in the space that they were extracted to
//     appearance   "__App_0" "__App_1" "__App_0"
//     usage        0 -> {"MG_0"}   1 -> {"MG_0", "MG_3"}   ...
//
// The handler fills it; writers of files and attachments read it. One owner at a time, or the
// handler's lock.

#include <cstdint>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>

namespace morva {

/// What became of the ID map's file.
enum class map_file {
    none,       ///< there is none: it was not wanted, or there was nothing to be written
    not_opened, ///< there is none: it could not be opened
    cut_short,  ///< a part of it, as where the disk is full, or one with a part of the tree
    whole
};

/// The ID map as it is written out. `names`, `mins`, `maxs` and `appearanceNames` always have
/// one length.
struct JsonFileContent {
    std::vector<std::string> names;             ///< input geometry names; the position is the ID
    std::vector<::osg::Pnt3f> mins;             ///< lowest corner of each ID's box
    std::vector<::osg::Pnt3f> maxs;             ///< highest corner of each ID's box
    std::vector<std::string> appearanceNames;   ///< name of the appearance of each ID
    std::map<int, std::set<std::string>> usage; ///< ID to output geometry names
    /// Material to the name of its appearance. Holds no reference: see livingOne().
    std::map<::osg::MaterialPtr, std::string> appearances;
    std::stringstream tree;        ///< text of the input scene, one tree per writeTree()
    std::uint32_t maxGeoCount = 0; ///< names given out by getNextGeometryName()
};

namespace osg {

/// The material of a record, or null once it is gone: a record may outlive the scene it tells of.
inline ::osg::MaterialPtr livingOne(const ::osg::MaterialPtr& material) {
    // A null pointer has no number that could be asked for.
    if (material == ::osg::NullFC)
        return material;
    const ::osg::UInt32 id = material.getFieldContainerId();
    const bool lives = ::osg::FieldContainerFactory::the()->getContainer(id) == material;
    return lives ? material : ::osg::MaterialPtr();
}

} // namespace osg

} // namespace morva
