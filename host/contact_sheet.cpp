#include "contact_sheet.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace morva::host {

namespace {

using morva::osg::recorded_atlas;

constexpr std::uint32_t most_width = 4096;

/// Where an atlas goes, in pixels of the sheet; row 0 is the lowest.
struct sheet_place {
    std::uint32_t x, y, width, height;
};

struct sheet_layout {
    std::uint32_t scale = 1; ///< pixels of an atlas along a side of one of the sheet
    std::uint32_t width = 0, height = 0;
    std::vector<sheet_place> places;
};

std::uint32_t shrunk(::osg::Int32 side, std::uint32_t scale) {
    return (static_cast<std::uint32_t>(side) + scale - 1) / scale;
}

std::uint32_t scaleFor(const std::vector<recorded_atlas>& atlases) {
    for (std::uint32_t scale = 1;; scale *= 2) {
        std::uint64_t width = 0;
        std::uint32_t widest = 0;
        for (const recorded_atlas& atlas : atlases) {
            const std::uint32_t own = shrunk(atlas.image->getWidth(), scale);
            width += own;
            widest = std::max(widest, own);
        }
        if (width <= most_width || widest <= 1)
            return scale;
    }
}

sheet_layout layOut(const std::vector<recorded_atlas>& atlases) {
    sheet_layout layout;
    layout.scale = scaleFor(atlases);
    std::uint32_t x = 0, y = 0;
    for (const recorded_atlas& atlas : atlases) {
        const sheet_place place{x, y, shrunk(atlas.image->getWidth(), layout.scale),
                                shrunk(atlas.image->getHeight(), layout.scale)};
        layout.places.push_back(place);
        layout.width = std::max(layout.width, x + place.width);
        layout.height = std::max(layout.height, y + place.height);
        x += place.width;
        if (x >= most_width) {
            x = 0;
            y = layout.height;
        }
    }
    return layout;
}

/// Pixels of an atlas as rows of channels.
struct texels {
    explicit texels(const ::osg::ImagePtr& image)
        : first(image->getData()), channels(image->getComponents()),
          width(static_cast<std::uint32_t>(image->getWidth())),
          height(static_cast<std::uint32_t>(image->getHeight())) {}

    const std::uint8_t* first;
    std::size_t channels; ///< 3 or 4
    std::uint32_t width, height;
};

/// The mean of the texels from (x, y) up to `scale` further along both sides.
void writeMean(const texels& from, std::uint32_t x, std::uint32_t y, std::uint32_t scale,
               std::uint8_t* to) {
    const std::uint32_t right = std::min(x + scale, from.width);
    const std::uint32_t top = std::min(y + scale, from.height);
    std::uint64_t sums[4] = {0, 0, 0, 0};
    for (std::uint32_t row = y; row < top; ++row) {
        const std::uint8_t* texel =
            from.first + (std::size_t{row} * from.width + x) * from.channels;
        for (std::uint32_t column = x; column < right; ++column, texel += from.channels) {
            for (std::size_t k = 0; k < from.channels; ++k)
                sums[k] += texel[k];
        }
    }
    const std::uint64_t count = std::max<std::uint64_t>(1, std::uint64_t{right - x} * (top - y));
    to[3] = 255;
    for (std::size_t k = 0; k < from.channels; ++k)
        to[k] = static_cast<std::uint8_t>((sums[k] + count / 2) / count);
}

void draw(const recorded_atlas& atlas, const sheet_place& place, const sheet_layout& layout,
          std::uint8_t* sheet) {
    const texels from(atlas.image.get());
    if (from.first == nullptr || from.channels < 3)
        return;
    for (std::uint32_t y = 0; y < place.height; ++y) {
        std::uint8_t* to = sheet + (std::size_t{place.y + y} * layout.width + place.x) * 4;
        for (std::uint32_t x = 0; x < place.width; ++x, to += 4)
            writeMean(from, x * layout.scale, y * layout.scale, layout.scale, to);
    }
}

} // namespace

::osg::ImageRefPtr contactSheet(const morva::osg::atlas_record& record) {
    const sheet_layout layout = layOut(record.atlases);
    ::osg::ImageRefPtr sheet(::osg::Image::create());
    const ::osg::ImagePtr image = sheet.get();
    beginEditCP(image);
    const bool made = image->set(::osg::Image::OSG_RGBA_PF, static_cast<::osg::Int32>(layout.width),
                                 static_cast<::osg::Int32>(layout.height)) &&
                      image->getData() != nullptr;
    for (std::size_t i = 0; made && i < layout.places.size(); ++i)
        draw(record.atlases[i], layout.places[i], layout, image->getData());
    endEditCP(image);
    if (!made)
        throw std::bad_alloc();
    return sheet;
}

} // namespace morva::host
