// Interior removal: which parts go, how they go, and what is said.

#include "tests/collision/solids.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

/// A named part of one mesh.
::osg::NodePtr part(const char* name, const mesh_data& mesh) { return named(name, meshNode(mesh)); }

mesh_data ball(float radius) { return baked(ballMesh(5), scaled({radius, radius, radius})); }

mesh_data block(float size, const ::osg::Vec3f& at = {0, 0, 0}, unsigned cells = 1) {
    return baked(blockMesh(cells), scaled({size, size, size}, at));
}

/// Walls of a box from -1 to 1, a little larger than its sides, around a ball; without thickness
/// they are sheets that are seen from both sides.
node_list box(const char* name, unsigned sides, float thickness) {
    node_list parts = {part(name, ball(0.5F))};
    for (unsigned side = 0; side < sides; ++side) {
        ::osg::Vec3f by(1.2F, 1.2F, 1.2F), to(0, 0, 0);
        by[side / 2] = thickness;
        to[side / 2] = side % 2 == 0 ? 1 : -1;
        parts.push_back(part("wall", baked(blockMesh(1), scaled(by, to))));
    }
    return parts;
}

/// Groups of parts side by side, 87 units from end to end: hits count whole up to 4.3.
::osg::NodePtr stations() {
    std::mt19937 rng(seedOf(12));
    const ::osg::GeometryPtr none = geometryOf(blockMesh(1));
    none->setPositions(::osg::GeoPositions3f::create());
    const ::osg::NodePtr holder = part("holder", ball(0.7F));
    holder->addChild(part("within", ball(0.3F)));
    holder->addChild(moved({0, 5, 0}, {part("outside", ball(0.3F))}));
    const node_list places[] = {
        box("walled", 6, 0.1F),
        box("between sheets", 6, 0),
        box("in the open", 5, 0.1F),
        {part("seen from outside", ball(0.5F)), part("box", block(1))},
        // Vertices are moved off their surface, here to behind the skin.
        {transformed(placed(rng, {}, {1, 1, 1}),
                     {part("skin", turnedOver(ball(0.5003F))), part("in the skin", ball(0.5F))})},
        {part("wide", hollowed(ball(4.2F), 1)), part("in the wide", ball(0.5F))},
        {part("outer", hollowed(ball(1.5F))), part("inner", hollowed(ball(1))),
         part("lining", turnedOver(ball(1.2F))), moved({0.1F, 0, 0}, {part("core", ball(0.5F))})},
        {part("shell", hollowed(ball(1))), holder},
        {named("empty", nodeOf(none)), named("bare", nodeOf(::osg::Geometry::create())),
         hidden(part("hidden", hollowed(ball(1)))), part("in the hidden", ball(0.5F))}};
    const ::osg::NodePtr root = group();
    for (std::size_t i = 0; i < std::size(places); ++i)
        root->addChild(moved({9 * float(i + 1), 0, 0}, places[i]));
    for (int i = 0; i < 9; ++i) { // where single precision alone loses hits
        const float size = 0.7F + 0.013F * float(i);
        root->addChild(moved({0.1F, 0.2F + 3.F * float(i), 0.3F},
                             {part("room", hollowed(block(size, {}, 2), 1)),
                              part("in a room", block(0.4F * size, {}, 2))}));
    }
    return root;
}

/// A box full of parts, and the sky, which rays that slip through an edge of the box meet far
/// behind it.
::osg::NodePtr belowSky() {
    const ::osg::NodePtr root = group({part("sky", turnedOver(ball(70))),
                                       moved({0, 0, 3}, {part("box", hollowed(block(2), 0.98F))})});
    for (int i = 0; i < 40; ++i) {
        const float at = 0.07F * float(i) - 1.4F;
        root->addChild(part("in the box", block(0.03F, {at, at, 3 - 0.5F * at})));
    }
    return root;
}

std::multiset<std::string> drawn(const ::osg::NodePtr& root) {
    const std::vector<std::string> names = namesOf(geometryNodes(root));
    return {names.begin(), names.end()};
}

TEST(GutOutModel, ExactlyTheEnclosedPartsGo) {
    const struct {
        ::osg::NodePtr (*scene)();
        std::vector<std::string> gone;
        const char* removed; ///< the empty one's length claims 12
    } rows[] = {{stations,
                 {"walled", "between sheets", "inner", "lining", "core", "holder", "within",
                  "empty", "in a room"},
                 "17 geometries with 1244"},
                {belowSky, {"in the box"}, "40 geometries with 480"}};
    for (const auto& row : rows) {
        for (const unsigned threads : {1, 3}) {
            SCOPED_TRACE(row.removed);
            const node_ref root(row.scene());
            auto expected = drawn(root.get());
            for (const std::string& name : row.gone)
                EXPECT_NE(expected.erase(name), 0U);
            const stream_capture out(std::cout);
            morva::osg::takeInteriorOff(root.get(), 3, 0, threads);
            EXPECT_EQ(drawn(root.get()), expected);
            EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
            const ::osg::NodePtr holder = nodeNamed(root.get(), "holder"); // has children
            EXPECT_TRUE(holder == ::osg::NullFC ||
                        holder->getCore()->getType() == ::osg::Group::getClassType());
            EXPECT_NE(
                out.text().find(std::string("\rdone. Removed ") + row.removed + " primitives.\n"),
                std::string::npos);
        }
    }
    const stream_capture silence(std::cout);
    const node_ref alone(meshNode(ball(1)));
    morva::osg::takeInteriorOff(alone.get(), 3, 1, 1); // of which nothing is open enough
    EXPECT_NE(coreOf(alone.get()), ::osg::NullFC) << "a root stays";
}

} // namespace
