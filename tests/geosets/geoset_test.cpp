// The triangle geoset by itself: set-up, growth, attributes at points, corner copies.

#include "triangle_scenes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using tri::osg_geoset;

/// `count` unit triangles side by side along x.
std::vector<::osg::Pnt3f> rowOfTriangles(unsigned int count) {
    std::vector<::osg::Pnt3f> positions;
    for (unsigned int i = 0; i < count; ++i) {
        const auto x = static_cast<float>(i);
        positions.insert(positions.end(),
                         {::osg::Pnt3f(x, 0, 0), ::osg::Pnt3f(x + 1, 0, 0), ::osg::Pnt3f(x, 1, 0)});
    }
    return positions;
}

bool addOne(osg_geoset& geoset, unsigned long source = 0) {
    return geoset.addObject(::osg::Pnt3f(0, 0, 5), ::osg::Pnt3f(1, 0, 5), ::osg::Pnt3f(0, 1, 5),
                            source);
}

TEST(GeosetSetup, WithoutPositionsThereIsNothing) {
    osg_geoset geoset;
    geoset.vertex_count = 30;
    geoset.setup();
    EXPECT_EQ(geoset.size, 0U);
    EXPECT_EQ(geoset.wished_size, 0U);
    EXPECT_EQ(geoset.axis_min, nullptr);
}

TEST(GeosetSetup, IgnoresVerticesThatFillNoTriangle) {
    osg_geoset geoset;
    std::vector<::osg::Pnt3f> positions = rowOfTriangles(2);
    positions.push_back(::osg::Pnt3f(100, 100, 100));
    geoset.geometry = tri::soup(positions);
    geoset.vertex_count = 7;
    geoset.setup();
    EXPECT_EQ(geoset.size, 2U);
    EXPECT_EQ(geoset.wished_size, 2U);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()), 21);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getNormals()), 21);
    EXPECT_EQ(geoset.bbox.max[0], 2.0F);
    EXPECT_EQ(geoset.bbox.extent[2], 0.0F) << "a flat axis stays flat";
    EXPECT_EQ(geoset.axis_min[0][1], 1.0F);
    EXPECT_EQ(geoset.axis_max[0][1], 2.0F);
    geoset.vertex_count = 0;
    geoset.setup();
    EXPECT_EQ(geoset.size, 0U);
    EXPECT_EQ(geoset.bbox.max[0], 0.0F);
}

TEST(GeosetSetup, RebuildsCornerCopiesOnceTheyWereAskedFor) {
    osg_geoset geoset;
    geoset.convert();
    EXPECT_EQ(geoset.simple_tris, nullptr) << "there is nothing to copy";
    tri::fillGeoset(geoset, rowOfTriangles(4));
    EXPECT_EQ(geoset.simple_tris, nullptr);
    geoset.convert();
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.geometry->getPositions()->setValue(::osg::Pnt3f(-7, 0, 0), 0);
    geoset.setup();
    EXPECT_EQ(geoset.simple_tris[0].a[0], -7.0F);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.geometry->getPositions()->setValue(::osg::Pnt3f(-9, 0, 0), 3);
    geoset.calc_axis_min_max(1, 1);
    EXPECT_EQ(geoset.axis_min[0][1], -9.0F);
    EXPECT_NE(geoset.simple_tris[1].a[0], -9.0F);
    geoset.prepareSimpleTris(1);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.calc_axis_min_max(4, 7);
    geoset.calc_axis_min_max(3, 2);
    geoset.prepareSimpleTris(1000);
    EXPECT_EQ(tri::broken_rule_of(geoset), "") << "ranges past the end are left alone";
}

TEST(GeosetSetup, ANaNInTheFirstCornerStaysAndAnotherIsPassedOver) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    osg_geoset geoset;
    std::vector<::osg::Pnt3f> positions = rowOfTriangles(2);
    positions[0][0] = nan;
    positions[4][0] = nan;
    geoset.geometry = tri::soup(positions);
    geoset.vertex_count = 6;
    geoset.setup();
    EXPECT_TRUE(std::isnan(geoset.axis_min[0][0]) && std::isnan(geoset.axis_max[0][0]));
    EXPECT_EQ(geoset.axis_max[0][1], 1.0F);
    EXPECT_TRUE(std::isnan(geoset.bbox.min[0]));
    EXPECT_EQ(geoset.bbox.max[1], 1.0F);
}

TEST(GeosetClear, GoesBackToEmptyWithAFreshCore) {
    osg_geoset geoset;
    EXPECT_EQ(geoset.vertex_capacity, 0U);
    EXPECT_EQ(geoset.split_axis, -1);
    tri::fillGeoset(geoset, rowOfTriangles(4), true);
    geoset.convert();
    geoset.names.push_back("something");
    int pieces = 0;
    unsigned long first = 0;
    geoset.splitElement(0, 0.5, 0, pieces, first);
    EXPECT_EQ(pieces, 2);
    EXPECT_FALSE(geoset.split_cache.empty());
    const ::osg::GeometryRefPtr core(geoset.geometry.get());
    geoset.clear();
    EXPECT_TRUE(geoset.geometry != core);
    EXPECT_TRUE(geoset.geometry->getPositions() == ::osg::NullFC);
    EXPECT_EQ(geoset.size + geoset.wished_size + geoset.vertex_count, 0U);
    EXPECT_EQ(geoset.vertex_capacity, 500000U);
    EXPECT_EQ(geoset.axis_max, nullptr);
    EXPECT_EQ(geoset.simple_tris, nullptr);
    EXPECT_EQ(geoset.split_axis, -1);
    EXPECT_TRUE(geoset.split_cache.empty() && geoset.names.empty() && !geoset.resize_failed);
}

// ---- growth

TEST(GeosetGrowth, DoublesAndFromAThousandOnGrowsByThirtyPercent) {
    struct growth {
        const char* name;
        unsigned int size;
        std::uint64_t wished, expected;
    };
    const growth cases[] = {{"doubles below a thousand", 998, 999, 1998},
                            {"still at 999", 999, 999, 1998},
                            {"a third from a thousand on", 1000, 1001, 1301},
                            {"room for two is left alone", 998, 1000, 1000},
                            {"one becomes two", 1, 1, 2}};
    for (const growth& c : cases) {
        SCOPED_TRACE(c.name);
        osg_geoset geoset;
        tri::fillGeoset(geoset, rowOfTriangles(static_cast<unsigned int>(c.wished)));
        geoset.size = c.size;
        ASSERT_EQ(geoset.wished_size, c.wished);
        ASSERT_TRUE(addOne(geoset));
        EXPECT_EQ(geoset.wished_size, c.expected);
        EXPECT_EQ(geoset.size, c.size + 1U);
        EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()),
                  static_cast<int>(c.expected == c.wished ? 9 * c.wished : 3 * c.expected));
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
    }
}

TEST(GeosetGrowth, ReallocatesOnceForTwoAndKeepsCornerCopiesInStep) {
    osg_geoset geoset;
    tri::fillGeoset(geoset, rowOfTriangles(10), true);
    geoset.convert();
    ASSERT_TRUE(addOne(geoset, 3));
    const float* const arrays = geoset.axis_min[0];
    ASSERT_TRUE(addOne(geoset, 4));
    EXPECT_EQ(geoset.axis_min[0], arrays);
    EXPECT_EQ(geoset.size, 12U);
    EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), 36U);
    EXPECT_EQ(geoset.geometry->getTexCoords7()->getValue(30)[0], 3.0F);
    EXPECT_EQ(geoset.geometry->getTexCoords7()->getValue(35)[0], 4.0F);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    for (unsigned long i = 0; i < 3000; ++i)
        ASSERT_TRUE(addOne(geoset, i));
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    geoset.setup();
    EXPECT_EQ(geoset.size, 3012U) << "added triangles outlive another set-up";
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
}

TEST(GeosetGrowth, NothingCanBeAddedToNothing) {
    osg_geoset empty;
    EXPECT_FALSE(addOne(empty));
    EXPECT_EQ(empty.size, 0U);

    // Positions without triangles: there is a place but no source.
    osg_geoset no_triangles;
    const ::osg::Pnt3f p(1, 1, 1);
    tri::fillGeoset(no_triangles, {p, p, p});
    EXPECT_TRUE(addOne(no_triangles));
    EXPECT_EQ(no_triangles.size, 1U);
    EXPECT_EQ(tri::broken_rule_of(no_triangles), "");
    EXPECT_TRUE(no_triangles.add_GeoFields(p, p, p, 1000000, 1000000)) << "left out, not written";
    no_triangles.ModifyObject(p, p, p, 1000000);
}

// ---- attributes

TEST(GeosetInterpolation, IsExactAtCornersAndLinearElsewhere) {
    osg_geoset geoset;
    const ::osg::Pnt3f a(0.1F, 0.2F, 0.3F), b(1.7F, 0.4F, 0.9F), c(0.3F, 2.2F, 1.1F);
    tri::fillGeoset(geoset, {a, b, c}, true);
    const ::osg::GeoColors3fPtr odd = ::osg::GeoColors3f::create();
    for (const float shade : {0.1F, 0.7F, 0.3F})
        odd->editField().push_back(::osg::Color3f(shade, 1.0F - shade, shade * shade));
    geoset.geometry->setSecondaryColors(odd);

    EXPECT_EQ(geoset.interpolate_color(0, b, 1)[0], 0.7F);
    EXPECT_EQ(geoset.interpolate_color(0, ::osg::Pnt3f(1.7F + 5e-7F, 0.4F, 0.9F), 1)[2],
              0.7F * 0.7F)
        << "within reach of a corner it is that corner";
    const auto point = [&](float wa, float wb) {
        ::osg::Pnt3f p;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            p[i] = wa * a[i] + wb * b[i] + (1.0F - wa - wb) * c[i];
        return p;
    };
    // Inside, on an edge and far outside: colours are the positions, nothing is clamped.
    const float weights[][2] = {{0.3F, 0.3F}, {0.5F, 0.5F}, {3.0F, -1.0F}};
    for (const auto& w : weights) {
        const ::osg::Pnt3f p = point(w[0], w[1]);
        const ::osg::Color3f color = geoset.interpolate_color(0, p);
        const ::osg::Vec2f uv = geoset.interpolate_texcoord(0, p);
        for (::osg::UInt32 i = 0; i < 3; ++i)
            EXPECT_NEAR(color[i], p[i], 1e-5F);
        EXPECT_NEAR(uv[1], p[1], 1e-5F);
    }
    EXPECT_EQ(geoset.interpolate_texcoord(0, a, 2), ::osg::Vec2f(0.0F, 0.0F)) << "no unit 2";
    EXPECT_EQ(geoset.interpolate_texcoord(0, a, 7)[0], 0.1F) << "any other unit is unit 0";
    EXPECT_EQ(geoset.interpolate_color(99, a), ::osg::Color3f(0.0F, 0.0F, 0.0F));
}

TEST(GeosetModify, ReshapesAlongTheOldPlaneAndKeepsNormalsAndId) {
    osg_geoset geoset;
    tri::fillGeoset(geoset, rowOfTriangles(3), true);
    geoset.convert();
    const ::osg::Vec3f normal = geoset.geometry->getNormals()->getValue(3);
    const std::vector<::osg::Pnt3f> shape = {::osg::Pnt3f(1.25F, 0, 0), ::osg::Pnt3f(1.75F, 0, 0),
                                             ::osg::Pnt3f(1.25F, 0.5F, 0)};
    geoset.ModifyObject(shape[0], shape[1], shape[2], 1);
    EXPECT_EQ(tri::cornersOf(geoset, 1), shape);
    const tri::rows rows = tri::rowsOf(geoset.geometry.get(), 9);
    for (std::size_t k = 0; k < 3; ++k) {
        for (::osg::UInt32 i = 0; i < 3; ++i)
            EXPECT_NEAR(rows[3 + k].color[i], shape[k][i], 1e-6F);
        EXPECT_NEAR(rows[3 + k].uv[0][0], shape[k][0], 1e-6F);
        EXPECT_EQ(rows[3 + k].id, 1.0F);
        EXPECT_EQ(rows[3 + k].normal, normal);
    }
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
}

TEST(GeosetSetTriangle, ReadsWhatIsThereAndTheLastOnePastTheEnd) {
    osg_geoset geoset;
    tri::fillGeoset(geoset, rowOfTriangles(3), true);
    morva::osg::osg_primitive primitive;
    EXPECT_EQ(primitive.positions[2], ::osg::Pnt3f(0, 0, 0));
    EXPECT_EQ(primitive.texcoords7[0], 0.0F);
    EXPECT_TRUE(primitive.name.empty());
    primitive.texcoords2[1] = ::osg::Vec2f(8.0F, 9.0F);
    geoset.setTriangle(primitive, 1);
    EXPECT_EQ(primitive.positions[1], ::osg::Pnt3f(2, 0, 0));
    EXPECT_EQ(primitive.normals[0], ::osg::Vec3f(0, 0, 1));
    EXPECT_EQ(primitive.colors[2], ::osg::Color3f(1, 1, 0));
    EXPECT_EQ(primitive.texcoords[1], ::osg::Vec2f(2, 0));
    EXPECT_EQ(primitive.texcoords7[2], 1.0F);
    EXPECT_EQ(primitive.texcoords2[1], ::osg::Vec2f(8.0F, 9.0F)) << "absent: as it was";

    testing::internal::CaptureStdout();
    geoset.setTriangle(primitive, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n");
    EXPECT_EQ(primitive.positions[0], ::osg::Pnt3f(2, 0, 0));
    const osg_geoset empty;
    testing::internal::CaptureStdout();
    empty.setTriangle(primitive, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n");
    EXPECT_EQ(primitive.positions[0], ::osg::Pnt3f(2, 0, 0));
}

TEST(Geoset, WorksOnPropertiesInOtherForms) {
    osg_geoset geoset;
    const ::osg::GeometryPtr core = tri::soup(rowOfTriangles(4));
    const ::osg::GeoPositions3dPtr wide = ::osg::GeoPositions3d::create();
    const ::osg::GeoColors4ubPtr bytes = ::osg::GeoColors4ub::create();
    for (const ::osg::Pnt3f& p : rowOfTriangles(4)) {
        wide->addValue(p);
        bytes->addValue(::osg::Color3f(p[1], 0.0F, 1.0F));
    }
    core->setPositions(wide);
    core->setColors(bytes);
    geoset.geometry = core;
    geoset.vertex_count = 12;
    geoset.setup();
    geoset.convert();
    ASSERT_EQ(geoset.size, 4U);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    int pieces = 0;
    unsigned long first = 0;
    geoset.splitElement(1, 0.5, 1, pieces, first);
    EXPECT_EQ(pieces, 2);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    EXPECT_NEAR(core->getColors()->getValue(12)[0], 0.5F, 0.01F);
    morva::osg::osg_primitive primitive;
    geoset.setTriangle(primitive, 4);
    EXPECT_EQ(primitive.positions[0][1], 0.5F);
}

} // namespace
