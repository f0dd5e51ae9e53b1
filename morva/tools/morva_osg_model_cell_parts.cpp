#include <morva/tools/morva_osg_model_cell_parts.h>

#include <cmath>
#include <limits>
#include <map>

#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_value_hash.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// Places that a tree can halve boxes over without an overflow.
constexpr float farthest = std::numeric_limits<float>::max() / 4.0F;

/// Gives corners the number of their vertex: by their rows, in order of first use.
class vertex_numbers {
  public:
    explicit vertex_numbers(cell_source& source)
        : source_(source), indices_(source.columns.indices()), stride_(source.columns.stride()),
          known_(source.columns.indexed() ? source.columns.corners() : 0) {}

    UInt32 of(std::size_t corner) {
        const auto next = static_cast<UInt32>(source_.corner_of.size());
        UInt32 number = next;
        if (source_.columns.indexed())
            number = known_.findOrEnter(hashOfCorner(corner), next, [&](UInt32 other) {
                return std::equal(rows(corner), rows(corner) + stride_,
                                  rows(source_.corner_of[other]));
            });
        if (number == next)
            source_.corner_of.push_back(static_cast<UInt32>(corner));
        return number;
    }

  private:
    const UInt32* rows(std::size_t corner) const { return indices_.data() + corner * stride_; }
    UInt32 hashOfCorner(std::size_t corner) const {
        std::uint64_t hash = 0;
        for (std::size_t i = 0; i < stride_; ++i)
            hash = (hash ^ rows(corner)[i]) * 0x9E3779B97F4A7C15ULL;
        return hashOfSum(hash);
    }

    cell_source& source_;
    span<const UInt32> indices_;
    std::size_t stride_;
    number_table known_;
};

/// Whether all corners of an element have a place that a tree can work with.
bool isPlaced(const cell_part& part, const UInt32* vertices, std::size_t corners) {
    for (std::size_t k = 0; k < corners; ++k) {
        const ::osg::Pnt3f place = part.worldOf(vertices[k]);
        for (UInt32 axis = 0; axis < 3; ++axis) {
            if (!(std::abs(place[axis]) < farthest)) // true for NaN
                return false;
        }
    }
    return true;
}

void keepPlaced(cell_kind kind, cell_part& part) {
    const std::vector<UInt32>& all = part.source->vertices[kind];
    const std::size_t corners = cornersOf(kind);
    part.kept[kind].reserve(all.size() / corners);
    for (std::size_t i = 0; i < all.size() / corners; ++i) {
        if (isPlaced(part, &all[i * corners], corners))
            part.kept[kind].push_back(static_cast<UInt32>(i));
        else
            ++part.unplaced;
    }
}

} // namespace

cell_source::cell_source(const ::osg::GeometryPtr& geometry)
    : core(geometry), columns(geometry, all_properties, color_form::rgba_where_stored) {
    const property_column& positions = columns[vertex_property::position];
    vertex_numbers numbers(*this);
    const auto add = [&](cell_kind kind, auto... corners) {
        if (((positions.row(corners) < positions.rows) && ...))
            (vertices[kind].push_back(numbers.of(corners)), ...);
        else
            ++left_out;
    };
    forEachTriangle(columns, rest_rule::left_out, [&](std::size_t a, std::size_t b, std::size_t c) {
        add(cell_triangle, a, b, c);
    });
    forEachLine(columns, rest_rule::left_out,
                [&](std::size_t a, std::size_t b) { add(cell_line, a, b); });
    forEachCorner(columns, GL_POINTS, [&](std::size_t corner) { add(cell_point, corner); });
}

::osg::Pnt3f cell_part::worldOf(UInt32 vertex) const {
    const ::osg::Pnt3f& p = source->place(vertex);
    ::osg::Pnt3f world;
    for (UInt32 row = 0; row < 3; ++row)
        world[row] = to_world[0][row] * p[0] + to_world[1][row] * p[1] + to_world[2][row] * p[2] +
                     to_world[3][row];
    return world;
}

std::vector<cell_part> cellPartsOf(const std::vector<::osg::NodePtr>& nodes) {
    std::vector<cell_part> parts;
    std::map<UInt32, std::shared_ptr<const cell_source>> sources;
    std::uint64_t next[cell_kinds] = {};
    for (const ::osg::NodePtr& node : nodes) {
        cell_part part;
        part.node = ::osg::NodeRefPtr(node);
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        if (core != ::osg::NullFC) {
            part.material = ::osg::MaterialRefPtr(getMaterial(node));
            part.to_world = node->getToWorld();
            std::shared_ptr<const cell_source>& source = sources[core.getFieldContainerId()];
            if (source == nullptr)
                source = std::make_shared<const cell_source>(core);
            part.source = source;
            part.unplaced = source->left_out;
        }
        for (const cell_kind kind : {cell_point, cell_line, cell_triangle}) {
            part.first[kind] = next[kind];
            if (part.source != nullptr)
                keepPlaced(kind, part);
            next[kind] += part.kept[kind].size();
        }
        parts.push_back(std::move(part));
    }
    return parts;
}

} // namespace morva::osg
