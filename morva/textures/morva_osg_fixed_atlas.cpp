// An atlas of fixed size: its free spaces, the part of it that is kept, and its material.

#include <morva/textures/morva_osg_atlas_images.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <optional>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/textures/morva_osg_kept_part.h>

namespace morva::osg {

namespace {

constexpr unsigned int gl_src_alpha = 770;
constexpr unsigned int gl_one_minus_src_alpha = 771;
constexpr unsigned int gl_ambient_and_diffuse = 5634;
constexpr ::osg::Int32 any_slot = -2;

using space_list = std::list<FreeTextureSpace>;
using space_place = space_list::iterator;

/// Both in one, if the second lies right below or right beside the first with the same side.
std::optional<FreeTextureSpace> joined(const FreeTextureSpace& a, const FreeTextureSpace& b) {
    if (b.y == a.y + a.height && b.width == a.width && b.x == a.x)
        return FreeTextureSpace{a.x, a.y, a.width, a.height + b.height};
    if (b.x == a.x + a.width && b.height == a.height && b.y == a.y)
        return FreeTextureSpace{a.x, a.y, a.width + b.width, a.height};
    return std::nullopt;
}

/// Joins pairs in a list of three parts: new spaces at the front, behind them those that have no
/// pair among themselves, and those that were not looked at.
class space_joiner {
  public:
    space_joiner(space_list& spaces, std::size_t in_front, std::size_t behind)
        : spaces_(spaces), fresh_(in_front), settled_(behind) {}

    /// Joins the first pair; false if there is none.
    bool joinOne() {
        std::size_t number = 0;
        for (space_place a = spaces_.begin(); a != spaces_.end(); ++a, ++number) {
            const bool known = number >= fresh_ && number < fresh_ + settled_;
            if (number >= fresh_ + settled_) // all before it have been through
                settleFront(number);
            std::size_t other = 0;
            for (space_place b = spaces_.begin(); b != spaces_.end(); ++b, ++other) {
                if (known && other == fresh_)
                    break;
                const auto both = a == b ? std::nullopt : joined(*a, *b);
                if (both) {
                    replace({a, number}, {b, other}, *both);
                    return true;
                }
            }
        }
        return false;
    }

  private:
    struct numbered {
        space_place place;
        std::size_t number;
    };

    void settleFront(std::size_t count) {
        fresh_ = 0;
        settled_ = count;
    }

    void replace(const numbered& a, const numbered& b, const FreeTextureSpace& both) {
        std::size_t fresh_left = fresh_;
        std::size_t settled_left = settled_;
        for (const numbered& gone : {a, b}) {
            fresh_left -= gone.number < fresh_ ? 1 : 0;
            settled_left -= gone.number >= fresh_ && gone.number < fresh_ + settled_ ? 1 : 0;
            spaces_.erase(gone.place);
        }
        spaces_.push_front(both);
        fresh_ = fresh_left + 1;
        settled_ = settled_left;
    }

    space_list& spaces_;
    std::size_t fresh_;
    std::size_t settled_;
};

void joinAll(space_joiner joiner) {
    while (joiner.joinOne()) {
    }
}

/// Cuts the kept part out of the whole image; null if that fails.
::osg::ImagePtr cutOut(const ::osg::ImagePtr& whole, std::uint32_t width, std::uint32_t height) {
    try {
        fresh<::osg::ImagePtr> part(::osg::Image::create());
        if (whole->subImage(0, 0, 0, static_cast<::osg::Int32>(width),
                            static_cast<::osg::Int32>(height), 1, part.get()))
            return part.release();
    } catch (const std::bad_alloc&) {
        // The whole image is there.
    }
    return ::osg::NullFC;
}

/// The kept part as an image: the whole one if nothing is cut off, or if that fails.
void makeMinified(FixedTextureAtlas& atlas) {
    atlas.minifiedImage = atlas.image;
    if (atlas.image == ::osg::NullFC ||
        (atlas.usedWidth == atlas.width && atlas.usedHeight == atlas.height))
        return;
    const ::osg::ImagePtr part = cutOut(atlas.image.get(), atlas.usedWidth, atlas.usedHeight);
    if (part != ::osg::NullFC) {
        atlas.minifiedImage = part;
        return;
    }
    atlas.usedWidth = atlas.width;
    atlas.usedHeight = atlas.height;
}

/// Makes a chunk of this kind, fills it and adds it.
template <typename Chunk, typename Fill>
void addNew(const ::osg::ChunkMaterialPtr& material, const Fill& fill) {
    const ::osg::RefPtr<typename Chunk::Ptr> chunk(Chunk::create());
    const open_edit whole(chunk.get());
    fill(chunk.get());
    material->addChunk(chunk.get(), any_slot);
}

void addChunks(const FixedTextureAtlas& atlas, const ::osg::ChunkMaterialPtr& material) {
    const open_edit edit(material);
    try {
        addNew<::osg::TextureChunk>(material, [&atlas](const ::osg::TextureChunkPtr& texture) {
            ::osg::ImagePtr shown = atlas.minifiedImage.get(); // some setters take a reference
            texture->setImage(shown);
        });
        if (atlas.transparent) {
            addNew<::osg::BlendChunk>(material, [](const ::osg::BlendChunkPtr& blending) {
                blending->setSrcFactor(gl_src_alpha);
                blending->setDestFactor(gl_one_minus_src_alpha);
            });
        }
        if (atlas.hasVertexColors) {
            addNew<::osg::MaterialChunk>(material, [](const ::osg::MaterialChunkPtr& colors) {
                colors->setColorMaterial(gl_ambient_and_diffuse);
            });
        }
    } catch (const std::bad_alloc&) {
        material->clearChunks(); // one chunk alone would count as done
        throw;
    }
}

} // namespace

std::uint32_t powerOfTwoFor(std::uint32_t side) {
    std::uint32_t power = 1;
    while (power < side && power < longest_atlas_side)
        power *= 2;
    return power;
}

void settleKeptPart(FixedTextureAtlas& atlas, cut_rule rule) {
    atlas.usedWidth = atlas.width;
    atlas.usedHeight = atlas.height;
    if (atlas.freeSpaces.empty())
        return;
    atlas.combineFreeSpace();
    for (const FreeTextureSpace& space : atlas.freeSpaces) {
        if (space.width == atlas.width)
            atlas.usedHeight = space.y;
    }
    for (const FreeTextureSpace& space : atlas.freeSpaces) {
        if (space.height == atlas.usedHeight && (rule == cut_rule::any_place || space.y == 0))
            atlas.usedWidth = space.x;
    }
    if (atlas.powerOfTwo) {
        atlas.usedHeight = powerOfTwoFor(atlas.usedHeight);
        atlas.usedWidth = powerOfTwoFor(atlas.usedWidth);
    }
}

void combineFreeSpaces(std::list<FreeTextureSpace>& spaces, std::size_t in_front) {
    joinAll({spaces, in_front, spaces.size() - std::min(in_front, spaces.size())});
}

void FixedTextureAtlas::combineFreeSpace() { joinAll({freeSpaces, 0, 0}); }

::osg::ChunkMaterialPtr FixedTextureAtlas::getMinifiedMaterial() {
    if (minifiedImage == ::osg::NullFC) {
        settleKeptPart(*this, cut_rule::any_place);
        makeMinified(*this);
    }
    if (minifiedMaterial == ::osg::NullFC)
        minifiedMaterial = ::osg::ChunkMaterial::create();
    if (minifiedMaterial->getMFChunks()->empty())
        addChunks(*this, minifiedMaterial.get());
    return minifiedMaterial.get();
}

} // namespace morva::osg
