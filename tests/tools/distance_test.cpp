#include <morva/tools/morva_osg_simplify_limit.h>

#include "tests/support/test.h"

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using ::osg::Vec3f;
using namespace morva::osg;

using places = std::vector<Pnt3f>;

/// Triangles of these corners as a surface.
measured_surface surfaceOf(const places& corners, const linear_map* space = nullptr) {
    simplified_triangles triangles{corners, {}, {}};
    for (UInt32 i = 0; i < corners.size(); ++i)
        triangles.vertices.push_back(i);
    triangles.of.resize(corners.size() / 3);
    return measured_surface(triangles, space);
}

TEST(SurfaceDistance, WeighsSamplesByTheAreaThatTheyStandFor) {
    const places sheet = {{0, 0, 0}, {9, 0, 0}, {0, 9, 0}};
    const linear_map doubled = {Vec3f(2, 0, 0), Vec3f(0, 2, 0), Vec3f(0, 0, 2)};
    const struct {
        const char* name;
        places result;
        double area, largest, fine, coarse; ///< the latter are means, to and from the source
    } rows[] = {
        {"above it", {{1, 1, 2}, {3, 1, 2}, {1, 3, 2}}, 2, 2, 2, -1},
        {"rising", {{1, 1, 0}, {3, 1, 3}, {1, 3, 0}}, std::sqrt(13.0), 3, 1, -1},
        {"beyond an edge", {{1, -3, 4}, {2, -3, 4}, {1, -3, 4}}, 0, 5, 0, -1},
        {"beyond a corner", {{12, -4, 0}, {12, -4, 0}, {12, -4, 0}}, 0, 5, 0, -1},
        {"behind the long edge", {{6, 6, 0}, {6, 6, 0}, {6, 6, 0}}, 0, std::sqrt(4.5), 0, -1},
        {"of three points", {{0, 0, 1}, {9, 0, 1}, {0, 9, 1}}, 40.5, 1, 1, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const linear_map* space : {static_cast<const linear_map*>(nullptr), &doubled}) {
            const double scale = space == nullptr ? 1 : 2;
            const measured_surface source = surfaceOf(sheet, space),
                                   result = surfaceOf(row.result, space);
            const surface_distance to = distanceToSource(result, source);
            EXPECT_NEAR(to.area, row.area * scale * scale, 1e-5);
            EXPECT_NEAR(to.largest, row.largest * scale, 1e-6);
            EXPECT_NEAR(to.integral, row.fine * row.area * scale * scale * scale, 1e-5);
            const surface_distance from = distanceToResult(source, result);
            EXPECT_NEAR(from.area, 40.5 * scale * scale, 1e-4);
            EXPECT_TRUE(row.coarse < 0 || std::abs(from.mean() - row.coarse * scale) < 1e-6);
        }
    }
    const measured_surface none = surfaceOf({});
    EXPECT_EQ(distanceToSource(none, none).mean(), 0.0);
}

TEST(SurfaceDistance, IsThatToTheNearestOfAllTriangles) {
    std::mt19937 rng(seedOf(31));
    for (unsigned round = 0; round < roundsOf(300U); ++round) {
        const Vec3f far(rng() % 4 == 0 ? 4096.0F : 0.0F, 0, 0);
        places all;
        for (const Pnt3f& p : soup(rng, 1 + rng() % 60).positions)
            all.push_back(p + far);
        const measured_surface source = surfaceOf(all);
        for (int i = 0; i < 20; ++i) {
            const auto any = [&rng] { return 0.37F * float(rng() % 16) - 3; };
            const float x = any(), y = any();
            const Pnt3f at = Pnt3f(x, y, any()) + far;
            const measured_surface point = surfaceOf({at, at, at});
            double least = HUGE_VAL;
            for (std::size_t t = 0; t < all.size(); t += 3)
                least = std::min(
                    least,
                    distanceToSource(point, surfaceOf({all[t], all[t + 1], all[t + 2]})).largest);
            EXPECT_EQ(distanceToSource(point, source).largest, least);
        }
    }
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
