// Interior removal: which parts go, how they go, and what is said.

#include "naive_occlusion.h"
#include "tests/collision/solids.h"

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_exact.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

::osg::Matrix scaled(const ::osg::Vec3f& by, const ::osg::Vec3f& to = {0, 0, 0}) {
    ::osg::Matrix matrix;
    matrix.setTransform(to, ::osg::Quaternion(), by);
    return matrix;
}

mesh_data ball(float radius) { return baked(ballMesh(5), scaled({radius, radius, radius})); }

mesh_data both(mesh_data mesh, const mesh_data& more) {
    mesh.positions.insert(mesh.positions.end(), more.positions.begin(), more.positions.end());
    return triangles(mesh.positions);
}

mesh_data turnedOver(mesh_data mesh) {
    for (std::size_t i = 0; i < mesh.positions.size(); i += 3)
        std::swap(mesh.positions[i], mesh.positions[i + 1]);
    return mesh;
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
    if (kind == "panels" || kind == "sheets")
        return box(6, kind == "sheets");
    if (kind == "open box")
        return box(5, false);
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
            const std::string end =
                "\rdone. Removed " + std::string(row.removed) + " primitives.\n";
            const std::string text = out.text();
            EXPECT_EQ(text.substr(text.size() - std::min(text.size(), end.size())), end);
            EXPECT_EQ(text.substr(0, 17), "Prepare Geoset: \n");
            EXPECT_NE(text.find("\nCalc Ambient Occlusion: \n\r0%"), std::string::npos) << text;
        }
    }
}

TEST(GutOutModel, ANodeWithChildrenStaysAsAGroup) {
    const node_ref root(sceneOfKind("children"));
    const stream_capture out(std::cout);
    morva::osg::gutOutModelPerAmbientOcclusion(root.get(), 3, 0, 1);
    const ::osg::NodePtr holder = nodeNamed(root.get(), "holder");
    ASSERT_NE(holder, ::osg::NullFC);
    EXPECT_EQ(holder->getCore()->getType(), ::osg::Group::getClassType());
    EXPECT_EQ(holder->getNChildren(), 1U);
    EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
}

/// How far a ray gets along its way before it meets a front face, by all triangles in double.
double naiveWay(const naive_scene& scene, const morva::osg::occlusion_ray& ray) {
    using triple = std::array<double, 3>;
    const auto cross = [](const triple& a, const triple& b) {
        return triple{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                      a[0] * b[1] - a[1] * b[0]};
    };
    const auto dot = [](const triple& a, const triple& b) {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    };
    double best = std::numeric_limits<double>::infinity();
    for (const flat_triangles& part : scene.parts)
        for (const auto& t : part) {
            triple ab, ac, ap, way;
            for (std::size_t k = 0; k < 3; ++k) {
                ab[k] = double(t.b[k]) - double(t.a[k]);
                ac[k] = double(t.c[k]) - double(t.a[k]);
                ap[k] = double(ray.from[k]) - double(t.a[k]);
                way[k] = double(ray.direction[k]);
            }
            const triple n = cross(ab, ac);
            const double d = -dot(way, n), s = dot(ap, n), v = dot(ac, cross(ap, way)),
                         w = -dot(ab, cross(ap, way));
            if (d > 0 && s >= 0 && v >= 0 && w >= 0 && v + w <= d)
                best = std::min(best, s / d);
        }
    return best;
}

TEST(ExactRays, MissNothingAndTheOthersLittle) {
    std::mt19937 rng(9);
    const node_ref root(group({meshNode(shell(1)), meshNode(withNormals(soup(rng, 150), rng)),
                               moved({0.5F, 0, 0}, {meshNode(waveMesh(6))}),
                               moved({0, 2, 0}, {meshNode(blockMesh(2))}), meshNode(quads(3))}));
    const stream_capture out(std::cout);
    const morva::osg::traced_scene scene(root.get());
    const naive_scene naive(root.get());
    const morva::osg::exact_rays<morva::bih_tree<float>, morva::osg::occlusion_geoset> exact(
        scene.tree, scene.parts, 1.0);
    int hits = 0, lost = 0;
    for (int i = 0; i < 20000; ++i) {
        const ::osg::Vec3f at = anyVector(rng, 1.5F), by = anyVector(rng, 1);
        morva::osg::occlusion_ray ray({at[0], at[1], at[2]}, {by[0], by[1], by[2]}, {});
        if (i % 3 == 0) // along the sides of boxes
            ray.direction[rng() % 3] = 0;
        const double length = std::sqrt(double(by[0] * by[0] + by[1] * by[1] + by[2] * by[2]));
        const double way = naiveWay(naive, ray);
        float3 point;
        if (i % 3 != 0)
            EXPECT_TRUE(exact(ray, point) == (way * length <= 1) ||
                        std::abs(way * length - 1) < 1e-6)
                << way * length;
        else
            EXPECT_TRUE(exact(ray, point) || !(way * length < 1));
        hits += way < 1e9 ? 1 : 0;
        lost += way < 1e9 && !scene.rays()(ray, point) ? 1 : 0;
    }
    EXPECT_GT(hits, 5000);
    EXPECT_LE(lost * 1000, hits) << lost << " of " << hits;
}

} // namespace
