#pragma once

#include "OSGFieldContainer.h"
#include "OSGOwnedFields.h"
#include "OSGRefPtr.h"
#include "OSGSFBaseTypes.h"

#include <map>

OSG_BEGIN_NAMESPACE

class AttachmentContainer;
class Attachment;
typedef FCPtr<FieldContainerPtr, AttachmentContainer> AttachmentContainerPtr;
typedef FCPtr<FieldContainerPtr, Attachment> AttachmentPtr;
typedef RefPtr<AttachmentContainerPtr> AttachmentContainerRefPtr;
typedef RefPtr<AttachmentPtr> AttachmentRefPtr;

/// Attachments of one container by (group number << 16) | binding. Every entry holds one
/// reference; copying the map references, destroying it drops.
class OSG_BASE_DLLMAPPING AttachmentMap {
  public:
    typedef std::map<UInt32, AttachmentPtr> Entries;
    typedef Entries::const_iterator const_iterator;

    AttachmentMap() = default;
    AttachmentMap(const AttachmentMap& other);
    AttachmentMap& operator=(const AttachmentMap& other);
    ~AttachmentMap();

    const_iterator begin() const { return _entries.begin(); }
    const_iterator end() const { return _entries.end(); }
    const_iterator find(UInt32 key) const { return _entries.find(key); }
    std::size_t size() const { return _entries.size(); }
    bool empty() const { return _entries.empty(); }
    bool operator==(const AttachmentMap& other) const { return _entries == other._entries; }

    /// References the new one before it drops an old one under the same key.
    void set(UInt32 key, const AttachmentPtr& attachment);
    void erase(UInt32 key);
    void clear();

  private:
    Entries _entries;
};

template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<AttachmentMap>
    : public FieldTraitsRecurseBase<AttachmentMap> {
    static const DataType& getType();
    static const Char8* getSName() { return "SFAttachmentMap"; }
    static const Char8* getMName() { return "MFAttachmentMap"; }
    enum { StringConvertable = ToStringConvertable };
    static bool getFromString(AttachmentMap&, const Char8*&) { return false; }
    static void putToString(const AttachmentMap& value, std::string& text) {
        text = std::to_string(value.size());
    }
    static UInt32 getBinSize(const AttachmentMap& value);
    static void copyToBin(BinaryDataHandler& out, const AttachmentMap& value);
    static void copyFromBin(BinaryDataHandler& in, AttachmentMap& value);
};
typedef SField<AttachmentMap> SFAttachmentMap;

/// A container that can carry attachments, names among them.
class OSG_BASE_DLLMAPPING AttachmentContainer : public FieldContainer {
    OSG_CONTAINER_DECL_BASE(AttachmentContainer, FieldContainer)
  public:
    OSG_FIELD(Attachments, 1)

    /// Replaces an attachment of the same group and binding. Null is ignored. This and
    /// subAttachment enter the change of the attachment's parents in the thread's change list; that
    /// of this container is for the caller to enter.
    void addAttachment(const AttachmentPtr& attachment, UInt16 binding = 0);
    /// Nothing unless the attachment stands under its group and this binding.
    void subAttachment(const AttachmentPtr& attachment, UInt16 binding = 0);
    AttachmentPtr findAttachment(UInt32 groupId, UInt16 binding = 0) const;
    AttachmentPtr findAttachment(const FieldContainerType& type, UInt16 binding = 0) const;

    const SFAttachmentMap* getSFAttachments() const { return &_sfAttachments; }
    SFAttachmentMap* editSFAttachments() { return &_sfAttachments; }

  protected:
    AttachmentContainer() = default;
    AttachmentContainer(const AttachmentContainer& other);
    ~AttachmentContainer() override;

  private:
    SFAttachmentMap _sfAttachments;
};

/// What can hang on a container. Knows its parents without referencing them. Carries no
/// attachments itself, and so no name.
class OSG_BASE_DLLMAPPING Attachment : public FieldContainer {
    OSG_CONTAINER_DECL_BASE(Attachment, FieldContainer)
  public:
    OSG_FIELD(Parents, 1)
    OSG_FIELD(Internal, 2)

    MFFieldContainerPtr& getParents() { return _mfParents; }
    const MFFieldContainerPtr& getParents() const { return _mfParents; }
    const MFFieldContainerPtr* getMFParents() const { return &_mfParents; }
    void addParent(const FieldContainerPtr& parent);
    /// Takes one entry of this parent away.
    void subParent(const FieldContainerPtr& parent);
    /// Index, or -1.
    Int32 findParent(const FieldContainerPtr& parent) const;

    SFBool& getInternal() { return _sfInternal; }
    const SFBool& getInternal() const { return _sfInternal; }
    void setInternal(bool internal) { _sfInternal.setValue(internal); }

  protected:
    Attachment() = default;
    /// A copy starts without parents.
    Attachment(const Attachment& other) : FieldContainer(other), _sfInternal(other._sfInternal) {}

  private:
    MFFieldContainerPtr _mfParents;
    SFBool _sfInternal;
};

OSG_END_NAMESPACE
