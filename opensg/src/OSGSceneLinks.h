#pragma once

// The fields in which a scene's containers hold counted references to others, and how to set
// them. Files hold exactly these links, and attachments.

#include "OpenSG/OSGAttachmentContainer.h"

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

OSG_END_NAMESPACE
