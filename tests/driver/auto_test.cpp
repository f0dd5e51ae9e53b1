// Roads without a parameter string.

#include "tests/merge/merge_scenes.h"

#include <morva/driver/morva_osg_auto.h>

namespace {

using ::osg::NodePtr;

TEST(Auto, TrianglesPerCoreRiseBetweenTheBounds) {
    const std::pair<unsigned, unsigned> rows[] = {
        {0, 10000},      {100000, 10000}, {100001, 11500},  {123456, 11851},
        {500000, 17500}, {999999, 24999}, {1000000, 25000}, {4294967295U, 25000}};
    for (const auto& [triangles, budget] : rows)
        EXPECT_EQ(morva::osg::calcTrisPerGeometrycore(triangles), budget) << triangles;
}

TEST(OptGeometry, CutsOneCoreAndKeepsIt) {
    const stream_capture out(std::cout);
    const node_ref nothing(morva::osg::optGeometry(::osg::NullFC, 10, 1));
    EXPECT_EQ(nothing->getNChildren(), 0U);
    const ::osg::MaterialRefPtr glass(chunked({1, 1, 1, 0.5F})), red(plain(1));
    const mesh_data mesh = quads(50);
    for (const ::osg::MaterialPtr& material : {glass.get(), red.get()}) {
        for (const bool held : {false, true}) {
            const ::osg::GeometryPtr core = geometryOf(mesh, material);
            if (held)
                ::osg::addRefCP(core);
            const node_ref parts(morva::osg::optGeometry(core, 25, 1));
            const node_ref source(nodeOf(core));
            if (held)
                ::osg::subRefCP(core);
            EXPECT_EQ(firstDifference(shapeOf(source.get()), shapeOf(parts.get())), "");
            for (const NodePtr& part : geometryNodes(parts.get()))
                EXPECT_EQ(shapeOf(part).size() <= 25, material == red);
        }
    }
}

} // namespace
