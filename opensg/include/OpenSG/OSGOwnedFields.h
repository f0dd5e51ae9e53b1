#pragma once

// Fields that hold counted references. Copying and assigning reference the targets, destruction
// drops them; syncing between aspects copies the pointers alone, since a change list repeats the
// counting.

#include "OSGBaseFieldTraits.h"
#include "OSGMField.h"
#include "OSGSField.h"

#include <utility>
#include <vector>

OSG_BEGIN_NAMESPACE

template <class Ptr> class OwnedSField : public SField<Ptr> {
  public:
    OwnedSField() = default;
    OwnedSField(const OwnedSField& other) : SField<Ptr>(other) { addRefCP(this->_value); }
    OwnedSField& operator=(const OwnedSField&) = delete;
    ~OwnedSField() override { clearRefCP(this->_value); }

    /// References the new target before it drops the old one.
    void set(const Ptr& target) {
        const Ptr kept = target; // the argument may be this field's own value
        addRefCP(kept);
        Ptr old = this->_value;
        this->_value = kept;
        subRefCP(old);
    }

    void setAbstrValue(const Field& other) override {
        if (const auto* same = dynamic_cast<const SField<Ptr>*>(&other))
            set(same->getValue());
    }
    void syncFrom(const Field& other) override { SField<Ptr>::setAbstrValue(other); }
    void copyFromBin(BinaryDataHandler& in) override {
        Ptr target;
        FieldDataTraits<Ptr>::copyFromBin(in, target);
        set(target);
    }
};

template <class Ptr> class OwnedMField : public MField<Ptr> {
  public:
    OwnedMField() = default;
    OwnedMField(const OwnedMField& other) : MField<Ptr>(other) {
        for (const Ptr& target : this->_values)
            addRefCP(target);
    }
    OwnedMField& operator=(const OwnedMField&) = delete;
    ~OwnedMField() override { dropAll(); }

    void add(const Ptr& target) {
        addRefCP(target);
        this->_values.push_back(target);
    }
    void removeAt(UInt32 index) {
        assert(index < this->_values.size());
        Ptr target = this->_values[index];
        this->_values.erase(this->_values.begin() + index);
        subRefCP(target);
    }
    void dropAll() {
        std::vector<Ptr> targets;
        targets.swap(this->_values);
        for (Ptr& target : targets)
            subRefCP(target);
    }

    void setAbstrValue(const Field& other) override {
        if (const auto* same = dynamic_cast<const MField<Ptr>*>(&other))
            exchange(same->getValues());
    }
    void syncFrom(const Field& other) override { MField<Ptr>::setAbstrValue(other); }
    void copyFromBin(BinaryDataHandler& in) override {
        MField<Ptr> read;
        read.copyFromBin(in);
        exchange(std::move(read.getValues()));
    }

  private:
    void exchange(std::vector<Ptr> targets) {
        for (const Ptr& target : targets)
            addRefCP(target);
        targets.swap(this->_values);
        for (Ptr& target : targets)
            subRefCP(target);
    }
};

OSG_END_NAMESPACE
