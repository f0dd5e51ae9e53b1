#include <morva/textures/morva_osg_atlas_sources.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/textures/morva_osg_kept_images.h>

namespace morva::osg {

namespace {

pixel_recipe recipeFor(::osg::UInt32 format) {
    switch (format) {
    case ::osg::Image::OSG_L_PF:
    case ::osg::Image::OSG_I_PF:
        return {1, false, 0, 0, 0};
    case ::osg::Image::OSG_LA_PF:
        return {2, true, 0, 0, 0};
    case ::osg::Image::OSG_A_PF:
        return {1, true, 0, 0, 0}; // 255 throughout, so that it is white by itself
    case ::osg::Image::OSG_BGR_PF:
        return {3, false, 2, 1, 0};
    case ::osg::Image::OSG_BGRA_PF:
        return {4, true, 2, 1, 0};
    default:
        return {};
    }
}

std::size_t pixelsIn(std::uint32_t width, std::uint32_t height) {
    return static_cast<std::size_t>(width) * height;
}

/// Hashes bytes that come in pieces, eight at a time (multiply and fold). All pieces but the last
/// are multiples of eight bytes.
class byte_hash {
  public:
    explicit byte_hash(std::uint64_t seed) : hash_(seed * odd) {}

    void add(const unsigned char* bytes, std::size_t count) {
        std::size_t done = 0;
        for (; done + 8 <= count; done += 8) {
            std::uint64_t value = 0;
            std::memcpy(&value, bytes + done, 8);
            mix(value);
        }
        for (; done < count; ++done)
            mix(bytes[done]);
    }
    std::uint64_t value() const { return hash_; }

  private:
    static constexpr std::uint64_t odd = 0x9E3779B97F4A7C15ULL;

    void mix(std::uint64_t value) {
        hash_ = (hash_ ^ value) * odd;
        hash_ ^= hash_ >> 29U;
    }

    std::uint64_t hash_;
};

/// Bytes that are compared.
std::size_t comparedBytes(image_equality equality, const atlas_source& source) {
    const std::size_t channels = source.hasAlpha ? 4 : 3;
    return pixelsIn(source.width, source.height) *
           (equality == image_equality::whole ? channels : 1);
}

/// RGB or RGBA bytes of an image, a piece at a time.
class byte_reader {
  public:
    /// A multiple of eight, and of whole pixels in three channels.
    static constexpr std::size_t piece = 12288;

    explicit byte_reader(const atlas_source& source) : source_(source) {}

    /// `count` bytes from `first` on, a multiple of `piece`; valid until the next call. At most
    /// `piece` of an image with a recipe.
    const unsigned char* at(std::size_t first, std::size_t count) {
        if (source_.recipe.channels == 0)
            return source_.pixels + first;
        readAsRGB(source_.pixels + first / 3 * source_.recipe.channels,
                  static_cast<std::int64_t>((count + 2) / 3), source_.recipe, buffer_);
        return buffer_;
    }

  private:
    const atlas_source& source_;
    unsigned char buffer_[piece];
};

template <typename Use> void forEachPiece(std::size_t bytes, const Use& use) {
    for (std::size_t first = 0; first < bytes; first += byte_reader::piece)
        use(first, std::min(byte_reader::piece, bytes - first));
}

std::uint64_t hashOf(image_equality equality, const atlas_source& source) {
    byte_hash hash(std::uint64_t{source.width} << 32U | source.height);
    byte_reader reader(source);
    forEachPiece(comparedBytes(equality, source), [&](std::size_t first, std::size_t count) {
        hash.add(reader.at(first, count), count);
    });
    return hash.value();
}

bool areEqual(image_equality equality, const atlas_source& a, const atlas_source& b) {
    if (a.width != b.width || a.height != b.height ||
        (equality == image_equality::whole && a.hasAlpha != b.hasAlpha))
        return false;
    byte_reader left(a), right(b);
    bool equal = true;
    forEachPiece(comparedBytes(equality, a), [&](std::size_t first, std::size_t count) {
        equal = equal && std::memcmp(left.at(first, count), right.at(first, count), count) == 0;
    });
    return equal;
}

/// The recipe for an image that has one; without channels for others.
pixel_recipe recipeOf(const ::osg::ImagePtr& image, std::size_t pixels) {
    const pixel_recipe recipe = recipeFor(image->getPixelFormat());
    if (recipe.channels != 0 && recipe.has_alpha &&
        hasAlphaBelowFull(image->getData(), pixels, recipe.channels))
        return {};
    return recipe;
}

/// Null without memory.
unsigned char* keptCopy(const atlas_source& source) {
    const ::osg::ImagePtr kept = newKeptImage(source.width, source.height, false);
    unsigned char* const to = kept != ::osg::NullFC ? kept->getData() : nullptr;
    if (to != nullptr)
        readAsRGB(source.pixels, static_cast<std::int64_t>(pixelsIn(source.width, source.height)),
                  source.recipe, to);
    return to;
}

} // namespace

const atlas_source& atlas_sources::of(const ::osg::ImagePtr& image) {
    const auto [known, is_new] = by_container_.try_emplace(image.getFieldContainerId());
    atlas_source& source = known->second;
    ::osg::UInt8* const pixels = is_new ? image->getData() : nullptr;
    if (pixels == nullptr || image->getDataType() != ::osg::Image::OSG_UINT8_IMAGEDATA ||
        image->getWidth() < 1 || image->getHeight() < 1)
        return source;

    atlas_source found;
    found.pixels = pixels;
    found.width = static_cast<std::uint32_t>(image->getWidth());
    found.height = static_cast<std::uint32_t>(image->getHeight());
    found.hasAlpha = image->getPixelFormat() == ::osg::Image::OSG_RGBA_PF;
    if (!found.hasAlpha && image->getPixelFormat() != ::osg::Image::OSG_RGB_PF) {
        found.recipe = osg::recipeOf(image, pixelsIn(found.width, found.height));
        if (found.recipe.channels == 0)
            return source;
        if (others_ == other_formats::as_copies) {
            found.pixels = keptCopy(found);
            found.recipe = {};
            if (found.pixels == nullptr)
                return source;
        }
    }
    found.hash = hashOf(equality_, found);
    if (found.recipe.channels != 0)
        by_pixels_.emplace(found.pixels, found);
    source = found;
    return source;
}

atlas_source atlas_sources::of(const ImageData& image) const {
    const auto known = by_pixels_.find(image.data);
    if (known != by_pixels_.end())
        return known->second;
    atlas_source source;
    source.pixels = image.data;
    source.width = image.width;
    source.height = image.height;
    source.hasAlpha = image.hasAlpha;
    if (source.pixels != nullptr)
        source.hash = hashOf(equality_, source);
    return source;
}

const pixel_recipe* atlas_sources::recipeOf(const ImageData& image) const {
    const auto known = by_pixels_.find(image.data);
    return known != by_pixels_.end() ? &known->second.recipe : nullptr;
}

void image_finder::enter(std::uint32_t number, const atlas_source& source) {
    if (source.pixels != nullptr)
        entries_[source.hash].push_back({number, source});
}

std::uint32_t image_finder::find(const atlas_source& source) const {
    const auto bucket = entries_.find(source.hash);
    if (bucket != entries_.end()) {
        for (const entry& known : bucket->second) {
            if (areEqual(equality_, known.source, source))
                return known.number;
        }
    }
    return std::numeric_limits<std::uint32_t>::max();
}

} // namespace morva::osg
