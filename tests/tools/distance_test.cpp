#include <morva/tools/morva_osg_simplify_limit.h>

#include "tests/support/test.h"

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using namespace morva::osg;

using ::osg::Pnt3d, ::osg::Vec3d;
using triangle = std::array<Pnt3d, 3>;

Pnt3d mixed(const triangle& t, double a, double b, double c) {
    return Pnt3d(0, 0, 0) + Vec3d(t[0]) * a + Vec3d(t[1]) * b + Vec3d(t[2]) * c;
}

/// Of the nearest points on the planes, lines and points of a triangle those that are in it.
double distanceBetween(const Pnt3d& p, const triangle& t) {
    double least = HUGE_VAL;
    const auto take = [&](double a, double b, double c) {
        if (std::min({a, b, c}) >= 0 && std::isfinite(a + b + c))
            least = std::min(least, (p - mixed(t, a, b, c)).length());
    };
    const Vec3d u = t[1] - t[0], v = t[2] - t[0], w = t[2] - t[1], from = p - t[0];
    const double uu = u.dot(u), vv = v.dot(v), uv = u.dot(v), pu = from.dot(u), pv = from.dot(v),
                 below = uu * vv - uv * uv, on_w = (p - t[1]).dot(w) / w.dot(w);
    const double b = (pu * vv - pv * uv) / below, c = (pv * uu - pu * uv) / below;
    const double ways[][3] = {{1, 0, 0},
                              {0, 1, 0},
                              {0, 0, 1},
                              {1 - b - c, b, c},
                              {1 - pu / uu, pu / uu, 0},
                              {1 - pv / vv, 0, pv / vv},
                              {0, 1 - on_w, on_w}};
    for (const auto& at : ways)
        take(at[0], at[1], at[2]);
    return least;
}

std::vector<triangle> trianglesOf(const simplified_triangles& mesh, const linear_map* space) {
    std::vector<triangle> all(mesh.vertices.size() / 3);
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const Pnt3f& p = mesh.places[mesh.vertices[i]];
        for (unsigned k = 0; k < 3; ++k)
            all[i / 3][i % 3][k] =
                double(space == nullptr
                           ? p[k]
                           : (*space)[0][k] * p[0] + (*space)[1][k] * p[1] + (*space)[2][k] * p[2]);
    }
    return all;
}

surface_distance naiveDistance(const std::vector<triangle>& from, const std::vector<triangle>& to,
                               bool fine) {
    surface_distance sum;
    for (const triangle& t : from) {
        const double area = (t[1] - t[0]).cross(t[2] - t[0]).length() / 2, third = 1.0 / 3;
        sum.area += area;
        std::vector<std::pair<Pnt3d, int>> samples{{mixed(t, third, third, third), fine ? 27 : 9}};
        for (int k = 0; k < 3; ++k) {
            samples.push_back({t[std::size_t(k)], fine ? 3 : 1});
            if (fine)
                samples.push_back({mixed(t, .5 * (k != 0), .5 * (k != 1), .5 * (k != 2)), 8});
        }
        for (const auto& [p, share] : samples) {
            double least = HUGE_VAL;
            for (const triangle& other : to)
                least = std::min(least, distanceBetween(p, other));
            sum.largest = std::max(sum.largest, least);
            sum.integral += least * area * share / (fine ? 60 : 12);
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
