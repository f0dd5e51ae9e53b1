#pragma once

// What the two cache optimisers have in common between reading a geometry and handing out the
// group of its pieces.

#include <cstddef>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/draworder/morva_osg_cache_walk.h>
#include <morva/draworder/morva_osg_draw_elements.h>
#include <morva/idmap/morva_osg_late_names.h>

namespace morva::osg::detail {

/// What fills a piece: each property on its own, or whole corners, whose numbers go into
/// `corner_numbers`.
std::vector<counted_column> countedColumns(const draw_elements& elements, bool per_property,
                                           std::vector<std::uint32_t>& corner_numbers);

/// Lets equal corners of a geometry share one index entry each. Only the index changes, so that
/// no volume does: other nodes may be at work beside this one.
void joinCorners(const ::osg::GeometryPtr& geometry);

/// Orders elements; throws std::bad_alloc.
template <typename Rules>
draw_order orderElements(const draw_elements& elements, unsigned int limit, bool per_property) {
    std::vector<std::uint32_t> corner_numbers, positions;
    const auto columns = countedColumns(elements, per_property, corner_numbers);
    const std::size_t corners = elements.count * elements.corners;
    span<const std::uint32_t> vertices = elements.cells;
    if (elements.width != 1) {
        positions.resize(corners);
        for (std::size_t i = 0; i < corners; ++i)
            positions[i] = elements.index(i, 0);
        vertices = positions;
    }
    return cache_walk<Rules>(vertices, elements.sizeOf(0), elements.numbers, columns, limit).run();
}

/// Reads, orders and writes the elements of `source` into pieces below `result`, each in a
/// geometry that `create` makes.
template <typename Rules, typename Create>
void buildPieces(const ::osg::NodePtr& source, unsigned int limit, bool per_property,
                 const Create& create, const ::osg::NodePtr& result) {
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(source->getCore());
    const auto elements = readElements<Rules::corners>(geometry, Rules::corners == 3);
    const draw_order order = orderElements<Rules>(elements, limit, per_property);

    const ::osg::MaterialPtr material = getMaterial(source);
    giveCore(result, ::osg::Group::create());
    piece_writer writer(elements, order.elements);
    for (std::size_t i = 0; i < order.piece_first.size(); ++i) {
        const ::osg::RefPtr<::osg::NodePtr> child(::osg::Node::create());
        const ::osg::RefPtr<::osg::GeometryPtr> piece(create());
        giveCore(child.get(), piece.get());
        addChildTo(result, child.get());
        writer.write(order.piece_first[i], order.pieceEnd(i), piece.get());
        piece->setMaterial(material);
        if (!elements.has(1))
            ::osg::calcVertexNormals(piece.get());
        reportWhole(piece.get());
        nameGeometry(child.get(), &idmapHandler::getNextGeometryName);
    }
}

/// The group of the pieces of `source`; an exception ends the work with a line.
template <typename Rules, typename Create>
::osg::NodePtr piecesOf(const ::osg::NodePtr& source, unsigned int limit, bool per_property,
                        const Create& create) {
    const ::osg::NodePtr result = ::osg::Node::create();
    try {
        buildPieces<Rules>(source, limit, per_property, create, result);
    } catch (...) {
        say({"Error occured in morva_osg_cacheopt."});
    }
    return result;
}

} // namespace morva::osg::detail
