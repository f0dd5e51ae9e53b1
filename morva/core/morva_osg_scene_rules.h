#pragma once

// The rules that a scene keeps, as text of the first one that is broken:
//
//     EXPECT_EQ(broken_rule_of(root), "");                  what a scene is, cores included
//     const scene_guard guard(root);                        before the first pass
//     guard.after("removeSwitchParts", root);               behind each: still whole
//
// What comes in may be broken, and passes take it as it is. So the guard asks for a whole scene
// only where it met one. Reads the calling thread's aspect; nobody may change the scene meanwhile.

#include <string>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_validate.h>

namespace morva::osg {

/// The first rule that a node's subtree breaks, or an empty text; a null root is no scene and
/// breaks none. Of nodes: each stands once and knows its parent, which holds a reference; its core
/// knows it, as often as it has that core. Of geometry: primitives use the data that there is, all
/// properties that an index leads to have the element, mapping bits stand in one entry. Linear in
/// nodes, indices and vertices.
std::string broken_rule_of(const ::osg::NodePtr& root);

/// Whether a subtree breaks no rule; false, too, without memory to find out.
bool isWhole(const ::osg::NodePtr& root) noexcept;

/// Sees to it that a scene which was whole when it came stays so. Costs nothing without the switch.
class scene_guard {
  public:
    explicit scene_guard(const ::osg::NodePtr& root) : was_whole_(validating && isWhole(root)) {}

    /// Ends the program, naming the stage, if the scene below `root` breaks a rule now.
    void after(const char* stage, const ::osg::NodePtr& root) const {
        if (was_whole_)
            validate(stage, [&root] { return broken_rule_of(root); });
    }

  private:
    bool was_whole_;
};

} // namespace morva::osg
