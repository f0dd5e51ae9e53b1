// How a geoset takes in new triangles and reshapes old ones: growth, and what colours and
// coordinates read at a point of a triangle.

#include <morva/geosets/morva_osg_geoset_tools.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <new>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_axis_arrays.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_stage_errors.h>

namespace morva::osg {

namespace {

/// Points closer than this on every axis are one corner.
constexpr float corner_reach = 1e-6F;
/// Vectors shorter than this are not scaled to length 1.
constexpr float shortest_normal = 1e-6F;

/// How the values at a triangle's corners make the value at a point of it.
struct corner_blend {
    int corner = -1;      ///< 0 to 2: that corner's value alone; -1: by weights
    float weight[3] = {}; ///< not clamped, not finite on a triangle without area
};

struct corner_points {
    ::osg::Pnt3f a, b, c;
};

bool coincide(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b) {
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        if (!(a[axis] - b[axis] <= corner_reach && b[axis] - a[axis] <= corner_reach))
            return false;
    }
    return true;
}

corner_blend blendAt(const corner_points& t, const ::osg::Pnt3f& point) {
    corner_blend blend;
    if (coincide(point, t.a)) {
        blend.corner = 0;
    } else if (coincide(point, t.b)) {
        blend.corner = 1;
    } else if (coincide(point, t.c)) {
        blend.corner = 2;
    }
    if (blend.corner >= 0)
        return blend;

    const ::osg::Vec3f whole = (t.b - t.a).cross(t.c - t.a);
    const float length = whole.length();
    ::osg::Vec3f n = whole;
    if (!(length < shortest_normal))
        n /= length;
    const float den = n.dot(whole);
    const ::osg::Vec3f pa = t.a - point, pb = t.b - point, pc = t.c - point;
    blend.weight[0] = pb.cross(pc).dot(n) / den;
    blend.weight[1] = pc.cross(pa).dot(n) / den;
    blend.weight[2] = 1.0F - blend.weight[0] - blend.weight[1];
    return blend;
}

/// The blended value of three; `Value` has as many components as `Components` says.
template <::osg::UInt32 Components, typename Value>
Value blended(const corner_blend& blend, const Value (&at)[3]) {
    if (blend.corner >= 0)
        return at[blend.corner];
    Value result;
    for (::osg::UInt32 i = 0; i < Components; ++i) {
        result[i] =
            blend.weight[0] * at[0][i] + blend.weight[1] * at[1][i] + blend.weight[2] * at[2][i];
    }
    return result;
}

template <typename Value> constexpr ::osg::UInt32 components = 3;
template <> constexpr ::osg::UInt32 components<::osg::Vec2f> = 2;

/// The corners of a triangle; zero if the field does not have them.
corner_points cornersOf(const positions_slot& positions, std::size_t triangle) {
    if (!positions.holds(triangle))
        return corner_points();
    return {positions.value(3 * triangle), positions.value(3 * triangle + 1),
            positions.value(3 * triangle + 2)};
}

/// Reads a property of triangle `source` at three points and writes it to triangle `target`.
template <typename Slot>
void blendTriangle(Slot& slot, std::size_t source, std::size_t target,
                   const corner_blend (&blends)[3]) {
    using value = typename Slot::value_type;
    if (!slot.holds(source) || !slot.holds(target))
        return;
    const value at[3] = {slot.value(3 * source), slot.value(3 * source + 1),
                         slot.value(3 * source + 2)};
    // All three before the first is written: source and target may be one.
    value made[3];
    for (int k = 0; k < 3; ++k)
        made[k] = blended<components<value>>(blends[k], at);
    for (std::size_t k = 0; k < 3; ++k)
        slot.put(3 * target + k, made[k]);
}

/// Colours and coordinates of triangle `source` at three points become those of `target`.
void blendFields(geoset_fields& fields, std::size_t source, std::size_t target,
                 const corner_blend (&blends)[3]) {
    blendTriangle(fields.colors, source, target, blends);
    blendTriangle(fields.secondary, source, target, blends);
    for (texcoords_slot& unit : fields.texcoords)
        blendTriangle(unit, source, target, blends);
}

/// Copies the three rows of a triangle.
template <typename Slot> void copyTriangle(Slot& slot, std::size_t source, std::size_t target) {
    if (!slot.holds(source) || !slot.holds(target))
        return;
    for (std::size_t k = 0; k < 3; ++k)
        slot.put(3 * target + k, slot.value(3 * source + k));
}

void putCorners(positions_slot& positions, std::size_t triangle, const ::osg::Pnt3f& p0,
                const ::osg::Pnt3f& p1, const ::osg::Pnt3f& p2) {
    if (!positions.holds(triangle))
        return;
    positions.put(3 * triangle, p0);
    positions.put(3 * triangle + 1, p1);
    positions.put(3 * triangle + 2, p2);
}

/// A core that no node shows is the geoset's own: it is entered whole when it is handed out, not
/// once for every piece.
void markChanged(const ::osg::GeometryPtr& core) {
    if (core != ::osg::NullFC && !core->getParents().empty())
        const open_edit edit(core);
}

/// What a triangle's property reads at a point; zero without the property or the triangle.
template <typename Slot>
typename Slot::value_type valueAt(const geoset_fields& fields, const Slot& slot,
                                  unsigned int element, const ::osg::Pnt3f& point) {
    using value = typename Slot::value_type;
    if (!slot.holds(element))
        return value();
    const std::size_t row = std::size_t(3) * element;
    const value at[3] = {slot.value(row), slot.value(row + 1), slot.value(row + 2)};
    return blended<components<value>>(blendAt(cornersOf(fields.positions, element), point), at);
}

/// Capacity after growing from `wished` for one more than `size`.
std::uint64_t grownCapacity(std::uint64_t wished, std::uint64_t size) {
    const std::uint64_t grown =
        size > 999 ? static_cast<std::uint64_t>(static_cast<double>(wished) * 1.3) : wished * 2;
    return std::max(grown, size + 1); // from nothing, twice is nothing
}

} // namespace

::osg::Color3f osg_geoset::interpolate_color(unsigned int element, const ::osg::Pnt3f& point,
                                             unsigned int set) const {
    const geoset_fields& present = fields();
    return valueAt(present, set == 1 ? present.secondary : present.colors, element, point);
}

::osg::Vec2f osg_geoset::interpolate_texcoord(unsigned int element, const ::osg::Pnt3f& point,
                                              unsigned int unit) const {
    const geoset_fields& present = fields();
    return valueAt(present, present.texcoords[unit >= 1 && unit <= 3 ? unit : 0], element, point);
}

bool osg_geoset::add_GeoFields(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1,
                               const ::osg::Pnt3f& p2, unsigned long source, unsigned int target) {
    try {
        geoset_fields& present = fields();
        const corner_points old = cornersOf(present.positions, source);
        const corner_blend blends[3] = {blendAt(old, p0), blendAt(old, p1), blendAt(old, p2)};
        putCorners(present.positions, target, p0, p1, p2);
        copyTriangle(present.normals, source, target);
        present.changedFrom(std::size_t(3) * target);
        blendFields(present, source, target, blends);
        markChanged(geometry.get());
        return true;
    } catch (const std::bad_alloc&) {
        say_error({"Bad Alloc in Geoset while creating new Tris."});
        return false;
    }
}

void osg_geoset::ModifyObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1,
                              const ::osg::Pnt3f& p2, unsigned int index) {
    geoset_fields& present = fields();
    if (!present.positions.holds(index))
        return;
    // Attributes first: they are read by the positions that are about to go.
    const corner_points old = cornersOf(present.positions, index);
    const corner_blend blends[3] = {blendAt(old, p0), blendAt(old, p1), blendAt(old, p2)};
    blendFields(present, index, index, blends);
    putCorners(present.positions, index, p0, p1, p2);
    present.changedFrom(std::size_t(3) * index);
    markChanged(geometry.get());
    if (index < size)
        calc_axis_min_max(index, index);
    if (simple_tris != nullptr)
        prepareSimpleTris(index);
}

/// Makes room for one more triangle. False after one line on standard error; the capacity is then
/// the old one.
bool osg_geoset::growForOneMore() {
    const std::uint64_t before = wished_size;
    try {
        wished_size = grownCapacity(wished_size, size);
        axis_arrays low(wished_size), high(wished_size);
        if (!resizeFieldContainers(static_cast<unsigned int>(wished_size)))
            throw "FieldContainers are not enlargeable";
        for (int axis = 0; axis < 3 && size > 0; ++axis) {
            std::copy_n(axis_min[axis], size, low[axis]);
            std::copy_n(axis_max[axis], size, high[axis]);
        }
        low.changePlaces(axis_min);
        high.changePlaces(axis_max);
        if (simple_tris != nullptr)
            convert();
        return true;
    } catch (...) {
        printAddObjectError();
    }
    wished_size = before;
    return false;
}

bool osg_geoset::addObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, const ::osg::Pnt3f& p2,
                           unsigned long source) {
    if (!fields().positions.present() || (size > 0 && axis_min == nullptr))
        return false;
    if (!(wished_size > size + 1) && !growForOneMore())
        return false;
    const auto added = static_cast<unsigned int>(size);
    if (!add_GeoFields(p0, p1, p2, source, added))
        return false;
    // The piece comes from where its triangle comes from.
    copyTriangle(fields().ids, source, added);

    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    if (lengths != ::osg::NullFC && lengths->size() > 0)
        lengths->setValue(lengths->getValue(0) + 3, 0);
    ++size;
    assert(size <= wished_size);
    vertex_count = corners * size; // a later setup() counts from here
    calc_axis_min_max(added, added);
    if (simple_tris != nullptr)
        prepareSimpleTris(added);
    return true;
}

/// Gives up the triangle that was added last.
void osg_geoset::takeLastOff() {
    assert(size > 0);
    --size;
    vertex_count = corners * size;
    settleLength(geometry.get(), vertex_count);
}

} // namespace morva::osg
