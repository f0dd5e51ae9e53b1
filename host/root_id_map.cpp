#include "root_id_map.h"

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/picking/morva_osg_ray_hits.h>

namespace morva::host {

namespace {

using morva::osg::vertex_property;

::osg::StringAttributeMapRefPtr attributesOf(const ::osg::NodePtr& root, ::osg::UInt16 binding) {
    return ::osg::StringAttributeMapRefPtr(::osg::StringAttributeMapPtr::dcast(
        root->findAttachment(::osg::StringAttributeMap::getClassType(), binding)));
}

/// The coordinate set that a text of the map means: "TC0" to "TC3", else set 7.
vertex_property setOf(const std::string& text) {
    if (text.size() == 3 && text[2] >= '0' && text[2] <= '3')
        return morva::osg::textureUnit(static_cast<std::size_t>(text[2] - '0'));
    return vertex_property::texcoords7;
}

} // namespace

root_id_map::root_id_map(const ::osg::NodePtr& root)
    : sets_(attributesOf(root, 1)), names_(attributesOf(root, 2)) {}

std::string root_id_map::nameOf(const ::osg::NodePtr& node, unsigned int object) const {
    if (sets_ == ::osg::NullFC || names_ == ::osg::NullFC)
        return std::string();
    const ::osg::Char8* const name = getName(node);
    const std::string set = name != nullptr ? sets_->getAttribute(name) : std::string();
    const int id =
        morva::osg::id_of_object(::osg::GeometryPtr::dcast(node->getCore()), object, setOf(set));
    return id < 0 ? std::string() : names_->getAttribute(std::to_string(id));
}

} // namespace morva::host
