#pragma once

// Container pointers.
//
// A container lives once per aspect, side by side in one block:
//
//     | head | copy of aspect 0 | copy of aspect 1 | ...
//              ^ store            ^ store + size
//
// A pointer holds the store address, the size of one copy and the container's number, so access is
// store + aspect * size: two loads. Copying a pointer never touches the reference count, and
// comparing pointers never touches the container, which may be gone.
// Threads: counts are atomic; a copy belongs to the threads of its aspect.
//
// Compiled with MORVA_VALIDATE, every access compares the pointer's number with the head's and ends
// the program if the container is gone. Sizes and layout are the same with and without, so that
// code of both kinds may share containers; each checks the accesses that were compiled into it.

#include "OSGAspect.h"
#include "OSGBaseTypes.h"
#include "OSGConfig.h"

#include <atomic>
#include <cassert>
#include <iosfwd>
#include <type_traits>

OSG_BEGIN_NAMESPACE

class FieldContainer;
class NullFieldContainerPtr {};
inline constexpr NullFieldContainerPtr NullFC{};

/// Sets of fields of a container.
struct FieldBits {
    static constexpr BitVector NoField = 0;
    static constexpr BitVector AllFields = ~BitVector(0);
};

/// Where a change came from.
struct ChangedOrigin {
    enum {
        External = 1,
        Sync = 2,
        Child = 4,
        Abstract = 8,
        AbstrIgnoreCore = 0x100,
        AbstrIgnoreChild = 0x200,
        AbstrCheckValid = 0x400,
        AbstrIncRefCount = 0x800
    };
};

/// Stands right before the copy of aspect 0.
struct alignas(16) ContainerHead {
    std::atomic<Int32> references{0};
    UInt32 aspects = 0; ///< copies behind this head
    UInt32 id = 0;      ///< from 1 in order of creation, never reused
};

/// The untyped part of all container pointers. Ordered by creation, so that maps keyed by
/// containers walk in a reproducible order; null comes first.
class OSG_BASE_DLLMAPPING FieldContainerPtrBase {
  public:
    enum : UInt16 { InvalidParentPos = 0xFFFF };

    FieldContainerPtrBase() = default;
    FieldContainerPtrBase(const NullFieldContainerPtr&) {}

    bool operator!() const { return _store == nullptr; }
    explicit operator bool() const { return _store != nullptr; }
    bool operator==(const FieldContainerPtrBase& other) const { return _store == other._store; }
    bool operator!=(const FieldContainerPtrBase& other) const { return _store != other._store; }
    bool operator==(const NullFieldContainerPtr&) const { return _store == nullptr; }
    bool operator!=(const NullFieldContainerPtr&) const { return _store != nullptr; }
    bool operator<(const FieldContainerPtrBase& other) const { return _id < other._id; }

    UInt32 getRefCount() const {
        return _store ? static_cast<UInt32>(head().references.load(std::memory_order_relaxed)) : 0;
    }
    /// Not of null: there is no container to ask.
    UInt32 getFieldContainerId() const {
        assert(_store != nullptr);
        return _id;
    }
    UInt16 getContainerSize() const { return _size; }
    UInt16 getParentFieldPos() const { return _parentPos; }
    void setParentFieldPos(UInt16 position) { _parentPos = position; }

    UInt8* getBaseCPtr() const { return livingStore(); }
    UInt8* getAspectCPtr(UInt32 aspect) const {
        return livingStore() + std::size_t(aspect) * _size;
    }

    ContainerHead& head() const { return headOf(livingStore()); }

  protected:
    static ContainerHead& headOf(UInt8* store) {
        return *reinterpret_cast<ContainerHead*>(store - sizeof(ContainerHead));
    }
    UInt8* currentCopy() const { return getAspectCPtr(osgThreadAspect()); }

    /// Of a container that was not destroyed; null for null.
    UInt8* livingStore() const {
#ifdef MORVA_VALIDATE
        if (_store != nullptr && headOf(_store).id != _id)
            endAtDestroyed(_id);
#endif
        return _store;
    }
    [[noreturn]] static void endAtDestroyed(UInt32 id);

    UInt8* _store = nullptr;
    UInt16 _size = 0;
    UInt16 _parentPos = InvalidParentPos;
    UInt32 _id = 0; ///< ContainerHead::id

    friend class FieldContainerPtr;
};

/// Pointer to any container.
class OSG_BASE_DLLMAPPING FieldContainerPtr : public FieldContainerPtrBase {
  public:
    typedef FieldContainer StoredObjectType;
    typedef FieldContainerPtr ObjectType;

    FieldContainerPtr() = default;
    FieldContainerPtr(const NullFieldContainerPtr&) {}
    explicit FieldContainerPtr(const FieldContainerPtrBase& other) : FieldContainerPtrBase(other) {}
    explicit FieldContainerPtr(const FieldContainer& container);
    FieldContainerPtr& operator=(const NullFieldContainerPtr&) { return *this = ObjectType(); }

    FieldContainer* operator->() const { return getCPtr(); }
    FieldContainer& operator*() const { return *getCPtr(); }
    FieldContainer* getCPtr() const { return reinterpret_cast<FieldContainer*>(currentCopy()); }

    template <class In> static FieldContainerPtr dcast(const In& in) {
        return FieldContainerPtr(static_cast<const FieldContainerPtrBase&>(in));
    }
    static FieldContainerPtr dcast(const NullFieldContainerPtr&) { return ObjectType(); }

    /// Of a raw block whose head has its number; for the allocation of containers alone.
    static FieldContainerPtr ofBlock(UInt8* store, UInt16 bytes) {
        FieldContainerPtr made;
        made._store = store;
        made._size = bytes;
        made._id = headOf(store).id;
        return made;
    }
};

/// Pointer to a container of class FC; derives from the pointer of FC's base class, so that
/// upcasts are implicit. Downcasts go through dcast, which gives null for another class.
template <class BasePtr, class FC> class FCPtr : public BasePtr {
  public:
    typedef FC StoredObjectType;
    typedef FCPtr ObjectType;
    typedef BasePtr Inherited;

    FCPtr() = default;
    FCPtr(const NullFieldContainerPtr&) {}
    explicit FCPtr(const FC& container) : FCPtr(dcast(FieldContainerPtr(container))) {}
    explicit FCPtr(const FC* container) : FCPtr(container ? FCPtr(*container) : FCPtr()) {}
    FCPtr& operator=(const NullFieldContainerPtr&) { return *this = FCPtr(); }

    FC* operator->() const { return getCPtr(); }
    FC& operator*() const { return *getCPtr(); }
    FC* getCPtr() const { return reinterpret_cast<FC*>(this->currentCopy()); }

    template <class In> static FCPtr dcast(const In& in) {
        // A pointer that already has this class (or one derived from it) needs no look at the
        // object; the others ask its dynamic type.
        if constexpr (std::is_convertible_v<const In&, const FCPtr&>) {
            return static_cast<const FCPtr&>(in);
        } else {
            const FieldContainerPtrBase& untyped = in;
            return isOfClass(untyped) ? ofKnownClass(untyped) : FCPtr();
        }
    }
    static FCPtr dcast(const NullFieldContainerPtr&) { return FCPtr(); }

    /// Without a test: the caller knows the class.
    static FCPtr ofKnownClass(const FieldContainerPtrBase& untyped) {
        FCPtr typed;
        static_cast<FieldContainerPtrBase&>(typed) = untyped;
        return typed;
    }

  private:
    static bool isOfClass(const FieldContainerPtrBase& untyped);
};

OSG_BASE_DLLMAPPING void addRefCP(const FieldContainerPtrBase& container);
/// Drops one reference. At 0 or below the container is destroyed and the variable that was
/// passed becomes null; other pointers to it dangle.
OSG_BASE_DLLMAPPING void subRefCP(const FieldContainerPtrBase& container);
/// References `value`, drops the old target of `target`, assigns. Nothing when equal.
OSG_BASE_DLLMAPPING void setRefdCP(FieldContainerPtrBase& target,
                                   const FieldContainerPtrBase& value);
OSG_BASE_DLLMAPPING void clearRefCP(FieldContainerPtrBase& target);
/// Fills in a new container, and destroys it where that throws.
template <class Ptr, class Fill> Ptr filledIn(const Ptr& made, const Fill& fill) {
    try {
        fill(made);
    } catch (...) {
        addRefCP(made);
        subRefCP(Ptr(made));
        throw;
    }
    return made;
}

OSG_BASE_DLLMAPPING void beginEditCP(const FieldContainerPtr& container,
                                     BitVector which = FieldBits::AllFields,
                                     UInt32 origin = ChangedOrigin::External);
/// Enters the change in the thread's change list, then notifies the container; changedCP only
/// notifies, endEditNotChangedCP only enters. Null is accepted.
OSG_BASE_DLLMAPPING void endEditCP(const FieldContainerPtr& container,
                                   BitVector which = FieldBits::AllFields,
                                   UInt32 origin = ChangedOrigin::External);
OSG_BASE_DLLMAPPING void changedCP(const FieldContainerPtr& container,
                                   BitVector which = FieldBits::AllFields,
                                   UInt32 origin = ChangedOrigin::External);
OSG_BASE_DLLMAPPING void endEditNotChangedCP(const FieldContainerPtr& container,
                                             BitVector which = FieldBits::AllFields,
                                             UInt32 origin = ChangedOrigin::External);

OSG_BASE_DLLMAPPING std::ostream& operator<<(std::ostream& out,
                                             const FieldContainerPtrBase& container);

/// Brackets an edit by scope.
class OSG_BASE_DLLMAPPING CPEditor {
  public:
    explicit CPEditor(const FieldContainerPtr& container, BitVector which = FieldBits::AllFields);
    ~CPEditor();
    CPEditor(const CPEditor&) = delete;
    CPEditor& operator=(const CPEditor&) = delete;

  private:
    FieldContainerPtr _container;
    BitVector _which;
};
#define CPEdit(fc, mask) ::OSG::CPEditor fc##Editor(fc, mask)
#define CPEditAll(fc) ::OSG::CPEditor fc##Editor(fc, ::OSG::FieldBits::AllFields)

template <class OutPtr, class InPtr> OutPtr dynamic_fcptr_cast(const InPtr& in) {
    return OutPtr::dcast(in);
}
template <class Ptr> auto getCPtr(const Ptr& pointer) { return pointer.getCPtr(); }
inline UInt32 getRefCount(const FieldContainerPtrBase& pointer) { return pointer.getRefCount(); }
/// 0 for null; numbers of containers start at 1.
inline UInt32 osgIdOrZero(const FieldContainerPtrBase& pointer) {
    return pointer == NullFC ? 0 : pointer.getFieldContainerId();
}
inline UInt32 getContainerId(const FieldContainerPtrBase& pointer) {
    return pointer.getFieldContainerId();
}

OSG_END_NAMESPACE

#include "OSGFieldContainer.h"
