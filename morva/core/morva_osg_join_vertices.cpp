// joinEqualVertices: elements of properties are rows of bytes; rows that are equal in every
// property of a mapping entry are one vertex, told by the index that comes first.
//
//     index   position   normal        becomes
//     0       p          a             0
//     1       p          b             1
//     2       p          b             1

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>

#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_value_hash.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// The elements of one property.
struct byte_rows {
    const ::osg::UInt8* data; ///< null exactly if count is 0
    std::size_t bytes;        ///< of one element
    std::size_t count;

    const ::osg::UInt8* row(std::size_t index) const { return data + index * bytes; }
};

/// The elements that the properties of one mapping entry have under one index.
class vertex_rows {
  public:
    vertex_rows(const ::osg::GeometryPtr& geometry, ::osg::UInt16 bits) {
        for (unsigned bit = 1; bit <= ::osg::Geometry::MapTexCoords7; bit *= 2) {
            ::osg::GeoPropertyArrayInterface* property =
                (bits & bit) != 0 ? geometry->getProperty(static_cast<::osg::Int32>(bit)) : nullptr;
            if (property == nullptr || property->getSize() == 0)
                continue;
            // Colours of three bytes don't tell their size on every platform.
            const bool three_bytes = dynamic_cast<::osg::GeoColors3ub*>(property) != nullptr;
            const std::size_t bytes =
                three_bytes ? 3 : property->getDimension() * property->getFormatSize();
            columns_.push_back({property->getData(), bytes, property->getSize()});
            rows_ = std::max(rows_, columns_.back().count);
        }
    }

    /// Indices from here on lead nowhere.
    std::size_t size() const { return rows_; }

    UInt32 hash(std::size_t index) const {
        std::uint64_t sum = 0;
        for (const byte_rows& column : columns_) {
            if (index >= column.count)
                continue;
            const ::osg::UInt8* row = column.row(index);
            std::size_t done = 0;
            for (; done + 4 <= column.bytes; done += 4) // of a fixed size: no call
                sum = mixed(sum, row + done, 4);
            if (done < column.bytes)
                sum = mixed(sum, row + done, column.bytes - done);
        }
        return hashOfSum(sum);
    }

    /// A property too short for both indices does not tell them apart.
    bool equal(std::size_t a, std::size_t b) const {
        return std::all_of(columns_.begin(), columns_.end(), [a, b](const byte_rows& column) {
            if (a >= column.count || b >= column.count)
                return a >= column.count && b >= column.count;
            return std::memcmp(column.row(a), column.row(b), column.bytes) == 0;
        });
    }

  private:
    static std::uint64_t mixed(std::uint64_t sum, const ::osg::UInt8* bytes, std::size_t count) {
        UInt32 word = 0;
        std::memcpy(&word, bytes, count);
        sum = (sum ^ word) * 0x9E3779B97F4A7C15ULL;
        return sum ^ sum >> 29;
    }

    std::vector<byte_rows> columns_;
    std::size_t rows_ = 0; ///< of the longest column
};

/// Finds for each index the first equal one, in the order of use.
class equal_rows {
  public:
    equal_rows(const vertex_rows& rows, std::size_t corners)
        : first_of_(rows.size(), no_number), rows_(rows), known_(corners) {}

    /// Takes an index in. Most are used several times, and looked up once.
    void add(UInt32 index) {
        if (index >= first_of_.size() || first_of_[index] != no_number)
            return;
        first_of_[index] = index; // until it is looked up
        waiting_[count_] = {index, rows_.hash(index)};
        known_.fetch(waiting_[count_].hash);
        if (++count_ == batch_size)
            lookUp();
    }
    void lookUp() {
        for (std::size_t i = 0; i < count_; ++i) {
            const UInt32 index = waiting_[i].index;
            const auto next = static_cast<UInt32>(firsts_.size());
            const UInt32 number = known_.findOrEnter(waiting_[i].hash, next, [&](UInt32 other) {
                return rows_.equal(firsts_[other], index);
            });
            if (number == next)
                firsts_.push_back(index);
            first_of_[index] = firsts_[number];
        }
        count_ = 0;
    }

    /// After the last lookUp(). What leads nowhere stays.
    UInt32 firstOf(UInt32 index) const {
        return index < first_of_.size() ? first_of_[index] : index;
    }

  private:
    struct entry {
        UInt32 index, hash;
    };
    std::vector<UInt32> first_of_, firsts_;
    const vertex_rows& rows_;
    number_table known_;
    entry waiting_[batch_size] = {}; ///< their places in the table are on the way
    std::size_t count_ = 0;
};

/// Joins within one entry of the mapping, whose index is every `stride`-th from `slot`.
void join(std::vector<UInt32>& indices, const vertex_rows& rows, std::size_t slot,
          std::size_t stride) {
    equal_rows equal(rows, indices.size() / stride);
    for (std::size_t place = slot; place < indices.size(); place += stride)
        equal.add(indices[place]);
    equal.lookUp();
    for (std::size_t place = slot; place < indices.size(); place += stride)
        indices[place] = equal.firstOf(indices[place]);
}

/// The index 0, 1, 2, ..., one for all properties: a mapping has no meaning without indices.
void makeMissingIndex(const ::osg::GeometryPtr& geometry) {
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->getField().resize(geometry->getPositions()->getSize());
    UInt32 next = 0;
    for (UInt32& index : editSpan(indices.get()))
        index = next++;
    geometry->getIndexMapping().clear();
    geometry->setIndices(indices.get());
}

/// In the stored form; an index property of other geometries too is left to them.
void writeIndices(const ::osg::GeometryPtr& geometry, const std::vector<UInt32>& values) {
    if (geometry->getIndices()->getParents().size() > 1)
        geometry->setIndices(geometry->getIndices()->clone());
    const ::osg::GeoIndicesPtr indices = geometry->getIndices();
    const auto plain = ::osg::GeoIndicesUI32Ptr::dcast(indices);
    if (plain != ::osg::NullFC)
        std::copy(values.begin(), values.end(), editSpan(plain).begin());
    for (UInt32 i = 0; plain == ::osg::NullFC && i < values.size(); ++i)
        indices->setValue(values[i], i);
}

} // namespace

void joinEqualVertices(const ::osg::GeometryPtr& geometry) {
    if (geometry == ::osg::NullFC)
        return;
    if (geometry->getIndices() == ::osg::NullFC && geometry->getPositions() != ::osg::NullFC)
        makeMissingIndex(geometry);
    const property_block<UInt32> old = readBlock(geometry->getIndices());
    std::vector<UInt32> indices(old.begin(), old.end());
    const auto& mapping = geometry->getIndexMapping();
    if (mapping.size() == 0)
        join(indices, vertex_rows(geometry, 0x0FFF), 0, 1);
    for (std::size_t entry = 0; entry < mapping.size(); ++entry)
        join(indices, vertex_rows(geometry, mapping[entry]), entry, mapping.size());
    if (!std::equal(old.begin(), old.end(), indices.begin()))
        writeIndices(geometry, indices);
}

} // namespace morva::osg
