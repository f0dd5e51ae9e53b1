// The normal form of texture coordinates, and where they may repeat.

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
        const auto whole = float(rng() % 9) - 4.0F;
        const float values[] = {special[rng() % std::size(special)], whole + unit * 0.002F,
                                unit * 3, unit * 120, std::nextafter(whole + 0.001F, unit * 9)};
        return values[rng() % std::size(values)];
    };
    for (int round = 0; round < roundsOf(60000); ++round) {
        coordinates t(3);
        for (::osg::Vec2f& point : t)
            point.setValues(any(), any());
        const int limit = round % 7 == 0 ? int(rng() % 100) - 10 : 50;
        for (const uv::step which : {uv::snap, uv::positive, uv::near_zero, uv::wrap}) {
            coordinates expected = t;
            uv::naiveStep(which, expected, limit);
            ASSERT_TRUE(same(after(which, t, limit), expected))
                << "step " << which << " limit " << limit << " of " << testing::PrintToString(t);
        }
    }
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
