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

TEST(HasTexCoords, AreThoseOfTheirTwin) {
    std::mt19937 rng(seedOf(7403));
    const auto unit = [&] { return std::uniform_real_distribution<float>(-1.0F, 1.0F)(rng); };
    for (int round = 0; round < roundsOf(3000); ++round) {
        const ::osg::GeoTexCoordsRefPtr values(::osg::GeoTexCoords3f::create()),
            form(::osg::GeoTexCoords2f::create());
        ::osg::Vec2f low(0, 0), high[2], found;
        for (unsigned i = rng() % 8; i > 0; --i) {
            const float odd[] = {1.05F, 3 * unit(), 0.002F * unit(), 70 * unit()};
            values->addValue(::osg::Vec2f(odd[rng() % 4], odd[rng() % 4]));
            form->addValue(values->getValue(values->size() - 1));
        }
        for (unsigned i = 0; i < values->size() / 3; ++i)
            uv::naiveForm(form.get(), i, 50);
        for (unsigned i = 0; i < 2 * values->size(); ++i) {
            const unsigned row = i / 2, axis = i % 2;
            const float value = values->getValue(row)[axis];
            low[axis] = std::min(low[axis], value);
            high[0][axis] = std::max(high[0][axis], value);
            if (row < values->size() / 3 * 3)
                high[1][axis] = std::max(high[1][axis], form->getValue(row)[axis]);
        }
        for (const bool triangles : {true, false}) { // nothing is written back
            const ::osg::Vec2f most = high[triangles ? 1 : 0];
            EXPECT_EQ(morva::osg::hasTexCoordsGreater1(values.get(), found[0], found[1], triangles),
                      std::max(most[0], most[1]) > 1.05F);
            EXPECT_EQ(found, most);
        }
        EXPECT_EQ(morva::osg::hasTexCoordsSmaller0(values.get(), found[0], found[1]),
                  std::min(low[0], low[1]) < 0);
        EXPECT_EQ(found, low);
    }
}

TEST(HasTCabove, LooksAtTheStoredOrTheDrawnCoordinates) {
    const struct {
        float u, limit;
        bool plain, normalised, out; ///< out: of an atlas with images up to 16 x 16
        int height = 16;
    } cases[] = {{2.04F, 2, false, false, false},
                 {2.04F, 1.9F, true, true, true},
                 {7.5F, 2.5F, true, false, false}, // from 5 on
                 {1, 5, false, false, true, 17},
                 {5, 5.5F, false, false, false}};
    for (const auto& row : cases) {
        mesh_data mesh = quads(1);
        const float from = row.u > 7 ? 5 : 0;
        mesh.coordinates = {{from, from}, {row.u, from}, {row.u, row.u}, {from, row.u}};
        const node_ref node(meshNode(mesh, chunked({1, 1, 1, 1}, imageOf(6407, 9, row.height))));
        EXPECT_EQ(morva::osg::hasTCabove(node.get(), row.limit, false), row.plain) << row.u;
        EXPECT_EQ(morva::osg::hasTCabove(node.get(), row.limit, true), row.normalised) << row.u;
        EXPECT_EQ(morva::osg::checkGeoForTexIndex(node.get(), row.limit, 16), row.out) << row.u;
    }
    for (const ::osg::NodePtr& node : {::osg::NodePtr(), group(), meshNode(quads(1))})
        EXPECT_FALSE(morva::osg::hasTCabove(node_ref(node).get(), -1, true));
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
