#pragma once

// Cutting of one triangle, written out case by case, with the cut points in ordered maps: the
// oracle for osg_geoset::splitElement().

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
        if (code > 3) {
            result.told = "MORVA_OSG_GEOSET: Weird Error. More than one point is on the plane.\n";
        } else if (code > 0) {
            throughCorner(t, v, axis, code, result);
        } else if (bits == 0 || bits == 7) {
            result.told = "Error in SplitElement! All Points can't be on one side\n";
        } else {
            throughEdges(t, v, axis, bits, result);
        }
        return result;
    }

  private:
    using key = std::tuple<double, double, double>;

    static key keyOf(const ::osg::Pnt3d& p) { return {p[0], p[1], p[2]}; }
    static ::osg::Pnt3d wide(const ::osg::Pnt3f& p) { return ::osg::Pnt3d(p[0], p[1], p[2]); }
    static ::osg::Pnt3f narrow(const ::osg::Pnt3d& p) {
        return ::osg::Pnt3f(static_cast<float>(p[0]), static_cast<float>(p[1]),
                            static_cast<float>(p[2]));
    }

    bool point(const ::osg::Pnt3f& from, const ::osg::Pnt3f& to, double v, int axis,
               ::osg::Pnt3d& out, std::string& told) {
        const ::osg::Pnt3d p = wide(from), q = wide(to);
        if (axis != known_axis || v != known_plane) {
            known.clear();
            known_axis = axis;
            known_plane = v;
        } else {
            for (const auto& [one, other] : {std::pair(p, q), std::pair(q, p)}) {
                const auto first = known.find(keyOf(one));
                if (first != known.end() && first->second.count(keyOf(other)) != 0) {
                    out = first->second[keyOf(other)];
                    return true;
                }
            }
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
        known[keyOf(p)][keyOf(q)] = out;
        return true;
    }

    static bool rogue(const piece& p) { return morva::osg::is_rogue(p[0], p[1], p[2]); }

    static void accept(const piece& first, const piece& second, const piece& stays,
                       naive_result& result) {
        if (rogue(first) || rogue(second) || rogue(stays))
            return;
        result.added = {first, second};
        result.stays = stays;
    }

    void throughEdges(const piece& t, double v, int axis, int bits, naive_result& result) {
        const ::osg::Pnt3f &A = t[0], &B = t[1], &C = t[2];
        ::osg::Pnt3d w1, w2;
        const bool lone_a = bits == 1 || bits == 6, lone_b = bits == 2 || bits == 5;
        const ::osg::Pnt3f& lone = lone_a ? A : lone_b ? B : C;
        const ::osg::Pnt3f& to1 = lone_a ? B : A;
        const ::osg::Pnt3f& to2 = lone_a ? C : lone_b ? C : B;
        if (!point(lone, to1, v, axis, w1, result.told) ||
            !point(lone, to2, v, axis, w2, result.told) || keyOf(w1) == keyOf(w2))
            return;
        const ::osg::Pnt3f S1 = narrow(w1), S2 = narrow(w2);
        if (lone_a)
            accept({S1, B, S2}, {B, C, S2}, {A, S1, S2}, result);
        else if (lone_b)
            accept({A, S1, S2}, {A, S2, C}, {S1, B, S2}, result);
        else
            accept({S1, S2, C}, {A, B, S2}, {A, S2, S1}, result);
    }

    void throughCorner(const piece& t, double v, int axis, int code, naive_result& result) {
        const ::osg::Pnt3f &A = t[0], &B = t[1], &C = t[2];
        ::osg::Pnt3d w;
        if (!point(code == 1 ? B : A, code == 3 ? B : C, v, axis, w, result.told))
            return;
        const ::osg::Pnt3f S = narrow(w);
        const piece added = code == 1   ? piece{A, S, C}
                            : code == 2 ? piece{B, C, S}
                                        : piece{S, B, C};
        const piece stays = code == 3 ? piece{A, S, C} : piece{A, B, S};
        if (rogue(added) || rogue(stays))
            return;
        result.added = {added};
        result.stays = stays;
    }

    std::map<key, std::map<key, ::osg::Pnt3d>> known;
    int known_axis = -1;
    double known_plane = 0;
};

} // namespace tri
