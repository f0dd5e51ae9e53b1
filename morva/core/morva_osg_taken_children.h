#pragma once

// Children that are off their parent for a while.
//
//     {
//         taken_children below(node, 0);     // node has no children
//         below.setHome(parent);             // they are to go there
//     }                                      // parent has them, in their order, behind its own
//
// A list is rebuilt this way in linear time, where taking children off one by one is quadratic.

#include <new>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_edits.h>

namespace morva::osg {

/// Holds the last children of a node, and appends them to their home at the end of the scope.
class taken_children {
  public:
    /// Takes off those from number `first` on.
    taken_children(const ::osg::NodePtr& node, ::osg::UInt32 first) : taken_children(node) {
        children_.reserve(node->getNChildren() - first);
        for (::osg::UInt32 i = node->getNChildren(); i-- > first;) { // the last one at no cost
            children_.emplace_back(node->getChild(i));
            takeChildOff(node, i);
        }
    }
    taken_children(const taken_children&) = delete;
    taken_children& operator=(const taken_children&) = delete;
    ~taken_children() {
        for (std::size_t i = children_.size(); i-- > 0;) {
            try {
                if (children_[i] != ::osg::NullFC)
                    addChildTo(home_, children_[i].get());
            } catch (const std::bad_alloc&) {
                // No room among the children there: this one goes.
            }
        }
    }

    /// Makes the room there first: without it the home so far stays.
    void setHome(const ::osg::NodePtr& home) {
        home->editMFChildren()->reserve(home->getNChildren() + children_.size());
        home_ = home;
    }

    /// Lets the `i`th of those that were taken go.
    void drop(std::size_t i) { children_[children_.size() - 1 - i] = ::osg::NullFC; }

  private:
    explicit taken_children(const ::osg::NodePtr& home) : home_(home) {}

    ::osg::NodePtr home_;
    std::vector<::osg::RefPtr<::osg::NodePtr>> children_; ///< the last one first
};

/// Takes children off, by their places, which rise; the others keep their order.
inline void dropChildren(const ::osg::NodePtr& parent, const std::vector<::osg::UInt32>& places) {
    if (places.empty())
        return;
    taken_children rest(parent, places.front());
    for (const ::osg::UInt32 place : places)
        rest.drop(place - places.front());
}

} // namespace morva::osg
