#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_geometry_tools.h>

#include "merge_scenes.h"

namespace {

using morva::osg::mergeGeo;

TEST(MergeGeo, PrintsAsToldByTheFlags) {
    const std::string title = "Merging Geometry with 4 GeometryCore(s)...\n";
    const std::string merged = "Found 3 different Materials.\n\rDone merging.        \n";
    const std::string progress = "\r0% \r33.33% \r66.67% ";
    const std::string caching = "Run Cacheopt...(3) Nodes.\n";
    for (const auto& [silent, cacheopt, numthreads, expected] :
         {std::tuple{true, false, 1, merged},
          std::tuple{false, false, 1, title + merged + "done.\n"},
          std::tuple{true, true, 1, title + merged + caching + progress},
          std::tuple{true, true, 0, title + merged + caching + progress},
          std::tuple{true, true, -7, title + merged + caching + progress},
          std::tuple{false, true, 2, title + merged + caching + "done.\n"}}) {
        SCOPED_TRACE(testing::Message() << silent << cacheopt << numthreads);
        mergeGeo_setup setup;
        setup.silent = silent;
        setup.cacheopt = cacheopt;
        setup.numthreads = numthreads;
        const material_ref red(plain(0));
        const node_ref root(group(
            {part(red.get(), 0), part(red.get(), 3), part(plain(1), 0), part(plain(0.5F), 3)}));
        const stream_capture out(std::cout);
        std::cout << std::hex << std::showbase; // as a caller may have left it
        const node_ref result(mergeGeo(root.get(), cells(9), setup));
        EXPECT_EQ(out.text(), expected);
    }
}

TEST(MergeGeo, CellsAreBoundedAndOnlyTwoFieldsOfTheTreeSetupCount) {
    std::mt19937 rng(5101);
    const node_ref root(group());
    for (int i = 0; i < 5; ++i)
        root->addChild(named("soup", meshNode(withAttributes(soup(rng, 60), rng))));
    mesh_choice whole;
    whole.ids = true;
    whole.dropped = &morva::osg::is_rogue;
    const world_mesh before = worldMesh(root.get(), whole);
    const node_ref above(moved({5, 0, 0}, {root.get()})); // local coordinates stay
    mergeGeo_setup setup = quiet();
    setup.deleteunusedtc = setup.toworld = false;
    for (setup.opt = 0; setup.opt <= 3; ++setup.opt) {
        SCOPED_TRACE(setup.opt);
        std::string shapes[2];
        for (int i = 0; i < 2; ++i) {
            const morva::kd_build_setup kd =
                i == 0 ? cells(50) : morva::kd_build_setup{50, 100, 1, 9, 9, 9, true};
            const stream_capture out(std::cout);
            const node_ref result(mergeGeo(root.get(), kd, setup));
            EXPECT_EQ(firstDifference(before, worldMesh(result.get(), whole)), "");
            for (const ::osg::NodePtr& node : geometryNodes(result.get())) {
                const unsigned count = morva::osg::counttriangles(coreOf(node));
                EXPECT_LE(count, 50U);
                shapes[i] += std::to_string(count) + " ";
            }
        }
        EXPECT_EQ(shapes[0], shapes[1]);
    }
}

TEST(MergeGeo, TransparentNodesMoveToTheResultAndKeepTheirPlace) {
    const material_ref glass(chunked({0, 0, 1, 0.5F}));
    const ::osg::NodePtr pane = part(::osg::NullFC, 0, 2);
    const node_ref root(
        group({part(plain(0), 0), moved({5, 6, 7}, {materialGroup(glass.get(), {pane})})}));
    const world_mesh before = shapeOf(root.get());
    const ::osg::GeoPositionsPtr positions = coreOf(pane)->getPositions();
    const node_ref result(quietMerge(root.get(), quiet()));

    EXPECT_EQ(firstDifference(before, shapeOf(result.get())), "");
    ASSERT_EQ(result->getNChildren(), 2U);
    EXPECT_EQ(result->getChild(1)->getChild(0), pane); // itself, with its vertices as they were
    EXPECT_EQ(coreOf(pane)->getPositions(), positions);
    EXPECT_EQ(coreOf(pane)->getMaterial(), glass.get());
    EXPECT_EQ(root->getChild(1)->getChild(0)->getNChildren(), 0U);

    mergeGeo_setup merging = quiet();
    merging.alphageometry = true;
    const node_ref merged(quietMerge(result.get(), merging));
    EXPECT_EQ(firstDifference(before, shapeOf(merged.get())), "");
    EXPECT_EQ(pane->getParent(), result->getChild(1));
}

TEST(MergeGeo, HiddenNodesAreDroppedOrCarriedOverOthersStayOut) {
    for (const bool keep : {false, true}) {
        SCOPED_TRACE(keep);
        const ::osg::NodePtr below = part(plain(1), 0);
        const ::osg::NodePtr parent = hidden(moved({0, 0, 9}, {below}));
        const ::osg::NodePtr skipped = part(choiceOf(0, {}), 3);
        const ::osg::NodePtr choice = switched(0, {part(plain(0), 0)});
        const node_ref root(group({part(plain(0), 0), parent, choice, skipped}));
        mergeGeo_setup setup = quiet();
        setup.keeprenderfalse = keep;
        const node_ref result(quietMerge(root.get(), setup));
        EXPECT_EQ(result->getNChildren(), keep ? 2U : 1U);
        EXPECT_EQ(shapeOf(result.get()).size(), keep ? 2U : 1U);
        EXPECT_EQ(skipped->getParent(), root.get());
        EXPECT_EQ(below->getParent(), keep ? result->getChild(1) : parent);
        EXPECT_EQ(below->getToWorld()[3][2], 9.0F);
    }
}

TEST(MergeGeo, WhatHangsBelowAGeometryComesOutOnceWithItsLengths) {
    for (unsigned flags = 0; flags < 16; ++flags) {
        SCOPED_TRACE(flags);
        mergeGeo_setup setup = quiet();
        setup.alphageometry = (flags & 1) != 0;
        setup.cacheopt = (flags & 2) != 0;
        setup.keeprenderfalse = (flags & 4) != 0;
        setup.numthreads = 1 + static_cast<int>(flags >> 3);
        const material_ref glass(chunked({0, 0, 1, 0.5F}));
        const geometry_ref pane(geometryOf(strip(8, 8), glass.get()));
        const ::osg::NodePtr plate = meshNode(strip(6, 8));
        pane->setLengths(::osg::NullFC);
        coreOf(plate)->setLengths(::osg::NullFC);
        const ::osg::NodePtr in_pane = moved({0, 0, 5}, {nodeOf(pane.get(), {plate})});
        const node_ref root(group({nodeOf(geometryOf(strip(6), glass.get()),
                                          {part(plain(0), 20), in_pane, nodeOf(pane.get())})}));
        if (setup.keeprenderfalse)
            root->addChild(hidden(nodeOf(geometryOf(strip(5)), {part(plain(1), 40)})));
        const world_mesh before = shapeOf(root.get());
        const node_ref result(quietMerge(root.get(), setup));
        EXPECT_EQ(firstDifference(before, shapeOf(result.get())), "");
        for (const ::osg::NodePtr& node : geometryNodes(result.get()))
            EXPECT_TRUE(coreOf(node)->getLengths() != ::osg::NullFC && node->getNChildren() == 0);
        EXPECT_TRUE(pane->getLengths() == ::osg::NullFC) << "others may show it";
        EXPECT_EQ(in_pane->getParent() == root.get(), !setup.alphageometry);
    }
}

TEST(MergeGeo, RootsOfAllKinds) {
    // No root, no parts, no core; and a geometry alone, for which a stand-in is merged or
    // carried over.
    const node_ref roots[] = {node_ref(),
                              node_ref(group()),
                              node_ref(::osg::Node::create()),
                              node_ref(part(plain(0), 0, 2)),
                              node_ref(part(chunked({0, 0, 1, 0.5F}), 0, 2)),
                              node_ref(nodeOf(geometryOf(strip(5)), {part(plain(1), 9)}))};
    for (const node_ref& root : roots) {
        const node_ref result(quietMerge(root.get(), quiet()));
        EXPECT_TRUE(::osg::GroupPtr::dcast(result->getCore()) != ::osg::NullFC);
        if (root != ::osg::NullFC) {
            EXPECT_EQ(firstDifference(shapeOf(root.get()), shapeOf(result.get())), "");
        }
    }
    // What the geometry inherits is asked of itself, not of the stand-in.
    const material_ref textured(chunked({0, 0, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2)));
    mesh_data mesh = quads(2);
    mesh.coordinates.assign(mesh.positions.size(), {0.5F, 0.25F});
    const node_ref above(materialGroup(textured.get(), {meshNode(mesh), hidden(meshNode(mesh))}));
    const node_ref seen(quietMerge(above->getChild(0), quiet()));
    for (const ::osg::NodePtr& node : {geometryNodes(seen.get()).at(0), above->getChild(0)})
        EXPECT_NE(coreOf(node)->getTexCoords(), ::osg::NullFC);
    EXPECT_EQ(coreOf(geometryNodes(seen.get())[0])->getMaterial(), textured.get());
    const node_ref unseen(quietMerge(above->getChild(1), quiet()));
    EXPECT_EQ(geometryNodes(unseen.get()), node_list());
}

/// Where in an image a coordinate leads to, by the rules of wrapping: 0 to 1.
double placeInImage(double value, ::osg::UInt32 wrap) {
    if (wrap == 0x8370) // mirrored
        return std::abs(value - 2 * std::round(value / 2));
    const bool clamped = wrap == 0x2900 || wrap == 0x812D || wrap == 0x812F;
    return clamped ? std::clamp(value, 0.0, 1.0) : value - std::floor(value);
}

/// Coordinates at a point of the plane z = 0: those of the triangle that it lies in.
std::array<double, 2> coordinatesAt(const ::osg::NodePtr& root, double x, double y) {
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const ::osg::GeometryPtr core = coreOf(node);
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            const auto p = [&it](int corner, ::osg::UInt32 axis) {
                return double(it.getPosition(corner)[axis]);
            };
            const auto side = [&](int from, int to) {
                return (p(to, 0) - p(from, 0)) * (y - p(from, 1)) -
                       (p(to, 1) - p(from, 1)) * (x - p(from, 0));
            };
            const double a = side(1, 2), b = side(2, 0), c = side(0, 1);
            if (std::min({a, b, c}) < 0)
                continue;
            std::array<double, 2> at{};
            for (::osg::UInt32 k = 0; k < 2; ++k)
                at[k] = (a * double(it.getTexCoords(0)[k]) + b * double(it.getTexCoords(1)[k]) +
                         c * double(it.getTexCoords(2)[k])) /
                        (a + b + c);
            return at;
        }
    }
    return {std::nan(""), std::nan("")};
}

TEST(MergeGeo, MovesCoordinatesOnlyWhereTheImageShowsTheSame) {
    const ::osg::UInt32 wraps[] = {0x2901, 0x8370, 0x2900, 0x812D, 0x812F, 0x7777}; // last: unknown
    for (std::size_t pair = 0; pair < 36; ++pair) {
        const ::osg::UInt32 wrap[] = {wraps[pair / 6], wraps[pair % 6]};
        SCOPED_TRACE(testing::Message() << std::hex << wrap[0] << ", " << wrap[1]);
        std::mt19937 rng(static_cast<unsigned>(pair));
        std::uniform_real_distribution<float> any(-4.0F, 7.0F), inner(0.05F, 0.45F);
        const ::osg::ChunkMaterialPtr look =
            chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2));
        const auto texture = ::osg::TextureChunkPtr::dcast(look->getChunks(1));
        texture->setWrapS(wrap[0]);
        texture->setWrapT(wrap[1]);
        mesh_data mesh;
        mesh.primitives = {{4, 36}};
        for (int i = 0; i < 12; ++i) {
            const auto x = static_cast<float>(i);
            mesh.positions.insert(mesh.positions.end(), {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}});
            for (int k = 0; k < 3; ++k)
                mesh.coordinates.push_back(::osg::Vec2f(any(rng), any(rng)));
        }
        const node_ref root(group({meshNode(mesh, look)}));
        const node_ref result(quietMerge(root.get(), quiet()));
        std::size_t moved = 0, triangles = 0;
        for (int i = 0; i < 120; ++i) {
            const double x = i % 12 + double(inner(rng)), y = double(inner(rng));
            const auto was = coordinatesAt(root.get(), x, y);
            const auto now = coordinatesAt(result.get(), x, y);
            for (std::size_t k = 0; k < 2; ++k) {
                const double apart =
                    std::abs(placeInImage(was[k], wrap[k]) - placeInImage(now[k], wrap[k]));
                EXPECT_LT(std::min(apart, 1 - apart), 5e-3) << was[k] << " and " << now[k];
                moved += std::abs(was[k] - now[k]) > 0.5 ? 1U : 0U;
            }
        }
        for (const ::osg::NodePtr& node : geometryNodes(result.get()))
            triangles += morva::osg::counttriangles(coreOf(node));
        const auto repeats = [](::osg::UInt32 one) { return one == 0x2901 || one == 0x7777; };
        EXPECT_EQ(moved > 0, repeats(wrap[0]) || repeats(wrap[1]));
        EXPECT_EQ(triangles > 12, repeats(wrap[0]) || repeats(wrap[1]));
    }
}

} // namespace
