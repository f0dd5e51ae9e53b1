#include <morva/textures/morva_osg_texcoords.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_property_index.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_stage_errors.h>

namespace morva::osg {

namespace {

/// Values this near to a whole number become it: 0.001 in single precision.
constexpr double snap_distance = static_cast<double>(0.001F);
/// From here on every float is a whole number.
constexpr float all_whole = 8388608.0F;
/// Above it coordinates leave the unit square.
constexpr float leaves_unit = 1.05F;
constexpr float limit_tolerance = 0.05F;
/// Limit of cutTC() where none is given.
constexpr int usual_cut_limit = 50;
/// Largest coordinate of a collected triangle before it is halved.
constexpr int collect_max = 1000;

/// A triangle that has come to this many pieces more is not halved any further.
constexpr std::uint32_t most_pieces = 65536;
/// Triangles that one call may add in any case, for each that was there, and at most.
constexpr std::uint64_t always_added = std::uint64_t(1) << 20;
constexpr std::uint64_t added_per_triangle = 4096;
constexpr std::uint64_t most_added = std::uint64_t(1) << 25;

/// The coordinates of a triangle.
struct triangle_uv {
    ::osg::Vec2f a, b, c;
};

/// What std::floor() gives, a zero with its sign, without the call.
inline float floorOf(float value) {
    if (!(std::abs(value) < all_whole))
        return value; // a NaN and an infinity too
    const auto whole = static_cast<float>(static_cast<std::int32_t>(value));
    return std::copysign(whole > value ? whole - 1.0F : whole, value);
}

/// The value, or the whole number that it is near to; zeros have the sign of the value.
inline float snapped(float value) {
    if (!(std::abs(value) < all_whole))
        return value;
    const float below = floorOf(value);
    const auto wide = static_cast<double>(value), wide_below = static_cast<double>(below);
    if (wide - wide_below <= snap_distance)
        return below;
    const double above = wide_below + 1.0;
    if (above - wide <= snap_distance)
        return std::copysign(static_cast<float>(above), value);
    return value;
}

inline void snapAll(triangle_uv& t) {
    for (::osg::Vec2f* point : {&t.a, &t.b, &t.c}) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis)
            (*point)[axis] = snapped((*point)[axis]);
    }
}

/// By strict comparison: a NaN in `b` or `c` is passed over, one in `a` stays.
inline float smallest(float a, float b, float c) {
    float low = a;
    low = b < low ? b : low;
    return c < low ? c : low;
}

inline void shiftDown(triangle_uv& t, ::osg::UInt32 axis, float by) {
    t.a[axis] -= by;
    t.b[axis] -= by;
    t.c[axis] -= by;
}

inline void shiftUpFromNegative(triangle_uv& t) {
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        float low = smallest(t.a[axis], t.b[axis], t.c[axis]);
        low = low < 0.0F ? low : 0.0F;
        if (low < 0.0F)
            shiftDown(t, axis, floorOf(low));
    }
}

inline void shiftDownToZero(triangle_uv& t) {
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        const float low = smallest(t.a[axis], t.b[axis], t.c[axis]);
        if (low > 1.0F)
            shiftDown(t, axis, floorOf(low));
    }
}

/// An infinity becomes a NaN here, its difference with its own floor.
inline void wrapPoint(::osg::Vec2f& point, float limit) {
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        float& value = point[axis];
        float& other = point[1 - axis];
        if (!(value > limit))
            continue;
        value -= floorOf(value);
        if (other > 1.0F)
            other -= floorOf(other);
    }
}

/// The four steps. Afterwards no value is infinite.
inline void normalise(triangle_uv& t, float cut_limit) {
    snapAll(t);
    shiftUpFromNegative(t);
    shiftDownToZero(t);
    wrapPoint(t.a, cut_limit);
    wrapPoint(t.b, cut_limit);
    wrapPoint(t.c, cut_limit);
}

template <typename Step>
void applyStep(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c, Step step) {
    triangle_uv t{a, b, c};
    step(t);
    a = t.a;
    b = t.b;
    c = t.c;
}

/// Whether all six values are zero, which is a normal form.
inline bool isZero(const triangle_uv& t) {
    return t.a[0] == 0.0F && t.a[1] == 0.0F && t.b[0] == 0.0F && t.b[1] == 0.0F && t.c[0] == 0.0F &&
           t.c[1] == 0.0F;
}

/// Largest of the six values; NaNs are passed over.
inline float largest(const triangle_uv& t) {
    float high = -std::numeric_limits<float>::infinity();
    for (const ::osg::Vec2f* point : {&t.a, &t.b, &t.c}) {
        high = (*point)[0] > high ? (*point)[0] : high;
        high = (*point)[1] > high ? (*point)[1] : high;
    }
    return high;
}

/// Whether what halving reads between the corners can be below `max`. With a limit of 1 it cannot
/// for a triangle from 1 to 1.002: the middle of both is moved onto 1, and 1 stays where it is, so
/// that one of the halves reaches from 1 to 1.002 again.
inline bool canComeBelow(const triangle_uv& t, float max) {
    const auto near = [](float a, float b) { // not to a NaN
        return std::abs(static_cast<double>(a) - static_cast<double>(b)) <= 2 * snap_distance;
    };
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        const float a = t.a[axis], b = t.b[axis], c = t.c[axis];
        if ((a > max || b > max || c > max) && !(near(a, b) && near(b, c) && near(c, a)))
            return true;
    }
    return false;
}

/// Coordinates 0 of a geoset, three rows at a time, in any stored form. Follows the property when
/// it grows; while this lives it is being edited.
class coordinate_rows {
  public:
    explicit coordinate_rows(const ::osg::GeoTexCoordsPtr& property) {
        slot.follow(property);
        ::osg::beginEditCP(property);
    }
    coordinate_rows(const coordinate_rows&) = delete;
    coordinate_rows& operator=(const coordinate_rows&) = delete;
    ~coordinate_rows() { ::osg::endEditCP(slot.get()); }

    std::size_t rows() const { return slot.size(); }
    /// Triangles that there are rows for.
    std::size_t triangles() const { return slot.size() / 3; }

    /// Brings a triangle into the normal form, and returns it.
    triangle_uv normaliseAt(std::size_t triangle, float cut_limit) {
        const std::size_t row = 3 * triangle;
        triangle_uv t{slot.value(row), slot.value(row + 1), slot.value(row + 2)};
        if (isZero(t)) // as are the rows that a geoset has to spare
            return t;
        normalise(t, cut_limit);
        slot.put(row, t.a);
        slot.put(row + 1, t.b);
        slot.put(row + 2, t.c);
        return t;
    }

  private:
    texcoords_slot slot;
};

::osg::GeoTexCoordsPtr coordinatesOf(const osg_geoset& geoset) {
    const ::osg::GeometryPtr core = geoset.geometry.get();
    return core != ::osg::NullFC ? core->getTexCoords() : ::osg::GeoTexCoordsPtr(::osg::NullFC);
}

/// Halves a triangle; how many were added.
int halve(osg_geoset& geoset, std::size_t triangle, unsigned long& first) {
    int pieces = 0;
    geoset.splitElementInTwoParts(triangle, pieces, first, 0, false);
    return pieces;
}

/// Halves triangles of a geoset that reach too far.
///
/// A half has half the area, and nothing below a size of 1e-6 is halved, but that alone does not
/// end: where single precision runs out, middles of edges fall where they like, and a triangle can
/// come back to what it was. It may also end after more pieces than memory holds. So a triangle
/// stays as it is if halving would not help it, the pieces of one are counted, and what is left
/// bounds the work of one call in total.
class halving {
  public:
    halving(osg_geoset& cut, int max_coordinate)
        : geoset(cut), max(static_cast<float>(max_coordinate)), wanted(max_coordinate > 0),
          before(cut.size), most(addedLimit(cut.size)) {}

    /// Halves a triangle with these coordinates if it reaches too far, and returns whether it did.
    bool tried(std::size_t triangle, const triangle_uv& t) {
        if (!wanted || !(largest(t) > max) || triangle >= geoset.size || added >= most ||
            !canComeBelow(t, max))
            return false;
        if (pieces_of.empty())
            pieces_of.resize(before);
        const std::size_t whole = triangle < before ? triangle : source_of[triangle - before];
        if (pieces_of[whole] >= most_pieces)
            return false;
        unsigned long first = 0;
        const int pieces = halve(geoset, triangle, first);
        added += static_cast<std::uint64_t>(pieces);
        pieces_of[whole] += static_cast<std::uint32_t>(pieces);
        source_of.insert(source_of.end(), static_cast<std::size_t>(pieces),
                         static_cast<std::uint32_t>(whole));
        return pieces > 0;
    }

    int triangles() const { return static_cast<int>(added); }

  private:
    static std::uint64_t addedLimit(std::uint64_t triangles) {
        const std::uint64_t by_count = std::min(triangles, most_added) * added_per_triangle;
        return std::min(std::max(always_added, by_count), most_added);
    }

    osg_geoset& geoset;
    float max;
    bool wanted;
    std::size_t before; ///< triangles that there were
    std::uint64_t most;
    std::uint64_t added = 0;
    std::vector<std::uint32_t> source_of; ///< of each added one, a triangle below `before`
    std::vector<std::uint32_t> pieces_of; ///< added for each of `before`; empty until the first
};

} // namespace

void roundTCToInteger(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, snapAll);
}

void getTCPositiv(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, shiftUpFromNegative);
}

void getTCNearToZero(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, shiftDownToZero);
}

void cutTC(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c, int cutLimit) {
    const auto limit = static_cast<float>(cutLimit);
    wrapPoint(a, limit);
    wrapPoint(b, limit);
    wrapPoint(c, limit);
}

int optimizeTexCoords(osg_geoset& geoset, int maxTC, int cutLimit) {
    const ::osg::GeoTexCoordsPtr property = coordinatesOf(geoset);
    if (property == ::osg::NullFC)
        return 0;
    coordinate_rows coordinates(property);
    const auto cut_limit = static_cast<float>(cutLimit);
    halving cut(geoset, maxTC);
    for (std::size_t i = 0; i < coordinates.triangles();) { // grows
        const triangle_uv t = coordinates.normaliseAt(i, cut_limit);
        // What is left of a triangle that was halved goes through the same once more.
        if (!cut.tried(i, t))
            ++i;
    }
    return cut.triangles();
}

int optimizeTexCoordsSmart(osg_geoset& geoset, int maxTC, int cutLimit) {
    const ::osg::GeoTexCoordsPtr property = coordinatesOf(geoset);
    if (property == ::osg::NullFC)
        return 0;
    coordinate_rows coordinates(property);
    const auto cut_limit = static_cast<float>(cutLimit);
    const auto max = static_cast<float>(maxTC);
    const std::size_t budget = coordinates.rows();

    // Triangles by how far they reach, equal ones in the order of entry. Those within the limit
    // are never taken and only end the loop, so that their absence does as well.
    std::multimap<float, std::size_t> large;
    const auto enter = [&](std::size_t triangle) {
        const float key = largest(coordinates.normaliseAt(triangle, cut_limit)); // never a NaN
        if (key > max && triangle < geoset.size)
            large.emplace(key, triangle);
    };
    for (std::size_t i = 0; i < coordinates.triangles(); ++i)
        enter(i);
    if (large.empty())
        return 0;

    std::size_t added = 0;
    auto cursor = large.end();
    while (cursor != large.begin()) {
        const auto taken = std::prev(cursor);
        const std::size_t triangle = taken->second;
        unsigned long first = 0;
        const int pieces = halve(geoset, triangle, first);
        added += static_cast<std::size_t>(pieces);
        if (added > budget || pieces < 1)
            break;
        large.erase(taken);
        enter(triangle);
        for (unsigned long i = first; i < first + static_cast<unsigned long>(pieces); ++i)
            enter(i);
        if (large.empty())
            break;
        // On the last entry, not behind it: from now on the one before it is taken, and the
        // largest waits for as long as it is the largest.
        cursor = std::prev(large.end());
    }
    return static_cast<int>(added);
}

namespace {

/// Gives the fields of a geoset the length of its triangles, with nothing to spare: the core is to
/// be drawn, and the geoset ends here.
void fitToTriangles(osg_geoset& geoset) {
    try {
        const ::osg::GeometryPtr core = geoset.geometry.get();
        const ::osg::CPEditor edit(core);
        geoset.resizeFieldContainers(static_cast<unsigned int>(geoset.size));
        geoset_fields fields;
        fields.follow(core);
        fields.forEachPresent([](auto& slot) { slot.get()->shrink(); });
        if (core->getNormals() != ::osg::NullFC &&
            core->getNormals()->size() != core->getPositions()->size())
            ::osg::calcVertexNormals(core);
        return;
    } catch (...) {
        printSetupError();
    }
    geoset.clear();
}

} // namespace

int optimizeTexCoords(::osg::NodePtr& node, int maxTC, int cutLimit) {
    osg_geoset geoset;
    extract(node, geoset, false, true, false, true, true);
    const ::osg::GeometryPtr source = geometryOf(node);
    // Without memory extraction brings nothing; that is no reason to lose what there is.
    if (source == ::osg::NullFC || (geoset.size == 0 && counttriangles(source) > 0))
        return 0;
    const int added = optimizeTexCoords(geoset, maxTC, cutLimit);
    if (geoset.geometry->getPositions() != ::osg::NullFC)
        fitToTriangles(geoset);
    reportWhole(geoset.geometry.get());
    giveCore(node, geoset.geometry.get());
    return added;
}

bool hasTexCoordsGreater1(::osg::GeoTexCoordsPtr coordinates, float& maxU, float& maxV,
                          bool asTriangles) {
    float high[2] = {0.0F, 0.0F};
    const auto keepLargest = [&high](const ::osg::Vec2f& point) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis)
            high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
    };
    const auto block = readBlock(coordinates);
    if (asTriangles) {
        for (std::size_t row = 0; row + 2 < block.size(); row += 3) {
            triangle_uv t{block[row], block[row + 1], block[row + 2]};
            normalise(t, static_cast<float>(usual_cut_limit));
            keepLargest(t.a);
            keepLargest(t.b);
            keepLargest(t.c);
        }
    } else {
        for (const ::osg::Vec2f& point : block)
            keepLargest(point);
    }
    maxU = high[0];
    maxV = high[1];
    return maxU > leaves_unit || maxV > leaves_unit;
}

bool hasTexCoordsSmaller0(::osg::GeoTexCoordsPtr coordinates, float& minU, float& minV) {
    float low[2] = {0.0F, 0.0F};
    const auto block = readBlock(coordinates);
    for (const ::osg::Vec2f& point : block) {
        for (::osg::UInt32 axis = 0; axis < 2; ++axis)
            low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
    }
    minU = low[0];
    minV = low[1];
    return minU < 0.0F || minV < 0.0F;
}

bool hasTCabove(::osg::NodePtr node, float limit, bool normalised) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC || geometry->getTexCoords() == ::osg::NullFC)
        return false;
    const float threshold = limit + limit_tolerance;
    const auto block = readBlock(geometry->getTexCoords());
    if (!normalised) {
        return std::any_of(block.begin(), block.end(), [threshold](const ::osg::Vec2f& point) {
            return point[0] > threshold || point[1] > threshold;
        });
    }
    const bool indexed = hasIndex(geometry, ::osg::Geometry::MapTexCoords);
    const auto at = [&block, indexed](const ::osg::TriangleIterator& it, ::osg::Int32 corner) {
        const ::osg::Int32 index = indexed ? it.getTexCoordsIndex(corner) : -1;
        const auto row = static_cast<std::size_t>(index);
        return index >= 0 && row < block.size() ? block[row] : ::osg::Vec2f(0.0F, 0.0F);
    };
    const ::osg::TriangleIterator end = geometry->endTriangles();
    for (::osg::TriangleIterator it = geometry->beginTriangles(); it != end; ++it) {
        triangle_uv t{at(it, 0), at(it, 1), at(it, 2)};
        normalise(t, static_cast<float>(usual_cut_limit));
        if (largest(t) > threshold)
            return true;
    }
    return false;
}

bool checkGeoForTexIndex(::osg::NodePtr node, float limit, int maxImageSide) {
    bool transparent = false, blends = false;
    const ::osg::ImagePtr image = getImage(node, transparent, blends);
    if (image != ::osg::NullFC &&
        (image->getWidth() > maxImageSide || image->getHeight() > maxImageSide))
        return true;
    return hasTCabove(node, limit, true);
}

namespace {

/// Whether the normal form of a node's coordinates reaches above a limit.
bool reachesAbove(const ::osg::NodePtr& node, float limit) {
    osg_geoset geoset;
    extract(node, geoset, false, false, false, true, true);
    optimizeTexCoords(geoset, collect_max, usual_cut_limit);
    float u = 0, v = 0;
    hasTexCoordsGreater1(coordinatesOf(geoset), u, v, false);
    return u > limit || v > limit;
}

/// Gives a node the material of the group that it is about to leave.
void takeGroupMaterial(const ::osg::NodePtr& node) {
    const ::osg::NodePtr group = searchMaterialGroup(node);
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (group == ::osg::NullFC || geometry == ::osg::NullFC)
        return;
    giveMaterial(geometry, ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
}

} // namespace

::osg::NodePtr CollectNodesWithTexCoordsGreater(::osg::NodePtr root, int limit) {
    const ::osg::NodePtr none = ::osg::NullFC;
    if (limit < 0 || root == ::osg::NullFC)
        return none;
    std::vector<::osg::NodePtr> nodes;
    if (geometryOf(root) != ::osg::NullFC) {
        nodes.push_back(root);
    } else {
        getGeometryNodes(root, nodes, false);
    }
    std::vector<::osg::NodePtr> found;
    for (const ::osg::NodePtr& node : nodes) {
        if (!reachesAbove(node, static_cast<float>(limit)))
            continue;
        takeGroupMaterial(node);
        found.push_back(node);
    }
    if (found.empty())
        return none;
    fresh<::osg::NodePtr> group(newGroupNode());
    for (const ::osg::NodePtr& node : found)
        addChildTo(group.get(), node);
    return group.release();
}

} // namespace morva::osg
