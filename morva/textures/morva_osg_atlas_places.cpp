#include <morva/textures/morva_osg_atlas_places.h>

#include <algorithm>
#include <list>
#include <new>

#include <morva/core/morva_osg_edits.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_images.h>
#include <morva/textures/morva_osg_kept_part.h>
#include <morva/textures/morva_osg_scene_atlas.h>

namespace morva::osg {

namespace {

constexpr std::uint32_t shortest_atlas_side = 32;

struct room {
    std::uint32_t width, height;
};

/// The free spaces of an atlas while images come in.
class free_spaces {
  public:
    explicit free_spaces(std::list<FreeTextureSpace>& spaces) : spaces_(spaces) {}

    bool empty() const { return spaces_.empty(); }

    /// Takes a place for this much room; false if there is none.
    bool take(const room& wanted, FreeTextureSpace& place) {
        space_place best = spaces_.end();
        std::uint32_t least = 0;
        for (space_place space = spaces_.begin(); space != spaces_.end(); ++space) {
            if (space->width < wanted.width || space->height < wanted.height)
                continue;
            if (space->width == wanted.width && space->height == wanted.height) {
                place = *space;
                spaces_.erase(space);
                return true;
            }
            const std::uint32_t waste = space->width * space->height - wanted.width * wanted.height;
            if (best == spaces_.end() || waste < least) {
                best = space;
                least = waste;
            }
        }
        if (best == spaces_.end())
            return false;
        place = *best;
        split(best, wanted);
        return true;
    }

  private:
    using space_place = std::list<FreeTextureSpace>::iterator;

    /// Leaves what is below, over the full width, and what is beside the taken room.
    void split(space_place space, const room& taken) {
        const FreeTextureSpace whole = *space;
        std::size_t made = 0;
        if (taken.height < whole.height) {
            spaces_.push_front(
                {whole.x, whole.y + taken.height, whole.width, whole.height - taken.height});
            ++made;
        }
        if (taken.width < whole.width) {
            spaces_.push_front(
                {whole.x + taken.width, whole.y, whole.width - taken.width, taken.height});
            ++made;
        }
        spaces_.erase(space);
        // What came in may have pairs; after the first time only the new ones do.
        combineFreeSpaces(spaces_, joined_ ? made : spaces_.size());
        joined_ = true;
    }

    std::list<FreeTextureSpace>& spaces_;
    bool joined_ = false;
};

void draw(const canvas& target, const ImageData& image, unsigned int padding,
          const pixel_recipe* recipe) {
    const image_footprint room = footprintOf(image, padding);
    const drawn_area area{image.x - room.inset, image.y - room.inset, room.width, room.height};
    drawRepeated(target, area, image, image.x, image.y, recipe);
}

} // namespace

atlas_form formFor(unsigned int textureSize, bool transparent, bool hasVertexColors) {
    atlas_form form;
    form.rounded_side = 1;
    for (int doublings = 0; doublings < 31 && form.rounded_side < textureSize; ++doublings)
        form.rounded_side *= 2;
    form.side = std::max(std::min(form.rounded_side, longest_atlas_side), shortest_atlas_side);
    form.transparent = transparent;
    form.hasVertexColors = hasVertexColors;
    return form;
}

FixedTextureAtlas emptyAtlas(const atlas_form& form, std::uint32_t index) {
    FixedTextureAtlas atlas;
    atlas.width = atlas.height = form.side;
    atlas.usedWidth = atlas.usedHeight = form.rounded_side;
    atlas.index = index;
    atlas.transparent = form.transparent;
    atlas.hasVertexColors = form.hasVertexColors;
    atlas.powerOfTwo = true;
    atlas.freeSpaces.push_back({0, 0, form.side, form.side});
    return atlas;
}

std::vector<std::size_t> placeImages(std::vector<ImageData>& images, FixedTextureAtlas& atlas,
                                     unsigned int padding) {
    std::vector<std::size_t> placed;
    placed.reserve(images.size()); // a place that is taken is told
    free_spaces spaces(atlas.freeSpaces);
    for (std::size_t i = 0; i < images.size() && !spaces.empty(); ++i) {
        ImageData& image = images[i];
        if (image.inAtlas)
            continue;
        atlas.minifiedImage = ::osg::NullFC;
        const image_footprint needed = footprintOf(image, padding);
        const room wanted{static_cast<std::uint32_t>(needed.width),
                          static_cast<std::uint32_t>(needed.height)};
        FreeTextureSpace place;
        if (wanted.width == 0 || wanted.height == 0 || !spaces.take(wanted, place))
            continue;
        image.x = static_cast<std::int32_t>(place.x) + needed.inset;
        image.y = static_cast<std::int32_t>(place.y) + needed.inset;
        image.inAtlas = true;
        image.atlasIndex = static_cast<std::int32_t>(atlas.index);
        ++atlas.imageCount;
        placed.push_back(i);
    }
    return placed;
}

bool makeKeptPart(FixedTextureAtlas& atlas, const atlas_form& form,
                  const std::vector<ImageData>& images, const std::vector<std::size_t>& placed,
                  const atlas_sources& sources) {
    settleKeptPart(atlas, form.exact ? cut_rule::whole_side : cut_rule::any_place);
    try {
        const ::osg::RefPtr<::osg::ImagePtr> kept(::osg::Image::create());
        const open_edit edit(kept.get());
        if (!makeBlack(kept.get(), atlas.usedWidth, atlas.usedHeight, atlas.transparent))
            return false;
        const canvas target = canvasOf(kept.get());
        for (const std::size_t number : placed)
            draw(target, images[number], form.padding, sources.recipeOf(images[number]));
        atlas.minifiedImage = kept;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

unsigned int buildOneAtlas(std::vector<ImageData>& images, FixedTextureAtlas& atlas) {
    const std::vector<std::size_t> placed = placeImages(images, atlas, 0);
    const canvas target = atlas.image != ::osg::NullFC ? canvasOf(atlas.image.get()) : canvas();
    if (target.pixels == nullptr || placed.empty())
        return atlas.imageCount;
    const open_edit pixels(atlas.image.get(), ::osg::Image::PixelFieldMask);
    for (const std::size_t number : placed)
        draw(target, images[number], 0, nullptr);
    return atlas.imageCount;
}

} // namespace morva::osg
