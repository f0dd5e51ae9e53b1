#pragma once

// Cutting of one triangle by a written-out table of corners, with the cut points in ordered maps:
// the oracle for osg_geoset::splitElement().

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <morva/core/morva_osg_geometry_tools.h>

#include "triangle_scenes.h"

namespace tri {

/// What a cut of one triangle should give.
struct naive_result {
    std::vector<piece> added;
    piece stays;
    std::string told; ///< on standard output
};

class naive_cutter {
  public:
    naive_result cut(const piece& t, double plane, int axis) {
        naive_result result;
        result.stays = t;
        const auto a = static_cast<::osg::UInt32>(axis);
        const double A = t[0][a], B = t[1][a], C = t[2][a];
        const double dA = std::fabs(A - plane), dB = std::fabs(B - plane),
                     dC = std::fabs(C - plane);
        double v = plane;
        if (dB > dA * 100000 || dC > dA * 100000)
            v = A;
        if (dA > dB * 100000 || dC > dB * 100000)
            v = B;
        if (dA > dC * 100000 || dB > dC * 100000)
            v = C;
        const int code = (A == v ? 1 : 0) + (B == v ? 2 : 0) + (C == v ? 3 : 0);
        const int bits = (A < v ? 1 : 0) + (B < v ? 2 : 0) + (C < v ? 4 : 0);
        if (code > 3)
            result.told = "MORVA_OSG_GEOSET: Weird Error. More than one point is on the plane.\n";
        else if (code > 0)
            apply(through_corner[code - 1], t, v, axis, result);
        else if (bits == 0 || bits == 7)
            result.told = "Error in SplitElement! All Points can't be on one side\n";
        else
            apply(through_edges[bits == 1 || bits == 6   ? 0
                                : bits == 2 || bits == 5 ? 1
                                                         : 2],
                  t, v, axis, result);
        return result;
    }

  private:
    /// Corners are A, B and C, cut points 1 and 2.
    struct row {
        std::vector<const char*> edges; ///< that are cut, to make 1 and 2
        std::vector<const char*> added;
        const char* stays;
    };
    const row through_edges[3] = {{{"AB", "AC"}, {"1B2", "BC2"}, "A12"},
                                  {{"BA", "BC"}, {"A12", "A2C"}, "1B2"},
                                  {{"CA", "CB"}, {"12C", "AB2"}, "A21"}};
    const row through_corner[3] = {
        {{"BC"}, {"A1C"}, "AB1"}, {{"AC"}, {"BC1"}, "AB1"}, {{"AB"}, {"1BC"}, "A1C"}};

    using key = std::tuple<double, double, double>;
    static key keyOf(const ::osg::Pnt3d& p) { return {p[0], p[1], p[2]}; }

    void apply(const row& r, const piece& t, double v, int axis, naive_result& result) {
        std::map<char, ::osg::Pnt3f> at = {{'A', t[0]}, {'B', t[1]}, {'C', t[2]}};
        std::vector<key> cuts;
        for (const char* edge : r.edges) {
            ::osg::Pnt3d s;
            if (!point(at[edge[0]], at[edge[1]], v, axis, s, result.told))
                return;
            cuts.push_back(keyOf(s));
            at[static_cast<char>('0' + cuts.size())] = ::osg::Pnt3f(s);
        }
        if (cuts.size() == 2 && cuts[0] == cuts[1])
            return;
        std::vector<piece> made;
        for (const char* names : r.added)
            made.push_back({at[names[0]], at[names[1]], at[names[2]]});
        made.push_back({at[r.stays[0]], at[r.stays[1]], at[r.stays[2]]});
        for (const piece& p : made) {
            if (morva::osg::is_rogue(p[0], p[1], p[2]))
                return;
        }
        result.stays = made.back();
        made.pop_back();
        result.added = made;
    }

    bool point(const ::osg::Pnt3f& from, const ::osg::Pnt3f& to, double v, int axis,
               ::osg::Pnt3d& out, std::string& told) {
        const ::osg::Pnt3d p(from), q(to);
        if (axis != known_axis || v != known_plane)
            known.clear();
        known_axis = axis;
        known_plane = v;
        for (const auto& ends : {std::pair(keyOf(p), keyOf(q)), std::pair(keyOf(q), keyOf(p))}) {
            const auto found = known.find(ends);
            if (found == known.end())
                continue;
            out = found->second;
            return true;
        }
        const auto a = static_cast<::osg::UInt32>(axis);
        const double f = (p[a] - v) / (p[a] - q[a]);
        if (1e-5 >= f || f >= 0.99999) {
            char line[120];
            std::snprintf(line, sizeof line,
                          "Morva::osg::osg_geoset::calcSplitPoint: Factor Error( %.15g ).\n", f);
            told += line;
            return false;
        }
        for (::osg::UInt32 i = 0; i < 3; ++i) {
            out[i] = (q[i] * f - p[i] * f) + p[i];
            if (!std::isfinite(out[i])) {
                told += "Morva::osg::osg_geoset::calcSplitPoint: Math-Error occured. "
                        "Splitpoint is NaN.\n";
                return false;
            }
        }
        out[a] = v;
        known[{keyOf(p), keyOf(q)}] = out;
        return true;
    }

    std::map<std::pair<key, key>, ::osg::Pnt3d> known;
    int known_axis = -1;
    double known_plane = 0;
};

} // namespace tri
