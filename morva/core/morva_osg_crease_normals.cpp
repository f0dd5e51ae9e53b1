#include <morva/core/morva_osg_crease_normals.h>

#include <vector>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

void flatNormals(const ::osg::GeometryPtr& geometry) {
    const property_block<::osg::Pnt3f> positions = readBlock(geometry->getPositions());
    const ::osg::GeoNormals3fPtr property = ::osg::GeoNormals3f::create();
    property->editField().resize(positions.size());
    const span<::osg::Vec3f> normals = editSpan(property);

    ::osg::Vec3f normal;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        ::osg::UInt32 corner[3];
        for (int k = 0; k < 3; ++k)
            corner[k] = static_cast<::osg::UInt32>(it.getPositionIndex(k));
        const ::osg::Pnt3f& a = positions[corner[0]];
        ::osg::Vec3f across = (positions[corner[1]] - a).cross(positions[corner[2]] - a);
        if (across[0] != 0.0F || across[1] != 0.0F || across[2] != 0.0F) {
            across.normalize();
            normal = across;
        }
        for (const ::osg::UInt32 vertex : corner)
            normals[vertex] = normal;
    }
    geometry->setNormals(property);
}

} // namespace

void calcCreaseNormals(const ::osg::GeometryPtr& geometry, float angle_rad) {
    if (geometry == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return;
    if (geometry->getIndices() == ::osg::NullFC) {
        flatNormals(geometry);
    } else {
        ::osg::calcVertexNormals(geometry, angle_rad);
    }
}

} // namespace morva::osg
