#pragma once

// Normal form and cutting of texture coordinates, step by step as one would say it, through the
// properties' own interface: the oracle. Only for input that cutting comes to an end with.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <vector>

#include <morva/geosets/morva_osg_geoset_tools.h>

namespace uv {

using morva::osg::osg_geoset;
using triple = std::vector<::osg::Vec2f>; ///< a triangle's coordinates

inline void naiveSnap(triple& t) {
    for (::osg::Vec2f& point : t) {
        for (::osg::UInt32 k = 0; k < 2; ++k) {
            const double wide = static_cast<double>(point[k]);
            if (std::fabs(wide - std::floor(wide)) <= 0.0010000000474974513)
                point[k] = static_cast<float>(std::floor(wide));
            else if (std::fabs(std::ceil(wide) - wide) <= 0.0010000000474974513)
                point[k] = static_cast<float>(std::ceil(wide));
        }
    }
}

inline void naivePositive(triple& t) {
    for (::osg::UInt32 k = 0; k < 2; ++k) {
        const float m = std::min({t[0][k], t[1][k], t[2][k], 0.0F});
        for (std::size_t i = 0; m < 0 && i < 3; ++i)
            t[i][k] = t[i][k] - std::floor(m);
    }
}

inline void naiveNearZero(triple& t) {
    for (::osg::UInt32 k = 0; k < 2; ++k) {
        const float m = std::min({t[0][k], t[1][k], t[2][k]});
        for (std::size_t i = 0; m > 1 && i < 3; ++i)
            t[i][k] = t[i][k] - std::floor(m);
    }
}

inline void naiveWrap(triple& t, int limit) {
    const float most = static_cast<float>(limit);
    for (::osg::Vec2f& point : t) {
        if (point[0] > most) {
            point[0] = point[0] - std::floor(point[0]);
            if (point[1] > 1)
                point[1] = point[1] - std::floor(point[1]);
        }
        if (point[1] > most) {
            point[1] = point[1] - std::floor(point[1]);
            if (point[0] > 1)
                point[0] = point[0] - std::floor(point[0]);
        }
    }
}

/// Brings one triangle of a property into the normal form, and returns its largest u or v.
inline float naiveForm(const ::osg::GeoTexCoordsPtr& property, std::size_t triangle, int limit) {
    const auto row = static_cast<::osg::UInt32>(3 * triangle);
    triple t = {property->getValue(row), property->getValue(row + 1), property->getValue(row + 2)};
    naiveSnap(t);
    naivePositive(t);
    naiveNearZero(t);
    naiveWrap(t, limit);
    for (::osg::UInt32 k = 0; k < 3; ++k)
        property->setValue(t[k], row + k);
    return std::max({t[0][0], t[1][0], t[2][0], t[0][1], t[1][1], t[2][1]});
}

inline int naiveOptimize(osg_geoset& geoset, int max, int limit) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    int added = 0;
    for (std::size_t i = 0; i + 2 < property->size();) {
        int pieces = 0;
        unsigned long first = 0;
        if (naiveForm(property, i / 3, limit) > static_cast<float>(max) && max > 0)
            geoset.splitElementInTwoParts(i / 3, pieces, first, 0, false);
        added += pieces;
        if (pieces < 1)
            i += 3;
    }
    return added;
}

inline int naiveSmart(osg_geoset& geoset, int max, int limit) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    const int budget = static_cast<int>(property->size());
    std::multimap<float, unsigned long> all;
    for (unsigned long i = 0; i < property->size() / 3; ++i)
        all.emplace(naiveForm(property, i, limit), i);
    int added = 0;
    for (auto cursor = all.end(); cursor != all.begin(); cursor = std::prev(all.end())) {
        const auto [key, triangle] = *std::prev(cursor);
        if (!(key > static_cast<float>(max)))
            break;
        int pieces = 0;
        unsigned long first = 0;
        geoset.splitElementInTwoParts(triangle, pieces, first, 0, false);
        added += pieces;
        if (added > budget || pieces < 1)
            break;
        const auto same = all.equal_range(key);
        const auto wanted = triangle;
        all.erase(std::find_if(same.first, same.second,
                               [wanted](const auto& entry) { return entry.second == wanted; }));
        all.emplace(naiveForm(property, triangle, limit), triangle);
        for (int k = 0; k < pieces; ++k, ++first)
            all.emplace(naiveForm(property, first, limit), first);
    }
    return added;
}

} // namespace uv
