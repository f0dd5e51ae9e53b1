#pragma once

// What a division keeps for its scenes. Include <morva/tools/morva_osg_model_cells.h>.

#include <cstdint>
#include <vector>

#include <morva/tools/morva_osg_model_cell_parts.h>
#include <morva/tools/morva_osg_model_cell_triangles.h>
#include <morva/tools/morva_osg_model_cells.h>

namespace morva::osg {

/// The elements of a cell by their numbers over all parts, ascending by part and by number there;
/// of cut triangles the pieces, together.
struct cell_elements {
    std::vector<std::uint64_t> of[cell_kinds];
};

struct cell_contents {
    explicit cell_contents(const std::vector<::osg::NodePtr>& nodes,
                           const model_cell_options& chosen)
        : options(chosen), parts(cellPartsOf(nodes)),
          triangles(parts, chosen.straddle == cell_straddle::cut) {}
    cell_contents(const cell_contents&) = delete; // the triangles refer to the parts
    cell_contents& operator=(const cell_contents&) = delete;

    model_cell_options options;
    std::vector<cell_part> parts;
    cell_triangles triangles; ///< without extents once the division is done
    std::vector<cell_elements> cells;
};

} // namespace morva::osg
