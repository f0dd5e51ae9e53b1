#pragma once

#include "OSGAttachment.h"

#include <string>

OSG_BEGIN_NAMESPACE

struct OSG_BASE_DLLMAPPING NameDesc {
    typedef SFString FieldTypeT;

    static const Char8* getTypeName() { return "Name"; }
    static const Char8* getFieldName() { return "name"; }
    static const Char8* getGroupName() { return "name"; }
    static const Char8* getParentTypeName() { return "Attachment"; }
    static InitContainerF getInitMethod() { return nullptr; }
    static FieldDescription** getDesc();
};

typedef SimpleAttachment<NameDesc> Name;
typedef Name::PtrType NamePtr;
extern template class SimpleAttachment<NameDesc>;

/// The container's name; null for a null container or a nameless one. Valid until it changes.
OSG_BASE_DLLMAPPING const Char8* getName(const AttachmentContainerPtr& container);
/// Makes or edits the name in place.
OSG_BASE_DLLMAPPING void setName(const AttachmentContainerPtr& container, const std::string& name);
/// A null text removes the name.
OSG_BASE_DLLMAPPING void setName(const AttachmentContainerPtr& container, const Char8* name);

OSG_END_NAMESPACE
