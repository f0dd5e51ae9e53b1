#pragma once

// Cutting of one triangle by a written-out table of corners, with the cut points in ordered maps:
// the oracle for osg_geoset::splitElement().

#include "tests/support/test.h"

#include <cstdio>

#include <morva/core/morva_osg_geometry_tools.h>

#include "triangle_scenes.h"

namespace tri {

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
        const auto distance = [&](const ::osg::Pnt3f& p) {
            return std::fabs(static_cast<double>(p[a]) - plane);
        };
        double v = plane;
        for (const ::osg::Pnt3f& near : t) {
            for (const ::osg::Pnt3f& far : t)
                v = distance(far) > distance(near) * 100000 ? static_cast<double>(near[a]) : v;
        }
        int code = 0, bits = 0;
        for (int k = 0; k < 3; ++k) {
            const double at = t[static_cast<std::size_t>(k)][a];
            code += at == v ? k + 1 : 0;
            bits += at < v ? 1 << k : 0;
        }
        if (code > 3)
            result.told = "MORVA_OSG_GEOSET: Weird Error. More than one point is on the plane.\n";
        else if (code > 0)
            apply(through_corner_[code - 1], t, v, axis, result);
        else if (bits == 0 || bits == 7)
            result.told = "Error in SplitElement! All Points can't be on one side\n";
        else
            apply(through_edges_[std::min(bits, 7 - bits) - 1], t, v, axis, result);
        return result;
    }

    int known_axis = -1; ///< of the last cut
    double known_plane = 0;

  private:
    /// Corners are A, B and C, cut points 1 and 2.
    struct row {
        std::vector<const char*> edges; ///< that are cut, to make 1 and 2
        std::vector<const char*> added;
        const char* stays;
    };
    const row through_edges_[3] = {{{"AB", "AC"}, {"1B2", "BC2"}, "A12"},
                                   {{"BA", "BC"}, {"A12", "A2C"}, "1B2"},
                                   {{"CA", "CB"}, {"12C", "AB2"}, "A21"}};
    const row through_corner_[3] = {
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
            known_.clear();
        known_axis = axis;
        known_plane = v;
        const auto found = known_.find({keyOf(p), keyOf(q)});
        if (found != known_.end()) {
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
        known_[{keyOf(p), keyOf(q)}] = known_[{keyOf(q), keyOf(p)}] = out;
        return true;
    }

    std::map<std::pair<key, key>, ::osg::Pnt3d> known_; ///< by both ends, either way round
};

} // namespace tri
