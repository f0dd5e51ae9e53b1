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

#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_property_blocks.h>
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

/// Most that rounding a corner to single precision, by this share of its largest number, may change
/// the coordinates of a triangle that is halved, in units of the limit.
constexpr double rounding = 0x1p-21;
/// Most pieces that a triangle may be expected to come to, see outlookOf().
constexpr double most_pieces = 65536;
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
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        const auto range = std::minmax({t.a[axis], t.b[axis], t.c[axis]});
        const double span = static_cast<double>(range.second) - static_cast<double>(range.first);
        if (range.second > max && span > 2 * snap_distance)
            return true;
    }
    return false;
}

/// What halving a triangle leads to, in units of the limit.
struct outlook {
    double pieces; ///< needed, about; up to ten times as many come out
    double noise;  ///< change of the coordinates where a point moves by its rounding
};

/// Both follow from the gradient of the coordinates, which pieces share: the pieces from its square
/// over the area (the Dirichlet energy of the map). No numbers, or infinite ones, for a triangle
/// without area and for a NaN in `t`.
outlook outlookOf(const ::osg::Pnt3d& a, const ::osg::Pnt3d& b, const ::osg::Pnt3d& c,
                  const triangle_uv& t, float max) {
    const ::osg::Vec3d ab = b - a, ac = c - a;
    double far = 0;
    for (const ::osg::Pnt3d* corner : {&a, &b, &c}) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis)
            far = std::max(far, std::abs((*corner)[axis]));
    }
    double sum = 0;
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        const double to_b = static_cast<double>(t.b[axis]) - static_cast<double>(t.a[axis]);
        const double to_c = static_cast<double>(t.c[axis]) - static_cast<double>(t.a[axis]);
        sum += to_b * to_b * ac.dot(ac) - 2 * to_b * to_c * ab.dot(ac) + to_c * to_c * ab.dot(ab);
    }
    const double twice_area = ab.cross(ac).length();
    const double gradient = std::sqrt(std::max(sum, 0.0)) / twice_area / static_cast<double>(max);
    return {gradient * gradient * twice_area / 2, gradient * far * rounding};
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
/// come back to what it was. It may also end after more pieces than memory holds. So triangles
/// stay as they are if halving would not help them or would need too many pieces; what is left
/// bounds the work of one call in total.
class halving {
  public:
    halving(osg_geoset& cut, int max_coordinate)
        : geoset(cut), max(static_cast<float>(max_coordinate)), wanted(max_coordinate > 0),
          most(addedLimit(cut.size)) {
        positions.follow(cut.geometry->getPositions());
    }

    /// Halves a triangle with these coordinates if it reaches too far, and returns whether it did.
    bool tried(std::size_t triangle, const triangle_uv& t) {
        if (!wanted || !(largest(t) > max) || triangle >= geoset.size || added >= most ||
            !positions.holds(triangle) || !canComeBelow(t, max))
            return false;
        const ::osg::Pnt3d a(positions.value(3 * triangle)), b(positions.value(3 * triangle + 1)),
            c(positions.value(3 * triangle + 2));
        const outlook next = outlookOf(a, b, c, t, max);
        if (!(next.pieces <= most_pieces && next.noise <= 1)) // nor a NaN
            return false;
        unsigned long first = 0;
        const int pieces = halve(geoset, triangle, first);
        added += static_cast<std::uint64_t>(pieces);
        return pieces > 0;
    }

    int triangles() const { return static_cast<int>(added); }

  private:
    static std::uint64_t addedLimit(std::uint64_t triangles) {
        const std::uint64_t by_count = std::min(triangles, most_added) * added_per_triangle;
        return std::min(std::max(always_added, by_count), most_added);
    }

    osg_geoset& geoset;
    positions_slot positions;
    float max;
    bool wanted;
    std::uint64_t most;
    std::uint64_t added = 0;
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
/// be drawn, and the geoset ends here. The one primitive gets the triangles that there are;
/// extraction counts those that were offered, which may lead behind the last row.
void fitToTriangles(osg_geoset& geoset) {
    try {
        const ::osg::GeometryPtr core = geoset.geometry.get();
        const auto triangles = static_cast<unsigned int>(geoset.size);
        const ::osg::CPEditor edit(core);
        geoset.resizeFieldContainers(triangles);
        geoset_fields fields;
        fields.follow(core);
        fields.forEachPresent([](auto& slot) { slot.get()->shrink(); });
        if (core->getNormals() != ::osg::NullFC &&
            core->getNormals()->size() != core->getPositions()->size())
            ::osg::calcVertexNormals(core);
        const ::osg::GeoPLengthsPtr lengths = core->getLengths();
        if (lengths != ::osg::NullFC && lengths->size() == 1)
            lengths->setValue(3 * triangles, 0);
        return;
    } catch (...) {
        printSetupError();
    }
    geoset.clear();
}

::osg::GeometryPtr geometryOf(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return ::osg::GeometryPtr(::osg::NullFC);
    return ::osg::GeometryPtr::dcast(node->getCore());
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
    const ::osg::CPEditor edit(node, ::osg::Node::CoreFieldMask);
    node->setCore(geoset.geometry.get());
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
    // Coordinates in no entry of a mapping have no index, whatever the iterator gives.
    const bool have_index = geometry->getIndices() == ::osg::NullFC ||
                            geometry->getIndexMapping().size() == 0 ||
                            geometry->calcMappingIndex(::osg::Geometry::MapTexCoords) >= 0;
    const auto at = [&block, have_index](::osg::Int32 index) {
        const auto row = static_cast<std::size_t>(index);
        const bool found = have_index && index >= 0 && row < block.size();
        return found ? block[row] : ::osg::Vec2f(0.0F, 0.0F);
    };
    const ::osg::TriangleIterator end = geometry->endTriangles();
    for (::osg::TriangleIterator it = geometry->beginTriangles(); it != end; ++it) {
        triangle_uv t{at(it.getTexCoordsIndex(0)), at(it.getTexCoordsIndex(1)),
                      at(it.getTexCoordsIndex(2))};
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
    const ::osg::CPEditor edit(geometry, ::osg::Geometry::MaterialFieldMask);
    geometry->setMaterial(::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
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
    ::osg::CPEditor edit(group.get(), ::osg::Node::ChildrenFieldMask);
    for (const ::osg::NodePtr& node : found)
        group->addChild(node);
    return group.release();
}

} // namespace morva::osg
