#include "merge_scenes.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSwitchMaterial.h>

#include <morva/core/morva_osg.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::mergeGeo;
using morva::osg::mergeGeo_setup;

/// A merge with its output on standard output thrown away.
::osg::NodePtr quietMerge(const ::osg::NodePtr& root, const mergeGeo_setup& setup,
                          unsigned cell = 1000) {
    testing::internal::CaptureStdout();
    const ::osg::NodePtr result = mergeGeo(root, scene::cells(cell), setup);
    testing::internal::GetCapturedStdout();
    return result;
}

/// Materials of the direct children's first geometry, as in the order of the groups.
std::vector<::osg::MaterialPtr> materialsOf(const ::osg::NodePtr& result) {
    std::vector<::osg::MaterialPtr> materials;
    for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i) {
        const scene::nodes list = morva_test::geometryNodes(result->getChild(i));
        materials.push_back(list.empty() ? ::osg::MaterialPtr()
                                         : scene::coreOf(list[0])->getMaterial());
    }
    return materials;
}

TEST(MergeGeo, OneGroupPerMaterialInOrderAndTheInputStays) {
    const ::osg::MaterialRefPtr red(scene::plain(0));
    const ::osg::MaterialRefPtr blue(scene::plain(1));
    const ::osg::NodeRefPtr root(scene::group(
        {scene::strip(blue.get(), 0, 3), scene::moved({0, 7, 0}, {scene::strip(red.get(), 1, 2)}),
         scene::strip(blue.get(), 20, 5)}));
    const auto before = scene::worldTriangles(root.get());
    const ::osg::NodeRefPtr result(quietMerge(root.get(), scene::quiet()));
    EXPECT_EQ(materialsOf(result.get()), (std::vector<::osg::MaterialPtr>{red.get(), blue.get()}));
    EXPECT_EQ(scene::worldTriangles(result.get()), before);
    EXPECT_EQ(scene::worldTriangles(root.get()), before);
    EXPECT_EQ(result.get().getRefCount(), 1U);
    const scene::nodes list = morva_test::geometryNodes(result.get());
    EXPECT_EQ(list.size(), 2U);
}

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
        const ::osg::MaterialRefPtr red(scene::plain(0));
        const ::osg::NodeRefPtr root(
            scene::group({scene::strip(red.get(), 0), scene::strip(red.get(), 3),
                          scene::strip(scene::plain(1), 0), scene::strip(scene::plain(0.5F), 3)}));
        testing::internal::CaptureStdout();
        const ::osg::NodeRefPtr result(mergeGeo(root.get(), scene::cells(9), setup));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
    }
}

TEST(MergeGeo, CellsAreBoundedAndOnlyTwoFieldsOfTheTreeSetupCount) {
    std::mt19937 rng(5101);
    const ::osg::NodeRefPtr root(scene::group({}));
    for (int i = 0; i < 5; ++i)
        root->addChild(flat::nodeOf(split::randomSoup(rng, 60), "soup"));
    split::triangle_bag before;
    split::collect(root.get(), before);
    mergeGeo_setup setup = scene::quiet();
    setup.deleteunusedtc = false;
    std::string shapes[2];
    for (int i = 0; i < 2; ++i) {
        const morva::kd_build_setup kd =
            i == 0 ? scene::cells(50) : morva::kd_build_setup{50, 100, 1, 9, 9, 9, true};
        testing::internal::CaptureStdout();
        const ::osg::NodeRefPtr result(mergeGeo(root.get(), kd, setup));
        testing::internal::GetCapturedStdout();
        const scene::nodes list = morva_test::geometryNodes(result.get());
        EXPECT_GT(list.size(), 5U);
        for (const ::osg::NodePtr& node : list) {
            const ::osg::UInt32 count = scene::coreOf(node)->getLengths()->getValue(0) / 3;
            EXPECT_LE(count, 50U);
            shapes[i] += std::to_string(count) + " ";
        }
        split::triangle_bag after;
        split::collect(result.get(), after);
        EXPECT_EQ(after, before);
    }
    EXPECT_EQ(shapes[0], shapes[1]);
}

TEST(MergeGeo, LocalCoordinatesStayIfAsked) {
    const ::osg::NodeRefPtr root(
        scene::group({scene::moved({5, 0, 0}, {scene::strip(scene::plain(0), 0)})}));
    mergeGeo_setup setup = scene::quiet();
    setup.toworld = false;
    const ::osg::NodeRefPtr result(quietMerge(root.get(), setup));
    const ::osg::NodeRefPtr unmoved(scene::group({scene::strip(::osg::NullFC, 0)}));
    EXPECT_EQ(scene::worldTriangles(result.get()), scene::worldTriangles(unmoved.get()));
}

TEST(MergeGeo, TransparentNodesMoveToTheResultAndKeepTheirPlace) {
    const ::osg::NodePtr pane = scene::strip(::osg::NullFC, 0, 2);
    const ::osg::NodeRefPtr root(
        scene::group({scene::strip(scene::plain(0), 0),
                      scene::moved({5, 6, 7}, {scene::materialGroup(scene::glass(), {pane})})}));
    const ::osg::MaterialPtr glass =
        ::osg::MaterialGroupPtr::dcast(pane->getParent()->getCore())->getMaterial();
    const auto before = scene::worldTriangles(root.get());
    const ::osg::UInt32 positions = scene::coreOf(pane)->getPositions().getFieldContainerId();
    const ::osg::NodeRefPtr result(quietMerge(root.get(), scene::quiet()));

    EXPECT_EQ(scene::worldTriangles(result.get()), before);
    ASSERT_EQ(result->getNChildren(), 2U);
    EXPECT_EQ(result->getChild(1)->getChild(0), pane); // itself, with its vertices as they were
    EXPECT_EQ(scene::coreOf(pane)->getPositions().getFieldContainerId(), positions);
    EXPECT_EQ(scene::coreOf(pane)->getMaterial(), glass);
    EXPECT_EQ(root->getChild(1)->getChild(0)->getNChildren(), 0U);

    mergeGeo_setup merging = scene::quiet();
    merging.alphageometry = true;
    const ::osg::NodeRefPtr merged(quietMerge(result.get(), merging));
    EXPECT_EQ(scene::worldTriangles(merged.get()), before);
    EXPECT_EQ(pane->getParent(), result->getChild(1));
}

TEST(MergeGeo, HiddenNodesAreDroppedOrCarriedOver) {
    for (const bool keep : {false, true}) {
        SCOPED_TRACE(keep);
        const ::osg::NodePtr hidden = scene::strip(scene::plain(1), 0);
        const ::osg::NodePtr parent = scene::moved({0, 0, 9}, {hidden});
        parent->setTravMask(0);
        const ::osg::NodeRefPtr root(scene::group({scene::strip(scene::plain(0), 0), parent}));
        mergeGeo_setup setup = scene::quiet();
        setup.keeprenderfalse = keep;
        const ::osg::NodeRefPtr result(quietMerge(root.get(), setup));
        EXPECT_EQ(result->getNChildren(), keep ? 2U : 1U);
        EXPECT_EQ(parent->getNChildren(), keep ? 0U : 1U);
        if (keep) {
            EXPECT_EQ(result->getChild(1)->getChild(0), hidden);
            EXPECT_EQ(hidden->getToWorld()[3][2], 9.0F);
        }
    }
}

TEST(MergeGeo, SwitchesAndSkippedMaterialsStayOut) {
    const ::osg::NodePtr switched = morva_test::switched(0, {scene::strip(scene::plain(0), 0)});
    const ::osg::NodePtr skipped = scene::strip(::osg::SwitchMaterial::create(), 3);
    const ::osg::NodeRefPtr root(scene::group({switched, skipped}));
    const ::osg::NodeRefPtr result(quietMerge(root.get(), scene::quiet()));
    EXPECT_EQ(result->getNChildren(), 0U);
    EXPECT_EQ(skipped->getParent(), root.get());
    EXPECT_EQ(switched->getNChildren(), 1U);
}

TEST(MergeGeo, LinesComeOutNextToTriangles) {
    std::mt19937 rng(5102);
    const ::osg::GeometryPtr wires = flat::geometryOf({{3, 5}, {1, 4}}, flat::gridPoints(rng, 9));
    const ::osg::NodeRefPtr root(
        scene::group({flat::nodeOf(wires), scene::strip(::osg::NullFC, 0)}));
    for (int opt = 0; opt <= 3; ++opt) {
        mergeGeo_setup setup = scene::quiet();
        setup.opt = opt;
        const ::osg::NodeRefPtr result(quietMerge(root.get(), setup));
        const scene::nodes list = morva_test::geometryNodes(result.get());
        unsigned lines = 0, triangles = 0;
        for (const ::osg::NodePtr& node : list) {
            lines += morva::osg::getNumberOfLines(node);
            for (auto it = scene::coreOf(node)->beginTriangles(); !it.isAtEnd(); ++it)
                ++triangles;
        }
        EXPECT_EQ(lines, 6U) << opt;
        EXPECT_EQ(triangles, 1U) << opt;
    }
}

TEST(MergeGeo, RootsOfAllKinds) {
    const unsigned int live = split::liveContainers();
    {
        const ::osg::NodeRefPtr nothing(quietMerge(::osg::NullFC, scene::quiet()));
        EXPECT_EQ(nothing->getNChildren(), 0U);
        const ::osg::NodeRefPtr empty(scene::group({}));
        const ::osg::NodeRefPtr from_empty(quietMerge(empty.get(), scene::quiet()));
        EXPECT_TRUE(::osg::GroupPtr::dcast(from_empty->getCore()) != ::osg::NullFC);
        const ::osg::NodeRefPtr bare(::osg::Node::create());
        const ::osg::NodeRefPtr from_bare(quietMerge(bare.get(), scene::quiet()));
        EXPECT_EQ(from_bare->getNChildren(), 0U);

        // A geometry alone, opaque and transparent: a stand-in is merged or carried over.
        const ::osg::NodeRefPtr solid(scene::strip(scene::plain(0), 0, 2));
        const ::osg::NodeRefPtr from_solid(quietMerge(solid.get(), scene::quiet()));
        EXPECT_EQ(scene::worldTriangles(from_solid.get()), scene::worldTriangles(solid.get()));
        const ::osg::NodeRefPtr pane(scene::strip(scene::glass(), 0, 2));
        const ::osg::NodeRefPtr from_pane(quietMerge(pane.get(), scene::quiet()));
        EXPECT_EQ(scene::worldTriangles(from_pane.get()), scene::worldTriangles(pane.get()));
    }
    EXPECT_EQ(split::liveContainers(), live);
}

/// A merge result as text, but for the running numbers of names.
void describe(const ::osg::NodePtr& node, std::ostream& out) {
    const ::osg::GeometryPtr geometry = scene::coreOf(node);
    out << "(";
    if (geometry != ::osg::NullFC) {
        for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
            for (int k = 0; k < 3; ++k) {
                out << it.getPosition(k) << " " << it.getColor(k) << " " << it.getTexCoords7(k)
                    << ";";
            }
        }
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        describe(node->getChild(i), out);
    out << ")";
}

TEST(MergeGeo, TheSameInputGivesTheSameBytes) {
    std::string texts[3];
    for (std::string& text : texts) {
        // What is freed in between moves the addresses of the materials.
        std::vector<::osg::MaterialRefPtr> materials;
        for (int i = 0; i < 20; ++i)
            materials.emplace_back(scene::plain(0.05F * float(i)));
        const ::osg::NodeRefPtr root(scene::group({}));
        std::mt19937 rng(5103);
        for (std::size_t i = 0; i < 40; ++i) {
            const ::osg::GeometryPtr soup = split::randomSoup(rng, 10);
            soup->setMaterial(materials[i * 7 % 20].get());
            root->addChild(flat::nodeOf(soup, ("n" + std::to_string(i)).c_str()));
        }
        mergeGeo_setup setup = scene::quiet();
        setup.vertexcolor = 21;
        setup.idmap = "map";
        morva::osg::getIDmapHandler().reset();
        const ::osg::NodeRefPtr result(quietMerge(root.get(), setup, 30));
        std::ostringstream out;
        describe(result.get(), out);
        text = out.str();
    }
    morva::osg::getIDmapHandler().reset();
    EXPECT_GT(texts[0].size(), 1000U);
    EXPECT_EQ(texts[0], texts[1]);
    EXPECT_EQ(texts[0], texts[2]);
}

TEST(MergeGeo, IdsOfTheSourcesArriveAndTheLockIsFree) {
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    handler.reset();
    const ::osg::MaterialRefPtr red(scene::plain(0));
    const ::osg::NodeRefPtr root(
        scene::group({scene::strip(red.get(), 0, 2, "a"), scene::strip(red.get(), 5, 1, "b"),
                      scene::strip(red.get(), 9, 1, "a")}));
    mergeGeo_setup setup = scene::quiet();
    setup.idmap = "map";
    const ::osg::NodeRefPtr result(quietMerge(root.get(), setup));
    EXPECT_EQ(handler.releaseHeldLock(), 0U); // given back at the end of the group
    handler.registerGeometryUsage(result.get());
    EXPECT_EQ(handler.names, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(handler.usage.size(), 2U);
    EXPECT_EQ(handler.usage[0], handler.usage[1]);
    handler.reset();
}

} // namespace
