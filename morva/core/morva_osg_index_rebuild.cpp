// createSharedIndex and createSingleIndex.

#include <morva/core/morva_osg_geometry_tools.h>

#include <cstdint>
#include <cstring>
#include <limits>

#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

constexpr std::uint32_t no_number = std::numeric_limits<std::uint32_t>::max();

/// Spreads the bits of one word over a running hash.
std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 32);
}

/// Open addressing over numbers that are given from 0 up; doubles at two thirds. What equal means
/// is told by the caller, who keeps what the numbers stand for. Each slot carries a part of the
/// hash, so that most misses are seen without a look at the values.
class number_table {
  public:
    number_table() : slots(1024) {}

    template <typename Equal>
    std::uint32_t findOrEnter(std::uint64_t hash, std::uint32_t next, const Equal& equal) {
        if ((next + 1ULL) * 3 > slots.size() * 2)
            grow();
        const auto tag = static_cast<std::uint32_t>(hash >> 32);
        std::size_t i = hash & (slots.size() - 1);
        while (slots[i].number != no_number) {
            if (slots[i].tag == tag && equal(slots[i].number))
                return slots[i].number;
            i = (i + 1) & (slots.size() - 1);
        }
        slots[i] = {next, tag, hash};
        return next;
    }

  private:
    struct slot {
        std::uint32_t number = no_number;
        std::uint32_t tag = 0;
        std::uint64_t hash = 0;
    };

    void grow() {
        std::vector<slot> old(slots.size() * 2);
        old.swap(slots);
        for (const slot& entry : old) {
            if (entry.number == no_number)
                continue;
            std::size_t i = entry.hash & (slots.size() - 1);
            while (slots[i].number != no_number)
                i = (i + 1) & (slots.size() - 1);
            slots[i] = entry;
        }
    }

    std::vector<slot> slots;
};

/// One property on its way: values of the source, and the distinct ones by first use.
template <typename Value, unsigned int N> class distinct_values {
  public:
    explicit distinct_values(property_block<Value> source) : block(std::move(source)) {}

    /// Number of the value at a source index; an index that leads nowhere reads as zero.
    std::uint32_t numberOf(::osg::Int32 index) {
        const auto row = static_cast<std::size_t>(index);
        const bool inside = index >= 0 && row < block.size();
        // The same source index gives the same number again, but for a NaN, which never does.
        if (inside && known.size() < block.size())
            known.resize(block.size(), no_number);
        if (inside && known[row] != no_number)
            return known[row];
        const Value value = inside ? block[row] : Value();
        bool has_nan = false;
        const std::uint32_t number = numberOf(value, has_nan);
        if (inside && !has_nan)
            known[row] = number;
        return number;
    }

    std::vector<Value> values;

  private:
    std::uint32_t numberOf(const Value& value, bool& has_nan) {
        std::uint64_t hash = 0;
        for (unsigned int i = 0; i < N; ++i) {
            has_nan = has_nan || value[i] != value[i];
            const float component = value[i] == 0.0F ? 0.0F : value[i]; // -0 counts as 0
            std::uint32_t bits = 0;
            std::memcpy(&bits, &component, sizeof(bits));
            hash = mixed(hash, bits);
        }
        const auto next = static_cast<std::uint32_t>(values.size());
        if (has_nan) {
            values.push_back(value);
            return next;
        }
        const std::uint32_t number = table.findOrEnter(hash, next, [&](std::uint32_t other) {
            for (unsigned int i = 0; i < N; ++i) {
                if (values[other][i] != value[i])
                    return false;
            }
            return true;
        });
        if (number == next)
            values.push_back(value);
        return number;
    }

    property_block<Value> block;
    std::vector<std::uint32_t> known; ///< per source index: its number once it has one
    number_table table;
};

/// The five properties that are rebuilt, in their one order.
struct five_properties {
    explicit five_properties(const ::osg::GeometryPtr& g)
        : present{g->getPositions() != ::osg::NullFC, g->getNormals() != ::osg::NullFC,
                  g->getColors() != ::osg::NullFC, g->getTexCoords() != ::osg::NullFC,
                  g->getTexCoords7() != ::osg::NullFC},
          positions(readBlock(g->getPositions())), normals(readBlock(g->getNormals())),
          colors(readBlock(g->getColors())), texcoords(readBlock(g->getTexCoords())),
          texcoords7(readBlock(g->getTexCoords7())) {
        for (const bool there : present)
            count += there ? 1 : 0;
    }

    bool present[5];
    unsigned int count = 0;
    distinct_values<::osg::Pnt3f, 3> positions;
    distinct_values<::osg::Vec3f, 3> normals;
    distinct_values<::osg::Color3f, 3> colors;
    distinct_values<::osg::Vec2f, 2> texcoords;
    distinct_values<::osg::Vec2f, 2> texcoords7;

    /// Appends the numbers of one corner.
    void number(const ::osg::TriangleIterator& it, int corner, std::vector<std::uint32_t>& to) {
        if (present[0])
            to.push_back(positions.numberOf(it.getPositionIndex(corner)));
        if (present[1])
            to.push_back(normals.numberOf(it.getNormalIndex(corner)));
        if (present[2])
            to.push_back(colors.numberOf(it.getColorIndex(corner)));
        if (present[3])
            to.push_back(texcoords.numberOf(it.getTexCoordsIndex(corner)));
        if (present[4])
            to.push_back(texcoords7.numberOf(it.getTexCoordsIndex7(corner)));
    }
};

/// Numbers every corner; `count` numbers per corner, interleaved.
std::vector<std::uint32_t> numberCorners(const ::osg::GeometryPtr& geometry,
                                         five_properties& properties) {
    std::vector<std::uint32_t> numbers;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        for (int corner = 0; corner < 3; ++corner)
            properties.number(it, corner, numbers);
    }
    return numbers;
}

::osg::GeoIndicesUI32Ptr indicesOf(std::vector<std::uint32_t>&& numbers) {
    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    indices->editField().getValues().assign(numbers.begin(), numbers.end());
    return indices;
}

/// One run of triangles of this many corners.
void setTriangleRun(const ::osg::GeometryPtr& geometry, std::size_t corners) {
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    types->addValue(4);
    geometry->setTypes(types);
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    lengths->addValue(static_cast<::osg::UInt32>(corners));
    geometry->setLengths(lengths);
}

template <typename Property, typename Value>
typename Property::PtrType propertyOf(const std::vector<Value>& values) {
    const typename Property::PtrType property = Property::create();
    property->editField().setValues(values);
    return property;
}

/// Sets the properties that exist, in their order.
template <typename Pick>
void setFive(const ::osg::GeometryPtr& geometry, const five_properties& from, const Pick& pick) {
    if (from.present[0])
        geometry->setPositions(propertyOf<::osg::GeoPositions3f>(pick(from.positions.values, 0)));
    if (from.present[1])
        geometry->setNormals(propertyOf<::osg::GeoNormals3f>(pick(from.normals.values, 1)));
    if (from.present[2])
        geometry->setColors(propertyOf<::osg::GeoColors3f>(pick(from.colors.values, 2)));
    if (from.present[3])
        geometry->setTexCoords(propertyOf<::osg::GeoTexCoords2f>(pick(from.texcoords.values, 3)));
    if (from.present[4])
        geometry->setTexCoords7(propertyOf<::osg::GeoTexCoords2f>(pick(from.texcoords7.values, 4)));
}

std::size_t cornersOf(const std::vector<std::uint32_t>& numbers, unsigned int per_corner,
                      std::size_t triangles) {
    return per_corner != 0 ? numbers.size() / per_corner : triangles * 3;
}

std::size_t trianglesWithoutProperties(const ::osg::GeometryPtr& geometry, unsigned int count) {
    std::size_t triangles = 0;
    if (count != 0)
        return 0;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it)
        ++triangles;
    return triangles;
}

/// Distinct tuples of numbers by first use: the number of each corner's tuple, and per tuple a
/// corner that has it.
struct distinct_corners {
    std::vector<std::uint32_t> number;
    std::vector<std::uint32_t> first;

    distinct_corners(const std::vector<std::uint32_t>& numbers, unsigned int per_corner,
                     std::size_t corners)
        : number(corners) {
        number_table table;
        for (std::size_t corner = 0; corner < corners; ++corner) {
            const std::uint32_t* tuple = numbers.data() + corner * per_corner;
            std::uint64_t hash = 0;
            for (unsigned int i = 0; i < per_corner; ++i)
                hash = mixed(hash, tuple[i]);
            const auto next = static_cast<std::uint32_t>(first.size());
            number[corner] = table.findOrEnter(hash, next, [&](std::uint32_t other) {
                return std::memcmp(tuple,
                                   numbers.data() +
                                       static_cast<std::size_t>(first[other]) * per_corner,
                                   per_corner * sizeof(std::uint32_t)) == 0;
            });
            if (number[corner] == next)
                first.push_back(static_cast<std::uint32_t>(corner));
        }
    }
};

} // namespace

void createSharedIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    five_properties properties(geometry);
    const std::size_t bare = trianglesWithoutProperties(geometry, properties.count);
    std::vector<std::uint32_t> numbers = numberCorners(geometry, properties);
    const std::size_t corners = cornersOf(numbers, properties.count, bare);

    const ::osg::UInt16 bits[5] = {::osg::Geometry::MapPosition, ::osg::Geometry::MapNormal,
                                   ::osg::Geometry::MapColor, ::osg::Geometry::MapTexCoords,
                                   ::osg::Geometry::MapTexCoords7};
    geometry->editMFIndexMapping()->clear();
    for (unsigned int i = 0; i < 5; ++i) {
        if (properties.present[i])
            geometry->editMFIndexMapping()->push_back(bits[i]);
    }
    setFive(geometry, properties, [](const auto& values, unsigned int) { return values; });
    geometry->setIndices(indicesOf(std::move(numbers)));
    setTriangleRun(geometry, corners);
}

void createSingleIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    five_properties properties(geometry);
    const unsigned int per_corner = properties.count;
    const std::size_t bare = trianglesWithoutProperties(geometry, per_corner);
    const std::vector<std::uint32_t> numbers = numberCorners(geometry, properties);
    const std::size_t corners = cornersOf(numbers, per_corner, bare);
    distinct_corners distinct(numbers, per_corner, corners);

    unsigned int place[5] = {};
    for (unsigned int i = 1; i < 5; ++i)
        place[i] = place[i - 1] + (properties.present[i - 1] ? 1 : 0);
    geometry->editMFIndexMapping()->clear();
    geometry->setIndices(indicesOf(std::move(distinct.number)));
    setFive(geometry, properties, [&](const auto& values, unsigned int property) {
        std::decay_t<decltype(values)> picked;
        picked.reserve(distinct.first.size());
        for (const std::uint32_t corner : distinct.first)
            picked.push_back(
                values[numbers[static_cast<std::size_t>(corner) * per_corner + place[property]]]);
        return picked;
    });
    setTriangleRun(geometry, corners);
}

} // namespace morva::osg
