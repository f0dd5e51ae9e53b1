// One image for all that a cell shows.

#include <morva/textures/morva_osg_cell_textures.h>

#include <map>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_sources.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_images.h>
#include <morva/textures/morva_osg_object_texcoords.h>
#include <morva/textures/morva_osg_placed_record.h>
#include <morva/textures/morva_osg_texcoord_form.h>
#include <morva/textures/morva_osg_texcoords.h>
#include <morva/textures/texturatlas.h>

namespace morva::osg {

namespace {

constexpr unsigned int largest_cell_atlas = 10000;
constexpr int no_picture = -1;

/// The image of a chunk material's last texture chunk; null for none.
::osg::ImagePtr lastTexture(const ::osg::MaterialPtr& material) {
    const auto chunked = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunked == ::osg::NullFC)
        return ::osg::NullFC;
    for (::osg::UInt32 i = chunked->getMFChunks()->size(); i-- > 0;) {
        const auto texture = ::osg::TextureChunkPtr::dcast(chunked->getChunks(i));
        if (texture != ::osg::NullFC)
            return texture->getImage();
    }
    return ::osg::NullFC;
}

/// A material and a texture of it.
::osg::ChunkMaterialPtr newAtlasMaterial(::osg::ImagePtr atlas) {
    fresh<::osg::ChunkMaterialPtr> material(::osg::ChunkMaterial::create());
    const open_edit whole(material.get());
    const ::osg::RefPtr<::osg::MaterialChunkPtr> colors(::osg::MaterialChunk::create());
    const ::osg::RefPtr<::osg::TextureChunkPtr> texture(::osg::TextureChunk::create());
    const open_edit colors_edit(colors.get());
    const open_edit texture_edit(texture.get());
    material->addChunk(colors.get(), -2);
    material->addChunk(texture.get(), -2);
    texture->setImage(atlas);
    return material.release();
}

/// The images of a cell and the one that they go into.
class cell_atlas {
  public:
    cell_atlas(const cell_run& run, atlas_record& record) : run_(run), record_(record) {}

    /// Looks at an object, whose coordinates come into their normal form if it has an image.
    void add(std::size_t object, int optimizetc) {
        int& shown = shown_[static_cast<int>(object)];
        shown = no_picture;
        const std::int64_t element = run_.element(object);
        if (element >= 0)
            shown = numberFor(run_.scene.geosets[element], optimizetc);
    }

    /// Draws the image and moves the coordinates.
    void draw() {
        if (images_.empty())
            return;
        const open_edit pixels(target_.get());
        makeBlack(target_.get(), 2, 2, has_alpha_);
        texturatlas atlas;
        const bool drawn = createAtlas(atlas, images_, false, largest_cell_atlas) &&
                           fillNewTexture(atlas, images_, target_.get(), has_alpha_);
        if (drawn) {
            AdjustAllTexCoords(run_.scene, images_, shown_, static_cast<unsigned int>(run_.first),
                               target_.get());
            recordCellAtlas(target_.get(), images_, pictures_, 0, record_);
        }
        if (target_->getWidth() > 1 && target_->getHeight() > 1)
            ScaleImageToPowerof2(target_.get());
    }

    cell_textures result() const {
        cell_textures sorted;
        textured_objects textured;
        for (const auto& [object, number] : shown_) {
            auto& to = number == no_picture ? sorted.plain : textured.objects;
            to.push_back(static_cast<std::size_t>(object));
        }
        if (!textured.objects.empty()) {
            textured.material = ::osg::MaterialPtr(newAtlasMaterial(target_.get()));
            record_.geometries += textured.objects.size();
            sorted.textured.push_back(textured);
        }
        return sorted;
    }

  private:
    int numberFor(osg_geoset& geoset, int optimizetc) {
        const ::osg::GeometryPtr core = geoset.geometry.get();
        const ::osg::ImagePtr picture = lastTexture(core->getMaterial());
        if (picture == ::osg::NullFC)
            return no_picture;
        const atlas_source& source = sources_.of(picture);
        if (source.pixels == nullptr) {
            record_.leaveOut(picture, atlas_obstacle::image_format);
            return no_picture;
        }
        optimizeTexCoords(geoset, optimizetc, usual_cut_limit);
        float u = 0, v = 0;
        hasTexCoordsGreater1(core->getTexCoords(), u, v, false);
        if (tileCount(u) == 0 || tileCount(v) == 0) {
            record_.leaveOut(picture, atlas_obstacle::no_area);
            return no_picture;
        }
        has_alpha_ = has_alpha_ || source.hasAlpha;
        std::uint32_t number = finder_.find(source);
        if (number >= images_.size())
            number = append(picture, source);
        ImageData& image = images_[number];
        image.maxTexCoordU = u > image.maxTexCoordU ? u : image.maxTexCoordU;
        image.maxTexCoordV = v > image.maxTexCoordV ? v : image.maxTexCoordV;
        return static_cast<int>(number);
    }

    std::uint32_t append(const ::osg::ImagePtr& picture, const atlas_source& source) {
        const auto number = static_cast<std::uint32_t>(images_.size());
        images_.push_back(entryOf(source));
        pictures_.emplace_back(picture);
        finder_.enter(number, source);
        return number;
    }

    const cell_run& run_;
    atlas_record& record_;
    const passing_images passing_; ///< copies in other formats and of other sizes
    atlas_sources sources_{image_equality::first_bytes, other_formats::as_copies};
    image_finder finder_{image_equality::first_bytes};
    std::map<int, int> shown_; ///< object to number in `images_`, or no_picture
    std::vector<ImageData> images_;
    std::vector<::osg::RefPtr<::osg::ImagePtr>> pictures_; ///< that `images_` were first met as
    bool has_alpha_ = false;
    const ::osg::RefPtr<::osg::ImagePtr> target_{::osg::Image::create()};
};

} // namespace

cell_textures textureCell(const cell_run& run, int optimizetc, atlas_record& record) {
    cell_atlas atlas(run, record);
    for (std::size_t object = 0; object < run.count; ++object)
        atlas.add(object, optimizetc);
    atlas.draw();
    return atlas.result();
}

} // namespace morva::osg
