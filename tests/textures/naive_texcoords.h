#pragma once

// Triangles with texture coordinates, and their normal form and cutting step by step as one would
// say it, through the properties' own interface: the oracle.

#include <numeric>

#include "tests/support/triangle_scenes.h"

namespace uv {

using morva::osg::osg_geoset;
using coordinates = std::vector<::osg::Vec2f>; ///< three per triangle

inline void fill(osg_geoset& geoset, const std::vector<::osg::Pnt3f>& positions,
                 const coordinates& values) {
    tri::fillGeoset(geoset, positions, true);
    for (::osg::UInt32 i = 0; i < values.size(); ++i)
        geoset.geometry->getTexCoords()->setValue(values[i], i);
}

/// Equal to the last bit, or both NaN.
inline bool same(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

enum step { snap, positive, near_zero, wrap };

inline void naiveStep(step which, coordinates& t, int limit) {
    const auto most = float(limit);
    for (::osg::UInt32 k = 0; k < 2; ++k) {
        const float low = std::min({t[0][k], t[1][k], t[2][k]});
        const bool shift = which == positive ? low < 0 : which == near_zero && low > 1;
        for (std::size_t i = 0; i < 3; ++i) {
            float& value = t[i][k];
            float& other = t[i][1 - k];
            const double wide = double(value);
            if (which == snap && std::fabs(wide - std::floor(wide)) <= 0.0010000000474974513)
                value = float(std::floor(wide));
            else if (which == snap && std::fabs(std::ceil(wide) - wide) <= 0.0010000000474974513)
                value = float(std::ceil(wide));
            if (shift)
                value = value - std::floor(low);
            if (which == wrap && value > most) {
                value = value - std::floor(value);
                other = other > 1 ? other - std::floor(other) : other;
            }
        }
    }
}

/// Brings one triangle of a property into the normal form, and returns its largest u or v.
inline float naiveForm(const ::osg::GeoTexCoordsPtr& property, std::size_t triangle, int limit) {
    const auto row = ::osg::UInt32(3 * triangle);
    coordinates t;
    for (::osg::UInt32 k = 0; k < 3; ++k)
        t.push_back(property->getValue(row + k));
    for (const step which : {snap, positive, near_zero, wrap})
        naiveStep(which, t, limit);
    for (::osg::UInt32 k = 0; k < 3; ++k)
        property->setValue(t[k], row + k);
    return std::max({t[0][0], t[1][0], t[2][0], t[0][1], t[1][1], t[2][1]});
}

inline int naiveOptimize(osg_geoset& geoset, int max, int limit) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    std::vector<std::size_t> whole(geoset.size); // what each triangle is a piece of
    std::iota(whole.begin(), whole.end(), std::size_t{0});
    std::vector<int> made(geoset.size);
    int added = 0;
    for (std::size_t i = 0; i + 2 < property->size();) {
        int pieces = 0;
        unsigned long first = 0;
        if (naiveForm(property, i / 3, limit) > float(max) && max > 0 && i / 3 < whole.size() &&
            made[whole[i / 3]] < 65536)
            geoset.splitElementInTwoParts(i / 3, pieces, first, 0, false);
        if (pieces > 0)
            made[whole[i / 3]] += pieces;
        whole.resize(geoset.size, i / 3 < whole.size() ? whole[i / 3] : 0);
        added += pieces;
        i += pieces < 1 ? 3 : 0;
    }
    return added;
}

inline int naiveSmart(osg_geoset& geoset, int max, int limit) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    const int budget = int(property->size());
    std::multimap<float, unsigned long> all;
    for (unsigned long i = 0; i < property->size() / 3; ++i)
        all.emplace(naiveForm(property, i, limit), i);
    int added = 0;
    for (auto cursor = all.end(); cursor != all.begin(); cursor = std::prev(all.end())) {
        const float key = std::prev(cursor)->first;
        const unsigned long triangle = std::prev(cursor)->second;
        int pieces = 0;
        unsigned long first = 0;
        if (key > float(max))
            geoset.splitElementInTwoParts(triangle, pieces, first, 0, false);
        added += pieces;
        if (added > budget || pieces < 1)
            break;
        const auto range = all.equal_range(key);
        all.erase(std::find_if(range.first, range.second,
                               [&](const auto& entry) { return entry.second == triangle; }));
        all.emplace(naiveForm(property, triangle, limit), triangle);
        for (int k = 0; k < pieces; ++k, ++first)
            all.emplace(naiveForm(property, first, limit), first);
    }
    return added;
}

} // namespace uv
