#include "OpenSG/OSGChangeList.h"

#include "OpenSG/OSGBaseFunctions.h"
#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGThread.h"

#include <atomic>

OSG_BEGIN_NAMESPACE

namespace {

std::atomic<bool> readWriteDefault{false};

/// The calling thread looks at this aspect for a while.
struct aspect_for_now {
    const UInt32 usual = osgCurrentAspect;
    explicit aspect_for_now(UInt32 aspect) { osgCurrentAspect = aspect; }
    ~aspect_for_now() { osgCurrentAspect = usual; }
};

template <class Store> void append(Store& to, const Store& from) {
    to.insert(to.end(), from.begin(), from.end());
}

} // namespace

ChangeList::ChangeList(UInt32 aspect) : _aspect(aspect), _readOnly(!readWriteDefault) {}

void ChangeList::setReadOnly(bool readOnly) { _readOnly = readOnly; }

void ChangeList::setReadWriteDefault(bool readWrite) {
    readWriteDefault = readWrite;
    if (osgIsInitialized())
        SWARNING << "ChangeList::setReadWriteDefault: lists that exist stay as they are" << endLog;
    else
        Thread::getCurrentChangeList()->setReadOnly(!readWrite);
}

void ChangeList::addChanged(const FieldContainerPtr& container, BitVector which) {
    if (!_readOnly && container != NullFC) {
        _changed.emplace_back(container.getFieldContainerId(), which);
    }
}

void ChangeList::addAddRefd(const FieldContainerPtrBase& container) {
    if (!_readOnly && container != NullFC)
        _addRefd.push_back(container.getFieldContainerId());
}

void ChangeList::addSubRefd(const FieldContainerPtrBase& container) {
    if (!_readOnly && container != NullFC)
        _subRefd.push_back(container.getFieldContainerId());
}

void ChangeList::addCreated(UInt32 containerId) {
    if (!_readOnly)
        _created.push_back(containerId);
}

void ChangeList::addDestroyed(UInt32 containerId) {
    if (!_readOnly)
        _destroyed.push_back(containerId);
}

void ChangeList::clearAll() {
    _changed.clear();
    _addRefd.clear();
    _subRefd.clear();
    _created.clear();
    _destroyed.clear();
}

bool ChangeList::empty() const {
    return _changed.empty() && _addRefd.empty() && _subRefd.empty() && _created.empty() &&
           _destroyed.empty();
}

void ChangeList::swap(ChangeList& other) {
    _changed.swap(other._changed);
    _addRefd.swap(other._addRefd);
    _subRefd.swap(other._subRefd);
    _created.swap(other._created);
    _destroyed.swap(other._destroyed);
}

bool ChangeList::merge(const ChangeList& other) {
    if (&other == this)
        return false;
    append(_changed, other._changed);
    append(_addRefd, other._addRefd);
    append(_subRefd, other._subRefd);
    append(_created, other._created);
    append(_destroyed, other._destroyed);
    return true;
}

void ChangeList::applyTo(UInt32 aspect) {
    if (aspect == _aspect) {
        SWARNING << "ChangeList::applyTo: aspect " << aspect << " is the list's own" << endLog;
        return;
    }
    const FieldContainerFactory& factory = *FieldContainerFactory::the();
    // What is repeated here must not be entered again in the list of the thread that repeats it.
    ChangeList applied(_aspect);
    applied.swap(*this);
    ChangeList& current = *Thread::getCurrentChangeList();
    const bool wasReadOnly = current._readOnly;
    current._readOnly = true;

    // References go up before any goes down, so that nothing dies that is still wanted.
    for (const UInt32 id : applied._addRefd)
        addRefCP(factory.getContainer(id));
    for (const ChangedEntry& entry : applied._changed) {
        const FieldContainerPtr container = factory.getContainer(entry.first);
        if (container == NullFC || osgMax(aspect, _aspect) >= container.head().aspects)
            continue;
        auto* to = reinterpret_cast<FieldContainer*>(container.getAspectCPtr(aspect));
        auto* from = reinterpret_cast<FieldContainer*>(container.getAspectCPtr(_aspect));
        to->executeSync(*from, entry.second);
        const aspect_for_now target(aspect);
        to->changed(entry.second, ChangedOrigin::Sync);
    }
    for (const UInt32 id : applied._subRefd)
        subRefCP(factory.getContainer(id));
    current._readOnly = wasReadOnly;
}

void ChangeList::applyToCurrent() { applyTo(Thread::getAspect()); }

void ChangeList::apply() {
    const ChangeList kept = *this;
    applyToCurrent();
    *this = kept;
}

void ChangeList::dump() const {
    PLOG << "ChangeList: " << sizeChanged() << " changed, " << sizeAddRefd() << " referenced, "
         << sizeSubRefd() << " dropped, " << sizeCreated() << " created, " << sizeDestroyed()
         << " destroyed" << endLog;
}

ChangeList* newThreadChangeList(UInt32 aspect) { return new ChangeList(aspect); }
void deleteThreadChangeList(ChangeList* list) { delete list; }
void clearThreadChangeList(ChangeList* list) { list->clearAll(); }

OSG_END_NAMESPACE
