#include "OpenSG/OSGAttachmentContainer.h"

#include "OSGSearch.h"

OSG_BEGIN_NAMESPACE

namespace {

UInt32 keyOf(UInt32 groupId, UInt16 binding) { return (groupId << 16) | binding; }

} // namespace

AttachmentMap::AttachmentMap(const AttachmentMap& other) : _entries(other._entries) {
    for (const auto& entry : _entries)
        addRefCP(entry.second);
}

// Syncing copies between aspects; the change list repeats the counting.
AttachmentMap& AttachmentMap::operator=(const AttachmentMap& other) {
    _entries = other._entries;
    return *this;
}

AttachmentMap::~AttachmentMap() { clear(); }

void AttachmentMap::set(UInt32 key, const AttachmentPtr& attachment) {
    AttachmentPtr& slot = _entries[key]; // first: without memory nothing is referenced
    AttachmentPtr old = slot;
    slot = attachment;
    addRefCP(attachment);
    subRefCP(old);
}

void AttachmentMap::erase(UInt32 key) {
    const auto found = _entries.find(key);
    if (found == _entries.end())
        return;
    AttachmentPtr old = found->second;
    _entries.erase(found);
    subRefCP(old);
}

void AttachmentMap::clear() {
    Entries entries;
    entries.swap(_entries);
    for (auto& entry : entries)
        subRefCP(entry.second);
}

const DataType& FieldDataTraits<AttachmentMap>::getType() {
    static const DataType& type = *new DataType("AttachmentMap", "Root");
    return type;
}

UInt32 FieldDataTraits<AttachmentMap>::getBinSize(const AttachmentMap& value) {
    return static_cast<UInt32>(sizeof(UInt32) + value.size() * 2 * sizeof(UInt32));
}

void FieldDataTraits<AttachmentMap>::copyToBin(BinaryDataHandler& out, const AttachmentMap& value) {
    out.putValue(static_cast<UInt32>(value.size()));
    for (const auto& entry : value) {
        out.putValue(entry.first);
        out.putValue(osgIdOrZero(entry.second));
    }
}

void FieldDataTraits<AttachmentMap>::copyFromBin(BinaryDataHandler& in, AttachmentMap& value) {
    UInt32 count = 0;
    in.getValue(count);
    value.clear();
    for (UInt32 i = 0; i < count; ++i) {
        UInt32 key = 0;
        UInt32 id = 0;
        in.getValue(key);
        in.getValue(id);
        const AttachmentPtr attachment = AttachmentPtr::dcast(osgContainerOfId(id));
        if (attachment != NullFC)
            value.set(key, attachment);
    }
}

OSG_CONTAINER_DEF_ABSTRACT(AttachmentContainer, nullptr,
                           OSG_FIELD_DESC(AttachmentContainer, _sfAttachments, "attachments",
                                          Attachments, false))
OSG_CONTAINER_DEF_ABSTRACT(Attachment, nullptr,
                           OSG_FIELD_DESC(Attachment, _mfParents, "parents", Parents, true),
                           OSG_FIELD_DESC(Attachment, _sfInternal, "internal", Internal, false))

// The copy of every aspect takes what hangs in the thread's. All stand under binding 0 of their
// groups then: of several in a group the last one stays.
AttachmentContainer::AttachmentContainer(const AttachmentContainer& other) : FieldContainer(other) {
    const AttachmentContainerPtr source(other);
    for (const auto& [key, attachment] : source->getSFAttachments()->getValue())
        _sfAttachments.getValue().set(key & ~UInt32(0xFFFF), attachment);
    for (const auto& entry : _sfAttachments.getValue()) {
        auto* copy = reinterpret_cast<Attachment*>(entry.second.getAspectCPtr(getAspectIndex()));
        copy->addParent(getUntypedPtr());
    }
}

AttachmentContainer::~AttachmentContainer() {
    for (const auto& entry : _sfAttachments.getValue()) {
        auto* copy = reinterpret_cast<Attachment*>(entry.second.getAspectCPtr(getAspectIndex()));
        copy->subParent(getUntypedPtr());
    }
}

void AttachmentContainer::addAttachment(const AttachmentPtr& attachment, UInt16 binding) {
    if (attachment == NullFC)
        return;
    const UInt32 key = keyOf(attachment->getGroupId(), binding);
    AttachmentMap& attachments = _sfAttachments.getValue();
    const auto old = attachments.find(key);
    if (old != attachments.end()) {
        if (old->second == attachment)
            return;
        old->second->subParent(getUntypedPtr());
        endEditNotChangedCP(old->second, Attachment::ParentsFieldMask);
    }
    attachment->addParent(getUntypedPtr());
    endEditNotChangedCP(attachment, Attachment::ParentsFieldMask);
    try {
        attachments.set(key, attachment);
    } catch (const std::bad_alloc&) {
        attachment->subParent(getUntypedPtr());
        throw;
    }
}

void AttachmentContainer::subAttachment(const AttachmentPtr& attachment, UInt16 binding) {
    if (attachment == NullFC)
        return;
    const UInt32 key = keyOf(attachment->getGroupId(), binding);
    AttachmentMap& attachments = _sfAttachments.getValue();
    const auto found = attachments.find(key);
    if (found == attachments.end() || found->second != attachment)
        return;
    attachment->subParent(getUntypedPtr());
    endEditNotChangedCP(attachment, Attachment::ParentsFieldMask);
    attachments.erase(key);
}

AttachmentPtr AttachmentContainer::findAttachment(UInt32 groupId, UInt16 binding) const {
    const AttachmentMap& attachments = _sfAttachments.getValue();
    const auto found = attachments.find(keyOf(groupId, binding));
    return found == attachments.end() ? AttachmentPtr() : found->second;
}

AttachmentPtr AttachmentContainer::findAttachment(const FieldContainerType& type,
                                                  UInt16 binding) const {
    return findAttachment(type.getGroupId(), binding);
}

void Attachment::addParent(const FieldContainerPtr& parent) { _mfParents.push_back(parent); }

void Attachment::subParent(const FieldContainerPtr& parent) {
    osgEraseFromBothEnds(_mfParents,
                         [&](const FieldContainerPtr& entry) { return entry == parent; });
}

Int32 Attachment::findParent(const FieldContainerPtr& parent) const {
    const auto found = _mfParents.find(parent);
    return found == _mfParents.end() ? -1 : static_cast<Int32>(found - _mfParents.begin());
}

OSG_END_NAMESPACE
