#include <morva/core/morva_osg_corner_table.h>

#include <algorithm>

#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_property_index.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// Whether the corners are simply the vertices in running order: unindexed triangles, none
/// incomplete and none beyond the data.
bool isSoup(const ::osg::GeometryPtr& geometry, std::size_t& corners) {
    if (geometry->getIndices() != ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return false;
    const auto types = readBlock(geometry->getTypes());
    const auto lengths = readBlock(geometry->getLengths());
    if (types.size() != lengths.size())
        return false;
    corners = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] != 4 || lengths[i] % 3 != 0)
            return false;
        corners += lengths[i];
    }
    return corners <= geometry->getPositions()->size();
}

std::size_t countCorners(const ::osg::GeometryPtr& geometry) {
    std::size_t corners = 0;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it)
        corners += 3;
    return corners;
}

template <typename Property, typename Value>
::osg::RefPtr<typename Property::PtrType> propertyOf(const std::vector<Value>& values) {
    const ::osg::RefPtr<typename Property::PtrType> property(Property::create());
    property->editField().resize(values.size());
    std::copy(values.begin(), values.end(), editSpan(property.get()).begin());
    return property;
}

} // namespace

five_columns::five_columns(const ::osg::GeometryPtr& geometry)
    : present{geometry->getPositions() != ::osg::NullFC, geometry->getNormals() != ::osg::NullFC,
              geometry->getColors() != ::osg::NullFC, geometry->getTexCoords() != ::osg::NullFC,
              geometry->getTexCoords7() != ::osg::NullFC} {
    for (std::size_t i = 0; i < 5; ++i) {
        column[i] = width;
        width += present[i] ? 1 : 0;
    }
}

five_blocks::five_blocks(const ::osg::GeometryPtr& geometry)
    : positions(readBlock(geometry->getPositions())), normals(readBlock(geometry->getNormals())),
      colors(readBlock(geometry->getColors())), texcoords(readBlock(geometry->getTexCoords())),
      texcoords7(readBlock(geometry->getTexCoords7())) {}

corner_table tableOf(const ::osg::GeometryPtr& geometry, const five_columns& columns) {
    corner_table table;
    table.width = columns.width;
    table.running = isSoup(geometry, table.corners);
    if (!table.running)
        table.corners = countCorners(geometry);
    return table;
}

void readRows(const ::osg::GeometryPtr& geometry, const five_columns& columns,
              const corner_table& table) {
    constexpr ::osg::Int32 none = -1;
    const bool indexed[5] = {hasIndex(geometry, ::osg::Geometry::MapPosition),
                             hasIndex(geometry, ::osg::Geometry::MapNormal),
                             hasIndex(geometry, ::osg::Geometry::MapColor),
                             hasIndex(geometry, ::osg::Geometry::MapTexCoords),
                             hasIndex(geometry, ::osg::Geometry::MapTexCoords7)};
    UInt32* to = table.cells.data();
    const bool* present = columns.present;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        for (int corner = 0; corner < 3; ++corner) {
            if (present[0])
                *to++ = static_cast<UInt32>(indexed[0] ? it.getPositionIndex(corner) : none);
            if (present[1])
                *to++ = static_cast<UInt32>(indexed[1] ? it.getNormalIndex(corner) : none);
            if (present[2])
                *to++ = static_cast<UInt32>(indexed[2] ? it.getColorIndex(corner) : none);
            if (present[3])
                *to++ = static_cast<UInt32>(indexed[3] ? it.getTexCoordsIndex(corner) : none);
            if (present[4])
                *to++ = static_cast<UInt32>(indexed[4] ? it.getTexCoordsIndex7(corner) : none);
        }
    }
}

void replaceAll(const ::osg::GeometryPtr& geometry, const five_columns& columns,
                const five_results& results, const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr>& indices,
                const std::vector<::osg::UInt16>& mapping, std::size_t corners) {
    const auto positions = propertyOf<::osg::GeoPositions3f>(results.positions);
    const auto normals = propertyOf<::osg::GeoNormals3f>(results.normals);
    const auto colors = propertyOf<::osg::GeoColors3f>(results.colors);
    const auto texcoords = propertyOf<::osg::GeoTexCoords2f>(results.texcoords);
    const auto texcoords7 = propertyOf<::osg::GeoTexCoords2f>(results.texcoords7);
    const ::osg::RefPtr<::osg::GeoPTypesUI8Ptr> types(::osg::GeoPTypesUI8::create());
    types->addValue(4);
    const ::osg::RefPtr<::osg::GeoPLengthsUI32Ptr> lengths(::osg::GeoPLengthsUI32::create());
    lengths->addValue(static_cast<UInt32>(corners));
    const geometry_edit edit(geometry);
    geometry->editMFIndexMapping()->reserve(mapping.size());

    geometry->editMFIndexMapping()->clear();
    for (const ::osg::UInt16 bits : mapping)
        geometry->editMFIndexMapping()->push_back(bits);
    if (columns.present[0])
        geometry->setPositions(positions.get());
    if (columns.present[1])
        geometry->setNormals(normals.get());
    if (columns.present[2])
        geometry->setColors(colors.get());
    if (columns.present[3])
        geometry->setTexCoords(texcoords.get());
    if (columns.present[4])
        geometry->setTexCoords7(texcoords7.get());
    geometry->setIndices(indices.get());
    geometry->setTypes(types.get());
    geometry->setLengths(lengths.get());
}

} // namespace morva::osg
