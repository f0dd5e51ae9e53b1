
#include "tests/support/merge_scenes.h"

namespace {

using morva::osg::mergeGeo;

TEST(MergeGeo, PrintsAsToldByTheFlags) {
    const std::string title = "Merging Geometry with 4 GeometryCore(s)...\n";
    const std::string merged = "Found 3 different Materials.\n\rDone merging.        \n";
    const std::string cached = title + merged + "Run Cacheopt...(3) Nodes.\n";
    const std::string progress = "\r0% \r33.33% \r66.67% ";
    for (const auto& [silent, cacheopt, numthreads, expected] :
         {std::tuple{true, false, 1, merged},
          std::tuple{false, false, 1, title + merged + "done.\n"},
          std::tuple{true, true, 1, cached + progress},
          std::tuple{false, true, 2, cached + "done.\n"}}) {
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

TEST(MergeGeo, RootsThatAreNoGroups) {
    for (const node_ref& root : {node_ref(), node_ref(::osg::Node::create())})
        EXPECT_EQ(node_ref(mergeGeo(root.get(), cells(9), quiet()))->getNChildren(), 0U);
    // What a geometry inherits is asked of itself, not of the one that stands in for it.
    const material_ref textured(chunked({0, 0, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2)));
    mesh_data mesh = quads(2);
    mesh.coordinates.assign(mesh.positions.size(), {0.5F, 0.25F});
    const node_ref above(materialGroup(textured.get(), {meshNode(mesh), hidden(meshNode(mesh))}));
    const stream_capture out(std::cout);
    for (const auto& [child, keeps] : {std::pair(0U, false), {1U, false}, {1U, true}}) {
        mergeGeo_setup setup = quiet();
        setup.keeprenderfalse = keeps;
        const node_ref result(mergeGeo(above->getChild(child), cells(9), setup));
        const node_list nodes = geometryNodes(result.get());
        ASSERT_EQ(nodes.size(), child == 0 || keeps ? 1U : 0U);
        for (const ::osg::NodePtr& node : nodes) {
            EXPECT_NE(coreOf(node)->getTexCoords(), ::osg::NullFC);
            EXPECT_EQ(coreOf(node)->getMaterial(), textured.get());
        }
    }
}

TEST(MergeGeo, MovesCoordinatesOnlyWhereTheImageShowsTheSame) {
    const ::osg::UInt32 repeating = 0x2901, wraps[] = {repeating, 0x8370, 0x2900, 0x812D, 0x812F};
    for (std::size_t pair = 0; pair < 25; ++pair) {
        const ::osg::UInt32 wrap[] = {wraps[pair / 5], wraps[pair % 5]};
        const auto look = chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 4, 4));
        const auto texture = ::osg::TextureChunkPtr::dcast(look->getChunks(1));
        texture->setWrapS(wrap[0]);
        texture->setWrapT(wrap[1]);
        mesh_data mesh = rowOfTriangles(1, 0);
        mesh.coordinates.assign(3, {5.25F, -6.25F});
        const node_ref root(group({meshNode(mesh, look)}));
        const stream_capture out(std::cout);
        const node_ref result(mergeGeo(root.get(), cells(1000), quiet()));
        EXPECT_EQ(coreOf(geometryNodes(result.get()).at(0))->getTexCoords()->getValue(0),
                  ::osg::Vec2f(wrap[0] == repeating ? 0.25F : 5.25F,
                               wrap[1] == repeating ? 0.75F : -6.25F))
            << std::hex << wrap[0] << ", " << wrap[1];
    }
}

} // namespace
