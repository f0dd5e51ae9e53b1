// From the record of a run back to triangles, after any number of its steps.

#include <morva/tools/morva_osg_simplify.h>

#include <algorithm>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_element_index.h>
#include <morva/tools/morva_osg_edge_queue.h>
#include <morva/tools/morva_osg_gathered_property.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// Per corner of the result, the corner of the source that it has its properties from.
std::vector<UInt32> sourceCorners(const simplification& run, const simplified_triangles& mesh) {
    std::vector<UInt32> first; // per vertex; of one that corners are welded in, all are alike
    if (run.options.weld == simplify_weld::corner) {
        first.resize(run.places.size());
        for (std::size_t i = run.corners.size(); i-- > 0;)
            first[run.vertices[i]] = run.corners[i];
    }
    std::vector<UInt32> corners(mesh.vertices.size());
    for (std::size_t i = 0; i < corners.size(); ++i)
        corners[i] = first.empty() ? run.corners[3 * std::size_t{mesh.of[i / 3]} + i % 3]
                                   : first[mesh.vertices[i]];
    return corners;
}

/// The values of a column at some corners, end to end; zero where one leads nowhere.
std::vector<float> valuesAt(const property_column& column, const std::vector<UInt32>& corners) {
    std::vector<float> values;
    values.reserve(corners.size() * column.width);
    for (const UInt32 corner : corners) {
        const std::size_t row = column.row(corner);
        for (unsigned int i = 0; i < column.width; ++i)
            values.push_back(row < column.rows ? column.at(row)[i] : 0.0F);
    }
    return values;
}

void setPlaces(const ::osg::GeometryPtr& geometry, const simplified_triangles& mesh) {
    const ::osg::GeoPositions3fPtr positions = ::osg::GeoPositions3f::create();
    geometry->setPositions(positions);
    positions->editField().reserve(mesh.vertices.size());
    for (const UInt32 vertex : mesh.vertices)
        positions->editField().push_back(mesh.places[vertex]);
    const ::osg::GeoPTypesPtr types = ::osg::GeoPTypesUI8::create();
    geometry->setTypes(types);
    types->addValue(GL_TRIANGLES);
    const ::osg::GeoPLengthsPtr lengths = ::osg::GeoPLengthsUI32::create();
    geometry->setLengths(lengths);
    lengths->addValue(static_cast<UInt32>(mesh.vertices.size()));
}

/// Everything but places and normals, from the source.
void setFurther(const ::osg::GeometryPtr& geometry, const simplification& run,
                const simplified_triangles& mesh) {
    const span<const vertex_property> further(all_properties + 2, vertex_properties - 2);
    const geometry_columns columns(run.source.get(), further, color_form::rgba_where_stored);
    const std::vector<UInt32> corners = sourceCorners(run, mesh);
    columns.forEachPresent([&](vertex_property which, const property_column& column) {
        const auto made = gatheredProperty(geometry, which, column, valuesAt(column, corners));
        setProperty(geometry, which, made.get());
    });
}

} // namespace

simplified_triangles simplifiedTriangles(const simplification& run, std::size_t collapses) {
    collapses = std::min(collapses, run.steps.size());
    simplified_triangles mesh;
    mesh.places = run.places;
    for (std::size_t i = 0; i < collapses; ++i)
        moveToMiddle(mesh.places[run.steps[i].kept], mesh.places[run.steps[i].gone]);
    const std::vector<UInt32> fate = fates(run.places.size(), run.steps, collapses);
    for (std::size_t t = 0; t < run.vertices.size() / 3; ++t) {
        const UInt32 a = fate[run.vertices[3 * t]], b = fate[run.vertices[3 * t + 1]],
                     c = fate[run.vertices[3 * t + 2]];
        if (a == b || b == c || c == a || is_rogue(mesh.places[a], mesh.places[b], mesh.places[c]))
            continue;
        mesh.vertices.insert(mesh.vertices.end(), {a, b, c});
        mesh.of.push_back(static_cast<UInt32>(t));
    }
    return mesh;
}

::osg::GeometryPtr simplifiedCore(const simplification& run, std::size_t collapses) {
    if (run.source == ::osg::NullFC)
        return ::osg::NullFC;
    fresh<::osg::GeometryPtr> owned(::osg::Geometry::create());
    const ::osg::GeometryPtr geometry = owned.get();
    {
        const simplified_triangles mesh = simplifiedTriangles(run, collapses);
        setPlaces(geometry, mesh);
        setFurther(geometry, run, mesh);
    }
    indexVertices(geometry, true);
    calcCreaseNormals(geometry, crease_angle);
    geometry->setMaterial(run.source->getMaterial());
    if (const ::osg::Char8* name = ::osg::getName(run.source.get()))
        ::osg::setName(geometry, name);
    reportWhole(geometry);
    return owned.release();
}

} // namespace morva::osg
