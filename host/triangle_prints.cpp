#include "triangle_prints.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <tuple>

#include <morva/core/morva_osg_geometry_tools.h>

#include "parallel.h"

namespace morva::host {

namespace {

using corner_bits = std::array<std::uint32_t, 3>;

corner_bits bitsOf(const ::osg::Pnt3f& point) {
    corner_bits bits;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        const float place = point[axis] + 0.0F; // -0 is 0: a new index may swap them
        std::memcpy(&bits[axis], &place, sizeof place);
    }
    return bits;
}

/// Multiplies and folds, so that each word reaches all bits.
std::uint64_t hashOf(const std::array<corner_bits, 3>& corners) {
    std::uint64_t hash = 0x9E3779B97F4A7C15u;
    for (const corner_bits& corner : corners) {
        for (const std::uint32_t word : corner) {
            hash = (hash ^ word) * 0xD6E8FEB86659FD93u;
            hash ^= hash >> 32;
        }
    }
    return hash;
}

bool isBefore(const triangle_print& a, const triangle_print& b) {
    return std::tie(a.print, a.part) < std::tie(b.print, b.part);
}

} // namespace

void addPrints(const geometry_view& view, std::uint32_t part, print_list& prints,
               const placement* to, sound_where sound) {
    const std::vector<::osg::Pnt3f> moved = placed(view, to);
    const auto point = [&](std::uint32_t corner) { return moved[view.positions.row(corner)]; };
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        const ::osg::Pnt3f points[3] = {point(a), point(b), point(c)};
        if (morva::osg::is_rogue(points[0], points[1], points[2]) ||
            (sound == sound_where::in_own_space_too && isDegenerate(view, a, b, c)))
            return;
        std::array<corner_bits, 3> corners = {bitsOf(points[0]), bitsOf(points[1]),
                                              bitsOf(points[2])};
        std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()),
                    corners.end());
        prints.push_back({hashOf(corners), part});
    });
}

std::uint64_t countStrangers(print_list before, print_list after) {
    const auto isLess = [](const triangle_print& a, const triangle_print& b) {
        return a.print < b.print;
    };
    std::sort(before.begin(), before.end(), isLess);
    std::sort(after.begin(), after.end(), isLess);
    print_list strangers;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(strangers), isLess);
    return strangers.size();
}

std::vector<print_difference> comparePrints(print_list before, print_list after) {
    runParallel(2, [&](std::size_t i) {
        print_list& list = i == 0 ? before : after;
        std::sort(list.begin(), list.end(), isBefore);
    });
    std::map<std::uint32_t, print_difference> by_part;
    auto out = after.begin();
    for (auto in = before.begin(); in != before.end();) {
        const std::uint64_t print = in->print;
        while (out != after.end() && out->print < print)
            ++out;
        // Of equal triangles the first parts keep what came out.
        for (; in != before.end() && in->print == print; ++in) {
            print_difference& difference = by_part[in->part];
            difference.part = in->part;
            if (out != after.end() && out->print == print)
                ++out;
            else
                ++difference.lost;
        }
        for (; out != after.end() && out->print == print; ++out)
            ++by_part[std::prev(in)->part].again;
    }
    std::vector<print_difference> differences;
    for (const auto& [part, difference] : by_part) {
        if (difference.again != 0 || difference.lost != 0)
            differences.push_back(difference);
    }
    return differences;
}

} // namespace morva::host
