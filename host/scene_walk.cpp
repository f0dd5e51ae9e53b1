#include "scene_walk.h"

#include <cmath>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_tools.h>

namespace morva::host {

namespace {

void collectDrawn(const ::osg::NodePtr& node, std::vector<drawn_node>& found) {
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    if (core != ::osg::NullFC)
        found.push_back({node, core, morva::osg::getMaterial(node)});
    for (const ::osg::NodePtr& child : shownChildren(node))
        collectDrawn(child, found);
}

void collectGeometry(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& found) {
    if (::osg::GeometryPtr::dcast(node->getCore()) != ::osg::NullFC)
        found.push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collectGeometry(node->getChild(i), found);
}

} // namespace

std::vector<drawn_node> drawnNodes(const ::osg::NodePtr& root) {
    std::vector<drawn_node> found;
    if (root->getTravMask() != 0)
        collectDrawn(root, found);
    return found;
}

std::vector<::osg::NodePtr> shownChildren(const ::osg::NodePtr& node) {
    const ::osg::UInt32 count = node->getNChildren();
    ::osg::UInt32 first = 0, end = count;
    const ::osg::SwitchPtr selector = ::osg::SwitchPtr::dcast(node->getCore());
    if (selector != ::osg::NullFC && selector->getChoice() != ::osg::Switch::ALL) {
        const ::osg::Int32 choice = selector->getChoice();
        const bool inside = choice >= 0 && static_cast<::osg::UInt32>(choice) < count;
        first = inside ? static_cast<::osg::UInt32>(choice) : 0;
        end = inside ? first + 1 : 0;
    }
    if (::osg::DistanceLODPtr::dcast(node->getCore()) != ::osg::NullFC)
        end = count == 0 ? 0 : 1;

    std::vector<::osg::NodePtr> shown;
    for (::osg::UInt32 i = first; i < end; ++i) {
        if (node->getChild(i)->getTravMask() != 0)
            shown.push_back(node->getChild(i));
    }
    return shown;
}

std::vector<::osg::MaterialPtr> materialsOf(const ::osg::NodePtr& root) {
    std::vector<::osg::MaterialPtr> materials;
    for (const drawn_node& drawn : drawnNodes(root)) {
        if (drawn.material != ::osg::NullFC)
            materials.push_back(drawn.material);
    }
    return materials;
}

std::vector<::osg::NodePtr> geometryNodes(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> found;
    collectGeometry(root, found);
    return found;
}

bool isHidden(::osg::NodePtr node) {
    while (node != ::osg::NullFC && node->getTravMask() != 0)
        node = node->getParent();
    return node != ::osg::NullFC;
}

std::uint64_t countNodes(const ::osg::NodePtr& root) {
    std::uint64_t count = 1;
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i)
        count += countNodes(root->getChild(i));
    return count;
}

bool placementOf(const ::osg::NodePtr& node, ::osg::Matrix& matrix) {
    const ::osg::TransformPtr transform = ::osg::TransformPtr::dcast(node->getCore());
    if (transform == ::osg::NullFC)
        return false;
    bool identity = true;
    for (::osg::UInt32 column = 0; column < 4; ++column) {
        for (::osg::UInt32 row = 0; row < 4; ++row) {
            const ::osg::Real32 value = transform->getMatrix()[column][row];
            if (!std::isfinite(value))
                return false;
            identity = identity && value == (row == column ? 1.f : 0.f);
        }
    }
    if (!identity)
        matrix = transform->getMatrix();
    return !identity;
}

::osg::MaterialPtr chosenMaterial(const ::osg::MaterialPtr& material) {
    const ::osg::SwitchMaterialPtr selector = ::osg::SwitchMaterialPtr::dcast(material);
    return selector != ::osg::NullFC ? selector->getCurrentMaterial() : material;
}

std::vector<::osg::ImagePtr> imagesOf(const ::osg::MaterialPtr& material) {
    std::vector<::osg::ImagePtr> images;
    const ::osg::MaterialPtr chosen = chosenMaterial(material);
    const ::osg::SimpleTexturedMaterialPtr simple = ::osg::SimpleTexturedMaterialPtr::dcast(chosen);
    if (simple != ::osg::NullFC && simple->getImage() != ::osg::NullFC)
        images.push_back(simple->getImage());
    const ::osg::ChunkMaterialPtr chunks = ::osg::ChunkMaterialPtr::dcast(chosen);
    if (chunks == ::osg::NullFC)
        return images;
    for (const ::osg::StateChunkPtr& chunk : *chunks->getMFChunks()) {
        const ::osg::TextureChunkPtr texture = ::osg::TextureChunkPtr::dcast(chunk);
        if (texture != ::osg::NullFC && texture->getImage() != ::osg::NullFC)
            images.push_back(texture->getImage());
    }
    return images;
}

std::string nameOf(const ::osg::ImagePtr& image) {
    if (!image->getName().empty())
        return image->getName();
    const ::osg::Char8* name = getName(image);
    return name != nullptr ? name : "";
}

} // namespace morva::host
