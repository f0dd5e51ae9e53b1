// The triangle geoset by itself: corner copies, growth, attributes at points.

#include "triangle_scenes.h"

namespace {

using namespace tri;

piece rowOfTriangles(unsigned int count) { return elements(3, count).positions; }

bool addOne(osg_geoset& geoset, unsigned long source = 0) {
    return geoset.addObject(::osg::Pnt3f(0, 0, 5), ::osg::Pnt3f(1, 0, 5), ::osg::Pnt3f(0, 1, 5),
                            source);
}

TEST(GeosetSetup, RebuildsCornerCopiesOnceTheyWereAskedFor) {
    osg_geoset geoset;
    geoset.convert();
    EXPECT_EQ(geoset.simple_tris, nullptr) << "there is nothing to copy";
    fillGeoset(geoset, rowOfTriangles(4));
    EXPECT_EQ(geoset.simple_tris, nullptr);
    geoset.convert();
    EXPECT_EQ(broken_rule_of(geoset), "");
    geoset.geometry->getPositions()->setValue(::osg::Pnt3f(-7, 0, 0), 0);
    geoset.setup();
    EXPECT_EQ(geoset.simple_tris[0].a[0], -7.0F);
    geoset.geometry->getPositions()->setValue(::osg::Pnt3f(-9, 0, 0), 3);
    geoset.calc_axis_min_max(1, 1);
    EXPECT_EQ(geoset.axis_min[0][1], -9.0F);
    EXPECT_NE(geoset.simple_tris[1].a[0], -9.0F);
    geoset.prepareSimpleTris(1);
    geoset.calc_axis_min_max(4, 7); // ranges past the end are left alone
    geoset.calc_axis_min_max(3, 2);
    geoset.prepareSimpleTris(1000);
    EXPECT_EQ(broken_rule_of(geoset), "");

    EXPECT_EQ(cut(geoset, 2, 0.5, 1).pieces, 2);
    EXPECT_FALSE(geoset.split_cache.empty());
    geoset.dropExtents();
    EXPECT_EQ(cut(geoset, 0, 0.5, 1).pieces, 0);
    EXPECT_FALSE(addOne(geoset));
    geoset.ModifyObject(::osg::Pnt3f(), ::osg::Pnt3f(), ::osg::Pnt3f(), 0);
    geoset.clear();
    EXPECT_EQ(geoset.simple_tris, nullptr);
    EXPECT_EQ(geoset.axis_max, nullptr);
    EXPECT_EQ(geoset.split_axis, -1);
    EXPECT_TRUE(geoset.split_cache.empty());
}

// ---- growth

template <typename G>
void expectGrowth(unsigned wished, unsigned size, std::uint64_t expected, int rows) {
    SCOPED_TRACE(testing::Message() << G::corners << " corners, " << size << " of " << wished);
    G geoset;
    pour(elements(G::corners, wished), geoset, set_up);
    ASSERT_EQ(geoset.wished_size, wished);
    geoset.size = size;
    geoset.geometry->getLengths()->setValue(G::corners * size, 0);
    if constexpr (G::corners == 3)
        ASSERT_TRUE(addOne(geoset));
    else
        ASSERT_EQ(cut(geoset, 0, 0.5, 0).pieces, 1);
    EXPECT_EQ(geoset.wished_size, expected);
    EXPECT_EQ(geoset.size, size + 1U);
    EXPECT_EQ(lengthOf(geoset.geometry->getPositions()), rows);
    EXPECT_EQ(broken_rule_of(geoset), "");
}

TEST(GeosetGrowth, DoublesAndFromAThousandOnGrowsByThirtyPercent) {
    expectGrowth<osg_geoset>(1, 1, 2, 6);
    expectGrowth<osg_geoset>(999, 998, 1998, 5994);
    expectGrowth<osg_geoset>(999, 999, 1998, 5994);
    expectGrowth<osg_geoset>(1001, 1000, 1301, 3903);
    expectGrowth<osg_geoset>(1000, 998, 1000, 9000); // room for two is left alone
    expectGrowth<osg_line_geoset>(1, 1, 2, 4);
    expectGrowth<osg_line_geoset>(999, 999, 1998, 3996);
    expectGrowth<osg_line_geoset>(1000, 1000, 1300, 2600);
}

TEST(GeosetGrowth, NothingCanBeAddedToNothing) {
    osg_geoset empty;
    EXPECT_FALSE(addOne(empty));
    EXPECT_EQ(empty.size, 0U);

    // Positions without triangles: there is a place but no source.
    osg_geoset no_triangles;
    const ::osg::Pnt3f p(1, 1, 1);
    fillGeoset(no_triangles, {p, p, p});
    EXPECT_TRUE(addOne(no_triangles));
    EXPECT_EQ(no_triangles.size, 1U);
    EXPECT_EQ(broken_rule_of(no_triangles), "");
    EXPECT_TRUE(no_triangles.add_GeoFields(p, p, p, 1000000, 1000000)) << "left out, not written";
    no_triangles.ModifyObject(p, p, p, 1000000);
}

// ---- attributes

TEST(GeosetInterpolation, IsExactAtCornersAndGoesOnBeyond) {
    osg_geoset geoset;
    const ::osg::Pnt3f a(0.1F, 0.2F, 0.3F), b(1.7F, 0.4F, 0.9F), c(0.3F, 2.2F, 1.1F);
    fillGeoset(geoset, {a, b, c}, true);
    const ::osg::GeoColors3fPtr odd = ::osg::GeoColors3f::create();
    for (const float shade : {0.1F, 0.7F, 0.3F})
        odd->editField().push_back(::osg::Color3f(shade, 1.0F - shade, shade * shade));
    geoset.geometry->setSecondaryColors(odd);

    EXPECT_EQ(geoset.interpolate_color(0, b, 1)[0], 0.7F);
    EXPECT_EQ(geoset.interpolate_color(0, ::osg::Pnt3f(1.7F + 5e-7F, 0.4F, 0.9F), 1)[2],
              0.7F * 0.7F)
        << "within reach of a corner it is that corner";
    const ::osg::Pnt3f outside = a + (b - c) * 3.0F; // nothing is clamped
    for (::osg::UInt32 i = 0; i < 3; ++i)
        EXPECT_NEAR(geoset.interpolate_color(0, outside, 0)[i], outside[i], 1e-5F);
    EXPECT_EQ(geoset.interpolate_texcoord(0, a, 2), ::osg::Vec2f(0.0F, 0.0F)) << "no unit 2";
    EXPECT_EQ(geoset.interpolate_texcoord(0, a, 7)[0], 0.1F) << "any other unit is unit 0";
    EXPECT_EQ(geoset.interpolate_color(99, a, 0), ::osg::Color3f(0.0F, 0.0F, 0.0F));
}

TEST(GeosetSetTriangle, ReadsWhatIsThereAndTheLastOnePastTheEnd) {
    osg_geoset geoset;
    fillGeoset(geoset, rowOfTriangles(3), true);
    morva::osg::osg_primitive primitive;
    EXPECT_EQ(primitive.positions[2], ::osg::Pnt3f(0, 0, 0));
    EXPECT_TRUE(primitive.name.empty());
    primitive.texcoords2[1] = ::osg::Vec2f(8.0F, 9.0F);
    const ::osg::GeometryPtr core = geoset.geometry.get();
    core->setColors(inOtherForm<::osg::GeoColors4f>(core->getColors()));
    geoset.setTriangle(primitive, 1);
    EXPECT_EQ(primitive.positions[1], ::osg::Pnt3f(2, 0, 0));
    EXPECT_EQ(primitive.normals[0], ::osg::Vec3f(0, 0, 1));
    EXPECT_EQ(primitive.colors[2], ::osg::Color3f(1, 1, 0));
    EXPECT_EQ(primitive.texcoords[1], ::osg::Vec2f(2, 0));
    EXPECT_EQ(primitive.texcoords7[2], 1.0F);
    EXPECT_EQ(primitive.texcoords2[1], ::osg::Vec2f(8.0F, 9.0F)) << "absent: as it was";
    const auto act = [&] {
        geoset.setTriangle(primitive, 3);
        osg_geoset().setTriangle(primitive, 0);
    };
    EXPECT_EQ(toldBy(act), "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n"
                           "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n");
    EXPECT_EQ(primitive.positions[0], ::osg::Pnt3f(2, 0, 0)) << "the last one";
}

TEST(GeosetRules, NameWhatIsBroken) {
    const struct {
        const char* rule;
        void (*spoil)(osg_geoset& geoset);
    } rows[] = {
        {"", [](osg_geoset&) {}},
        {"", [](osg_geoset& g) { g.dropExtents(); }},
        {"size is at most wished_size", [](osg_geoset& g) { g.wished_size = 1; }},
        {"every field holds every element",
         [](osg_geoset& g) { g.geometry->getColors()->resize(5); }},
        {"vertex_count counts every element", [](osg_geoset& g) { g.vertex_count = 9; }},
        {"the length is that of the elements",
         [](osg_geoset& g) { g.geometry->getLengths()->setValue(9, 0); }},
        {"axis arrays agree with the positions", [](osg_geoset& g) { g.axis_max[2][1] = 1; }},
        {"simple_tris agree with the positions", [](osg_geoset& g) { g.simple_tris[1].c[0] = 9; }}};
    for (const auto& row : rows) {
        osg_geoset geoset;
        fillGeoset(geoset, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {2, 0, 0}, {3, 0, 0}, {2, 1, 0}},
                   true);
        geoset.convert();
        ASSERT_EQ(geoset.size, 2U);
        row.spoil(geoset);
        EXPECT_EQ(broken_rule_of(geoset), row.rule);
    }
}

} // namespace
