// What broken_rule_of() says of geosets that were spoiled after setup().

#include "triangle_scenes.h"

namespace {

using namespace tri;

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
