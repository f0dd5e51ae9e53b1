// The normal form of texture coordinates, and questions about coordinates.

#include "tests/support/test.h"

#include "naive_texcoords.h"

#include <cfloat>

#include <morva/textures/morva_osg_texcoords.h>

namespace {

using tri::nan_value;
using uv::coordinates;
constexpr float inf = std::numeric_limits<float>::infinity();

coordinates after(uv::step which, coordinates t, int limit = 50) {
    void (*const steps[])(::osg::Vec2f&, ::osg::Vec2f&, ::osg::Vec2f&) = {
        morva::osg::roundTCToInteger, morva::osg::getTCPositiv, morva::osg::getTCNearToZero};
    if (which == uv::wrap)
        morva::osg::cutTC(t[0], t[1], t[2], limit);
    else
        steps[which](t[0], t[1], t[2]);
    return t;
}

bool same(const coordinates& a, const coordinates& b) {
    return std::equal(a.begin(), a.end(), b.begin(), [](const auto& p, const auto& q) {
        return uv::same(p[0], q[0]) && uv::same(p[1], q[1]);
    });
}

TEST(NormalForm, IsThatOfTheNaiveTwinToTheLastBit) {
    const float special[] = {0.0F,    -0.0F,      1.0F,          0.001F,   -0.001F, 0.999F,
                             1e30F,   -1e30F,     inf,           -inf,     FLT_MAX, -FLT_MAX,
                             FLT_MIN, 8388607.5F, 2147483648.0F, nan_value};
    std::mt19937 rng(seedOf(7401));
    const auto any = [&] {
        const float unit = std::uniform_real_distribution<float>(-1.0F, 1.0F)(rng);
        const auto whole = static_cast<float>(rng() % 9) - 4.0F;
        const float values[] = {special[rng() % std::size(special)], whole + unit * 0.002F,
                                unit * 3, unit * 120, std::nextafter(whole + 0.001F, unit * 9)};
        return values[rng() % std::size(values)];
    };
    for (int round = 0; round < roundsOf(60000); ++round) {
        coordinates t(3);
        for (::osg::Vec2f& point : t)
            point.setValues(any(), any());
        const int limit = round % 7 == 0 ? static_cast<int>(rng() % 100) - 10 : 50;
        for (const uv::step which : {uv::snap, uv::positive, uv::near_zero, uv::wrap}) {
            coordinates expected = t;
            uv::naiveStep(which, expected, limit);
            ASSERT_TRUE(same(after(which, t, limit), expected))
                << "step " << which << " limit " << limit << " of " << testing::PrintToString(t);
        }
    }
}

TEST(Queries, AreThoseOfTheirTwin) {
    std::mt19937 rng(seedOf(7403));
    const auto any = [&] {
        const float unit = std::uniform_real_distribution<float>(-1.0F, 1.0F)(rng);
        const float values[] = {1.05F, std::floor(3 * unit) + 0.002F * unit, 2.5F * unit,
                                70 * unit};
        return values[rng() % std::size(values)];
    };
    for (int round = 0; round < roundsOf(3000); ++round) {
        SCOPED_TRACE(round);
        const unsigned rows = 3 * (rng() % 3);
        mesh_data mesh;
        mesh.primitives = {{4, rows}};
        mesh.positions.resize(rows);
        for (unsigned i = rng() % 4 == 0 ? 1 : 0; i < rows; ++i) // a missing one is zero
            mesh.coordinates.emplace_back(any(), any());
        coordinates form = mesh.coordinates;
        form.resize(rows);
        ::osg::Vec2f high(0, 0), low(0, 0), drawn(0, 0), found;
        float largest = 0;
        const auto raise = [](::osg::Vec2f& to, const ::osg::Vec2f& by) {
            to.setValues(std::max(to[0], by[0]), std::max(to[1], by[1]));
        };
        for (const ::osg::Vec2f& value : mesh.coordinates) {
            raise(high, value);
            low.setValues(std::min(low[0], value[0]), std::min(low[1], value[1]));
        }
        for (unsigned first = 0; first < rows; first += 3) {
            coordinates one(form.begin() + first, form.begin() + first + 3);
            for (const uv::step which : {uv::snap, uv::positive, uv::near_zero, uv::wrap})
                uv::naiveStep(which, one, 50);
            for (const ::osg::Vec2f& point : one) {
                largest = std::max({largest, point[0], point[1]});
                if (first + 3 <= mesh.coordinates.size())
                    raise(drawn, point);
            }
        }
        const int width = 15 + int(rng() % 3), height = 15 + int(rng() % 3);
        const node_ref node(meshNode(mesh, chunked({1, 1, 1, 1}, imageOf(6407, width, height))));
        const ::osg::GeoTexCoordsPtr values = coreOf(node)->getTexCoords();
        for (const bool triangles : {true, false}) { // nothing is written back
            const ::osg::Vec2f most = triangles ? drawn : high;
            EXPECT_EQ(morva::osg::hasTexCoordsGreater1(values, found[0], found[1], triangles),
                      std::max(most[0], most[1]) > 1.05F);
            EXPECT_EQ(found, most);
        }
        EXPECT_EQ(morva::osg::hasTexCoordsSmaller0(values, found[0], found[1]),
                  std::min(low[0], low[1]) < 0);
        EXPECT_EQ(found, low);
        const float limits[] = {0, 1, 2, largest - 0.05F, std::max(high[0], high[1]) - 0.05F},
                    limit = std::max(limits[rng() % std::size(limits)], 0.0F);
        const bool above = largest > limit + 0.05F;
        EXPECT_EQ(morva::osg::hasTCabove(node.get(), limit, false),
                  std::max(high[0], high[1]) > limit + 0.05F);
        EXPECT_EQ(morva::osg::hasTCabove(node.get(), limit, true), above);
        EXPECT_EQ(morva::osg::checkGeoForTexIndex(node.get(), limit, 16),
                  above || width > 16 || height > 16);
    }
    EXPECT_FALSE(morva::osg::hasTCabove(::osg::NullFC, 0, true));
    EXPECT_FALSE(morva::osg::hasTCabove(node_ref(group()).get(), 0, true));
}

TEST(RepeatsOf, EndWhereAnImageIsHeldOrMirrored) {
    for (const ::osg::UInt32 wrap : {0x2901U, 0x2900U, 0x812DU, 0x812FU, 0x8370U}) {
        const ::osg::ChunkMaterialRefPtr material(chunked({1, 1, 1, 1}, imageOf(6407, 2, 2)));
        ::osg::TextureChunkPtr::dcast(material->getChunks(1))->setWrapT(wrap);
        const auto repeats = morva::osg::repeatsOf(material.get());
        EXPECT_TRUE(repeats.u && repeats.v == (wrap == 0x2901U)) << wrap;
    }
}

} // namespace
