#pragma once

// A container that was just created and that nobody has taken in yet.
//
// Containers start with a reference count of 0 and nothing collects them, so whoever drops one
// without handing it on must destroy it:
//
//     fresh<::osg::NodePtr> group(newGroupNode());
//     addChildTo(group.get(), child);  // may throw: the group then goes with its children
//     return group.release();          // now the caller's
//
// One thread; the holder keeps no reference, so release() leaves the count at 0.

#include <utility>

#include <OpenSG/OSGFieldContainerPtr.h>

namespace morva::osg {

/// Destroys its container at the end of the scope, unless it was released or somebody holds a
/// reference by then.
template <typename Ptr> class fresh {
  public:
    explicit fresh(const Ptr& container) : held_(container) {}
    fresh(const fresh&) = delete;
    fresh& operator=(const fresh&) = delete;
    ~fresh() { reset(Ptr()); }

    const Ptr& get() const { return held_; }
    auto operator->() const { return held_.operator->(); }

    /// Takes another container in place of the one so far, which goes as at the end of the scope.
    void reset(const Ptr& container) {
        const Ptr old = std::exchange(held_, container);
        if (old == ::osg::NullFC)
            return;
        ::osg::addRefCP(old);
        ::osg::subRefCP(old);
    }

    /// Hands the container on; the caller answers for it.
    Ptr release() {
        const Ptr result = held_;
        held_ = Ptr();
        return result;
    }

  private:
    Ptr held_;
};

} // namespace morva::osg
