#include <morva/geosets/morva_osg_element_offer.h>

#include <algorithm>
#include <cstddef>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>

namespace morva::osg {

namespace {

unsigned int countByLengths(const ::osg::GeometryPtr& geometry, unsigned int corners) {
    return corners == 3   ? getNumberOfTriangles(geometry)
           : corners == 2 ? getNumberOfLines(geometry)
                          : getNumberOfPoints(geometry);
}

std::uint64_t trianglesOf(::osg::UInt32 type, std::uint64_t length) {
    if (type < 4 || type > 9 || length < 3)
        return 0;
    // Degenerate parts of strips included.
    return type == 4 ? length / 3 : type == 7 ? length / 4 * 2 : length - 2;
}

std::uint64_t linesOf(::osg::UInt32 type, std::uint64_t length) {
    if (type < 1 || type > 3 || length < 2)
        return 0;
    return type == 1 ? length / 2 : type == 2 ? length : length - 1;
}

} // namespace

element_offer offerOf(const ::osg::GeometryPtr& geometry, unsigned int corners) {
    element_offer offer;
    if (geometry == ::osg::NullFC)
        return offer;
    const std::size_t vertices = cornersOf(geometry);
    std::uint64_t most = 0;
    forEachPrimitive(geometry, vertices, rest_rule::left_out, [&](const primitive_run& run) {
        most += corners == 3           ? trianglesOf(run.type, run.length)
                : corners == 2         ? linesOf(run.type, run.length)
                : run.type == GL_LINES ? run.length
                                       : 0;
    });
    const unsigned int claimed = countByLengths(geometry, corners);
    const bool trusted = geometry->getLengths() != ::osg::NullFC && claimed <= vertices;
    offer.counted = trusted ? claimed : most;
    offer.room = std::max(offer.counted, most);
    return offer;
}

bool canBeExtracted(const ::osg::GeometryPtr& geometry) {
    if (checkGeoProperties(geometry))
        return true;
    const auto filled = [](const auto& property) {
        return property != ::osg::NullFC && property->size() > 0;
    };
    return geometry != ::osg::NullFC && geometry->getLengths() == ::osg::NullFC &&
           filled(geometry->getTypes()) && filled(geometry->getPositions());
}

} // namespace morva::osg
