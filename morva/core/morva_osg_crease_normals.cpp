#include <morva/core/morva_osg_crease_normals.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

using ::osg::UInt32;

/// A triangle of an unindexed geometry.
struct face {
    UInt32 vertex[3];
    ::osg::Vec3f normal; ///< length 1, shorter for next to no area
    bool flat;           ///< no area at all
};

std::vector<face> facesOf(const ::osg::GeometryPtr& geometry, span<const ::osg::Pnt3f> positions) {
    constexpr vertex_property place[] = {vertex_property::position};
    std::vector<face> faces;
    forEachTriangle(geometry_columns(geometry, place), rest_rule::continued,
                    [&](std::size_t first, std::size_t second, std::size_t third) {
                        face f{{UInt32(first), UInt32(second), UInt32(third)}, {}, false};
                        const ::osg::Pnt3f& a = positions[first];
                        f.normal = (positions[second] - a).cross(positions[third] - a);
                        f.flat = f.normal[0] == 0.0F && f.normal[1] == 0.0F && f.normal[2] == 0.0F;
                        f.normal.normalize();
                        faces.push_back(f);
                    });
    return faces;
}

/// Faces by vertex: those at vertex v are `faces[first[v]]` up to `faces[first[v + 1]]`, in order.
struct vertex_faces {
    vertex_faces(const std::vector<face>& all, std::size_t vertices) : first(vertices + 1, 0) {
        for (const face& f : all) {
            for (const UInt32 v : f.vertex)
                ++first[v + 1];
        }
        for (std::size_t v = 0; v < vertices; ++v)
            first[v + 1] += first[v];
        faces.resize(first[vertices]);
        std::vector<UInt32> next(first.begin(), first.end() - 1);
        for (UInt32 f = 0; f < all.size(); ++f) {
            for (const UInt32 v : all[f].vertex)
                faces[next[v]++] = f;
        }
    }

    std::vector<UInt32> first;
    std::vector<UInt32> faces;
};

/// Every corner gets the normal of its own face.
void flatNormals(const std::vector<face>& faces, span<::osg::Vec3f> normals) {
    ::osg::Vec3f last;
    for (const face& f : faces) {
        if (!f.flat)
            last = f.normal;
        for (const UInt32 v : f.vertex)
            normals[v] = last;
    }
}

/// Every corner gets the mean over the faces at its vertex that make an angle below the crease
/// with its own; a later face at a vertex replaces what an earlier one gave.
void smoothNormals(const std::vector<face>& faces, float angle_rad, span<::osg::Vec3f> normals) {
    const vertex_faces around(faces, normals.size());
    const float cosine = std::cos(angle_rad);
    ::osg::Vec3f last;
    for (UInt32 own = 0; own < faces.size(); ++own) {
        for (const UInt32 v : faces[own].vertex) {
            if (!faces[own].flat) {
                ::osg::Vec3f sum;
                for (UInt32 i = around.first[v]; i < around.first[v + 1]; ++i) {
                    const UInt32 other = around.faces[i];
                    if (other == own || faces[own].normal.dot(faces[other].normal) > cosine)
                        sum += faces[other].normal;
                }
                sum.normalize();
                last = sum;
            }
            normals[v] = last;
        }
    }
}

bool hasOnlyLoneTriangles(const ::osg::GeometryPtr& geometry) {
    const auto types = readBlock(geometry->getTypes());
    return std::all_of(types.begin(), types.end(), [](UInt32 type) { return type == 4; });
}

void unindexedNormals(const ::osg::GeometryPtr& geometry, float angle_rad) {
    const property_block<::osg::Pnt3f> positions = readBlock(geometry->getPositions());
    const std::vector<face> faces = facesOf(geometry, positions.view());
    const ::osg::RefPtr<::osg::GeoNormals3fPtr> property(::osg::GeoNormals3f::create());
    property->editField().resize(positions.size());
    if (hasOnlyLoneTriangles(geometry)) {
        flatNormals(faces, editSpan(property.get()));
    } else {
        smoothNormals(faces, angle_rad, editSpan(property.get()));
    }
    geometry->setNormals(property.get());
}

/// Bits of all properties but the normals, if one index serves them all; 0 otherwise.
::osg::UInt16 bitsOfTheCommonIndex(const ::osg::GeometryPtr& geometry) {
    unsigned int bits = 0;
    if (!geometry->getMFIndexMapping()->empty())
        return 0;
    for (unsigned int bit = 1; bit < ::osg::Geometry::MapEmpty; bit *= 2) {
        if (geometry->getProperty(static_cast<::osg::UInt16>(bit)) != nullptr)
            bits |= bit;
    }
    return static_cast<::osg::UInt16>(bits &
                                      ~static_cast<unsigned int>(::osg::Geometry::MapNormal));
}

void indexedNormals(const ::osg::GeometryPtr& geometry, float angle_rad) {
    const ::osg::UInt16 bits = bitsOfTheCommonIndex(geometry);
    ::osg::calcVertexNormals(geometry, angle_rad);
    // Some releases forget the secondary colours and the coordinate sets from 1 on here.
    auto& mapping = *geometry->editMFIndexMapping();
    if (bits != 0 && mapping.size() == 2)
        mapping[0] = bits;
}

} // namespace

void calcCreaseNormals(const ::osg::GeometryPtr& geometry, float angle_rad) {
    if (geometry == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return;
    const bool smooth_all = angle_rad >= static_cast<float>(::osg::Pi);
    if (geometry->getIndices() == ::osg::NullFC && !smooth_all) {
        unindexedNormals(geometry, angle_rad);
    } else {
        indexedNormals(geometry, angle_rad);
    }
}

} // namespace morva::osg
