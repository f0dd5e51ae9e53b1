#include <morva/core/morva_osg_edits.h>

namespace morva::osg {

using ::osg::AttachmentPtr;
using ::osg::Node;
using ::osg::NodePtr;

void addChildTo(const NodePtr& parent, NodePtr child) {
    const NodePtr before = child->getParent();
    ::osg::beginEditCP(parent, Node::ChildrenFieldMask);
    ::osg::beginEditCP(child, Node::ParentFieldMask);
    parent->addChild(child);
    ::osg::endEditCP(child, Node::ParentFieldMask);
    ::osg::endEditCP(parent, Node::ChildrenFieldMask);
    if (before != ::osg::NullFC && before != parent)
        ::osg::endEditCP(before, Node::ChildrenFieldMask);
}

void takeChildOff(const NodePtr& parent, ::osg::UInt32 index) {
    const ::osg::RefPtr<NodePtr> child(parent->getChild(index)); // until its parent is entered
    ::osg::beginEditCP(parent, Node::ChildrenFieldMask);
    parent->subChild(index);
    ::osg::endEditCP(parent, Node::ChildrenFieldMask);
    ::osg::endEditCP(child.get(), Node::ParentFieldMask);
}

void giveCore(const NodePtr& node, ::osg::NodeCorePtr core) {
    const ::osg::RefPtr<::osg::NodeCorePtr> before(node->getCore());
    ::osg::beginEditCP(node, Node::CoreFieldMask);
    node->setCore(core);
    ::osg::endEditCP(node, Node::CoreFieldMask);
    ::osg::endEditCP(core, ::osg::NodeCore::ParentsFieldMask);
    ::osg::endEditCP(before.get(), ::osg::NodeCore::ParentsFieldMask);
}

void giveMaterial(const ::osg::GeometryPtr& geometry, ::osg::MaterialPtr material) {
    const open_edit edit(geometry, ::osg::Geometry::MaterialFieldMask);
    geometry->setMaterial(material);
}

namespace {

std::array<::osg::RefPtr<AttachmentPtr>, 15> propertiesOf(const ::osg::GeometryPtr& geometry) {
    const ::osg::Geometry& g = *geometry;
    const auto held = [](const auto& property) {
        return ::osg::RefPtr<AttachmentPtr>(AttachmentPtr(property));
    };
    return {held(g.getTypes()),      held(g.getLengths()),    held(g.getPositions()),
            held(g.getNormals()),    held(g.getColors()),     held(g.getSecondaryColors()),
            held(g.getTexCoords()),  held(g.getTexCoords1()), held(g.getTexCoords2()),
            held(g.getTexCoords3()), held(g.getTexCoords4()), held(g.getTexCoords5()),
            held(g.getTexCoords6()), held(g.getTexCoords7()), held(g.getIndices())};
}

} // namespace

geometry_edit::geometry_edit(const ::osg::GeometryPtr& edited)
    : whole_(edited), geometry_(edited), before_(propertiesOf(edited)) {}

geometry_edit::~geometry_edit() {
    try {
        const auto now = propertiesOf(geometry_);
        for (std::size_t i = 0; i < now.size(); ++i) {
            if (now[i] == before_[i])
                continue;
            ::osg::endEditCP(now[i].get());
            ::osg::endEditCP(before_[i].get(), ::osg::Attachment::ParentsFieldMask);
        }
    } catch (const std::bad_alloc&) {
        // As open_edit.
    }
}

void reportWhole(const ::osg::GeometryPtr& geometry) {
    const open_edit edit(geometry);
    for (const auto& property : propertiesOf(geometry))
        ::osg::endEditCP(property.get());
}

} // namespace morva::osg
