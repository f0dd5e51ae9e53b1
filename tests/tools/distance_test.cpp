#include <morva/tools/morva_osg_simplify_limit.h>

#include "tests/support/test.h"

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using namespace morva::osg;

using place = std::array<long double, 3>;
using triangle = std::array<place, 3>;

place mixed(const triangle& t, long double a, long double b, long double c) {
    place p{};
    for (int i = 0; i < 3; ++i)
        p[i] = a * t[0][i] + b * t[1][i] + c * t[2][i];
    return p;
}

long double product(const place& a, const place& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

place apart(const place& a, const place& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }

/// Of the nearest points on the planes, lines and points of a triangle those that are in it.
long double distanceBetween(const place& p, const triangle& t) {
    long double least = HUGE_VALL;
    const auto take = [&](long double a, long double b, long double c) {
        if (std::min({a, b, c}) < 0 || !std::isfinite(a + b + c))
            return;
        const place to = apart(p, mixed(t, a, b, c));
        least = std::min(least, std::sqrt(product(to, to)));
    };
    const place u = apart(t[1], t[0]), v = apart(t[2], t[0]), w = apart(t[2], t[1]);
    const place from = apart(p, t[0]), other = apart(p, t[1]);
    const long double uu = product(u, u), vv = product(v, v), uv = product(u, v);
    const long double pu = product(from, u), pv = product(from, v), below = uu * vv - uv * uv;
    const long double b = (pu * vv - pv * uv) / below, c = (pv * uu - pu * uv) / below;
    const long double on_w = product(other, w) / product(w, w);
    for (const auto& at :
         {place{1, 0, 0}, place{0, 1, 0}, place{0, 0, 1}, place{1 - b - c, b, c},
          place{1 - pu / uu, pu / uu, 0}, place{1 - pv / vv, 0, pv / vv}, place{0, 1 - on_w, on_w}})
        take(at[0], at[1], at[2]);
    return least;
}

std::vector<triangle> trianglesOf(const simplified_triangles& mesh, const linear_map* space) {
    std::vector<triangle> all;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const Pnt3f& p = mesh.places[mesh.vertices[i]];
        if (i % 3 == 0)
            all.emplace_back();
        for (unsigned k = 0; k < 3; ++k)
            all.back()[i % 3][k] =
                space == nullptr
                    ? p[k]
                    : (*space)[0][k] * p[0] + (*space)[1][k] * p[1] + (*space)[2][k] * p[2];
    }
    return all;
}

surface_distance naiveDistance(const std::vector<triangle>& from, const std::vector<triangle>& to,
                               bool fine) {
    surface_distance sum;
    for (const triangle& t : from) {
        const place u = apart(t[1], t[0]), v = apart(t[2], t[0]);
        const long double area =
            std::sqrt(product(u, u) * product(v, v) - product(u, v) * product(u, v)) / 2;
        sum.area += double(area);
        const long double third = 1.0L / 3;
        std::vector<std::pair<place, int>> samples{{mixed(t, third, third, third), fine ? 27 : 9}};
        for (int k = 0; k < 3; ++k) {
            samples.push_back({t[k], fine ? 3 : 1});
            if (fine)
                samples.push_back({mixed(t, .5L * (k != 0), .5L * (k != 1), .5L * (k != 2)), 8});
        }
        for (const auto& [p, share] : samples) {
            long double least = HUGE_VALL;
            for (const triangle& other : to)
                least = std::min(least, distanceBetween(p, other));
            sum.largest = std::max(sum.largest, double(least));
            sum.integral += double(least * area * share / (fine ? 60 : 12));
        }
    }
    return sum;
}

/// Soups, bands and rings, some far away, some flat.
geometry_ref anyCore(std::mt19937& rng) {
    mesh_data mesh = rng() % 3 == 0 ? soup(rng, 2 + rng() % 30) : strip(3 + rng() % 50);
    const bool flat = rng() % 3 == 0, ring = rng() % 2 == 0 && mesh.primitives[0].first == 5;
    const float far = rng() % 4 == 0 ? 4096.0F : 0.0F;
    const float turn = 6.2831853F / float(mesh.positions.size() - 2);
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        Pnt3f& p = mesh.positions[i];
        const float angle = turn * float(i), radius = i % 2 == 0 ? 1.0F : 1.25F;
        if (ring)
            p.setValues(radius * std::cos(angle), radius * std::sin(angle), 0);
        p[2] = flat ? 0.0F : p[2] + 0.125F * float(rng() % 8);
        p[0] += far;
    }
    return geometry_ref(geometryOf(mesh));
}

std::vector<linear_map> anySpaces(std::mt19937& rng) {
    std::vector<linear_map> spaces(rng() % 3);
    for (linear_map& space : spaces)
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned k = 0; k < 3; ++k)
                space[i][k] = (i == k ? 1.0F : 0.0F) + 0.25F * float(rng() % 5);
    return spaces;
}

TEST(SurfaceDistance, IsThatOfAllSamplesToAllTriangles) {
    std::mt19937 rng(seedOf(31));
    for (unsigned round = 0; round < roundsOf(300U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const simplification run = simplify(anyCore(rng).get(), {1 + UInt32(rng() % 3)});
        const simplified_triangles before = simplifiedTriangles(run, 0),
                                   after = simplifiedTriangles(run, rng() % (run.steps.size() + 1));
        const auto spaces = anySpaces(rng);
        const linear_map* const space = spaces.empty() ? nullptr : &spaces[0];
        if (before.of.empty() || after.of.empty())
            continue;
        const measured_surface source(before, space), result(after, space);
        const auto expectSame = [](const surface_distance& is, const surface_distance& naive) {
            const double size = 1e-3 * std::sqrt(naive.area); // mapped places are rounded
            EXPECT_NEAR(is.largest, naive.largest, size * 1e-3);
            EXPECT_NEAR(is.area, naive.area, naive.area * 1e-3);
            EXPECT_NEAR(is.integral, naive.integral, naive.area * size);
        };
        const auto sources = trianglesOf(before, space), results = trianglesOf(after, space);
        expectSame(distanceToSource(result, source), naiveDistance(results, sources, true));
        expectSame(distanceToResult(source, result), naiveDistance(sources, results, false));
    }
    const measured_surface none(simplified_triangles{});
    EXPECT_EQ(distanceToSource(none, none).mean(), 0.0);
}

TEST(LongestWithin, IsTheLastStateOfAllThatIsNearEnough) {
    std::mt19937 rng(seedOf(32));
    unsigned returns = 0, inside = 0;
    for (unsigned round = 0; round < roundsOf(400U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const simplification run =
            simplify(anyCore(rng).get(), {0},
                     {rng() % 2 == 0 ? simplify_weld::position : simplify_weld::corner});
        const auto spaces = anySpaces(rng);
        std::vector<double> distances;
        for (std::size_t steps = 0; steps <= run.steps.size(); ++steps) {
            distances.push_back(0);
            for (std::size_t i = 0; i < std::max<std::size_t>(spaces.size(), 1); ++i) {
                const linear_map* const space = spaces.empty() ? nullptr : &spaces[i];
                const measured_surface source(simplifiedTriangles(run, 0), space),
                    result(simplifiedTriangles(run, steps), space);
                const surface_distance both =
                    distanceToSource(result, source) + distanceToResult(source, result);
                distances.back() = std::max(distances.back(), both.largest);
            }
        }
        const std::size_t most = rng() % (run.steps.size() + 1);
        for (const double limit : {distances[rng() % distances.size()], 0.3, 0.01}) {
            std::size_t last = most;
            while (last > 0 && distances[last] > limit)
                --last;
            ASSERT_EQ(longestWithin(run, most, limit, spaces), last) << limit;
            inside += last > 0 && last < most ? 1 : 0;
            const auto end = distances.begin() + std::ptrdiff_t(last);
            returns += std::any_of(distances.begin(), end, [=](double d) { return d > limit; });
        }
    }
    EXPECT_GT(inside, 100U);
    EXPECT_GT(returns, 20U) << "states too far away before the last that is near";
}

} // namespace
