#pragma once

// The nodes that cells are built of: what is done to them before, and how they leave.
//
//     settleSources(nodes);                    materials, before extraction
//     source_removal removal(elements);        makes what is to stay; may throw
//     removal.run();                           takes them off
//
// One thread.

#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

namespace morva::osg {

/// Gives each geometry without a material the one that it shows, on a copy of a core that is shown
/// in other materials, too.
void settleSources(const std::vector<::osg::NodePtr>& nodes);

/// The lines and points of a geometry as a core of their own, with copies of the properties; null
/// if it has none. Picking trees are not taken over.
::osg::GeometryPtr restOf(const ::osg::GeometryPtr& core);

/// Takes nodes off a scene as deleteNode() does, one and all in linear time.
///
/// A node with lines or points stays, in the core that restOf() makes, as do geometry nodes that
/// are left without children. Children of a node that goes come behind the children of its parent,
/// unless they go themselves.
class source_removal {
  public:
    /// nodes   not null, no repetitions; somebody must hold them until run() is done
    /// errors  std::bad_alloc; nothing has changed then
    explicit source_removal(const std::vector<::osg::NodePtr>& nodes);

    void run();

  private:
    using number = ::osg::UInt32; // of a container

    struct staying_node {
        ::osg::NodePtr node;
        ::osg::RefPtr<::osg::GeometryPtr> rest;
    };
    /// A node with children that go, or that come up.
    struct parent_node {
        ::osg::NodePtr node;
        std::size_t children = 0; ///< that it will have
    };

    bool goes(const ::osg::NodePtr& node) const {
        return going_.count(node.getFieldContainerId()) != 0;
    }
    parent_node& parentAbove(const ::osg::NodePtr& node);
    void loseChild(::osg::NodePtr child);
    template <typename Use> void forEachStaying(const ::osg::NodePtr& parent, const Use& use) const;
    void takeOff(const ::osg::NodePtr& parent) const;

    std::vector<staying_node> staying_;
    std::unordered_set<number> going_;
    std::unordered_set<number> emptied_;                ///< groups that go with all below them
    std::unordered_map<number, std::size_t> parent_at_; ///< place in `parents_`
    std::vector<parent_node> parents_;                  ///< none of them in `going_`
};

} // namespace morva::osg
