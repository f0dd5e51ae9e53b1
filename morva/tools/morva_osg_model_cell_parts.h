#pragma once

// The parts of a model as a division reads them: what a core holds by numbers of vertices, and
// where each part has it in the world. Include <morva/tools/morva_osg_model_cells.h>.
//
//     part      0         1    2             numbers run on over all parts, so that one number
//     elements  0 1 2 3   4 5  6 7 8         tells part and element

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// Kinds of elements; the number is that of their corners less one.
enum cell_kind { cell_point = 0, cell_line = 1, cell_triangle = 2 };
constexpr int cell_kinds = 3;
constexpr std::size_t cornersOf(cell_kind kind) { return static_cast<std::size_t>(kind) + 1; }

/// A core. Corners that take the same rows are one vertex.
struct cell_source {
    /// Elements with a corner that leads to no position are left out.
    explicit cell_source(const ::osg::GeometryPtr& geometry);

    ::osg::RefPtr<::osg::GeometryPtr> core;
    geometry_columns columns;                        ///< all properties
    std::vector<::osg::UInt32> vertices[cell_kinds]; ///< by kind, cornersOf(kind) per element
    std::vector<::osg::UInt32> corner_of;            ///< per vertex: a corner that takes its rows
    std::uint64_t left_out = 0;                      ///< elements

    const ::osg::Pnt3f& place(::osg::UInt32 vertex) const {
        return *columns[vertex_property::position].find<::osg::Pnt3f>(corner_of[vertex]);
    }
};

/// One part. What has no finite place in the world stands in none of the lists.
struct cell_part {
    ::osg::NodeRefPtr node;
    ::osg::MaterialRefPtr material; ///< that it shows; may be null
    ::osg::Matrix to_world;
    std::shared_ptr<const cell_source> source;   ///< null without a geometry
    std::vector<::osg::UInt32> kept[cell_kinds]; ///< numbers in the source
    std::uint64_t first[cell_kinds] = {};        ///< the number of its first one over all parts
    std::uint64_t unplaced = 0;

    ::osg::Pnt3f worldOf(::osg::UInt32 vertex) const;
    /// The first corner's vertex of one of its elements, told by the number over all parts.
    const ::osg::UInt32* verticesOf(cell_kind kind, std::uint64_t element) const {
        const ::osg::UInt32 own = kept[kind][static_cast<std::size_t>(element - first[kind])];
        return source->vertices[kind].data() + cornersOf(kind) * own;
    }
};

/// Reads the parts; cores that several of them have are read once.
std::vector<cell_part> cellPartsOf(const std::vector<::osg::NodePtr>& nodes);

/// The part that an element belongs to.
inline std::size_t partOf(const std::vector<cell_part>& parts, cell_kind kind,
                          std::uint64_t element) {
    const auto behind = std::upper_bound(
        parts.begin(), parts.end(), element,
        [kind](std::uint64_t e, const cell_part& part) { return e < part.first[kind]; });
    return static_cast<std::size_t>(behind - parts.begin()) - 1;
}

} // namespace morva::osg
