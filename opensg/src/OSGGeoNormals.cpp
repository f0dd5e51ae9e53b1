#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGTriangleIterator.h"

#include <algorithm>
#include <array>

OSG_BEGIN_NAMESPACE

namespace {

/// A triangle as the normals need it. `place` is where each corner's vertex stands among all
/// vertices of the geometry.
struct face {
    UInt32 position[3];
    UInt32 place[3];
    Vec3f normal; ///< length 1; shorter if the face has next to no area
    bool flat;    ///< no area at all, or two corners at one position index
};

std::vector<face> facesOf(const GeometryPtr& geometry) {
    std::vector<face> faces;
    const GeoPositionsPtr positions = geometry->getPositions();
    const UInt32 count = positions->getSize();
    const bool indexed = geometry->getIndices() != NullFC;
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    for (TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        face f;
        bool inside = true;
        Pnt3f corner[3];
        for (Int32 k = 0; k < 3; ++k) {
            const Int32 index = it.getPositionIndex(k);
            inside = inside && index >= 0 && static_cast<UInt32>(index) < count;
            if (!inside)
                break;
            f.position[k] = static_cast<UInt32>(index);
            f.place[k] =
                indexed ? static_cast<UInt32>(it.getIndexIndex(k)) / stride : f.position[k];
            corner[k] = positions->getValue(f.position[k]);
        }
        if (!inside)
            continue;
        f.normal = (corner[1] - corner[0]).cross(corner[2] - corner[0]);
        f.flat = f.position[0] == f.position[1] || f.position[0] == f.position[2] ||
                 (f.normal[0] == 0.f && f.normal[1] == 0.f && f.normal[2] == 0.f);
        f.normal.normalize();
        faces.push_back(f);
    }
    return faces;
}

GeoNormalsPtr normalsOf(const GeometryPtr& geometry) {
    if (geometry->getNormals() == NullFC)
        geometry->setNormals(GeoNormals3f::create());
    return geometry->getNormals();
}

void writeNormals(const GeoNormalsPtr& property, const std::vector<Vec3f>& values) {
    const GeoNormals3fPtr plain = GeoNormals3fPtr::dcast(property);
    if (plain != NullFC) {
        plain->editField().setValues(values);
        return;
    }
    property->resize(values.size());
    for (UInt32 i = 0; i < values.size(); ++i)
        property->setValue(values[i], i);
}

/// Takes the normals out of every mapping entry.
void unmapNormals(MFUInt16& mapping) {
    for (UInt16& entry : mapping)
        entry = static_cast<UInt16>(entry & ~Geometry::MapNormal);
}

/// For each position the faces that use it, in ascending order: faces of position p stand at
/// [first[p], first[p + 1]).
struct incidence {
    std::vector<UInt32> first;
    std::vector<UInt32> faces;
};

incidence facesByPosition(const std::vector<face>& faces, UInt32 positions) {
    incidence table;
    table.first.assign(std::size_t(positions) + 1, 0);
    for (const face& f : faces) {
        for (const UInt32 p : f.position)
            ++table.first[p + 1];
    }
    for (UInt32 p = 0; p < positions; ++p)
        table.first[p + 1] += table.first[p];
    table.faces.resize(table.first[positions]);
    std::vector<UInt32> next(table.first.begin(), table.first.end() - 1);
    for (UInt32 f = 0; f < faces.size(); ++f) {
        for (const UInt32 p : faces[f].position)
            table.faces[next[p]++] = f;
    }
    return table;
}

/// Numbers the normals in order of first need; corners of one position with the same faces share.
class crease_normals {
  public:
    crease_normals(const std::vector<face>& all, UInt32 positions, Real32 crease)
        : faces(all), around(facesByPosition(all, positions)), cosine(std::cos(crease)),
          shared_at(positions) {}

    std::vector<Vec3f> values;

    UInt32 ofCorner(UInt32 f, UInt32 k) {
        const UInt32 p = faces[f].position[k];
        std::vector<UInt32> group;
        Vec3f sum;
        for (UInt32 i = around.first[p]; i < around.first[p + 1]; ++i) {
            const UInt32 other = around.faces[i];
            if (!group.empty() && group.back() == other)
                continue; // twice at one position
            if (other != f && !(faces[f].normal.dot(faces[other].normal) > cosine))
                continue;
            group.push_back(other);
            sum += faces[other].normal;
        }
        for (const auto& known : shared_at[p]) {
            if (known.first == group)
                return known.second;
        }
        sum.normalize();
        values.push_back(sum);
        const UInt32 number = static_cast<UInt32>(values.size() - 1);
        shared_at[p].emplace_back(std::move(group), number);
        return number;
    }
    /// A face without area repeats the last normal.
    UInt32 ofFlatFace() {
        values.push_back(values.empty() ? Vec3f() : values.back());
        return static_cast<UInt32>(values.size() - 1);
    }

  private:
    const std::vector<face>& faces;
    incidence around;
    Real32 cosine;
    std::vector<std::vector<std::pair<std::vector<UInt32>, UInt32>>> shared_at;
};

/// Without indices no two faces meet: every corner has its face's normal.
void setUnindexedNormals(const GeometryPtr& geometry) {
    std::vector<Vec3f> values(geometry->getPositions()->getSize());
    Vec3f last;
    for (const face& f : facesOf(geometry)) {
        if (!f.flat)
            last = f.normal;
        for (const UInt32 p : f.position)
            values[p] = last;
    }
    writeNormals(normalsOf(geometry), values);
}

/// All properties that a single index serves.
UInt16 bitsOfAllProperties(const GeometryPtr& geometry) {
    UInt16 bits = 0;
    for (UInt32 i = 0; i < 12; ++i) {
        const UInt16 bit = static_cast<UInt16>(1u << i);
        if (geometry->getProperty(bit) != nullptr)
            bits = static_cast<UInt16>(bits | bit);
    }
    return bits;
}

/// Makes room for an index of the normals alone, and returns its place among a vertex's indices.
UInt32 widenForNormals(const GeometryPtr& geometry) {
    MFUInt16& mapping = *geometry->editMFIndexMapping();
    for (UInt32 i = 0; i < mapping.getSize(); ++i) {
        if (mapping[i] == Geometry::MapNormal)
            return i;
    }
    if (mapping.empty())
        mapping.push_back(bitsOfAllProperties(geometry));
    const UInt32 old_stride = mapping.getSize();
    unmapNormals(mapping);
    mapping.push_back(Geometry::MapNormal);

    const GeoIndicesPtr old = geometry->getIndices();
    const GeoNumbers numbers = GeoNumbers::of(old);
    const GeoIndicesUI32Ptr widened = GeoIndicesUI32::create();
    const UInt32 vertices = old->getSize() / old_stride;
    std::vector<UInt32>& values = widened->editField().getValues();
    values.resize(std::size_t(vertices) * (old_stride + 1));
    for (UInt32 v = 0; v < vertices; ++v) {
        for (UInt32 i = 0; i < old_stride; ++i) {
            values[v * (old_stride + 1) + i] = numbers[v * old_stride + i];
        }
    }
    geometry->setIndices(widened);
    return old_stride;
}

} // namespace

void calcVertexNormals(GeometryPtr geometry) {
    if (geometry == NullFC || geometry->getPositions() == NullFC)
        return;
    std::vector<Vec3f> sums(geometry->getPositions()->getSize());
    for (const face& f : facesOf(geometry)) {
        for (const UInt32 p : f.position)
            sums[p] += f.normal;
    }
    for (Vec3f& sum : sums)
        sum.normalize();
    writeNormals(normalsOf(geometry), sums);

    MFUInt16& mapping = *geometry->editMFIndexMapping();
    unmapNormals(mapping);
    for (UInt16& entry : mapping) {
        if ((entry & Geometry::MapPosition) != 0) {
            entry = static_cast<UInt16>(entry | Geometry::MapNormal);
        }
    }
}

void calcVertexNormals(GeometryPtr geometry, Real32 creaseAngle) {
    if (creaseAngle >= static_cast<Real32>(Pi))
        return calcVertexNormals(geometry);
    if (geometry == NullFC || geometry->getPositions() == NullFC)
        return;
    if (geometry->getIndices() == NullFC)
        return setUnindexedNormals(geometry);

    const GeoNormalsPtr normals = normalsOf(geometry);
    const UInt32 slot = widenForNormals(geometry);
    const UInt32 stride = geometry->getMFIndexMapping()->getSize();
    const GeoIndicesPtr indices = geometry->getIndices();
    const std::vector<face> faces = facesOf(geometry);
    crease_normals numbered(faces, geometry->getPositions()->getSize(), creaseAngle);
    for (UInt32 f = 0; f < faces.size(); ++f) {
        const UInt32 of_face = faces[f].flat ? numbered.ofFlatFace() : 0;
        for (UInt32 k = 0; k < 3; ++k) {
            const UInt32 number = faces[f].flat ? of_face : numbered.ofCorner(f, k);
            indices->setValue(number, faces[f].place[k] * stride + slot);
        }
    }
    writeNormals(normals, numbered.values);
}

OSG_END_NAMESPACE
