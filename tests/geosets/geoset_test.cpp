// The triangle geoset by itself: corner copies, growth, attributes at points, its rules.

#include "tests/support/triangle_scenes.h"

namespace {

using namespace tri;

bool addOne(osg_geoset& geoset, unsigned long source = 0) {
    return geoset.addObject({0, 0, 5}, {1, 0, 5}, {0, 1, 5}, source);
}

TEST(ExtractWithoutNormals, MakesTheNormalsAnewOfWhatHasChanged) {
    osg_geoset geoset;
    const auto normal = [&](::osg::UInt32 row) {
        return geoset.geometry->getNormals()->getValue(row);
    };
    pour(elements(3, 2), geoset, set_up);
    geoset.ModifyObject({0, 0, 0}, {0, 1, 0}, {0, 0, 1}, 1);
    EXPECT_EQ(normal(3), ::osg::Vec3f(0, 0, 1));
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normal(3), ::osg::Vec3f(1, 0, 0));
    geoset.ModifyObject({0, 0, 0}, {0, 0, 1}, {1, 0, 0}, 1); // known by now
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normal(3), ::osg::Vec3f(0, 1, 0));
    // Another property in the place of the normals starts from nothing known.
    const ::osg::GeoNormals3fPtr other = ::osg::GeoNormals3f::create();
    other->editField().resize(geoset.geometry->getPositions()->size());
    geoset.geometry->setNormals(other);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normal(0), ::osg::Vec3f(0, 0, 1));
}

TEST(FillFCwithValue, WritesEveryRowOfWhatNobodyHoldsYetAndAcceptsNull) {
    const ::osg::GeoColorsPtr colors = ::osg::GeoColors4f::create();
    const ::osg::GeoNormalsPtr normals = ::osg::GeoNormals3f::create();
    colors->resize(3);
    normals->resize(2);
    morva::osg::fillFCwithValue(colors, ::osg::Color3f(0.25F, 0.5F, 1.0F));
    morva::osg::fillFCwithValue(normals, ::osg::Vec3f(1, 2, 3));
    morva::osg::fillFCwithValue(::osg::GeoTexCoordsPtr(), ::osg::Vec2f(1, 2));
    const ::osg::RefPtr<::osg::GeoColorsPtr> held_colors(colors);
    const ::osg::RefPtr<::osg::GeoNormalsPtr> held_normals(normals);
    EXPECT_EQ(colors->getValue(2), ::osg::Color3f(0.25F, 0.5F, 1.0F));
    EXPECT_EQ(normals->getValue(1), ::osg::Vec3f(1, 2, 3));
}

TEST(GeosetSetup, RebuildsCornerCopiesOnceTheyWereAskedFor) {
    osg_geoset geoset;
    geoset.convert();
    EXPECT_EQ(geoset.simple_tris, nullptr) << "there is nothing to copy";
    fillGeoset(geoset, elements(3, 4).positions);
    EXPECT_EQ(geoset.simple_tris, nullptr);
    geoset.convert();
    geoset.geometry->getPositions()->setValue(::osg::Pnt3f(-7, 0, 0), 0);
    geoset.setup();
    EXPECT_EQ(broken_rule_of(geoset), "");
    geoset.calc_axis_min_max(4, 7); // ranges past the end are left alone
    geoset.prepareSimpleTris(1000);

    EXPECT_EQ(cut(geoset, 2, 0.5, 1).pieces, 2);
    geoset.dropExtents();
    EXPECT_EQ(cut(geoset, 0, 0.5, 1).pieces, 0);
    EXPECT_FALSE(addOne(geoset));
    geoset.ModifyObject(::osg::Pnt3f(), ::osg::Pnt3f(), ::osg::Pnt3f(), 0);
    geoset.clear();
    EXPECT_EQ(geoset.simple_tris, nullptr);
    EXPECT_EQ(geoset.axis_max, nullptr);
    EXPECT_FALSE(addOne(geoset)) << "nothing can be added to nothing";
}

template <typename G>
void expectGrowth(unsigned wished, unsigned size, std::uint64_t expected, int rows) {
    SCOPED_TRACE(testing::Message() << G::corners << " corners, " << size << " of " << wished);
    G geoset;
    pour(elements(G::corners, wished), geoset, set_up);
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
    expectGrowth<osg_geoset>(999, 999, 1998, 5994);
    expectGrowth<osg_geoset>(1001, 1000, 1301, 3903);
    expectGrowth<osg_geoset>(1000, 998, 1000, 9000); // room for two is left alone
    expectGrowth<osg_line_geoset>(999, 999, 1998, 3996);
    expectGrowth<osg_line_geoset>(1000, 1000, 1300, 2600);

    osg_geoset no_triangles; // positions without triangles: there is a place but no source
    const ::osg::Pnt3f p(1, 1, 1);
    fillGeoset(no_triangles, {p, p, p});
    EXPECT_TRUE(addOne(no_triangles));
    EXPECT_EQ(no_triangles.size, 1U);
    EXPECT_TRUE(no_triangles.add_GeoFields(p, p, p, 1000000, 1000000)) << "left out, not written";
    no_triangles.ModifyObject(p, p, p, 1000000);
}

TEST(GeosetSetTriangle, ReadsWhatIsThereAndTheLastOnePastTheEnd) {
    osg_geoset geoset;
    fillGeoset(geoset, elements(3, 3).positions, true);
    morva::osg::osg_primitive primitive;
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
    EXPECT_EQ(geoset.interpolate_color(1, primitive.positions[1], 1), ::osg::Color3f(0, 0, 0));
    EXPECT_EQ(geoset.interpolate_color(1, primitive.positions[1], 0), ::osg::Color3f(2, 0, 0));
    EXPECT_EQ(geoset.interpolate_texcoord(1, primitive.positions[1], 7), ::osg::Vec2f(2, 0));
    const auto act = [&] {
        geoset.setTriangle(primitive, 3);
        osg_geoset().setTriangle(primitive, 0);
    };
    EXPECT_EQ(toldBy(act), "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n"
                           "Morva::osg::osg_geoset: Index Error in PrepareTriangle.\n");
    EXPECT_EQ(primitive.positions[0], ::osg::Pnt3f(2, 0, 0)) << "the last one";
}

TEST(GeosetRules, NameWhatIsBroken) {
    const std::pair<const char*, void (*)(osg_geoset&)> rows[] = {
        {"", [](osg_geoset& g) { g.dropExtents(); }},
        {"size is at most wished_size", [](osg_geoset& g) { g.wished_size = 1; }},
        {"every field holds every element",
         [](osg_geoset& g) { g.geometry->getColors()->resize(5); }},
        {"vertex_count counts every element", [](osg_geoset& g) { g.vertex_count = 9; }},
        {"the length is that of the elements",
         [](osg_geoset& g) { g.geometry->getLengths()->setValue(9, 0); }},
        {"axis arrays agree with the positions", [](osg_geoset& g) { g.axis_max[2][1] = 1; }},
        {"simple_tris agree with the positions", [](osg_geoset& g) { g.simple_tris[1].c[0] = 9; }}};
    for (const auto& [rule, spoil] : rows) {
        osg_geoset geoset;
        fillGeoset(geoset, elements(3, 2).positions, true);
        geoset.convert();
        EXPECT_EQ(broken_rule_of(geoset), "");
        spoil(geoset);
        EXPECT_EQ(broken_rule_of(geoset), rule);
    }
}

} // namespace
