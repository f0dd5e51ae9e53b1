#include <morva/geosets/morva_osg_geoset_tools.h>

#include <algorithm>
#include <cstddef>

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_span.h>
#include <morva/core/morva_validate.h>
#include <morva/geosets/morva_osg_axis_arrays.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_geoset_rules.h>
#include <morva/geosets/morva_osg_stage_errors.h>

namespace morva::osg {

namespace {

/// Extent of one triangle by strict comparisons from its first corner on: a NaN there stays, one
/// in another corner is passed over.
void storeExtent(const ::osg::Pnt3f* corners, float* const* low, float* const* high,
                 std::uint64_t triangle) {
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        float lo = corners[0][axis], hi = lo;
        for (int k = 1; k < 3; ++k) {
            lo = corners[k][axis] < lo ? corners[k][axis] : lo;
            hi = corners[k][axis] > hi ? corners[k][axis] : hi;
        }
        low[axis][triangle] = lo;
        high[axis][triangle] = hi;
    }
}

void setPoint(float3& to, const ::osg::Pnt3f& from) {
    for (::osg::UInt32 axis = 0; axis < 3; ++axis)
        to[axis] = from[axis];
}

float_triangle flatTriangle(const ::osg::Pnt3f* corners) {
    float_triangle triangle;
    setPoint(triangle.a, corners[0]);
    setPoint(triangle.b, corners[1]);
    setPoint(triangle.c, corners[2]);
    return triangle;
}

/// What ::osg::calcVertexNormals() comes to on triangles without indices: no two have a vertex in
/// common. Writes the rows of the triangles only.
void calcFlatNormals(const positions_slot& positions, normals_slot& normals, std::size_t vertices) {
    for (std::size_t v = 0; v + 2 < vertices; v += 3) {
        const ::osg::Pnt3f a = positions.value(v);
        ::osg::Vec3f normal = (positions.value(v + 1) - a).cross(positions.value(v + 2) - a);
        normal.normalize();
        // The sum over the faces of a vertex begins at zero and is scaled once more.
        normal = ::osg::Vec3f() + normal;
        normal.normalize();
        for (std::size_t k = 0; k < 3; ++k)
            normals.put(v + k, normal);
    }
}

/// Whether a core is one run of triangles without indices, as extraction leaves it.
bool isFlat(const ::osg::GeometryPtr& core) {
    const ::osg::GeoPTypesPtr types = core->getTypes();
    const ::osg::GeoPLengthsPtr lengths = core->getLengths();
    return core->getIndices() == ::osg::NullFC && types != ::osg::NullFC && types->size() == 1 &&
           types->getValue(0) == GL_TRIANGLES && lengths != ::osg::NullFC && lengths->size() == 1;
}

/// Calculates the normals of a core, one per vertex and zero behind the triangles.
void calcPlainNormals(const ::osg::GeometryPtr& core, geoset_fields& fields) {
    if (!isFlat(core)) {
        ::osg::calcVertexNormals(core);
        return;
    }
    const std::size_t rows = fields.positions.size();
    const std::size_t vertices = std::min<std::size_t>(core->getLengths()->getValue(0), rows);
    if (fields.normals.present()) {
        fields.normals.get()->resize(0);
        fields.normals.get()->resize(rows);
        calcFlatNormals(fields.positions, fields.normals, vertices);
        return;
    }
    normals_slot made;
    made.make(rows, rows);
    calcFlatNormals(fields.positions, made, vertices);
    core->setNormals(made.get());
}

} // namespace

osg_geoset::osg_geoset()
    : geometry(::osg::Geometry::create()), field_access_(std::make_unique<geoset_fields>()) {}

osg_geoset::~osg_geoset() {
    freeAxisArrays(axis_min);
    freeAxisArrays(axis_max);
    delete[] simple_tris;
}

/// The fields of the core as it is now.
geoset_fields& osg_geoset::fields() const {
    field_access_->follow(geometry.get());
    return *field_access_;
}

void osg_geoset::clear() {
    freeAxisArrays(axis_min);
    freeAxisArrays(axis_max);
    delete[] simple_tris;
    simple_tris = nullptr;
    *field_access_ = geoset_fields();
    clearElements(*this);
    split_axis = -1;
    split_plane = 0;
    split_cache.clear();
    bbox = float_box();
}

void osg_geoset::setup() {
    try {
        const ::osg::GeometryPtr core = geometry.get();
        settleLength(core, 0);
        if (!fields().positions.present()) {
            size = wished_size = 0;
            return;
        }
        // Three times what is in use, unless told otherwise.
        resizeRows(lean ? vertex_count : corners * vertex_count);
        const positions_slot& positions = fields().positions;
        // Fewer rows than vertices are only there if that failed.
        const std::uint64_t triangles =
            std::min<std::uint64_t>(vertex_count, positions.size()) / corners;
        settleLength(core, corners * triangles);
        const normals_slot& normals = fields().normals;
        if (!normals.present() || normals.size() != positions.size()) {
            calcPlainNormals(core, fields());
            fields().changedFrom(0);
        }

        axis_arrays low(triangles), high(triangles);
        low.changePlaces(axis_min);
        high.changePlaces(axis_max);
        size = wished_size = triangles;
        if (size > 0)
            calc_axis_min_max(0, static_cast<unsigned int>(size - 1));
        calc_bounding_box();
        if (simple_tris != nullptr)
            convert();
        validate("setup", [this] { return broken_rule_of(*this); });
        return;
    } catch (...) {
        printSetupError();
    }
    // Nothing may look at arrays that are not there.
    size = wished_size = 0;
    settleLength(geometry.get(), 0);
    bbox = float_box();
}

bool osg_geoset::resizeFieldContainers(unsigned int triangles) {
    return resizeRows(std::size_t(corners) * triangles);
}

bool osg_geoset::resizeRows(std::size_t rows) {
    return resizeOrMark(fields(), corners, rows, resize_failed);
}

void osg_geoset::dropExtents() {
    freeAxisArrays(axis_min);
    freeAxisArrays(axis_max);
}

void osg_geoset::calc_axis_min_max(unsigned int first, unsigned int last) {
    if (first >= size || last < first || axis_min == nullptr)
        return;
    const positions_slot& positions = fields().positions;
    const std::uint64_t end =
        std::min({std::uint64_t(last) + 1, size, std::uint64_t(positions.size() / corners)});
    if (const ::osg::Pnt3f* rows = positions.data()) {
        for (std::uint64_t i = first; i < end; ++i)
            storeExtent(rows + 3 * i, axis_min, axis_max, i);
        return;
    }
    for (std::uint64_t i = first; i < end; ++i) {
        const ::osg::Pnt3f triangle[3] = {positions.value(3 * i), positions.value(3 * i + 1),
                                          positions.value(3 * i + 2)};
        storeExtent(triangle, axis_min, axis_max, i);
    }
}

void osg_geoset::calc_bounding_box() { bbox = boxOfVertices(geometry.get(), corners * size); }

void osg_geoset::prepareSimpleTris(unsigned int index) {
    const positions_slot& positions = fields().positions;
    if (simple_tris == nullptr || index >= wished_size || !positions.holds(index))
        return;
    const std::size_t row = std::size_t(3) * index;
    const ::osg::Pnt3f triangle[3] = {positions.value(row), positions.value(row + 1),
                                      positions.value(row + 2)};
    simple_tris[index] = flatTriangle(triangle);
}

void osg_geoset::convert() {
    if (wished_size == 0)
        return;
    auto triangles = std::make_unique<float_triangle[]>(wished_size);
    const auto block = readBlock(fields().positions.get());
    const span<const ::osg::Pnt3f> vertices(block.view());
    const std::uint64_t count = std::min<std::uint64_t>(size, vertices.size() / corners);
    for (std::uint64_t i = 0; i < count; ++i)
        triangles[i] = flatTriangle(vertices.data() + 3 * i);
    delete[] simple_tris;
    simple_tris = triangles.release();
}

void osg_geoset::setTriangle(osg_primitive& primitive, unsigned int index) const {
    if (index >= size) {
        say({"Morva::osg::osg_geoset: Index Error in PrepareTriangle."});
        if (size == 0)
            return;
        index = static_cast<unsigned int>(size - 1);
    }
    const auto read = [index](const auto& slot, auto* out) {
        for (std::size_t k = 0; slot.holds(index) && k < 3; ++k)
            out[k] = slot.value(std::size_t(3) * index + k);
    };
    const geoset_fields& present = fields();
    for (std::size_t k = 0; present.ids.holds(index) && k < 3; ++k)
        primitive.texcoords7[k] = present.ids.value(std::size_t(3) * index + k)[0];
    read(present.positions, primitive.positions);
    read(present.normals, primitive.normals);
    read(present.colors, primitive.colors);
    read(present.secondary, primitive.secondary_colors);
    read(present.texcoords[0], primitive.texcoords);
    read(present.texcoords[1], primitive.texcoords1);
    read(present.texcoords[2], primitive.texcoords2);
    read(present.texcoords[3], primitive.texcoords3);
}

} // namespace morva::osg
