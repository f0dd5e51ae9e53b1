// Large coordinates moved near the origin, the difference kept in a material's chunk.

#include "tests/support/triangle_scenes.h"

#include <OpenSG/OSGTransformChunk.h>

namespace {

using namespace tri;
using morva::osg::addTransformChunk;

TEST(AddTransformChunk, ShiftsByWholeNumbersToBetweenZeroAndOne) {
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, float> cases[] = {
        {0.5F, 0.0F},  {3.7F, -3.0F}, {-2.2F, 3.0F},   {1.0F, 0.0F}, {0.0F, 0.0F},
        {-1.0F, 2.0F}, {1.5F, -1.0F}, {3e12F, -3e12F}, {-inf, 0.0F}, {nan_value, 0.0F}};
    for (const auto& [low, shift] : cases) {
        SCOPED_TRACE(low);
        const ::osg::GeometryRefPtr geometry(
            geometryOf(soup({{low, 0.5F, 0.5F}, {low, 2, 9}, {low, 7, 0.75F}})));
        addTransformChunk(geometry.get());
        const ::osg::Pnt3f moved = geometry->getPositions()->getValue(1);
        EXPECT_TRUE(same({moved[0], moved[1], moved[2]}, {low + shift, 2, 9}));
        const auto made = ::osg::ChunkMaterialPtr::dcast(geometry->getMaterial());
        EXPECT_EQ(::osg::TransformChunkPtr::dcast(made->getChunks(0))->getMatrix()[3][0], -shift);
    }
}

TEST(AddTransformChunk, UsesTheLastChunkOrAddsOneAndLeavesOtherMaterialsAlone) {
    const ::osg::ChunkMaterialPtr material = bareMaterial(), bare = bareMaterial();
    const auto first = ::osg::TransformChunk::create(), last = ::osg::TransformChunk::create();
    last->setMatrix(::osg::Matrix(0, -1, 0, 10, 1, 0, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1));
    material->addChunk(first);
    material->addChunk(last);
    material->addChunk(::osg::MaterialChunk::create());
    const ::osg::GeometryRefPtr geometry(
        geometryOf(soup({{0.5F, 3.7F, -2.2F}, {4, 4, 4}, {5, 5, 5}}))),
        near(geometryOf(soup({{0, 0, 0}}))), other(geometryOf(soup({{50, 50, 50}}))),
        empty(::osg::Geometry::create());
    geometry->setMaterial(material);
    near->setMaterial(bare);
    other->setMaterial(choiceOf(0, {}));
    const auto act = [&] {
        for (const auto& one : {geometry, near, other, empty})
            addTransformChunk(one.get());
        addTransformChunk(::osg::NullFC);
    };
    EXPECT_EQ(toldBy(act), "Geometry has a Non-Chunk Material. Can't add a Transformchunk.\n");
    EXPECT_EQ(material->getMFChunks()->size(), 3U);
    EXPECT_LT((::osg::Vec3f(last->getMatrix()[3].getValues()) - ::osg::Vec3f(10, 23, 27)).length(),
              1e-4F);
    EXPECT_EQ(last->getMatrix()[0][1], 1.0F) << "its rotation stays";
    EXPECT_EQ(first->getMatrix()[3][1], 0.0F);
    EXPECT_EQ(geometry->getPositions()->getValue(1), ::osg::Pnt3f(4, 1, 7));
    EXPECT_EQ(bare->getMFChunks()->size(), 1U) << "a chunk comes even if nothing moves";
    EXPECT_EQ(other->getPositions()->getValue(0), ::osg::Pnt3f(50, 50, 50));
    EXPECT_TRUE(empty->getMaterial() == ::osg::NullFC);
}

} // namespace
