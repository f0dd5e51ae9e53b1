#pragma once

// A container that was just created and that nobody has taken in yet.
//
// Containers start with a reference count of 0 and nothing collects them, so whoever drops one
// without handing it on must destroy it:
//
//     fresh<::osg::NodePtr> group(newGroupNode());
//     group->addChild(child);          // may throw: the group then goes with its children
//     return group.release();          // now the caller's
//
// One thread; the holder keeps no reference, so release() leaves the count at 0.

#include <utility>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

namespace morva::osg {

/// Destroys its container at the end of the scope, unless it was released or somebody holds a
/// reference by then.
template <typename Ptr> class fresh {
  public:
    explicit fresh(const Ptr& container) : held(container) {}
    fresh(const fresh&) = delete;
    fresh& operator=(const fresh&) = delete;
    ~fresh() { reset(Ptr()); }

    const Ptr& get() const { return held; }
    auto operator->() const { return held.operator->(); }

    /// Takes another container in place of the one so far, which goes as at the end of the scope.
    void reset(const Ptr& container) {
        const Ptr old = std::exchange(held, container);
        if (old == ::osg::NullFC)
            return;
        ::osg::addRefCP(old);
        ::osg::subRefCP(old);
    }

    /// Hands the container on; the caller answers for it.
    Ptr release() {
        const Ptr result = held;
        held = Ptr();
        return result;
    }

  private:
    Ptr held;
};

/// Makes a node with the given core, which goes with it if that fails.
inline ::osg::NodePtr newNodeWith(const ::osg::NodeCorePtr& core) {
    const ::osg::RefPtr<::osg::NodeCorePtr> held(core);
    const ::osg::NodePtr node = ::osg::Node::create();
    ::osg::beginEditCP(node, ::osg::Node::CoreFieldMask);
    node->setCore(core);
    ::osg::endEditCP(node, ::osg::Node::CoreFieldMask);
    return node;
}

/// Makes a node with an empty group core.
inline ::osg::NodePtr newGroupNode() { return newNodeWith(::osg::Group::create()); }

/// For a node that is a geometry itself: a group over a node that shares its core. Null for others.
inline ::osg::NodePtr newStandIn(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC || ::osg::GeometryPtr::dcast(node->getCore()) == ::osg::NullFC)
        return ::osg::NullFC;
    fresh<::osg::NodePtr> top(newGroupNode());
    top->addChild(newNodeWith(node->getCore()));
    return top.release();
}

/// Where a pass over the parts of a scene starts: at its root, or in the place of a root that is
/// a geometry at a stand-in, so that the root stays where it is. The stand-in goes with this.
class walk_start {
  public:
    explicit walk_start(const ::osg::NodePtr& root) : given(root), stand_in(newStandIn(root)) {}
    const ::osg::NodePtr& get() const {
        return stand_in.get() == ::osg::NullFC ? given : stand_in.get();
    }

  private:
    ::osg::NodePtr given;
    fresh<::osg::NodePtr> stand_in;
};

} // namespace morva::osg
