#include "OpenSG/OSGFieldContainer.h"

#include "OpenSG/OSGBinaryDataHandler.h"
#include "OpenSG/OSGChangeList.h"
#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGThread.h"
#include "OpenSG/OSGThreadManager.h"

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace {

constexpr field_masks masksOfAllFields() {
    field_masks masks{};
    for (UInt32 i = 0; i < 64; ++i)
        masks.of[i] = BitVector(1) << i;
    return masks;
}

} // namespace

// Computed by the compiler: there before any type of any file registers itself.
const field_masks osgFieldMasks = masksOfAllFields();

namespace {

// Which copy is being constructed: read by FieldContainer's constructor, before any other
// constructor of the object can create containers of its own.
struct copy_in_the_making {
    UInt32 aspect = 0;
    UInt32 bytes = 0;
};
thread_local copy_in_the_making inTheMaking;

// The aspect whose copy of a container this thread makes or destroys right now. A container comes
// and goes in all aspects at once, so the references that its copies take and drop are no change
// of the thread's aspect that a list has to repeat in the others.
enum : UInt32 { NoAspect = 0xFFFFFFFFu };
thread_local UInt32 aspectInHand = NoAspect;

/// Enters a reference taken or dropped in the thread's list. What another aspect's copy did on
/// the way is entered reversed: applying the list then changes no count twice.
void recordReference(const FieldContainerPtrBase& container, bool taken) {
    ChangeList& changes = *Thread::getCurrentChangeList();
    const bool elsewhere = aspectInHand != NoAspect && aspectInHand != changes.getAspect();
    if (taken != elsewhere)
        changes.addAddRefd(container);
    else
        changes.addSubRefd(container);
}

} // namespace

FieldContainer::FieldContainer() : _aspectIndex(inTheMaking.aspect), _bytes(inTheMaking.bytes) {}
FieldContainer::~FieldContainer() = default;

FieldContainerType& FieldContainer::getClassType() {
    static FieldContainerType& type = *new FieldContainerType(
        "FieldContainer", static_cast<FieldContainerType*>(nullptr), nullptr, nullptr, {});
    return type;
}

FieldContainerPtr FieldContainer::getUntypedPtr() const {
    UInt8* self = reinterpret_cast<UInt8*>(const_cast<FieldContainer*>(this));
    return FieldContainerPtr::ofBlock(self - std::size_t(_aspectIndex) * _bytes,
                                      static_cast<UInt16>(_bytes));
}

void FieldContainerPtrBase::endAtDestroyed(UInt32 id) {
    std::fprintf(stderr, "container %u is used after it was destroyed\n", id);
    std::abort();
}

FieldContainerPtr::FieldContainerPtr(const FieldContainer& container)
    : FieldContainerPtr(container.getUntypedPtr()) {}

UInt32 FieldContainer::getTypeId() const { return getType().getId(); }
UInt16 FieldContainer::getGroupId() const { return getType().getGroupId(); }
const Char8* FieldContainer::getTypeName() const { return getType().getCName(); }

Field* FieldContainer::getField(UInt32 fieldId) {
    const FieldDescription* desc = getType().getFieldDescription(fieldId);
    return desc != nullptr ? desc->getField(*this) : nullptr;
}

Field* FieldContainer::getField(const Char8* fieldName) {
    const FieldDescription* desc = getType().findFieldDescription(fieldName);
    return desc != nullptr ? desc->getField(*this) : nullptr;
}

void FieldContainer::changed(BitVector, UInt32) {}

void FieldContainer::executeSync(FieldContainer& other, const BitVector& which) {
    for (const FieldDescription* desc : getType().getFieldDescs()) {
        if ((desc->getFieldMask() & which) == 0)
            continue;
        desc->getField(*this)->syncFrom(*desc->getField(other));
    }
}

UInt32 FieldContainer::getBinSize(const BitVector&) { return 0; }
void FieldContainer::copyToBin(BinaryDataHandler&, const BitVector&) {}
void FieldContainer::copyFromBin(BinaryDataHandler&, const BitVector&) {}

UInt32 FieldContainer::binSizeOf(const FieldContainerType& type, const BitVector& which) {
    UInt32 bytes = 0;
    for (const FieldDescription* desc : type.getFieldDescs()) {
        if ((desc->getFieldMask() & which) != 0)
            bytes += desc->getField(*this)->getBinSize();
    }
    return bytes;
}

void FieldContainer::fieldsToBin(const FieldContainerType& type, BinaryDataHandler& out,
                                 const BitVector& which) {
    for (const FieldDescription* desc : type.getFieldDescs()) {
        if ((desc->getFieldMask() & which) != 0)
            desc->getField(*this)->copyToBin(out);
    }
}

void FieldContainer::fieldsFromBin(const FieldContainerType& type, BinaryDataHandler& in,
                                   const BitVector& which) {
    for (const FieldDescription* desc : type.getFieldDescs()) {
        if ((desc->getFieldMask() & which) != 0)
            desc->getField(*this)->copyFromBin(in);
    }
}

void FieldContainer::dump(UInt32 indent, BitVector) const {
    PLOG << std::string(indent, ' ') << getTypeName() << " "
         << getUntypedPtr().getFieldContainerId() << endLog;
}

namespace {

constexpr std::align_val_t block_alignment{alignof(ContainerHead)};

} // namespace

FieldContainerPtr ContainerAllocator::make(std::size_t bytes, Construct construct,
                                           const FieldContainerPtr& source) {
    const UInt32 aspects =
        source != NullFC ? source.head().aspects : ThreadManager::getNumAspects();
    assert(bytes <= 0xFFFF); // pointers keep it in 16 bits
    const std::size_t total = sizeof(ContainerHead) + bytes * aspects;
    UInt8* block = static_cast<UInt8*>(::operator new(total, block_alignment));

    ContainerHead* head = ::new (block) ContainerHead;
    FieldContainerPtr made;
    const copy_in_the_making outer = inTheMaking;
    const UInt32 outerAspect = aspectInHand;
    try {
        made = FieldContainerFactory::the()->enterContainer(block + sizeof(ContainerHead),
                                                            static_cast<UInt16>(bytes));
        for (; head->aspects < aspects; ++head->aspects) {
            aspectInHand = head->aspects;
            inTheMaking = {head->aspects, static_cast<UInt32>(bytes)};
            const UInt8* copied = source != NullFC ? source.getAspectCPtr(head->aspects) : nullptr;
            construct(made.getAspectCPtr(head->aspects),
                      reinterpret_cast<const FieldContainer*>(copied));
        }
    } catch (...) {
        inTheMaking = outer;
        aspectInHand = outerAspect;
        if (made != NullFC)
            destroy(made);
        else
            ::operator delete(block, block_alignment);
        throw;
    }
    inTheMaking = outer;
    aspectInHand = outerAspect;
    Thread::getCurrentChangeList()->addCreated(head->id);
    return made;
}

void ContainerAllocator::destroy(const FieldContainerPtrBase& container) {
    ContainerHead& head = container.head();
    FieldContainerFactory::the()->leaveContainer(head.id);
    const UInt32 outerAspect = aspectInHand;
    for (UInt32 aspect = 0; aspect < head.aspects; ++aspect) {
        aspectInHand = aspect;
        reinterpret_cast<FieldContainer*>(container.getAspectCPtr(aspect))->~FieldContainer();
    }
    aspectInHand = outerAspect;
    head.~ContainerHead();
    ::operator delete(&head, block_alignment);
}

namespace {

/// Containers that died while another one is being destroyed by this thread; null outside of it.
thread_local std::vector<FieldContainerPtrBase>* dyingNext = nullptr;

/// Destroys a container, and then whatever died with it, one after the other: a long chain of
/// containers needs no deep stack. Without memory for the list the container goes at once: what
/// destroys can't throw.
void destroyInTurn(const FieldContainerPtrBase& dying) {
    if (dyingNext != nullptr) {
        try {
            dyingNext->push_back(dying);
        } catch (const std::bad_alloc&) {
            ContainerAllocator::destroy(dying);
        }
        return;
    }
    std::vector<FieldContainerPtrBase> next;
    dyingNext = &next;
    ContainerAllocator::destroy(dying);
    while (!next.empty()) {
        const FieldContainerPtrBase first = next.back();
        next.pop_back();
        ContainerAllocator::destroy(first);
    }
    dyingNext = nullptr;
}

} // namespace

void addRefCP(const FieldContainerPtrBase& container) {
    if (container == NullFC)
        return;
    container.head().references.fetch_add(1, std::memory_order_relaxed);
    recordReference(container, true);
}

void subRefCP(const FieldContainerPtrBase& container) {
    if (container == NullFC)
        return;
    // A copy: the variable that was passed may belong to what another thread destroys from here on.
    const FieldContainerPtrBase dying = container;
    const Int32 before = dying.head().references.fetch_sub(1, std::memory_order_acq_rel);
    if (before > 1) {
        recordReference(dying, false);
        return;
    }
    Thread::getCurrentChangeList()->addDestroyed(dying.getFieldContainerId());
    // The destructors may reach the variable that was passed; it is null before they run.
    const_cast<FieldContainerPtrBase&>(container) = FieldContainerPtrBase();
    destroyInTurn(dying);
}

void setRefdCP(FieldContainerPtrBase& target, const FieldContainerPtrBase& value) {
    if (target == value)
        return;
    const FieldContainerPtrBase kept = value;
    addRefCP(kept);
    FieldContainerPtrBase old = target;
    target = kept;
    subRefCP(old);
}

void clearRefCP(FieldContainerPtrBase& target) {
    FieldContainerPtrBase old = target;
    target = FieldContainerPtrBase();
    subRefCP(old);
}

void beginEditCP(const FieldContainerPtr&, BitVector, UInt32) {}

void endEditCP(const FieldContainerPtr& container, BitVector which, UInt32 origin) {
    if (container == NullFC)
        return;
    Thread::getCurrentChangeList()->addChanged(container, which);
    container->changed(which, origin);
}

void changedCP(const FieldContainerPtr& container, BitVector which, UInt32 origin) {
    if (container != NullFC)
        container->changed(which, origin);
}

void endEditNotChangedCP(const FieldContainerPtr& container, BitVector which, UInt32) {
    Thread::getCurrentChangeList()->addChanged(container, which);
}

std::ostream& operator<<(std::ostream& out, const FieldContainerPtrBase& container) {
    if (container == NullFC)
        return out << "NullFC";
    const FieldContainerPtr typed = FieldContainerPtr::dcast(container);
    return out << typed->getTypeName() << "Ptr:" << container.getFieldContainerId();
}

CPEditor::CPEditor(const FieldContainerPtr& container, BitVector which)
    : _container(container), _which(which) {
    beginEditCP(_container, _which);
}

CPEditor::~CPEditor() { endEditCP(_container, _which); }

OSG_END_NAMESPACE
