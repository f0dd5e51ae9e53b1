// Interior removal: which parts go, how they go, and what is said.

#include "tests/collision/solids.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_exact.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

mesh_data ball(float radius) { return baked(ballMesh(5), scaled({radius, radius, radius})); }

mesh_data both(mesh_data mesh, const mesh_data& more) {
    mesh.positions.insert(mesh.positions.end(), more.positions.begin(), more.positions.end());
    return triangles(mesh.positions);
}

/// Outside and inside of a ball.
mesh_data shell(float radius) { return both(ball(radius), turnedOver(ball(0.9F * radius))); }

/// A wall of a box from -1 to 1, a little larger than its side.
mesh_data panel(unsigned side, float thickness) {
    ::osg::Vec3f by(1.2F, 1.2F, 1.2F), to(0, 0, 0);
    by[side / 2] = thickness;
    to[side / 2] = side % 2 == 0 ? 1 : -1;
    return baked(blockMesh(1), scaled(by, to));
}

/// A sheet that is seen from both sides.
mesh_data sheet(unsigned side) {
    std::vector<::osg::Pnt3f> face;
    for (const unsigned corner : {0, 1, 3, 0, 3, 2}) {
        ::osg::Pnt3f p;
        p[side / 2] = side % 2 == 0 ? 1.F : -1.F;
        p[(side / 2 + 1) % 3] = corner % 2 == 0 ? -1.2F : 1.2F;
        p[(side / 2 + 2) % 3] = corner < 2 ? -1.2F : 1.2F;
        face.push_back(p);
    }
    return both(triangles(face), turnedOver(triangles(face)));
}

/// The parts around a place far from a small one that makes the scene large: hits count up to a
/// twentieth of that.
::osg::NodePtr inLargeScene(const node_list& parts) {
    node_list all = parts;
    all.push_back(moved({60, 0, 0}, {named("far", meshNode(blockMesh(1)))}));
    return group(all);
}

::osg::NodePtr box(unsigned sides, bool sheets) {
    node_list parts;
    for (unsigned side = 0; side < sides; ++side)
        parts.push_back(
            named("w" + std::to_string(side), meshNode(sheets ? sheet(side) : panel(side, 0.1F))));
    parts.push_back(named("kernel", meshNode(ball(0.5F))));
    return inLargeScene(parts);
}

::osg::NodePtr sceneOfKind(const std::string& kind) {
    std::mt19937 rng(seedOf(12));
    if (kind == "panels" || kind == "sheets")
        return box(6, kind == "sheets");
    if (kind == "open box")
        return box(5, false);
    if (kind == "seen through") { // from inside these sheets are none
        const ::osg::NodePtr root = inLargeScene({named("kernel", meshNode(ball(0.5F)))});
        for (unsigned side = 0; side < 6; ++side) {
            mesh_data outwards = side % 2 == 0 ? sheet(side) : turnedOver(sheet(side));
            outwards.positions.resize(6);
            root->addChild(named("w", meshNode(triangles(outwards.positions))));
        }
        return root;
    }
    if (kind == "corners") { // where single precision alone loses hits
        const ::osg::NodePtr root = inLargeScene({});
        for (int i = 0; i < 9; ++i) {
            const float size = 0.7F + 0.013F * float(i), within = 0.4F * size;
            const mesh_data walls = baked(blockMesh(2), scaled({size, size, size}));
            root->addChild(
                moved({0.1F, 0.2F + 3.F * float(i), 0.3F},
                      {named("room", meshNode(both(walls, turnedOver(walls)))),
                       named("kernel",
                             meshNode(baked(blockMesh(2), scaled({within, within, within}))))}));
        }
        return root;
    }
    if (kind == "skin") // vertices are moved off their surface, here to behind the skin
        return inLargeScene({transformed(placed(rng, {}, {1, 1, 1}),
                                         {named("skin", meshNode(turnedOver(ball(0.5003F)))),
                                          named("kernel", meshNode(ball(0.5F)))})});
    if (kind == "wide") // what is hit beyond a twentieth does not count whole
        return inLargeScene({named("outer", meshNode(both(ball(2.9F), turnedOver(ball(2.9F))))),
                             named("kernel", meshNode(ball(0.5F)))});
    if (kind == "shells")
        return inLargeScene({named("outer", meshNode(shell(1.5F))),
                             named("inner", meshNode(shell(1))),
                             named("lining", meshNode(turnedOver(ball(1.2F)))),
                             moved({0.1F, 0, 0}, {named("kernel", meshNode(ball(0.5F)))})});
    if (kind == "children") { // a part in the shell holds one within and one outside
        const ::osg::NodePtr holder = named("holder", meshNode(ball(0.7F)));
        holder->addChild(named("within", meshNode(ball(0.3F))));
        holder->addChild(moved({9, 0, 0}, {named("outside", meshNode(ball(0.3F)))}));
        return inLargeScene({named("outer", meshNode(shell(1))), holder});
    }
    if (kind == "edges") { // rays that slip through an edge of the box meet the sky far behind it
        const auto block = [](float size, const ::osg::Vec3f& at) {
            return baked(blockMesh(1), scaled({size, size, size}, at));
        };
        node_list parts = {
            named("sky", meshNode(turnedOver(ball(70)))),
            named("box", meshNode(both(block(2, {0, 0, 3}), turnedOver(block(1.96F, {0, 0, 3})))))};
        for (int i = 0; i < 40; ++i) {
            const float at = 0.07F * static_cast<float>(i) - 1.4F;
            parts.push_back(named("kernel", meshNode(block(0.03F, {at, at, 3 - 0.5F * at}))));
        }
        return inLargeScene(parts);
    }
    if (kind == "odd") {
        const ::osg::GeometryPtr none = geometryOf(blockMesh(1));
        none->setPositions(::osg::GeoPositions3f::create());
        return inLargeScene(
            {named("empty", nodeOf(none)), named("bare", nodeOf(::osg::Geometry::create())),
             named("outer", hidden(meshNode(shell(1)))), named("kernel", meshNode(ball(0.5F)))});
    }
    return named("alone", meshNode(shell(1)));
}

std::vector<std::string> drawn(const ::osg::NodePtr& root) {
    std::vector<std::string> names = namesOf(geometryNodes(root));
    std::sort(names.begin(), names.end());
    return names;
}

TEST(GutOutModel, ExactlyTheEnclosedPartsGo) {
    const struct {
        const char* kind;
        std::set<std::string> gone;
        const char* removed;
    } rows[] = {{"panels", {"kernel"}, "1 geometries with 100"},
                {"sheets", {"kernel"}, "1 geometries with 100"},
                {"open box", {}, "0 geometries with 0"},
                {"seen through", {}, "0 geometries with 0"},
                {"corners", {"kernel"}, "9 geometries with 432"},
                {"skin", {}, "0 geometries with 0"},
                {"wide", {}, "0 geometries with 0"},
                {"shells", {"inner", "kernel", "lining"}, "3 geometries with 400"},
                {"children", {"holder", "within"}, "2 geometries with 200"},
                {"edges", {"kernel"}, "40 geometries with 480"},
                {"odd", {"empty"}, "1 geometries with 12"}, // as its lengths claim
                {"alone", {}, "0 geometries with 0"}};
    for (const auto& row : rows) {
        for (const unsigned threads : {1, 3}) {
            SCOPED_TRACE(row.kind);
            const node_ref root(sceneOfKind(row.kind));
            std::vector<std::string> expected = drawn(root.get());
            const std::size_t before = expected.size();
            expected.erase(std::remove_if(expected.begin(), expected.end(),
                                          [&](const auto& name) { return row.gone.count(name); }),
                           expected.end());
            ASSERT_GE(before - expected.size(), row.gone.size());
            const stream_capture out(std::cout);
            morva::osg::takeInteriorOff(root.get(), 3, 0, threads);
            EXPECT_EQ(drawn(root.get()), expected);
            EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
            const ::osg::NodePtr holder = nodeNamed(root.get(), "holder"); // has children
            EXPECT_TRUE(row.gone.count("holder") == 0 ||
                        holder->getCore()->getType() == ::osg::Group::getClassType());
            const std::string end =
                "\rdone. Removed " + std::string(row.removed) + " primitives.\n";
            const std::string text = out.text();
            EXPECT_EQ(text.substr(text.size() - std::min(text.size(), end.size())), end);
            EXPECT_EQ(text.substr(0, 17), "Prepare Geoset: \n");
            EXPECT_NE(text.find("\nCalc Ambient Occlusion: \n\r0%"), std::string::npos) << text;
        }
    }
}

} // namespace
