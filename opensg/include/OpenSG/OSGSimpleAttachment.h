#pragma once

#include "OSGAttachmentContainer.h"

OSG_BEGIN_NAMESPACE

/// An attachment of one field. `Desc` supplies, all static: the typedef FieldTypeT, getTypeName(),
/// getFieldName(), getGroupName(), getParentTypeName(), getInitMethod(), getDesc() and the
/// one-entry array _desc. OSG_FC_DLLEXPORT_DEF defines and registers the type.
template <class Desc> class SimpleAttachment : public Attachment {
  public:
    typedef Desc AttachmentDescT;
    typedef typename Desc::FieldTypeT StoredFieldType;
    typedef Attachment Inherited;
    typedef FCPtr<AttachmentPtr, SimpleAttachment> PtrType;

    static constexpr UInt32 SimpleFieldId = 3;
    static constexpr BitVector SimpleFieldMask = BitVector(1) << SimpleFieldId;

    static const Char8* getClassName() { return Desc::getTypeName(); }
    static FieldContainerType& getClassType() {
        Attachment::getClassType(); // the parent type is found by name
        static FieldContainerType& type = *new FieldContainerType(
            Desc::getTypeName(), Desc::getParentTypeName(), Desc::getGroupName(), &createUntyped,
            Desc::getInitMethod(), Desc::getDesc(), sizeof(FieldDescription*), false);
        return type;
    }
    static UInt32 getClassTypeId() { return getClassType().getId(); }
    static UInt16 getClassGroupId() { return getClassType().getGroupId(); }
    static PtrType create() { return ContainerAllocator::makeNew<SimpleAttachment, PtrType>(); }
    static PtrType createEmpty() { return create(); }

    FieldContainerType& getType() override { return getClassType(); }
    const FieldContainerType& getType() const override { return getClassType(); }
    UInt32 getContainerSize() const override { return sizeof(SimpleAttachment); }
    FieldContainerPtr shallowCopy() const override {
        return ContainerAllocator::makeCopy<SimpleAttachment>(*this);
    }

    /// Not overloaded: descriptions take its address.
    StoredFieldType* getFieldPtr() { return &_field; }
    StoredFieldType& getField() { return _field; }
    const StoredFieldType& getField() const { return _field; }
    StoredFieldType& editField() { return _field; }

    UInt32 getBinSize(const BitVector& which) override { return binSizeOf(getClassType(), which); }
    void copyToBin(BinaryDataHandler& out, const BitVector& which) override {
        fieldsToBin(getClassType(), out, which);
    }
    void copyFromBin(BinaryDataHandler& in, const BitVector& which) override {
        fieldsFromBin(getClassType(), in, which);
    }
    void dump(UInt32 indent = 0, BitVector flags = 0) const override {
        Attachment::dump(indent, flags);
    }

  protected:
    SimpleAttachment() = default;
    SimpleAttachment(const SimpleAttachment&) = default;
    friend class ContainerAllocator;

  private:
    static FieldContainerPtr createUntyped() { return create(); }

    StoredFieldType _field;
};

#define OSG_FC_FIELD_IDM_DESC(FIELD) FIELD##Id, FIELD##Mask
#define OSG_FC_DLLEXPORT_DEF(CLASS, DESC, EXPORT)                                                  \
    template class CLASS<DESC>;                                                                    \
    static const FieldContainerType& registered##CLASS##DESC = CLASS<DESC>::getClassType()

OSG_END_NAMESPACE
