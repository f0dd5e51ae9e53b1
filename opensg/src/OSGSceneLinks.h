#pragma once

// The fields in which a scene's containers hold counted references to others, and how to set
// them. Files hold exactly these links, and attachments.

#include "OpenSG/OSGAttachmentContainer.h"

#include <vector>

OSG_BEGIN_NAMESPACE

struct scene_link {
    const FieldContainerType* owner; ///< class that has the field; derived ones have it too
    UInt32 fieldId;
    bool many;    ///< a list: assigning appends
    bool toChild; ///< from a node to a child, of which a child has one
    /// False if the target is of another class than the field wants.
    bool (*assign)(const FieldContainerPtr& owner, const FieldContainerPtr& target);
};

/// Null for a field that is no such link.
const scene_link* osgFindSceneLink(const FieldContainerType& type, UInt32 fieldId);

/// A reference between two objects of a file, by number.
struct pending_link {
    const scene_link* link; ///< null for attachments
    UInt64 place;           ///< of the reference in the file
    UInt32 owner;
    UInt32 target;
    UInt16 binding; ///< of attachments
};

/// Throws scene_damage unless the references of `count` objects, in order of their owners, have
/// no circle and no chain longer than `maxDepth`, object 0 hangs below none and each node below
/// one at most. No recursion.
void osgCheckSceneLinks(std::size_t count, const std::vector<pending_link>& links, UInt32 maxDepth);

OSG_END_NAMESPACE
