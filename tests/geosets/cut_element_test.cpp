// Cutting triangles at planes and in halves: against a written-out table of corners, with the cut
// points in ordered maps; and what every cut must conserve.

#include <cstdio>

#include <morva/core/morva_osg_geometry_tools.h>

#include "tests/support/triangle_scenes.h"

namespace {

using namespace tri;

struct naive_result {
    std::vector<piece> added;
    piece stays;
    std::string told; ///< on standard output
};

class naive_cutter {
  public:
    naive_result cut(const piece& t, double plane, int axis) {
        naive_result result{{}, t, ""};
        const auto a = ::osg::UInt32(axis);
        const auto distance = [&](const ::osg::Pnt3f& p) {
            return std::fabs(double(p[a]) - plane);
        };
        double v = plane;
        for (const ::osg::Pnt3f& near : t) {
            for (const ::osg::Pnt3f& far : t)
                v = distance(far) > distance(near) * 100000 ? double(near[a]) : v;
        }
        int code = 0, bits = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            code += double(t[k][a]) == v ? int(k) + 1 : 0;
            bits += double(t[k][a]) < v ? 1 << k : 0;
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

    /// As splitElementInTwoParts() of a triangle that begins at `low` and reaches so far.
    naive_result halve(const piece& t, const float (&low)[3], const float (&extent)[3], int edge,
                       bool by_axis) {
        bool sliver = by_axis;
        int axis = 2, longest = 3;
        for (const float one : extent) {
            for (const float other : extent)
                sliver = sliver || (one != 0 && one * 15 < other);
        }
        while (axis > 0 && !(extent[axis] >= extent[0] && extent[axis] >= extent[1] &&
                             extent[axis] >= extent[axis == 1 ? 1 : 2]))
            --axis;
        if (sliver)
            return cut(t, double(low[axis]) + double(extent[axis]) * 0.5, axis);
        naive_result result{{}, t, ""};
        const float length[] = {0, (t[1] - t[0]).length(), (t[2] - t[1]).length(),
                                (t[0] - t[2]).length()};
        while (longest > 1 && !(length[longest] >= length[1] && length[longest] >= length[2] &&
                                length[longest] >= length[3]))
            --longest;
        edge = edge == 0 ? longest : edge;
        if (edge < 1 || edge > 3) {
            result.told =
                "Error in Geoset::splitElementInTwoParts(). Linevalue: " + std::to_string(edge) +
                "\n";
            return result;
        }
        const ::osg::Pnt3f &from = t[std::size_t(edge) - 1], &to = t[std::size_t(edge) % 3];
        ::osg::Pnt3d middle;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            middle[i] = double(from[i]) + double((to[i] - from[i]) * 0.5F);
        take(through_corner_[(edge + 1) % 3], t, {middle}, result);
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
        std::vector<::osg::Pnt3d> cuts;
        for (const char* edge : r.edges) {
            cuts.emplace_back();
            if (!point(::osg::Pnt3d(t[std::size_t(edge[0] - 'A')]),
                       ::osg::Pnt3d(t[std::size_t(edge[1] - 'A')]), v, axis, cuts.back(),
                       result.told))
                return;
        }
        if (cuts.size() == 1 || keyOf(cuts[0]) != keyOf(cuts[1]))
            take(r, t, cuts, result);
    }

    /// The pieces, if all of them may be kept.
    static void take(const row& r, const piece& t, const std::vector<::osg::Pnt3d>& cuts,
                     naive_result& result) {
        std::vector<piece> made;
        std::vector<const char*> names = r.added;
        names.push_back(r.stays);
        for (const char* corners : names) {
            piece& one = made.emplace_back();
            for (const char* c = corners; *c != '\0'; ++c)
                one.push_back(*c < 'A' ? ::osg::Pnt3f(cuts[std::size_t(*c - '1')])
                                       : t[std::size_t(*c - 'A')]);
            if (morva::osg::is_rogue(one[0], one[1], one[2]))
                return;
        }
        result.stays = made.back();
        made.pop_back();
        result.added = made;
    }

    bool point(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, double v, int axis, ::osg::Pnt3d& out,
               std::string& told) {
        if (axis != known_axis || v != known_plane)
            known_.clear();
        known_axis = axis;
        known_plane = v;
        const auto found = known_.find({keyOf(p), keyOf(q)});
        if (found != known_.end()) {
            out = found->second;
            return true;
        }
        const auto a = ::osg::UInt32(axis);
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

::osg::Pnt3f randomPoint(std::mt19937& rng, int kind) {
    static const float offsets[] = {0.0F, 1e6F, -3e4F};
    std::uniform_real_distribution<float> anywhere(-2.0F, 2.0F);
    ::osg::Pnt3f p;
    for (::osg::UInt32 i = 0; i < 3; ++i) {
        if (kind == 0)
            p[i] = anywhere(rng);
        else if (kind == 1) // a grid: corners on the plane, flat and coincident ones
            p[i] = float(int(rng() % 5) - 2) * 0.5F;
        else // far away, or so near to the plane that it snaps
            p[i] = anywhere(rng) * (rng() % 2 == 0 ? 1e-6F : 1.0F) + offsets[kind - 2];
    }
    if (kind == 1 && rng() % 16 == 0)
        p[rng() % 3] = rng() % 2 == 0 ? nan_value : 3e12F; // beyond what may be kept
    return p;
}

/// Two triangles.
piece randomCorners(std::mt19937& rng, int kind) {
    piece corners;
    for (int i = 0; i < 6; ++i)
        corners.push_back(randomPoint(rng, kind));
    if (kind == 0) { // an edge that both have, the other way round
        corners[3] = corners[1];
        corners[4] = corners[0];
    }
    const float stretch = kind == 1 && rng() % 4 == 0 ? 15.0F : 1.0F; // just no sliver
    for (::osg::Pnt3f& p : corners)
        p[1] *= stretch;
    return corners;
}

TEST(CutElementOracle, AgreesWithTheWrittenOutTable) {
    std::cout << std::fixed; // what is told has fifteen digits all the same
    const std::streamsize digits = std::cout.precision(3);
    std::mt19937 rng(seedOf(815));
    int cuts = 0, refusals = 0;
    for (int round = 0; round < roundsOf(3000); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int kind = round % 5;
        osg_geoset geoset;
        fillRaw(geoset, randomCorners(rng, kind));
        naive_cutter naive;
        const double plane = kind == 1   ? double(rng() % 3) * 0.5 - 0.5
                             : round < 5 ? double(nan_value)
                                         : double(randomPoint(rng, kind)[0]);
        // Two planes of one axis: the points of one plane are used once more; then another axis,
        // and at last halves.
        for (const int axis : {0, 0, 2, 3, 3}) {
            for (unsigned long e = 0; e < 2; ++e) {
                const piece before = cornersOf(geoset, e);
                const unsigned long size = geoset.size;
                naive_result expected;
                cut_result found;
                if (axis < 3) {
                    expected = naive.cut(before, plane, axis);
                    found = cut(geoset, e, plane, axis);
                } else {
                    const bool by_axis = rng() % 3 == 0;
                    const int edge = int(rng() % 6) - 1;
                    float low[3], extent[3];
                    for (int a = 0; a < 3; ++a) {
                        low[a] = geoset.axis_min[a][e];
                        extent[a] = geoset.axis_max[a][e] - low[a];
                    }
                    expected = naive.halve(before, low, extent, edge, by_axis);
                    found = cutBy([&](int& pieces, unsigned long& first) {
                        geoset.splitElementInTwoParts(e, pieces, first, edge, by_axis);
                    });
                }
                EXPECT_EQ(found.told, expected.told);
                EXPECT_EQ(found.first, size);
                ASSERT_EQ(std::size_t(found.pieces), expected.added.size());
                ASSERT_EQ(geoset.size, size + expected.added.size());
                EXPECT_TRUE(same(numbersOf(cornersOf(geoset, e)), numbersOf(expected.stays)));
                for (std::size_t i = 0; i < expected.added.size(); ++i)
                    EXPECT_EQ(numbersOf(cornersOf(geoset, size + i)), numbersOf(expected.added[i]));
                EXPECT_EQ(geoset.split_axis, naive.known_axis);
                if (naive.known_axis >= 0) {
                    EXPECT_EQ(geoset.split_plane, naive.known_plane) << "snapped to a corner";
                }
                cuts += expected.added.empty() ? 0 : 1;
                refusals += expected.added.empty() && !expected.told.empty() ? 1 : 0;
            }
        }
        ASSERT_EQ(broken_rule_of(geoset), "");
        ASSERT_EQ(cut(geoset, geoset.size, plane, 0).pieces + cut(geoset, 0, plane, 3).pieces, 0);
    }
    EXPECT_GT(cuts, 1000);
    EXPECT_GT(refusals, 1000);
    EXPECT_EQ(std::cout.precision(digits), 3);
    std::cout.unsetf(std::ios_base::fixed);
}

TEST(CutElement, CutsAnEdgeInOnePlaceAndKeepsAttributes) {
    for (unsigned int seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seedOf(seed));
        osg_geoset geoset;
        fillGeoset(geoset, scattered(rng, 500), true);
        const ::osg::GeometryPtr core = geoset.geometry.get();
        if (seed % 2 == 0) { // stored in another form
            core->setPositions(inOtherForm<::osg::GeoPositions3d>(core->getPositions()));
            geoset.setup();
        }
        geoset.convert();
        const rows uncut = rowsOf(core, geoset.vertex_count);
        const int axis = int(seed % 3);
        const unsigned long count = geoset.size;
        for (unsigned long e = 0; e < count; ++e) {
            if (!(geoset.axis_min[axis][e] < 0.123F && geoset.axis_max[axis][e] > 0.123F))
                continue;
            const ::osg::Pnt3d p(cornersOf(geoset, e)[0]), q(cornersOf(geoset, e)[1]);
            ::osg::Pnt3d there, back; // an edge is cut in one place, from whichever end
            toldBy([&] {
                geoset.calcSplitPoint(p, q, double(0.123F), axis, &there);
                geoset.calcSplitPoint(q, p, double(0.123F), axis, &back);
            });
            EXPECT_EQ(std::memcmp(&there, &back, sizeof there), 0);
            EXPECT_GT(cut(geoset, e, double(0.123F), axis).pieces, 0);
        }
        EXPECT_GT(geoset.size, count + 20);
        EXPECT_EQ(broken_rule_of(geoset), "");
        // Colours and coordinates are the positions; IDs say which triangle a piece came from.
        for (const corner& c : rowsOf(core, geoset.vertex_count)) {
            for (::osg::UInt32 k = 0; k < 3; ++k)
                ASSERT_NEAR(c.color[k], c.position[k], 2e-4F);
            ASSERT_NEAR(c.uv[0][1], c.position[1], 2e-4F);
            ASSERT_LT(c.id, float(count));
            ASSERT_EQ(c.normal, uncut[3 * std::size_t(c.id)].normal);
        }
    }
}

} // namespace
