#include "geometry_view.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace morva::host {

namespace {

constexpr std::uint32_t no_number = std::numeric_limits<std::uint32_t>::max();

/// Takes over the values of a property, `components` floats each; an empty one stays absent.
template <typename Value>
void take(morva::osg::property_block<Value> block, int components, attribute_view& out) {
    if (block.empty())
        return;
    out.components = components;
    out.count = static_cast<std::uint32_t>(block.size());
    const auto kept = std::make_shared<const morva::osg::property_block<Value>>(std::move(block));
    out.values = &(*kept->data())[0];
    out.storage = kept;
}

/// Colours with the alpha that the generic form would drop.
void takeColors(const ::osg::GeoColorsPtr& property, attribute_view& out) {
    const ::osg::GeoColors4fPtr four = ::osg::GeoColors4fPtr::dcast(property);
    if (four == ::osg::NullFC)
        take(morva::osg::readBlock(property), 3, out);
    else if (four->getSize() != 0)
        take(morva::osg::property_block<::osg::Color4f>({&four->getField()[0], four->getSize()},
                                                        four),
             4, out);
}

} // namespace

template <typename Visit> void geometry_view::forEachAttribute(Visit visit) {
    visit(positions, ::osg::Geometry::MapPosition);
    visit(normals, ::osg::Geometry::MapNormal);
    visit(colors, ::osg::Geometry::MapColor);
    visit(secondary_colors, ::osg::Geometry::MapSecondaryColor);
    for (std::size_t set = 0; set < coordinate_sets; ++set)
        visit(coordinates[set], static_cast<::osg::UInt16>(::osg::Geometry::MapTexCoords << set));
}

geometry_view::geometry_view(const ::osg::GeometryPtr& geometry) {
    using morva::osg::readBlock;
    take(readBlock(geometry->getPositions()), 3, positions);
    take(readBlock(geometry->getNormals()), 3, normals);
    takeColors(geometry->getColors(), colors);
    takeColors(geometry->getSecondaryColors(), secondary_colors);
    take(readBlock(geometry->getTexCoords()), 2, coordinates[0]);
    take(readBlock(geometry->getTexCoords1()), 2, coordinates[1]);
    take(readBlock(geometry->getTexCoords2()), 2, coordinates[2]);
    take(readBlock(geometry->getTexCoords3()), 2, coordinates[3]);
    take(readBlock(geometry->getTexCoords4()), 2, coordinates[4]);
    take(readBlock(geometry->getTexCoords5()), 2, coordinates[5]);
    take(readBlock(geometry->getTexCoords6()), 2, coordinates[6]);
    take(readBlock(geometry->getTexCoords7()), 2, coordinates[7]);
    readIndices(geometry);
    readRuns(geometry);
    checkRanges();
}

void geometry_view::readIndices(const ::osg::GeometryPtr& geometry) {
    corner_count = positions.count;
    if (geometry->getIndices() == ::osg::NullFC)
        return;
    // Without entries there is no vertex, as for all who walk over the geometry.
    index_block_ = morva::osg::readBlock(geometry->getIndices());
    wide_indices = ::osg::GeoIndicesUI32Ptr::dcast(geometry->getIndices()) != ::osg::NullFC;
    indices = index_block_.data();
    index_entries = index_block_.size();
    const auto entries = static_cast<std::uint32_t>(geometry->getMFIndexMapping()->size());
    stride = std::max(1u, entries);
    corner_count = static_cast<std::uint32_t>(index_entries / stride);
    if (entries == 0)
        return;
    forEachAttribute([&](attribute_view& attribute, ::osg::UInt16 bit) {
        const ::osg::Int16 slot = geometry->calcMappingIndex(bit);
        if (slot < 0)
            attribute = attribute_view(); // no number addresses it: as good as absent
        else
            attribute.slot = static_cast<std::uint32_t>(slot);
        one_index_ = one_index_ && (!attribute.present() || attribute.slot == positions.slot);
    });
}

void geometry_view::readRuns(const ::osg::GeometryPtr& geometry) {
    const ::osg::GeoPTypesPtr types = geometry->getTypes();
    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    if (types == ::osg::NullFC)
        return;

    const std::uint32_t count = types->getSize();
    std::uint32_t first = 0;
    for (std::uint32_t i = 0; i < count && first < corner_count; ++i) {
        std::uint32_t length = corner_count;
        if (lengths != ::osg::NullFC) {
            if (i >= lengths->getSize())
                break;
            length = lengths->getValue(i);
        }
        length = std::min(length, corner_count - first);
        if (length != 0)
            runs.push_back({static_cast<std::uint32_t>(types->getValue(i)), first, length});
        first += length;
    }
}

/// Corners that point outside an attribute make the core undrawable; an attribute other than the
/// positions that is too short goes alone.
void geometry_view::checkRanges() {
    if (runs.empty())
        return;
    const std::uint32_t end = runs.back().first + runs.back().length;
    std::vector<std::uint32_t> highest(stride, end - 1);
    if (indices != nullptr) {
        highest.assign(stride, 0);
        const std::size_t entries = static_cast<std::size_t>(end) * stride;
        if (stride == 1) {
            highest[0] = *std::max_element(indices, indices + entries);
        } else {
            for (std::size_t i = 0; i < entries; ++i)
                highest[i % stride] = std::max(highest[i % stride], indices[i]);
        }
    }
    if (!positions.present() || highest[positions.slot] >= positions.count) {
        faulty = true;
        runs.clear();
        return;
    }
    forEachAttribute([&](attribute_view& attribute, ::osg::UInt16) {
        if (attribute.present() && highest[attribute.slot] >= attribute.count)
            attribute = attribute_view();
    });
}

namespace {

/// Which of a corner's numbers some attribute follows, ascending.
std::vector<std::uint32_t> usedSlots(const geometry_view& view) {
    std::vector<std::uint32_t> slots = {view.positions.slot};
    const auto add = [&](const attribute_view& attribute) {
        if (attribute.present())
            slots.push_back(attribute.slot);
    };
    add(view.normals);
    add(view.colors);
    add(view.secondary_colors);
    for (const attribute_view& set : view.coordinates)
        add(set);
    std::sort(slots.begin(), slots.end());
    slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
    return slots;
}

/// Numbers of vertices by the numbers that their corners carry: an open table, exact.
class corner_table {
  public:
    corner_table(const geometry_view& view, std::size_t corners)
        : view_(view), slots_(usedSlots(view)) {
        std::size_t size = 16;
        while (size < 2 * corners)
            size *= 2;
        table_.assign(size, no_number);
    }

    /// The place for the vertex of `corner`: holds its number, or `no_number` if it is new.
    std::uint32_t& find(std::uint32_t corner, const std::vector<std::uint32_t>& first_corner) {
        std::size_t place = hash(corner) & (table_.size() - 1);
        while (table_[place] != no_number && !same(first_corner[table_[place]], corner))
            place = (place + 1) & (table_.size() - 1);
        return table_[place];
    }

  private:
    std::size_t hash(std::uint32_t corner) const {
        std::uint64_t value = 0;
        for (const std::uint32_t slot : slots_)
            value = (value ^ view_.numberAt(slot, corner)) * 0x9E3779B97F4A7C15ull;
        return static_cast<std::size_t>(value >> 20);
    }
    bool same(std::uint32_t one, std::uint32_t other) const {
        return std::all_of(slots_.begin(), slots_.end(), [&](std::uint32_t slot) {
            return view_.numberAt(slot, one) == view_.numberAt(slot, other);
        });
    }

    const geometry_view& view_;
    std::vector<std::uint32_t> slots_;
    std::vector<std::uint32_t> table_;
};

} // namespace

vertex_numbering numberVertices(const geometry_view& view) {
    vertex_numbering result;
    if (view.runs.empty())
        return result;
    const std::uint32_t end = view.runs.back().first + view.runs.back().length;
    result.of_corner.resize(end);
    const auto numberOf = [&](std::uint32_t& place, std::uint32_t corner) {
        if (place == no_number) {
            place = static_cast<std::uint32_t>(result.first_corner.size());
            result.first_corner.push_back(corner);
        }
        result.of_corner[corner] = place;
    };
    if (view.oneIndexPerCorner()) {
        const std::uint32_t slot = view.positions.slot;
        std::vector<std::uint32_t> number(view.positions.count, no_number);
        for (std::uint32_t corner = 0; corner < end; ++corner)
            numberOf(number[view.numberAt(slot, corner)], corner);
    } else {
        corner_table table(view, end);
        for (std::uint32_t corner = 0; corner < end; ++corner)
            numberOf(table.find(corner, result.first_corner), corner);
    }
    return result;
}

} // namespace morva::host
