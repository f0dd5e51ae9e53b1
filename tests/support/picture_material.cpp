#include "picture_material.h"

#include <set>
#include <string>

#include <OpenSG/OSGFieldContainerType.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

#include "test.h"

namespace morva_test {

namespace {

/// All values of a material or chunk in words, without what it holds and belongs to, its image and
/// how that is wrapped.
std::string valuesOf(::osg::FieldContainerPtr container) {
    const std::set<std::string> left_out = {"parents", "attachments", "chunks",   "image",
                                            "wrapS",   "wrapT",       "materials"};
    const ::osg::FieldContainerType& type = container->getType();
    std::string text = std::string(type.getCName()) + "(";
    for (::osg::UInt32 id = 1; id <= type.getNumFieldDescs(); ++id) {
        const ::osg::FieldDescription* field = type.getFieldDescription(id);
        if (field == nullptr || field->isInternal() || left_out.count(field->getCName()) > 0)
            continue;
        std::string value;
        text += std::string(field->getCName()) + "=" +
                container->getField(id)->getValueByStr(value) + " ";
    }
    return text + ")";
}

} // namespace

::osg::MaterialPtr materialOf(const ::osg::NodePtr& node) {
    const ::osg::MaterialPtr own = coreOf(node)->getMaterial();
    ::osg::MaterialPtr outermost = ::osg::NullFC;
    for (::osg::NodePtr up = node->getParent(); up != ::osg::NullFC; up = up->getParent()) {
        const auto group = ::osg::MaterialGroupPtr::dcast(up->getCore());
        if (group != ::osg::NullFC)
            outermost = group->getMaterial();
    }
    return own != ::osg::NullFC ? own : outermost;
}

::osg::ImagePtr describe(const ::osg::MaterialPtr& material, pictured_node& shown) {
    ::osg::ImagePtr image = ::osg::NullFC;
    shown.wrap = {repeating, repeating};
    shown.material = material == ::osg::NullFC ? "none" : valuesOf(material);
    const auto plain = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    const auto chunked = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunked != ::osg::NullFC) {
        for (const ::osg::StateChunkPtr& chunk : *chunked->getMFChunks()) {
            shown.material += valuesOf(chunk);
            const auto texture = ::osg::TextureChunkPtr::dcast(chunk);
            if (texture == ::osg::NullFC)
                continue;
            image = texture->getImage();
            shown.wrap = {texture->getWrapS(), texture->getWrapT()};
        }
    }
    if (plain != ::osg::NullFC)
        image = plain->getImage();
    return image;
}

} // namespace morva_test
