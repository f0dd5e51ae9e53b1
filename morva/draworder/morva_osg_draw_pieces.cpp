#include <morva/draworder/morva_osg_draw_pieces.h>

namespace morva::osg::detail {

std::vector<counted_column> countedColumns(const draw_elements& elements, bool per_property,
                                           std::vector<std::uint32_t>& corner_numbers) {
    std::vector<counted_column> columns;
    if (elements.count == 0)
        return columns;
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (!elements.has(i))
            continue; // at most one entry, which positions have as soon
        bool counted = false;
        for (std::size_t j = 0; j < i; ++j)
            counted = counted || elements.offset[j] == elements.offset[i];
        if (!counted)
            columns.push_back({elements.cells.data() + elements.offset[i], elements.width,
                               elements.sizeOf(i) + 1});
    }
    // One index for all properties: as many of each as there are corners.
    if (per_property || columns.size() <= 1)
        return columns;
    std::size_t distinct = 0;
    corner_numbers = numberCorners(elements, distinct);
    return {{corner_numbers.data(), 1, distinct}};
}

void joinCorners(const ::osg::GeometryPtr& geometry) {
    const open_edit edit(geometry, ::osg::Geometry::IndicesFieldMask |
                                       ::osg::Geometry::IndexMappingFieldMask);
    joinEqualVertices(geometry);
    ::osg::endEditCP(geometry->getIndices());
}

} // namespace morva::osg::detail
