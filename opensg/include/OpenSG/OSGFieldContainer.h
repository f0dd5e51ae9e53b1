#pragma once

// Base class of everything in a scene, and the two macros by which the layer's classes declare
// themselves:
//
//     class Switch : public Group {
//         OSG_CONTAINER_DECL(Switch, Group, SwitchPtr)       // first in the class body
//       public:
//         OSG_FIELD(Choice, 3)                               // ChoiceFieldId, ChoiceFieldMask
//         const Int32& getChoice() const { return _sfChoice.getValue(); }
//       private:
//         SFInt32 _sfChoice{NONE};
//     };
//     // in the source file:
//     OSG_CONTAINER_DEF(Switch, "Switch",
//                       OSG_FIELD_DESC(Switch, _sfChoice, "choice", Choice, false))
//
// A field that counts its target is an OwnedSField or OwnedMField (OSGOwnedFields.h): copying
// the container references, destroying it drops.

#include "OSGFieldContainerPtr.h"

#include <cstddef>
#include <new>

OSG_BEGIN_NAMESPACE

class BinaryDataHandler;
class Field;
class FieldContainerType;

/// Entry i: the set of the one field i.
struct field_masks {
    BitVector of[64];
};
extern OSG_BASE_DLLMAPPING const field_masks osgFieldMasks;

class OSG_BASE_DLLMAPPING FieldContainer {
  public:
    static FieldContainerType& getClassType();

    virtual FieldContainerType& getType() = 0;
    virtual const FieldContainerType& getType() const = 0;
    virtual UInt32 getContainerSize() const = 0;
    /// A new container with this one's fields, in every aspect; attachments are shared.
    virtual FieldContainerPtr shallowCopy() const = 0;

    UInt32 getTypeId() const;
    UInt16 getGroupId() const;
    const Char8* getTypeName() const;

    /// Null for an unknown number or name.
    Field* getField(UInt32 fieldId);
    Field* getField(const Char8* fieldName);

    /// Called after an edit of `which`, in the aspect of the editing thread.
    virtual void changed(BitVector which, UInt32 origin);

    /// Binary form of the fields `which`. Called for a certain class (`Attachment::copyToBin(...)`)
    /// each of the three deals with the fields of that class and its bases alone.
    virtual UInt32 getBinSize(const BitVector& which);
    virtual void copyToBin(BinaryDataHandler& out, const BitVector& which);
    virtual void copyFromBin(BinaryDataHandler& in, const BitVector& which);
    virtual void dump(UInt32 indent = 0, BitVector flags = 0) const;

    /// Which of the container's copies this object is.
    UInt32 getAspectIndex() const { return _aspectIndex; }

  protected:
    /// The container that this object is a copy of; valid in constructors and destructors too.
    FieldContainerPtr getUntypedPtr() const;
    /// Copies the fields `which` of another aspect's copy.
    virtual void executeSync(FieldContainer& other, const BitVector& which);

    FieldContainer();
    FieldContainer(const FieldContainer&) : FieldContainer() {}
    FieldContainer& operator=(const FieldContainer&) = delete;
    virtual ~FieldContainer();

    /// The fields `which` among those that `type`, a class of this object, describes.
    UInt32 binSizeOf(const FieldContainerType& type, const BitVector& which);
    void fieldsToBin(const FieldContainerType& type, BinaryDataHandler& out,
                     const BitVector& which);
    void fieldsFromBin(const FieldContainerType& type, BinaryDataHandler& in,
                       const BitVector& which);

  private:
    UInt32 _aspectIndex;
    UInt32 _bytes; ///< size of one copy

    friend class ChangeList;
    friend class ContainerAllocator;
    friend class FieldContainerPtr;
};

/// Makes and destroys containers. The one place that knows the layout of a block.
class OSG_BASE_DLLMAPPING ContainerAllocator {
  public:
    typedef void (*Construct)(void* place, const FieldContainer* source);

    /// A block with one copy per aspect, registered, count 0. `source`: container whose aspects
    /// are copied, or null.
    static FieldContainerPtr make(std::size_t bytes, Construct construct,
                                  const FieldContainerPtr& source);
    static void destroy(const FieldContainerPtrBase& container);

    template <class T, class TypedPtr> static TypedPtr makeNew() {
        return TypedPtr::ofKnownClass(make(sizeof(T), &constructNew<T>, FieldContainerPtr()));
    }
    template <class T> static FieldContainerPtr makeCopy(const T& source) {
        return make(sizeof(T), &constructCopy<T>, FieldContainerPtr(source));
    }

  private:
    template <class T> static void constructNew(void* place, const FieldContainer*) {
        ::new (place) T();
    }
    template <class T> static void constructCopy(void* place, const FieldContainer* source) {
        ::new (place) T(*static_cast<const T*>(source));
    }
};

template <class BasePtr, class FC>
bool FCPtr<BasePtr, FC>::isOfClass(const FieldContainerPtrBase& untyped) {
    return untyped != NullFC &&
           dynamic_cast<FC*>(reinterpret_cast<FieldContainer*>(untyped.getBaseCPtr())) != nullptr;
}

/// Name of a class: its text, or for a template over a description what the description says.
template <class C, class = void> struct ContainerClassName {
    static const Char8* of(const Char8* text) { return text; }
};
template <class C> struct ContainerClassName<C, std::void_t<typename C::PropertyDesc>> {
    static const Char8* of(const Char8*) { return C::PropertyDesc::getTypeName(); }
};

/// Without a name for the pointer: attachment containers, attachments, node cores.
#define OSG_CONTAINER_DECL_BASE(CLASS, PARENT)                                                     \
  public:                                                                                          \
    typedef PARENT Inherited;                                                                      \
    static const OSG::Char8* getClassName() { return OSG::ContainerClassName<CLASS>::of(#CLASS); } \
    static OSG::FieldContainerType& getClassType();                                                \
    static OSG::UInt32 getClassTypeId() { return getClassType().getId(); }                         \
    static OSG::UInt16 getClassGroupId() { return getClassType().getGroupId(); }                   \
    OSG::FieldContainerType& getType() override { return getClassType(); }                         \
    const OSG::FieldContainerType& getType() const override { return getClassType(); }             \
    OSG::UInt32 getContainerSize() const override { return sizeof(CLASS); }                        \
    OSG::UInt32 getBinSize(const OSG::BitVector& which) override {                                 \
        return this->binSizeOf(getClassType(), which);                                             \
    }                                                                                              \
    void copyToBin(OSG::BinaryDataHandler& out, const OSG::BitVector& which) override {            \
        this->fieldsToBin(getClassType(), out, which);                                             \
    }                                                                                              \
    void copyFromBin(OSG::BinaryDataHandler& in, const OSG::BitVector& which) override {           \
        this->fieldsFromBin(getClassType(), in, which);                                            \
    }

#define OSG_CONTAINER_DECL_ABSTRACT(CLASS, PARENT, PTR)                                            \
    OSG_CONTAINER_DECL_BASE(CLASS, PARENT)                                                         \
    typedef PTR Ptr;

/// What every class that can be made has; the pointer's name is up to the class.
#define OSG_CONTAINER_MAKERS(CLASS, PTR)                                                           \
    static PTR create() { return OSG::ContainerAllocator::makeNew<CLASS, PTR>(); }                 \
    static PTR createEmpty() { return create(); }                                                  \
    static OSG::FieldContainerPtr createUntyped() { return create(); }                             \
    OSG::FieldContainerPtr shallowCopy() const override {                                          \
        return OSG::ContainerAllocator::makeCopy<CLASS>(*this);                                    \
    }                                                                                              \
                                                                                                   \
  protected:                                                                                       \
    friend class OSG::ContainerAllocator;

#define OSG_CONTAINER_DECL(CLASS, PARENT, PTR)                                                     \
    OSG_CONTAINER_DECL_ABSTRACT(CLASS, PARENT, PTR)                                                \
    OSG_CONTAINER_MAKERS(CLASS, PTR)                                                               \
    PTR getPtr() const { return PTR(*this); }

// Masks are constants at run time alone: `case`, `constexpr` and template arguments reject them, as
// they do where masks are defined out of sight.
#define OSG_FIELD(NAME, ID)                                                                        \
    static constexpr OSG::UInt32 NAME##FieldId = ID;                                               \
    inline static const OSG::BitVector& NAME##FieldMask = OSG::osgFieldMasks.of[ID];

template <class C, class F, F C::*member> Field* fieldOfContainer(FieldContainer& container) {
    return &(static_cast<C&>(container).*member);
}

#define OSG_FIELD_DESC(CLASS, MEMBER, TEXT, NAME, INTERNAL)                                        \
    new OSG::FieldDescription(                                                                     \
        decltype(CLASS::MEMBER)::getClassType(), TEXT, CLASS::NAME##FieldId,                       \
        CLASS::NAME##FieldMask, INTERNAL,                                                          \
        &OSG::fieldOfContainer<CLASS, decltype(CLASS::MEMBER), &CLASS::MEMBER>)

#define OSG_CONTAINER_DEF_FULL(CLASS, NAME, GROUP, CREATE, ...)                                    \
    OSG::FieldContainerType& CLASS::getClassType() {                                               \
        static OSG::FieldContainerType& type = *new OSG::FieldContainerType(                       \
            NAME, &Inherited::getClassType(), GROUP, CREATE, {__VA_ARGS__});                       \
        return type;                                                                               \
    }

/// In namespace osg, once per class; the trailing arguments are the class's own fields.
#define OSG_CONTAINER_DEF(CLASS, GROUP, ...)                                                       \
    OSG_CONTAINER_DEF_FULL(CLASS, #CLASS, GROUP, &CLASS::createUntyped, __VA_ARGS__)               \
    static const OSG::FieldContainerType& registered##CLASS = CLASS::getClassType();
#define OSG_CONTAINER_DEF_ABSTRACT(CLASS, GROUP, ...)                                              \
    OSG_CONTAINER_DEF_FULL(CLASS, #CLASS, GROUP, nullptr, __VA_ARGS__)                             \
    static const OSG::FieldContainerType& registered##CLASS = CLASS::getClassType();

OSG_END_NAMESPACE

#include "OSGFieldContainerType.h"
