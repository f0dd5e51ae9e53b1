#include "assimp_import.h"

#include <cmath>
#include <vector>

#include <OpenSG/OSGGL.h>

#include "core_layout.h"
#include "host_error.h"

namespace morva::host {

namespace {

using ::osg::UInt32;

::osg::GeoTexCoordsPtr importCoordinates(const aiVector3D* coordinates, unsigned count) {
    std::vector<::osg::Vec2f> plain(count);
    for (unsigned i = 0; i < count; ++i)
        plain[i] = ::osg::Vec2f(coordinates[i].x, coordinates[i].y);
    return filled<::osg::GeoTexCoords2f>(plain.data(), count, sizeof(::osg::Vec2f));
}

coordinate_channels importChannels(const aiMesh& mesh) {
    coordinate_channels channels;
    for (unsigned i = 0; i < channels.size(); ++i) {
        if (mesh.mTextureCoords[i] != nullptr)
            channels[i] = importCoordinates(mesh.mTextureCoords[i], mesh.mNumVertices);
    }
    return channels;
}

void setPrimitives(const ::osg::GeometryPtr& geometry, const face_lists& lists, bool narrow) {
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    std::vector<UInt32> indices;
    indices.reserve(lists.size());
    const auto add = [&](UInt32 type, std::size_t length) {
        types->addValue(type);
        lengths->addValue(static_cast<UInt32>(length));
    };
    beginEditCP(types);
    beginEditCP(lengths);
    const auto addList = [&](UInt32 type, const std::vector<UInt32>& list) {
        if (list.empty())
            return;
        add(type, list.size());
        indices.insert(indices.end(), list.begin(), list.end());
    };
    addList(GL_TRIANGLES, lists.triangles);
    addList(GL_LINES, lists.lines);
    addList(GL_POINTS, lists.points);
    for (const UInt32 length : lists.polygon_lengths)
        add(GL_POLYGON, length);
    indices.insert(indices.end(), lists.polygons.begin(), lists.polygons.end());
    endEditCP(types);
    endEditCP(lengths);
    geometry->setTypes(types);
    geometry->setLengths(lengths);

    if (narrow) {
        const std::vector<::osg::UInt16> shorts(indices.begin(), indices.end());
        geometry->setIndices(
            filled<::osg::GeoIndicesUI16>(shorts.data(), shorts.size(), sizeof(::osg::UInt16)));
    } else {
        geometry->setIndices(
            filled<::osg::GeoIndicesUI32>(indices.data(), indices.size(), sizeof(UInt32)));
    }
}

std::size_t countNotFinite(const aiVector3D* points, unsigned count) {
    std::size_t bad = 0;
    for (unsigned i = 0; i < count; ++i)
        bad +=
            std::isfinite(points[i].x) && std::isfinite(points[i].y) && std::isfinite(points[i].z)
                ? 0
                : 1;
    return bad;
}

} // namespace

::osg::GeometryPtr importMesh(const handed_mesh& source, unsigned coordinate_set, model& target) {
    const aiMesh& mesh = source.mesh;
    const face_lists& faces = source.faces;
    static_assert(sizeof(aiVector3D) == sizeof(::osg::Pnt3f) &&
                      sizeof(aiColor4D) == sizeof(::osg::Color4f),
                  "positions and colours are copied as blocks");
    if (faces.size() == 0)
        return ::osg::NullFC;
    if (mesh.mVertices == nullptr)
        throw host_error("the file is damaged: mesh '" + std::string(mesh.mName.C_Str()) +
                         "' has no vertices");
    checkIndex(mesh, faces.highest());

    const std::size_t bad = countNotFinite(mesh.mVertices, mesh.mNumVertices);
    if (bad != 0)
        target.notes.push_back("mesh '" + std::string(mesh.mName.C_Str()) + "' has " +
                               std::to_string(bad) +
                               " positions that are not finite; the optimiser drops the "
                               "triangles that use them");

    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    beginEditCP(geometry);
    geometry->setPositions(
        filled<::osg::GeoPositions3f>(mesh.mVertices, mesh.mNumVertices, sizeof(aiVector3D)));
    if (mesh.mNormals != nullptr)
        geometry->setNormals(
            filled<::osg::GeoNormals3f>(mesh.mNormals, mesh.mNumVertices, sizeof(aiVector3D)));
    if (mesh.mColors[0] != nullptr)
        geometry->setColors(colorsOf(&mesh.mColors[0]->r, mesh.mNumVertices));
    setCoordinates(geometry, importChannels(mesh), coordinate_set);
    setPrimitives(geometry, faces, hasNarrowIndices(mesh.mNumVertices));
    endEditCP(geometry);
    return geometry;
}

} // namespace morva::host
