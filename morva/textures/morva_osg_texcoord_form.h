#pragma once

// The normal form of a triangle's texture coordinates, step by step: see getTCPositiv() and its
// neighbours, and optimizeTexCoords(), which go through these.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <OpenSG/OSGGeoProperty.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace morva::osg {

/// Values this near to a whole number become it: 0.001 in single precision.
constexpr double snap_distance = static_cast<double>(0.001F);
/// From here on every float is a whole number.
constexpr float all_whole = 8388608.0F;
/// Limit of cutTC() where none is given.
constexpr int usual_cut_limit = 50;

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

/// optimizeTexCoords() where an image repeats along some directions alone: the others stay as they
/// are, and no triangle is halved for them.
int optimizeTexCoords(osg_geoset& geoset, int maxTC, int cutLimit, repeating_directions repeats);

/// Calls `use` with the coordinates of each triangle that a geometry draws; a corner without any
/// has (0, 0).
template <typename Use> void forEachTriangleUv(const ::osg::GeometryPtr& geometry, const Use& use) {
    constexpr vertex_property read[] = {vertex_property::position, vertex_property::texcoords};
    const geometry_columns columns(geometry, read);
    const property_column& coordinates = columns[vertex_property::texcoords];
    forEachTriangle(columns, rest_rule::continued,
                    [&](std::size_t first, std::size_t second, std::size_t third) {
                        use(triangle_uv{coordinates.valueOf<::osg::Vec2f>(first),
                                        coordinates.valueOf<::osg::Vec2f>(second),
                                        coordinates.valueOf<::osg::Vec2f>(third)});
                    });
}

/// Coordinates 0 of a geoset; null for none.
inline ::osg::GeoTexCoordsPtr coordinatesOf(const osg_geoset& geoset) {
    const ::osg::GeometryPtr core = geoset.geometry.get();
    return core != ::osg::NullFC ? core->getTexCoords() : ::osg::GeoTexCoordsPtr(::osg::NullFC);
}

} // namespace morva::osg
