#include <morva/textures/morva_osg_atlas_materials.h>

#include <cstddef>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGMaterialMergeGraphOp.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_new_nodes.h>

namespace morva::osg {

namespace {

constexpr unsigned int gl_repeat = 10497;
constexpr unsigned int gl_replace = 7681;
constexpr ::osg::Int32 any_slot = -2;

template <typename Type, typename Ptr> bool isExactly(const Ptr& container) {
    return container->getType() == Type::getClassType();
}

::osg::Int32 slotOf(const ::osg::ChunkMaterialPtr& material, ::osg::UInt32 chunk) {
    const auto& slots = *material->getMFSlots();
    return chunk < slots.size() ? slots[chunk] : any_slot;
}

/// The chunks of a material by kind.
struct chunk_counts {
    std::size_t materials = 0, textures = 0, blends = 0, others = 0;
    bool later_unit = false; ///< a texture that reads another set of coordinates
};

chunk_counts countChunks(const ::osg::ChunkMaterialPtr& material) {
    chunk_counts counts;
    for (::osg::UInt32 i = 0; i < material->getMFChunks()->size(); ++i) {
        const ::osg::StateChunkPtr chunk = material->getChunks(i);
        if (isExactly<::osg::MaterialChunk>(chunk)) {
            ++counts.materials;
        } else if (isExactly<::osg::TextureChunk>(chunk)) {
            ++counts.textures;
            counts.later_unit = counts.later_unit || slotOf(material, i) > 0;
        } else if (isExactly<::osg::BlendChunk>(chunk)) {
            ++counts.blends;
        } else {
            ++counts.others;
        }
    }
    return counts;
}

std::optional<atlas_obstacle> obstacleOf(const chunk_counts& counts, bool has_colors,
                                         bool has_texture) {
    if (counts.textures + (has_texture ? 1 : 0) > 1)
        return atlas_obstacle::several_textures;
    if (counts.others != 0 || counts.later_unit || counts.blends > 1 ||
        counts.materials + (has_colors ? 1 : 0) > 1)
        return atlas_obstacle::other_effects;
    return std::nullopt;
}

/// What takes the colour's place takes that of alpha, too, where the image has some: whether that
/// is another alpha once the image is part of an atlas.
bool losesAlpha(const ::osg::ChunkMaterialPtr& material, bool image_alpha, bool atlas_alpha) {
    if (atlas_alpha)
        return !image_alpha; // it is the material that is transparent
    const auto simple = ::osg::SimpleMaterialPtr::dcast(material);
    return image_alpha && simple != ::osg::NullFC && simple->getTransparency() != 0.0F;
}

/// The texture of a material without obstacle, if it is a chunk.
::osg::TextureChunkPtr textureChunkOf(const ::osg::ChunkMaterialPtr& material) {
    for (::osg::UInt32 i = 0; i < material->getMFChunks()->size(); ++i) {
        const auto chunk = ::osg::TextureChunkPtr::dcast(material->getChunks(i));
        if (chunk != ::osg::NullFC)
            return chunk;
    }
    return ::osg::NullFC;
}

void copyCombiner(const ::osg::TextureChunkPtr& from, const ::osg::TextureChunkPtr& to) {
    to->setEnvMode(from->getEnvMode());
    to->setEnvColor(from->getEnvColor());
    to->setEnvCombineRGB(from->getEnvCombineRGB());
    to->setEnvCombineAlpha(from->getEnvCombineAlpha());
    to->setEnvScaleRGB(from->getEnvScaleRGB());
    to->setEnvScaleAlpha(from->getEnvScaleAlpha());
    to->setEnvSource0RGB(from->getEnvSource0RGB());
    to->setEnvSource1RGB(from->getEnvSource1RGB());
    to->setEnvSource2RGB(from->getEnvSource2RGB());
    to->setEnvSource0Alpha(from->getEnvSource0Alpha());
    to->setEnvSource1Alpha(from->getEnvSource1Alpha());
    to->setEnvSource2Alpha(from->getEnvSource2Alpha());
    to->setEnvOperand0RGB(from->getEnvOperand0RGB());
    to->setEnvOperand1RGB(from->getEnvOperand1RGB());
    to->setEnvOperand2RGB(from->getEnvOperand2RGB());
    to->setEnvOperand0Alpha(from->getEnvOperand0Alpha());
    to->setEnvOperand1Alpha(from->getEnvOperand1Alpha());
    to->setEnvOperand2Alpha(from->getEnvOperand2Alpha());
}

/// The chunk without its image and its wrapping, which is to repeat.
::osg::TextureChunkPtr copyOf(const ::osg::TextureChunkPtr& from) {
    fresh<::osg::TextureChunkPtr> copy(::osg::TextureChunk::create());
    const open_edit whole(copy.get());
    copy->setInternalFormat(from->getInternalFormat());
    copy->setExternalFormat(from->getExternalFormat());
    copy->setScale(from->getScale());
    copy->setFrame(from->getFrame());
    copy->setMinFilter(from->getMinFilter());
    copy->setMagFilter(from->getMagFilter());
    copyCombiner(from, copy.get());
    copy->setPointSprite(from->getPointSprite());
    copy->setPriority(from->getPriority());
    copy->setLodBias(from->getLodBias());
    copy->setTarget(from->getTarget());
    copy->setAnisotropy(from->getAnisotropy());
    copy->setBorderColor(from->getBorderColor());
    copy->setBorderWidth(from->getBorderWidth());
    copy->setNPOTMatrixScale(from->getNPOTMatrixScale());
    return copy.release();
}

/// Shares all chunks but the texture.
void copyChunks(const ::osg::ChunkMaterialPtr& from, const ::osg::ChunkMaterialPtr& to) {
    to->setSortKey(from->getSortKey());
    to->setTransparencyMode(from->getTransparencyMode());
    for (::osg::UInt32 i = 0; i < from->getMFChunks()->size(); ++i) {
        const auto texture = ::osg::TextureChunkPtr::dcast(from->getChunks(i));
        const ::osg::RefPtr<::osg::StateChunkPtr> chunk(
            texture != ::osg::NullFC ? ::osg::StateChunkPtr(copyOf(texture)) : from->getChunks(i));
        to->addChunk(chunk.get(), slotOf(from, i));
    }
}

void copyColors(const ::osg::SimpleMaterialPtr& from, const ::osg::SimpleMaterialPtr& to) {
    to->setAmbient(from->getAmbient());
    to->setDiffuse(from->getDiffuse());
    to->setSpecular(from->getSpecular());
    to->setShininess(from->getShininess());
    to->setEmission(from->getEmission());
    to->setTransparency(from->getTransparency());
    to->setLit(from->getLit());
    to->setColorMaterial(from->getColorMaterial());
}

void copyTexture(const ::osg::SimpleTexturedMaterialPtr& from,
                 const ::osg::SimpleTexturedMaterialPtr& to) {
    to->setMinFilter(from->getMinFilter());
    to->setMagFilter(from->getMagFilter());
    to->setEnvMode(from->getEnvMode());
}

::osg::ChunkMaterialPtr newOfSameKind(const ::osg::ChunkMaterialPtr& material) {
    if (::osg::SimpleTexturedMaterialPtr::dcast(material) != ::osg::NullFC)
        return ::osg::SimpleTexturedMaterial::create();
    if (::osg::SimpleMaterialPtr::dcast(material) != ::osg::NullFC)
        return ::osg::SimpleMaterial::create();
    return ::osg::ChunkMaterial::create();
}

/// A copy under the same name, without an image.
::osg::ChunkMaterialPtr copyOf(const ::osg::ChunkMaterialPtr& from) {
    fresh<::osg::ChunkMaterialPtr> copy(newOfSameKind(from));
    const open_edit whole(copy.get());
    copyChunks(from, copy.get());
    const auto simple = ::osg::SimpleMaterialPtr::dcast(from);
    if (simple != ::osg::NullFC)
        copyColors(simple, ::osg::SimpleMaterialPtr::dcast(copy.get()));
    const auto textured = ::osg::SimpleTexturedMaterialPtr::dcast(from);
    if (textured != ::osg::NullFC)
        copyTexture(textured, ::osg::SimpleTexturedMaterialPtr::dcast(copy.get()));
    if (const ::osg::Char8* name = ::osg::getName(from))
        ::osg::setName(copy.get(), name);
    return copy.release();
}

void giveImage(const ::osg::MaterialPtr& material, ::osg::ImagePtr image) {
    const auto textured = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    if (textured != ::osg::NullFC) {
        const open_edit edit(textured, ::osg::SimpleTexturedMaterial::ImageFieldMask);
        textured->setImage(image);
        return;
    }
    const auto chunk = textureChunkOf(::osg::ChunkMaterialPtr::dcast(material));
    const open_edit edit(chunk, ::osg::TextureChunk::ImageFieldMask);
    chunk->setImage(image);
}

/// A scene with each of the materials in turn.
::osg::NodePtr sceneOf(const std::vector<::osg::RefPtr<::osg::MaterialPtr>>& materials) {
    fresh<::osg::NodePtr> root(newGroupNode());
    for (const auto& material : materials) {
        const ::osg::RefPtr<::osg::MaterialGroupPtr> group(::osg::MaterialGroup::create());
        group->setMaterial(material.get());
        fresh<::osg::NodePtr> node(newNodeWith(group.get()));
        addChildTo(root.get(), node.get());
        node.release();
    }
    return root.release();
}

/// Puts the first of equal materials in the place of the others.
void mergeEqual(std::vector<::osg::RefPtr<::osg::MaterialPtr>>& materials) {
    const fresh<::osg::NodePtr> scene(sceneOf(materials));
    ::osg::NodePtr root = scene.get();
    ::osg::MaterialMergeGraphOp("AtlasMaterials").traverse(root);
    for (std::size_t i = 0; i < materials.size(); ++i) {
        const ::osg::NodePtr node = root->getChild(static_cast<::osg::UInt32>(i));
        materials[i] = ::osg::MaterialGroupPtr::dcast(node->getCore())->getMaterial();
    }
}

} // namespace

texture_use textureUse(const ::osg::MaterialPtr& material, const ::osg::ImagePtr& image,
                       bool transparent) {
    texture_use use;
    const auto chunks = ::osg::ChunkMaterialPtr::dcast(material);
    const auto textured = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    const bool known = isExactly<::osg::ChunkMaterial>(material) ||
                       isExactly<::osg::SimpleMaterial>(material) ||
                       isExactly<::osg::SimpleTexturedMaterial>(material);
    if (!known || chunks == ::osg::NullFC || (textured != ::osg::NullFC && textured->getEnvMap())) {
        use.obstacle = atlas_obstacle::other_effects;
        return use;
    }
    const bool has_colors = ::osg::SimpleMaterialPtr::dcast(material) != ::osg::NullFC;
    use.obstacle = obstacleOf(countChunks(chunks), has_colors, textured != ::osg::NullFC);
    if (use.obstacle)
        return use;
    ::osg::UInt32 mode = gl_replace;
    if (textured != ::osg::NullFC) {
        mode = textured->getEnvMode();
    } else {
        const ::osg::TextureChunkPtr chunk = textureChunkOf(chunks);
        use.repeats_u = chunk->getWrapS() == gl_repeat;
        use.repeats_v = chunk->getWrapT() == gl_repeat;
        mode = chunk->getEnvMode();
    }
    if (mode == gl_replace && losesAlpha(chunks, image->hasAlphaChannel(), transparent))
        use.obstacle = atlas_obstacle::other_effects;
    return use;
}

void material_copies::want(const ::osg::MaterialPtr& material) {
    if (numbers_.try_emplace(material.getFieldContainerId(), sources_.size()).second)
        sources_.emplace_back(material);
}

void material_copies::make(const ::osg::ImagePtr& image) {
    copies_.clear();
    copies_.reserve(sources_.size()); // a new copy is lost if its place can't be made
    for (const auto& source : sources_)
        copies_.emplace_back(copyOf(::osg::ChunkMaterialPtr::dcast(source.get())));
    mergeEqual(copies_);
    for (const auto& copy : copies_)
        giveImage(copy.get(), image);
}

::osg::MaterialPtr material_copies::of(const ::osg::MaterialPtr& material) const {
    const auto found = numbers_.find(material.getFieldContainerId());
    return found != numbers_.end() ? copies_[found->second].get()
                                   : ::osg::MaterialPtr(::osg::NullFC);
}

} // namespace morva::osg
