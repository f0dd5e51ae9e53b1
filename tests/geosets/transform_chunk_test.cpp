// Large coordinates moved near the origin, the difference kept in a material's chunk.

#include "triangle_scenes.h"

#include <OpenSG/OSGTransformChunk.h>

namespace {

using namespace tri;
using morva::osg::addTransformChunk;

::osg::TransformChunkPtr chunkOf(const ::osg::GeometryPtr& geometry, ::osg::UInt32 index) {
    const auto material = ::osg::ChunkMaterialPtr::dcast(geometry->getMaterial());
    return ::osg::TransformChunkPtr::dcast(material->getChunks(index));
}

TEST(AddTransformChunk, ShiftsByWholeNumbersToBetweenZeroAndOne) {
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float low, shift;
    } cases[] = {{0.5F, 0.0F},  {3.7F, -3.0F}, {-2.2F, 3.0F},   {1.0F, 0.0F}, {0.0F, 0.0F},
                 {-1.0F, 2.0F}, {1.5F, -1.0F}, {3e12F, -3e12F}, {-inf, 0.0F}, {nan_value, 0.0F}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.low);
        const ::osg::GeometryRefPtr geometry(
            soup({{c.low, 0.5F, 0.5F}, {c.low, 2, 9}, {c.low, 7, 0.75F}}));
        addTransformChunk(geometry.get());
        const ::osg::Pnt3f moved = geometry->getPositions()->getValue(1);
        if (!std::isnan(c.low)) {
            EXPECT_EQ(moved[0], c.low + c.shift);
        }
        EXPECT_EQ(moved[1], 2.0F);
        EXPECT_EQ(moved[2], 9.0F);
        EXPECT_EQ(chunkOf(geometry.get(), 0)->getMatrix()[3][0], -c.shift);
    }
}

TEST(AddTransformChunk, UsesTheLastChunkAndKeepsItsRotation) {
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    const ::osg::TransformChunkPtr first = ::osg::TransformChunk::create();
    const ::osg::TransformChunkPtr last = ::osg::TransformChunk::create();
    last->setMatrix(::osg::Matrix(0, -1, 0, 10, 1, 0, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1));
    material->addChunk(first);
    material->addChunk(last);
    material->addChunk(::osg::MaterialChunk::create());
    const ::osg::GeometryRefPtr geometry(soup({{0.5F, 3.7F, -2.2F}, {4, 4, 4}, {5, 5, 5}}));
    geometry->setMaterial(material);
    addTransformChunk(geometry.get());
    EXPECT_EQ(material->getMFChunks()->size(), 3U);
    const ::osg::Matrix matrix = last->getMatrix();
    EXPECT_NEAR(matrix[3][0], 10.0F, 1e-4F);
    EXPECT_NEAR(matrix[3][1], 23.0F, 1e-4F);
    EXPECT_NEAR(matrix[3][2], 27.0F, 1e-4F);
    EXPECT_EQ(matrix[0][1], 1.0F);
    EXPECT_EQ(first->getMatrix()[3][1], 0.0F);
    EXPECT_EQ(geometry->getPositions()->getValue(1), ::osg::Pnt3f(4, 1, 7));
}

TEST(AddTransformChunk, AddsOneToAMaterialWithoutAndLeavesOthersAlone) {
    const ::osg::GeometryRefPtr geometry(soup({{0, 0, 0}})), other(soup({{50, 50, 50}}));
    const ::osg::GeometryRefPtr empty(::osg::Geometry::create());
    const ::osg::ChunkMaterialPtr material = bareMaterial();
    geometry->setMaterial(material);
    other->setMaterial(choiceOf(0, {}));
    const auto act = [&] {
        for (const ::osg::GeometryPtr& one : {geometry.get(), other.get(), empty.get()})
            addTransformChunk(one);
        addTransformChunk(::osg::NullFC);
    };
    EXPECT_EQ(toldBy(act), "Geometry has a Non-Chunk Material. Can't add a Transformchunk.\n");
    EXPECT_EQ(material->getMFChunks()->size(), 1U) << "a chunk comes even if nothing moves";
    EXPECT_EQ(other->getPositions()->getValue(0), ::osg::Pnt3f(50, 50, 50));
    EXPECT_TRUE(empty->getMaterial() == ::osg::NullFC);
}

} // namespace
