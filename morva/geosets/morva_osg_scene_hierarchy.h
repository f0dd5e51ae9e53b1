#pragma once

// How nodes come out of one scene into another, each at its place in the world and with what it
// shows there.
//
//     moved_nodes moved(taking::the_node, group);
//     moved.add(a); moved.add(b);        notes places and settles materials, nothing moves yet
//     moved.detach();
//     moved.hang(group, a);              below a new transform where `a` is not at the origin's
//
//     growHierarchy(group, scene, tree, 0, taking::a_new_node);     recBuild(), input untouched
//
// One thread. Nodes are held until the end, so that who is not hung anywhere goes.

#include <map>
#include <set>
#include <utility>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/geosets/morva_osg_scene_geoset.h>

namespace morva::osg {

/// What comes to the new place.
enum class taking {
    the_node,  ///< the node itself, with all that hangs below it
    a_new_node ///< one with its core, name, mask and other attachments, which are shared; the old
               ///< one stays
};

/// The cores that nodes are to show where no material group is above them any more.
class settled_cores {
  public:
    /// The core for a node: its own, which gets the material that the node shows if it has none,
    /// or else a copy where other nodes show the core in another material. One copy for a core
    /// and a material.
    ::osg::NodeCorePtr coreFor(const ::osg::NodePtr& node);

  private:
    using number = ::osg::UInt32; // of a container

    /// Of each core that came without a material: whether nodes show it in several.
    std::map<number, bool> contested_;
    std::map<std::pair<number, number>, ::osg::RefPtr<::osg::GeometryPtr>> copies_;
};

/// Nodes on their way.
class moved_nodes {
  public:
    /// Nodes that `goal` stands below, or that are it, stay where they are.
    moved_nodes(taking how, const ::osg::NodePtr& goal);

    /// Notes a node that is to go, before anything moves. Null and repeated ones count once.
    void add(const ::osg::NodePtr& node);

    /// Takes all that was noted off the old parents, in linear time; nothing with new nodes.
    void detach();

    /// Puts a noted node, or the new one for it, below `parent`.
    void hang(const ::osg::NodePtr& parent, const ::osg::NodePtr& node) const;

  private:
    struct noted {
        ::osg::RefPtr<::osg::NodePtr> node;
        ::osg::RefPtr<::osg::NodeCorePtr> core; ///< that is to be shown
        ::osg::Matrix to_world;
        bool at_origin = true; ///< `to_world` is the identity
    };

    /// Gives what goes along with a node, hidden or not, the materials that it shows.
    void settleBelow(const ::osg::NodePtr& node);

    taking how_;
    std::set<::osg::UInt32> above_goal_;
    std::map<::osg::UInt32, noted> nodes_; ///< by container number
    std::set<::osg::UInt32> settled_;      ///< nodes below noted ones
    settled_cores cores_;
};

/// recBuild(), with a choice.
template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
void growHierarchy(const ::osg::NodePtr& parent, const osg_scene_geoset<Tree, Setup, Geoset>& scene,
                   const NodeTree& tree, int node, taking how);

} // namespace morva::osg
