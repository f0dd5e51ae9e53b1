#include <morva/driver/morva_osg_scene_cleanup.h>

#include <map>

#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_node_looks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_taken_children.h>
#include <morva/core/morva_osg_tools.h>

namespace morva::osg {

namespace {

bool isPlainGroup(const ::osg::NodePtr& node) {
    return node->getCore() != ::osg::NullFC &&
           node->getCore()->getType() == ::osg::Group::getClassType();
}

/// Keeps a node with a parent alive while a pass may take it off. A root is nobody's child and
/// can't be taken off; it may carry no reference at all, so that holding it would destroy it.
class held_child {
  public:
    explicit held_child(const ::osg::NodePtr& node) {
        if (node->getParent() != ::osg::NullFC)
            held_ = node;
    }

  private:
    ::osg::RefPtr<::osg::NodePtr> held_;
};

/// Puts `child` in the place of its parent `replaced`: at the end of the list above. With a null
/// child the replaced node just goes.
void replaceByChild(const ::osg::NodePtr& replaced, const ::osg::NodePtr& child) {
    const ::osg::NodePtr parent = replaced->getParent();
    if (child != ::osg::NullFC)
        addChildTo(parent, child);
    takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(replaced)));
}

/// Calls `pass` for each child; a child for which it returns true has left its place, which the
/// next one has taken.
template <class Pass> bool walkShrinkingChildren(const ::osg::NodePtr& node, Pass pass) {
    bool any = false;
    for (::osg::UInt32 i = 0; i < node->getNChildren();) {
        if (pass(node->getChild(i)))
            any = true;
        else
            ++i;
    }
    return any;
}

::osg::NodePtr chosenChild(const ::osg::NodePtr& node) {
    const ::osg::Int32 choice = ::osg::SwitchPtr::dcast(node->getCore())->getChoice();
    if (choice < 0 || static_cast<::osg::UInt32>(choice) >= node->getNChildren()) {
        return ::osg::NullFC;
    }
    return node->getChild(static_cast<::osg::UInt32>(choice));
}

} // namespace

void deleteNode(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    ::osg::NodePtr parent = node->getParent();
    while (parent != ::osg::NullFC) {
        const bool only_child = parent->getNChildren() == 1;
        const ::osg::NodePtr above = parent->getParent();
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(node)));
        if (!only_child)
            return;
        node = parent;
        parent = above;
    }
}

bool removeSwitchParts(::osg::NodePtr node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return false;
    if (!isKindOf<::osg::Switch>(node))
        return walkShrinkingChildren(node, removeSwitchParts);
    if (node->getParent() == ::osg::NullFC)
        return true;

    const ::osg::NodePtr chosen = chosenChild(node);
    replaceByChild(node, chosen);
    removeSwitchParts(chosen);
    return true;
}

bool removeLODParts(::osg::NodePtr node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return false;
    // The child that replaces a level of detail stands at the end of the list, where the walk of
    // the parent still comes by.
    if (!isKindOf<::osg::DistanceLOD>(node))
        return walkShrinkingChildren(node, removeLODParts);
    if (node->getParent() != ::osg::NullFC) {
        replaceByChild(node, node->getNChildren() > 0 ? node->getChild(0) : ::osg::NodePtr());
    }
    return true;
}

namespace {

bool isEmptyGroup(const ::osg::NodePtr& node) {
    return node->getNChildren() == 0 && isKindOf<::osg::Group>(node);
}

/// Takes the empty groups off below `node`; `node` itself stays.
void stripEmptyChildren(const ::osg::NodePtr& node) {
    for (::osg::UInt32 i = node->getNChildren(); i-- > 0;) {
        const ::osg::NodePtr child = node->getChild(i);
        stripEmptyChildren(child);
        if (isEmptyGroup(child))
            takeChildOff(node, i);
    }
}

} // namespace

void removeEmptyParts(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    stripEmptyChildren(node);
    // A node that is left empty makes its parent a candidate, with all that hangs below it.
    for (::osg::NodePtr parent = node->getParent(); parent != ::osg::NullFC && isEmptyGroup(node);
         parent = node->getParent()) {
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(node)));
        stripEmptyChildren(parent);
        node = parent;
    }
}

namespace {

/// Takes off the children for which `removable` returns true, unless that are all.
///
/// returns  whether all are removable, so that the node itself is
template <class Test> bool removeSomeChildren(const ::osg::NodePtr& node, Test removable) {
    std::vector<::osg::UInt32> noted;
    const ::osg::UInt32 count = node->getNChildren();
    for (::osg::UInt32 i = 0; i < count; ++i) {
        if (removable(node->getChild(i)))
            noted.push_back(i);
    }
    if (noted.empty())
        return false;
    if (noted.size() == count)
        return true;
    for (std::size_t i = noted.size(); i-- > 0;)
        takeChildOff(node, noted[i]);
    return false;
}

bool hasNoPrimitives(const ::osg::GeometryPtr& geometry) {
    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    return lengths == ::osg::NullFC || lengths->getSize() == 0 || lengths->getValue(0) == 0;
}

} // namespace

bool removeInvisibleParts(::osg::NodePtr node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return false;
    if (isKindOf<::osg::Geometry>(node)) {
        ::osg::Color4f diffuse, specular, ambient, emission;
        float shininess = 0.f;
        if (!getColor(node, diffuse, specular, ambient, emission, shininess))
            return false;
        if (diffuse[3] < 0.01f) {
            say({"Remove Geometry because of transparency."});
            return true;
        }
    }
    return removeSomeChildren(node, removeInvisibleParts);
}

bool removeNonGeoParts(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return false;
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry != ::osg::NullFC)
        return hasNoPrimitives(geometry);
    if (node->getNChildren() == 0)
        return true;
    if (isKindOf<::osg::Switch>(node) || isKindOf<::osg::DistanceLOD>(node))
        return false;
    return removeSomeChildren(node, removeNonGeoParts);
}

namespace {

/// While the only child is a plain group, its children move up in order.
void pullUpOnlyGroup(const ::osg::NodePtr& node) {
    while (node->getNChildren() == 1 && isPlainGroup(node->getChild(0))) {
        const ::osg::NodePtr group = node->getChild(0);
        while (group->getNChildren() > 0)
            addChildTo(node, group->getChild(0));
        takeChildOff(node, 0);
    }
}

/// Makes a parentless node what its only child is. A child without children is a leaf that gives
/// its core alone; what hangs below another one stays under its looks.
void becomeChild(const ::osg::NodePtr& node, const ::osg::NodePtr& child) {
    const ::osg::RefPtr<::osg::NodePtr> held(child);
    giveCore(node, child->getCore());
    takeChildOff(node, 0);
    if (child->getNChildren() == 0)
        return;
    takeOverLooks(node, child);
    taken_children(child, 0).setHome(node);
}

/// Collapses the subtree. If `node` itself gave way to its only child, its parent is returned:
/// the child stands at the end of the parent's list.
::osg::NodePtr collapse(const ::osg::NodePtr& node, below_choices below) {
    if (below == below_choices::stay &&
        (isKindOf<::osg::Switch>(node) || isKindOf<::osg::DistanceLOD>(node)))
        return ::osg::NullFC;
    pullUpOnlyGroup(node);
    if (node->getNChildren() == 0)
        return ::osg::NullFC;
    if (node->getNChildren() > 1) {
        // What took a child's place comes next; the children in front are done.
        walkShrinkingChildren(node, [below](const ::osg::NodePtr& child) {
            return collapse(child, below) != ::osg::NullFC;
        });
        return ::osg::NullFC;
    }
    if (!isPlainGroup(node))
        return ::osg::NullFC;
    const ::osg::NodePtr child = node->getChild(0);
    const ::osg::NodePtr parent = node->getParent();
    if (parent != ::osg::NullFC) {
        replaceByChild(node, child);
    } else {
        becomeChild(node, child);
    }
    return parent;
}

} // namespace

void removeGroupNodes(::osg::NodePtr node, below_choices below) {
    while (node != ::osg::NullFC)
        node = collapse(node, below);
}

void RemoveGroupNodes(::osg::NodePtr node) { removeGroupNodes(node, below_choices::collapse); }

void RemoveTransforms(::osg::NodePtr node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return;
    if (isKindOf<::osg::Transform>(node) || isKindOf<::osg::ComponentTransform>(node)) {
        giveCore(node, ::osg::Group::create());
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        RemoveTransforms(node->getChild(i));
}

void deleteTravMaskZeroNodes(::osg::NodePtr node) {
    if (node->getTravMask() == 0) {
        deleteNode(node);
        return;
    }
    const held_child held(node);
    std::vector<::osg::NodePtr> children;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        children.push_back(node->getChild(i));
    for (const ::osg::NodePtr& child : children)
        deleteTravMaskZeroNodes(child);
}

void RenameMultipleNodeNames(::osg::NodePtr node, bool geometryOnly) {
    std::map<std::string, std::vector<::osg::NodePtr>> names;
    CollectNodeNames(node, names);
    for (const auto& entry : names) {
        if (entry.second.size() < 2)
            continue;
        unsigned int counter = 0;
        for (const ::osg::NodePtr& bearer : entry.second) {
            if (geometryOnly && !isKindOf<::osg::Geometry>(bearer))
                continue;
            ::osg::setName(bearer, entry.first + "_" + std::to_string(counter++));
        }
    }
}

void nameGeoNodes(::osg::NodePtr node, std::vector<std::string> names) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC || names.empty())
        return;
    if (geometryOf(node) != ::osg::NullFC) {
        ::osg::setName(node, names.back());
        return;
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        nameGeoNodes(node->getChild(i), names);
    }
}

} // namespace morva::osg
