#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGTriangleIterator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

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

/// The normals to write to: 3f if there are none; a copy if other geometries have them too.
GeoNormalsPtr ownNormals(const GeometryPtr& geometry, std::size_t count) {
    const GeoNormalsPtr normals = geometry->getNormals();
    if (normals == NullFC)
        filledIn(GeoNormals3f::create(), [&](const GeoNormals3fPtr& made) {
            made->resize(count); // before indices lead there
            geometry->setNormals(made);
        });
    else if (normals->getParents().size() > 1)
        geometry->setNormals(normals->clone());
    return geometry->getNormals();
}

void writeNormals(const GeometryPtr& geometry, const std::vector<Vec3f>& values) {
    const GeoNormalsPtr normals = ownNormals(geometry, values.size());
    const GeoNormals3fPtr plain = GeoNormals3fPtr::dcast(normals);
    if (plain != NullFC) {
        plain->editField().setValues(values);
        return;
    }
    normals->resize(values.size());
    for (UInt32 i = 0; i < values.size(); ++i)
        normals->setValue(values[i], i);
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

/// Numbers the normals in order of first need. Corners of one position with the same faces share.
///
/// Which faces a corner averages over is kept as a signature: a bit per face at the position, or
/// from 65 faces on a hash, which a second look at the faces then confirms.
class crease_normals {
  public:
    crease_normals(const std::vector<face>& all, UInt32 positions, Real32 crease)
        : faces(all), around(facesByPosition(all, positions)), cosine(std::cos(crease)),
          newest_at(positions, None) {}

    std::vector<Vec3f> values;

    UInt32 ofCorner(UInt32 f, UInt32 k) {
        const UInt32 p = faces[f].position[k];
        const bool many = around.first[p + 1] - around.first[p] > 64;
        // Equal normals average over the same faces, unless a face has nothing but itself.
        const bool typical = many && isMember(f, faces[f].normal, None);
        const corner_key key{p, bitsOf(faces[f].normal)};
        if (typical) {
            const auto found = number_of.find(key);
            if (found != number_of.end())
                return found->second;
        }
        const UInt32 number = find(f, p, many);
        if (typical)
            number_of.emplace(key, number);
        return number;
    }
    /// A face without area repeats the last normal.
    UInt32 ofFlatFace() { return enter(values.empty() ? Vec3f() : values.back(), None, 0); }

  private:
    enum : UInt32 { None = 0xFFFFFFFFu };
    typedef std::pair<UInt32, std::array<UInt32, 3>> corner_key;

    static std::array<UInt32, 3> bitsOf(const Vec3f& normal) {
        std::array<UInt32, 3> bits;
        std::memcpy(bits.data(), normal.getValues(), sizeof(bits));
        return bits;
    }
    /// Whether a corner of face `own`, whose normal is `normal`, averages over `other`.
    bool isMember(UInt32 other, const Vec3f& normal, UInt32 own) const {
        return other == own || normal.dot(faces[other].normal) > cosine;
    }
    /// A face that is twice at a position counts once.
    bool isRepeated(UInt32 i, UInt32 p) const {
        return i > around.first[p] && around.faces[i - 1] == around.faces[i];
    }

    UInt32 find(UInt32 f, UInt32 p, bool many) {
        UInt64 signature = 0;
        Vec3f sum;
        for (UInt32 i = around.first[p]; i < around.first[p + 1]; ++i) {
            const UInt32 other = around.faces[i];
            if (isRepeated(i, p) || !isMember(other, faces[f].normal, f))
                continue;
            signature = many ? (signature ^ other) * 0x9E3779B97F4A7C15u + 1
                             : signature | UInt64(1) << (i - around.first[p]);
            sum += faces[other].normal;
        }
        for (UInt32 n = newest_at[p]; n != None; n = older_than[n]) {
            if (signature_of[n] == signature && (!many || sameFaces(face_of[n], f, p)))
                return n;
        }
        sum.normalize();
        const UInt32 number = enter(sum, f, signature);
        older_than[number] = newest_at[p];
        return newest_at[p] = number;
    }
    bool sameFaces(UInt32 a, UInt32 b, UInt32 p) const {
        for (UInt32 i = around.first[p]; i < around.first[p + 1]; ++i) {
            const UInt32 other = around.faces[i];
            if (isMember(other, faces[a].normal, a) != isMember(other, faces[b].normal, b))
                return false;
        }
        return true;
    }
    UInt32 enter(const Vec3f& normal, UInt32 f, UInt64 signature) {
        values.push_back(normal);
        face_of.push_back(f);
        signature_of.push_back(signature);
        older_than.push_back(None);
        return static_cast<UInt32>(values.size() - 1);
    }

    const std::vector<face>& faces;
    incidence around;
    Real32 cosine;
    std::vector<UInt32> newest_at;          ///< per position: its newest normal; the others follow
    std::vector<UInt32> older_than;         ///< per normal
    std::vector<UInt32> face_of;            ///< per normal: the face that first needed it
    std::vector<UInt64> signature_of;       ///< per normal
    std::map<corner_key, UInt32> number_of; ///< where many faces meet
};

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

/// Gives the normals an index of their own: `number_of_vertex`, per vertex of all primitives.
void indexNormals(const GeometryPtr& geometry, const std::vector<UInt32>& number_of_vertex) {
    MFUInt16& mapping = *geometry->editMFIndexMapping();
    const UInt32 old_stride = osgMax(mapping.getSize(), 1u);
    UInt32 slot = 0;
    while (slot < mapping.getSize() && mapping[slot] != Geometry::MapNormal)
        ++slot;
    if (slot == mapping.getSize()) {
        if (mapping.empty())
            mapping.push_back(bitsOfAllProperties(geometry));
        unmapNormals(mapping);
        // An entry that serves nothing, or nothing any more, is as good as a new one.
        slot = static_cast<UInt32>(mapping.find(0) - mapping.begin());
        if (slot == mapping.getSize())
            mapping.push_back(0);
        mapping[slot] = Geometry::MapNormal;
    }

    const GeoNumbers old = GeoNumbers::of(geometry->getIndices());
    const UInt32 stride = mapping.getSize();
    const RefPtr<GeoIndicesUI32Ptr> indices(GeoIndicesUI32::create());
    std::vector<UInt32>& values = indices->editField().getValues();
    values.resize(number_of_vertex.size() * stride);
    for (std::size_t v = 0; v < number_of_vertex.size(); ++v) {
        for (UInt32 i = 0; i < old_stride; ++i)
            values[v * stride + i] = old[static_cast<UInt32>(v * old_stride + i)];
        values[v * stride + slot] = number_of_vertex[v];
    }
    geometry->setIndices(indices.get());
}

/// Vertices that triangles can have: as many as indices, or positions.
UInt32 verticesOf(const GeometryPtr& geometry) {
    if (geometry->getIndices() == NullFC)
        return geometry->getPositions()->getSize();
    return geometry->getIndices()->getSize() / osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
}

/// Writes normals and which of them each vertex has; without indices one per vertex.
void writeNumbered(const GeometryPtr& geometry, const std::vector<Vec3f>& values,
                   const std::vector<UInt32>& number_of_vertex) {
    if (geometry->getIndices() != NullFC) {
        indexNormals(geometry, number_of_vertex);
        writeNormals(geometry, values);
        return;
    }
    std::vector<Vec3f> per_vertex(number_of_vertex.size());
    for (std::size_t v = 0; v < per_vertex.size(); ++v) {
        if (number_of_vertex[v] < values.size())
            per_vertex[v] = values[number_of_vertex[v]];
    }
    writeNormals(geometry, per_vertex);
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
    writeNormals(geometry, sums);

    MFUInt16& mapping = *geometry->editMFIndexMapping();
    unmapNormals(mapping);
    for (UInt16& entry : mapping) {
        if ((entry & Geometry::MapPosition) != 0)
            entry = static_cast<UInt16>(entry | Geometry::MapNormal);
    }
}

void calcVertexNormals(GeometryPtr geometry, Real32 creaseAngle) {
    if (creaseAngle >= static_cast<Real32>(Pi))
        return calcVertexNormals(geometry);
    if (geometry == NullFC || geometry->getPositions() == NullFC ||
        geometry->getPositions()->getSize() < 3) {
        return;
    }
    const bool indexed = geometry->getIndices() != NullFC;
    const std::vector<face> faces = facesOf(geometry);
    crease_normals numbered(faces, geometry->getPositions()->getSize(), creaseAngle);
    // Vertices of no triangle: the first normal if indexed, as any index must be one that exists.
    std::vector<UInt32> number_of_vertex(verticesOf(geometry), indexed ? 0 : 0xFFFFFFFFu);
    for (UInt32 f = 0; f < faces.size(); ++f) {
        const UInt32 of_flat = faces[f].flat ? numbered.ofFlatFace() : 0;
        for (UInt32 k = 0; k < 3; ++k) {
            number_of_vertex[faces[f].place[k]] = faces[f].flat ? of_flat : numbered.ofCorner(f, k);
        }
    }
    writeNumbered(geometry, numbered.values, number_of_vertex);
}

void calcFaceNormals(GeometryPtr geometry) {
    if (geometry == NullFC || geometry->getPositions() == NullFC)
        return;
    const bool indexed = geometry->getIndices() != NullFC;
    const std::vector<face> faces = facesOf(geometry);
    std::vector<Vec3f> values;
    std::vector<UInt32> number_of_vertex(verticesOf(geometry), indexed ? 0 : 0xFFFFFFFFu);
    for (const face& f : faces) {
        for (const UInt32 vertex : f.place)
            number_of_vertex[vertex] = static_cast<UInt32>(values.size());
        values.push_back(f.normal);
    }
    writeNumbered(geometry, values, number_of_vertex);
}

OSG_END_NAMESPACE
