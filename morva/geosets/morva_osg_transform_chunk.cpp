#include <morva/geosets/morva_osg_geoset_tools.h>

#include <cmath>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGQuaternion.h>
#include <OpenSG/OSGTransformChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

namespace {

/// Appends a new transform chunk to a material.
::osg::TransformChunkPtr newChunkIn(const ::osg::ChunkMaterialPtr& material) {
    const ::osg::TransformChunkPtr chunk = ::osg::TransformChunk::create();
    ::osg::beginEditCP(material);
    material->addChunk(chunk, ::osg::State::AutoSlotReplace);
    ::osg::endEditCP(material);
    return chunk;
}

/// The last transform chunk of a geometry's material, or a new one. Null after a message if the
/// material has no chunks.
::osg::TransformChunkPtr chunkOf(const ::osg::GeometryPtr& geometry) {
    if (geometry->getMaterial() == ::osg::NullFC) {
        const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
        giveMaterial(geometry, material);
        return newChunkIn(material);
    }
    const ::osg::ChunkMaterialPtr material =
        ::osg::ChunkMaterialPtr::dcast(geometry->getMaterial());
    if (material == ::osg::NullFC) {
        say({"Geometry has a Non-Chunk Material. Can't add a Transformchunk."});
        return ::osg::NullFC;
    }
    ::osg::TransformChunkPtr last;
    for (::osg::UInt32 i = 0; i < material->getMFChunks()->size(); ++i) {
        const auto chunk = ::osg::TransformChunkPtr::dcast(material->getChunks(i));
        if (chunk != ::osg::NullFC)
            last = chunk;
    }
    return last != ::osg::NullFC ? last : newChunkIn(material);
}

/// By how much positions from `low` on are to move: whole numbers, to between 0 and 1. Between 0
/// and 1, and where that is no number, not at all.
float shiftFrom(float low) {
    if (!std::isfinite(low))
        return 0.0F;
    if (low > 1.0F)
        return -std::trunc(low);
    return low < 0.0F ? std::trunc(-low) + 1.0F : 0.0F;
}

::osg::Pnt3f lowestOf(span<const ::osg::Pnt3f> positions) {
    ::osg::Pnt3f low = positions[0];
    for (const ::osg::Pnt3f& p : positions) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis)
            low[axis] = p[axis] < low[axis] ? p[axis] : low[axis];
    }
    return low;
}

/// Takes the shift back in a chunk's matrix.
void moveBack(const ::osg::TransformChunkPtr& chunk, const ::osg::Pnt3f& low,
              const ::osg::Vec3f& shift) {
    ::osg::Matrix matrix = chunk->getMatrix();
    ::osg::Vec3f translation, scale;
    ::osg::Quaternion rotation, scale_orientation;
    matrix.getTransform(translation, rotation, scale, scale_orientation);
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        if (low[axis] != 0.0F)
            translation[axis] -= shift[axis];
        matrix[3][axis] = translation[axis];
    }
    ::osg::beginEditCP(chunk);
    chunk->setMatrix(matrix);
    ::osg::endEditCP(chunk);
}

} // namespace

void addTransformChunk(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC ||
        geometry->getPositions()->size() == 0)
        return;
    const ::osg::TransformChunkPtr chunk = chunkOf(geometry);
    if (chunk == ::osg::NullFC)
        return;

    const ::osg::GeoPositionsPtr positions = geometry->getPositions();
    const ::osg::Pnt3f low = [&] {
        const auto block = readBlock(positions);
        return lowestOf(block.view());
    }();
    const ::osg::Vec3f shift(shiftFrom(low[0]), shiftFrom(low[1]), shiftFrom(low[2]));
    if (shift[0] == 0.0F && shift[1] == 0.0F && shift[2] == 0.0F)
        return;
    moveBack(chunk, low, shift);

    const open_edit edit(geometry, ::osg::Geometry::PositionsFieldMask);
    const open_edit positions_edit(positions);
    for (::osg::UInt32 i = 0; i < positions->size(); ++i) {
        ::osg::Pnt3f p = positions->getValue(i);
        for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
            if (shift[axis] != 0.0F)
                p[axis] += shift[axis];
        }
        positions->setValue(p, i);
    }
    geometry->setPositions(positions);
}

} // namespace morva::osg
