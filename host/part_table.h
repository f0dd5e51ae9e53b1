#pragma once

// The source parts that an output tells of, one row each: a vertex names its part by the row.
//
//     row     name       path                  told by
//     0       "bolt"     "engine/bolt"         the IDs of the vertices, for all that was merged
//     1       "bolt"     "engine/bolt~2"
//     2       "hood"     "engine/#1/hood"      what is carried over as it is: the core that the
//                                              part alone draws with, or the node's name
//
// Rows of IDs come first, in the order of the ID map.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include "part_names.h"

namespace morva::host {

struct part_row {
    std::string name; ///< as in the source file; empty if it has none
    std::string path; ///< unique; empty where several parts share the row
    /// Box in the space of the output; low above high: none known.
    ::osg::Pnt3f low = most(1), high = most(-1);

    static ::osg::Pnt3f most(float sign) {
        const float value = sign * std::numeric_limits<float>::max();
        return {value, value, value};
    }
};

/// Nodes by their containers' numbers.
using node_numbers = std::unordered_set<::osg::UInt32>;

struct part_table {
    std::vector<part_row> rows;
    std::size_t ids = 0;  ///< so many rows, from the first one, are those of the ID map
    bool brought = false; ///< not of a run: the IDs are in coordinate set 7 of all cores with some
    node_numbers sources; ///< nodes of the input
    /// The row of each core that one part draws with, and no other one, by container.
    std::unordered_map<::osg::UInt32, std::uint32_t> row_of_core;
};

/// The table of the run that just ended, from the ID map and what was carried over.
///
/// parts   of the run's input, named before it; their nodes may be gone
/// result  of the run
part_table partTableOf(const std::vector<named_part>& parts, const ::osg::NodePtr& result);

/// The nodes of a run's input.
node_numbers nodesOf(const std::vector<named_part>& parts);

/// The set of texture coordinates that holds the IDs of an output node with a geometry core; -1 for
/// none, as for a node of the input, which is carried over, whatever its name is.
int idSetOf(const ::osg::NodePtr& node, const node_numbers& sources);

/// Takes IDs that a scene brings along out of it, so that a run's own are the only ones, and
/// returns how many geometry cores had some.
std::size_t dropBroughtIds(const std::vector<named_part>& parts);

} // namespace morva::host
