#pragma once

// The rules of a geoset after setup(), of triangles, lines and points alike, as text of the first
// one that is broken:
//
//     validate("setup", [&] { return broken_rule_of(geoset); });
//
// Linear in elements. One thread, which changes nothing meanwhile.

#include <cmath>
#include <cstddef>
#include <string>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/trees/geoset_access.h>

namespace morva::osg {

namespace detail {

/// Equal, where a NaN equals a NaN.
inline bool sameNumber(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

/// Whether every field of a core has `rows` rows at least.
inline bool fieldsHold(const ::osg::GeometryPtr& core, std::size_t rows) {
    for (int property = 0; property < 12; ++property) {
        const auto* field = core->getProperty(1 << property);
        if (field != nullptr && field->getSize() < rows)
            return false;
    }
    return true;
}

/// Whether elements can be asked for their extents; they can be dropped.
template <typename Geoset> bool hasExtents(const Geoset& geoset) {
    if constexpr (Geoset::corners == 1)
        return true;
    else
        return geoset.axis_min != nullptr;
}

/// What an element's arrays say of the corners that begin at `corner`; empty if all is well.
template <typename Geoset>
const char* brokenElementRule(const Geoset& geoset, std::size_t element,
                              const ::osg::Pnt3f* corner) {
    using morva::extents_on_axis;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        float low = corner[0][axis], high = low; // a NaN stays, and one further on is passed over
        for (unsigned int k = 1; k < Geoset::corners; ++k) {
            low = corner[k][axis] < low ? corner[k][axis] : low;
            high = corner[k][axis] > high ? corner[k][axis] : high;
        }
        float lo = low, hi = high;
        if (hasExtents(geoset))
            extents_on_axis(geoset, static_cast<int>(axis)).read(element, lo, hi);
        if (!sameNumber(lo, low) || !sameNumber(hi, high))
            return "axis arrays agree with the positions";
        if constexpr (Geoset::corners == 3) {
            if (geoset.simple_tris == nullptr)
                continue;
            const auto& t = geoset.simple_tris[element];
            if (!sameNumber(t.a[axis], corner[0][axis]) ||
                !sameNumber(t.b[axis], corner[1][axis]) || !sameNumber(t.c[axis], corner[2][axis]))
                return "simple_tris agree with the positions";
        }
    }
    return "";
}

} // namespace detail

/// The first rule that a set-up geoset breaks, or an empty text. Where fields could not grow, they
/// may be shorter than what was extracted.
template <typename Geoset> std::string broken_rule_of(const Geoset& geoset) {
    if (geoset.size > geoset.wished_size)
        return "size is at most wished_size";
    if (geoset.size == 0)
        return "";
    const std::size_t vertices = Geoset::corners * static_cast<std::size_t>(geoset.size);
    const ::osg::GeometryPtr core = geoset.geometry;
    if (core->getPositions() == ::osg::NullFC || !detail::fieldsHold(core, vertices))
        return "every field holds every element";
    if (geoset.vertex_count / Geoset::corners != geoset.size && !geoset.resize_failed)
        return "vertex_count counts every element";
    const ::osg::GeoPLengthsPtr lengths = core->getLengths();
    if (lengths != ::osg::NullFC && lengths->size() == 1 && lengths->getValue(0) != vertices)
        return "the length is that of the elements";
    const property_block<::osg::Pnt3f> positions = readBlock(core->getPositions());
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const char* words =
            detail::brokenElementRule(geoset, i, positions.data() + Geoset::corners * i);
        if (*words != '\0')
            return words;
    }
    return "";
}

} // namespace morva::osg
