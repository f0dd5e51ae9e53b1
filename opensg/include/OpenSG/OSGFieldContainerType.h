#pragma once

#include "OSGFieldContainerPtr.h"
#include "OSGFieldDescription.h"
#include "OSGTypeBase.h"

#include <initializer_list>
#include <vector>

OSG_BEGIN_NAMESPACE

typedef FieldContainerPtr (*PrototypeCreateF)();
typedef void (*InitContainerF)();

/// Type of a container: parent type, group (the key under which attachments are found), fields.
/// A type without a way to make containers is abstract.
class OSG_BASE_DLLMAPPING FieldContainerType : public TypeBase {
  public:
    FieldContainerType(const Char8* name, const Char8* parentName = nullptr,
                       const Char8* groupName = nullptr, PrototypeCreateF create = nullptr,
                       InitContainerF init = nullptr, FieldDescription** descs = nullptr,
                       UInt32 descByteCount = 0, bool descsAddable = false);
    /// Of a known parent type; `descs` are owned by the type.
    FieldContainerType(const Char8* name, FieldContainerType* parent, const Char8* groupName,
                       PrototypeCreateF create, std::initializer_list<FieldDescription*> descs);
    ~FieldContainerType() override;

    UInt16 getGroupId() const { return _groupId; }
    FieldContainerType* getParent() const { return _parent; }
    bool isAbstract() const { return _create == nullptr; }
    bool isNode() const { return isBelow("Node"); }
    bool isNodeCore() const { return isBelow("NodeCore"); }
    bool isAttachment() const { return isBelow("Attachment"); }
    bool isDerivedFrom(const TypeBase& other) const;
    bool isDerivedFrom(const FieldContainerType& other) const;

    /// Fields of the base types first.
    UInt32 getNumFieldDescs() const { return static_cast<UInt32>(_descs.size()); }
    const std::vector<FieldDescription*>& getFieldDescs() const { return _descs; }
    FieldDescription* getFieldDescription(UInt32 fieldId) const;
    FieldDescription* findFieldDescription(const Char8* fieldName) const;

    FieldContainerPtr getPrototype() const;
    bool setPrototype(FieldContainerPtr prototype);
    /// A copy of the prototype; null for an abstract type.
    FieldContainerPtr createFieldContainer() const;

  private:
    bool isBelow(const Char8* typeName) const;
    void enter(const Char8* groupName);

    FieldContainerType* _parent = nullptr;
    UInt16 _groupId = 0;
    PrototypeCreateF _create = nullptr;
    mutable FieldContainerPtr _prototype; ///< holds one reference once made
    std::vector<FieldDescription*> _descs;
    std::vector<FieldDescription*> _owned;
};

OSG_END_NAMESPACE
