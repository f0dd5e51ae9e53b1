#pragma once

#include "OSGFieldContainerPtr.h"

#include <utility>
#include <vector>

OSG_BEGIN_NAMESPACE

/// What a thread changed: field masks by container, reference counts, creation, destruction.
/// Lists are read-only by default and then record nothing. A list belongs to its thread.
class OSG_BASE_DLLMAPPING ChangeList {
  public:
    typedef std::pair<UInt32, BitVector> ChangedEntry; ///< container number, fields
    typedef std::vector<ChangedEntry> ChangedStore;
    typedef std::vector<UInt32> IdStore;
    typedef ChangedStore::const_iterator changed_const_iterator;
    typedef IdStore::const_iterator idrefd_const_iterator;

    explicit ChangeList(UInt32 aspect = 0);

    void addChanged(const FieldContainerPtr& container, BitVector which);
    void addAddRefd(const FieldContainerPtrBase& container);
    void addSubRefd(const FieldContainerPtrBase& container);
    void addCreated(UInt32 containerId);
    void addDestroyed(UInt32 containerId);

    changed_const_iterator beginChanged() const { return _changed.begin(); }
    changed_const_iterator endChanged() const { return _changed.end(); }
    UInt32 sizeChanged() const { return static_cast<UInt32>(_changed.size()); }
    idrefd_const_iterator beginAddRefd() const { return _addRefd.begin(); }
    idrefd_const_iterator endAddRefd() const { return _addRefd.end(); }
    UInt32 sizeAddRefd() const { return static_cast<UInt32>(_addRefd.size()); }
    idrefd_const_iterator beginSubRefd() const { return _subRefd.begin(); }
    idrefd_const_iterator endSubRefd() const { return _subRefd.end(); }
    UInt32 sizeSubRefd() const { return static_cast<UInt32>(_subRefd.size()); }
    idrefd_const_iterator beginCreated() const { return _created.begin(); }
    idrefd_const_iterator endCreated() const { return _created.end(); }
    UInt32 sizeCreated() const { return static_cast<UInt32>(_created.size()); }
    idrefd_const_iterator beginDestroyed() const { return _destroyed.begin(); }
    idrefd_const_iterator endDestroyed() const { return _destroyed.end(); }
    UInt32 sizeDestroyed() const { return static_cast<UInt32>(_destroyed.size()); }

    void clearAll();
    bool empty() const;
    void swap(ChangeList& other);
    bool merge(const ChangeList& other);

    UInt32 getAspect() const { return _aspect; }
    void setAspect(UInt32 aspect) { _aspect = aspect; }
    void setReadOnly(bool readOnly);
    /// Lists made from now on record; before osgInit the calling thread's too, later that one stays
    /// as it is, with a warning.
    static void setReadWriteDefault(bool readWrite = true);

    /// Copies the changed fields from this list's aspect to `aspect`, tells the containers there,
    /// repeats the reference changes and clears the list. Nothing, with a warning, for the list's
    /// own aspect.
    void applyTo(UInt32 aspect);
    void applyToCurrent();
    /// Like applyToCurrent, but keeps the entries.
    void apply();
    void applyAndClear() { applyToCurrent(); }
    void dump() const;

  private:
    UInt32 _aspect;
    bool _readOnly;
    ChangedStore _changed;
    IdStore _addRefd;
    IdStore _subRefd;
    IdStore _created;
    IdStore _destroyed;
};

/// Lists of threads; for the thread classes.
OSG_BASE_DLLMAPPING ChangeList* newThreadChangeList(UInt32 aspect);
OSG_BASE_DLLMAPPING void deleteThreadChangeList(ChangeList* list);
OSG_BASE_DLLMAPPING void clearThreadChangeList(ChangeList* list);

OSG_END_NAMESPACE
