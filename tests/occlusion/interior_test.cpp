// Interior removal: which parts go, how they go, and what is said.

#include "tests/collision/solids.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

mesh_data ball(float radius) { return baked(ballMesh(5), scaled({radius, radius, radius})); }

mesh_data block(float size, const ::osg::Vec3f& at = {0, 0, 0}, unsigned cells = 1) {
    return baked(blockMesh(cells), scaled({size, size, size}, at));
}

mesh_data both(mesh_data mesh, const mesh_data& more) {
    mesh.positions.insert(mesh.positions.end(), more.positions.begin(), more.positions.end());
    return triangles(mesh.positions);
}

/// Outside and inside of a ball.
mesh_data shell(float radius) { return both(ball(radius), turnedOver(ball(0.9F * radius))); }

::osg::NodePtr kernel() { return named("kernel", meshNode(ball(0.5F))); }

/// Walls of a box from -1 to 1, a little larger than its sides, around a kernel; without thickness
/// they are sheets that are seen from both sides.
node_list box(unsigned sides, float thickness) {
    node_list parts = {kernel()};
    for (unsigned side = 0; side < sides; ++side) {
        ::osg::Vec3f by(1.2F, 1.2F, 1.2F), to(0, 0, 0);
        by[side / 2] = thickness;
        to[side / 2] = side % 2 == 0 ? 1 : -1;
        parts.push_back(named("wall", meshNode(baked(blockMesh(1), scaled(by, to)))));
    }
    return parts;
}

/// Rooms with a kernel each, where single precision alone loses hits.
node_list rooms() {
    node_list parts;
    for (int i = 0; i < 9; ++i) {
        const float size = 0.7F + 0.013F * float(i);
        const mesh_data walls = block(size, {}, 2);
        parts.push_back(moved({0.1F, 0.2F + 3.F * float(i), 0.3F},
                              {named("room", meshNode(both(walls, turnedOver(walls)))),
                               named("kernel", meshNode(block(0.4F * size, {}, 2)))}));
    }
    return parts;
}

/// A box full of kernels, and the sky, which rays that slip through an edge of the box meet far
/// behind it.
node_list belowSky() {
    node_list parts = {
        named("sky", meshNode(turnedOver(ball(70)))),
        named("box", meshNode(both(block(2, {0, 0, 3}), turnedOver(block(1.96F, {0, 0, 3})))))};
    for (int i = 0; i < 40; ++i) {
        const float at = 0.07F * static_cast<float>(i) - 1.4F;
        parts.push_back(named("kernel", meshNode(block(0.03F, {at, at, 3 - 0.5F * at}))));
    }
    return parts;
}

/// A part in a shell, which holds one within and one outside.
node_list withChildren() {
    return {named("outer", meshNode(shell(1))),
            named("holder", nodeOf(geometryOf(ball(0.7F)),
                                   {named("within", meshNode(ball(0.3F))),
                                    moved({9, 0, 0}, {named("outside", meshNode(ball(0.3F)))})}))};
}

node_list oddOnes() {
    const ::osg::GeometryPtr none = geometryOf(blockMesh(1));
    none->setPositions(::osg::GeoPositions3f::create());
    return {named("empty", nodeOf(none)), named("bare", nodeOf(::osg::Geometry::create())),
            named("outer", hidden(meshNode(shell(1)))), kernel()};
}

struct scene_row {
    const char* name;
    node_list (*parts)();
    std::set<std::string> gone;
    const char* removed;
};

const scene_row scene_rows[] = {
    {"walls", [] { return box(6, 0.1F); }, {"kernel"}, "1 geometries with 100"},
    {"sheets", [] { return box(6, 0); }, {"kernel"}, "1 geometries with 100"},
    {"open", [] { return box(5, 0.1F); }, {}, "0 geometries with 0"},
    {"rooms", rooms, {"kernel"}, "9 geometries with 432"},
    {"sky", belowSky, {"kernel"}, "40 geometries with 480"},
    {"children", withChildren, {"holder", "within"}, "2 geometries with 200"},
    {"odd", oddOnes, {"empty"}, "1 geometries with 12"}, // as its lengths claim
    {"seen through from inside",
     [] {
         return node_list{kernel(), named("box", meshNode(block(1)))};
     },
     {},
     "0 geometries with 0"},
    {"a skin; vertices are moved off their surface, here to behind it",
     [] {
         std::mt19937 rng(seedOf(12));
         return node_list{
             transformed(placed(rng, {}, {1, 1, 1}),
                         {named("skin", meshNode(turnedOver(ball(0.5003F)))), kernel()})};
     },
     {},
     "0 geometries with 0"},
    {"wide; what is hit beyond a twentieth does not count whole",
     [] {
         return node_list{named("outer", meshNode(both(ball(2.9F), turnedOver(ball(2.9F))))),
                          kernel()};
     },
     {},
     "0 geometries with 0"},
    {"shells",
     [] {
         return node_list{named("outer", meshNode(shell(1.5F))), named("inner", meshNode(shell(1))),
                          named("lining", meshNode(turnedOver(ball(1.2F)))),
                          moved({0.1F, 0, 0}, {kernel()})};
     },
     {"inner", "kernel", "lining"},
     "3 geometries with 400"}};

std::vector<std::string> drawn(const ::osg::NodePtr& root) {
    std::vector<std::string> names = namesOf(geometryNodes(root));
    std::sort(names.begin(), names.end());
    return names;
}

TEST(GutOutModel, ExactlyTheEnclosedPartsGo) {
    for (const scene_row& row : scene_rows) {
        for (const unsigned threads : {1, 3}) {
            SCOPED_TRACE(row.name);
            const node_ref root(group(row.parts())); // hits count up to a twentieth of its size
            root->addChild(moved({60, 0, 0}, {named("far", meshNode(blockMesh(1)))}));
            std::vector<std::string> expected = drawn(root.get());
            expected.erase(std::remove_if(expected.begin(), expected.end(),
                                          [&](const auto& name) { return row.gone.count(name); }),
                           expected.end());
            const stream_capture out(std::cout);
            morva::osg::takeInteriorOff(root.get(), 3, 0, threads);
            EXPECT_EQ(drawn(root.get()), expected);
            EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
            const ::osg::NodePtr holder = nodeNamed(root.get(), "holder"); // has children
            EXPECT_TRUE(row.gone.count("holder") == 0 ||
                        holder->getCore()->getType() == ::osg::Group::getClassType());
            const std::string text = out.text(), end = std::string("\rdone. Removed ") +
                                                       row.removed + " primitives.\n";
            EXPECT_EQ(text.substr(0, 17), "Prepare Geoset: \n");
            EXPECT_NE(text.find("\nCalc Ambient Occlusion: \n\r0%"), std::string::npos) << text;
            EXPECT_EQ(text.substr(text.size() - std::min(text.size(), end.size())), end);
        }
    }
    const stream_capture silence(std::cout);
    const node_ref alone(meshNode(shell(1)));
    morva::osg::takeInteriorOff(alone.get(), 3, 1, 1); // of which nothing is open enough
    EXPECT_NE(coreOf(alone.get()), ::osg::NullFC) << "a root stays";
}

} // namespace
