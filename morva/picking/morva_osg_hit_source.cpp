// From the object number of a hit to its triangle and to the part that it comes from.

#include <morva/picking/morva_osg_ray_hits.h>

#include <algorithm>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/picking/morva_osg_core_trees.h>

namespace morva::osg {

namespace {

constexpr vertex_property place[] = {vertex_property::position};

/// The payload that tells the numbers of a geometry now; null if there is none.
const BIHAttachPayload* numbersOf(const ::osg::GeometryPtr& geometry) {
    const ::osg::MorvaAttachBIHPtr own = ownAttachment(geometry);
    if (own == ::osg::NullFC)
        return nullptr;
    const BIHAttachPayload& payload = own->getFieldPtr()->getValue();
    return !payload.dirty && hasTree(payload) ? &payload : nullptr;
}

/// The triangle of an object by looking at what a list would keep.
unsigned int countedTriangle(const ::osg::GeometryPtr& geometry, unsigned int object) {
    std::vector<std::uint32_t> left_out;
    const std::uint32_t all = findLeftOut(geometry_columns(geometry, place), left_out);
    return object < all - left_out.size() ? triangleOfObject(left_out, object) : no_triangle;
}

/// The first corner of a triangle; `no_run` if there is no such triangle.
std::size_t firstCorner(const ::osg::GeometryPtr& geometry, unsigned int triangle) {
    const geometry_columns columns(geometry, place);
    unsigned int number = 0;
    std::size_t corner = no_run;
    forEachTriangle(columns, rest_rule::continued,
                    [&](std::size_t first, std::size_t, std::size_t) {
                        if (number++ == triangle)
                            corner = first;
                    });
    return corner;
}

} // namespace

std::uint32_t triangleOfObject(const std::vector<std::uint32_t>& gone, std::uint32_t object) {
    // Of the triangles gone those count that `gone[i] - i` kept ones, at most `object`, stand
    // before.
    std::uint32_t before = 0, behind = static_cast<std::uint32_t>(gone.size());
    while (before < behind) {
        const std::uint32_t middle = before + (behind - before) / 2;
        if (gone[middle] - middle <= object)
            before = middle + 1;
        else
            behind = middle;
    }
    return object + before;
}

unsigned int triangle_of_object(const ::osg::GeometryPtr& geometry, unsigned int object) {
    if (geometry == ::osg::NullFC)
        return no_triangle;
    const BIHAttachPayload* const payload = numbersOf(geometry);
    if (payload == nullptr)
        return countedTriangle(geometry, object);
    return object < payload->geoset->count
               ? triangleOfObject(payload_access::facts(*payload)->left_out, object)
               : no_triangle;
}

int id_of_object(const ::osg::GeometryPtr& geometry, unsigned int object, vertex_property id_set) {
    const unsigned int triangle = triangle_of_object(geometry, object);
    const std::size_t corner = triangle != no_triangle ? firstCorner(geometry, triangle) : no_run;
    if (corner == no_run)
        return -1;
    const vertex_property set[] = {id_set};
    const geometry_columns columns(geometry, set);
    const property_column& ids = columns[id_set];
    const std::size_t row = corner < columns.corners() ? ids.row(corner) : no_row;
    if (!ids.present || row >= ids.rows)
        return -1;
    const float id = *ids.at(row);
    return id >= 0.0F && id < 2147483648.0F ? static_cast<int>(id) : -1;
}

} // namespace morva::osg
