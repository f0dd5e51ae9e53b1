#pragma once

// Point geometry as flat elements: what osg_geoset is for triangles, with one vertex per element.
//
//     element i   vertex i of every field; its extent on an axis is its coordinate
//
//     osg_point_geoset points;
//     extract(node, points, true, false, false, true);
//     compile(points, tree, setup, kd_strategy_ObjMedian());
//
// What counts as points is settled by getNumberOfPoints(): the vertices of primitives of the type
// GL_LINES. They are also lines, and a merge carries them as both; a run of the type GL_POINTS
// counts for nothing and is not extracted.
//
// Carried are positions, normals, both colours and texture coordinates 7, which hold the ID.
// One owner while filling and building; any readers afterwards.

#include <cstdint>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/trees/geoset_access.h>

namespace morva::osg {

/// Points in the fields of one private geometry. After setup() `size` equals `vertex_count`, the
/// fields hold at least that many rows, and the positions are stored as three floats.
class MORVA_API osg_point_geoset {
  public:
    using scalar_type = float;
    using point_type = math::vector<float, 3>;
    using vector_type = math::vector<float, 3>;
    static constexpr unsigned int corners = 1; ///< vertices per element

    osg_point_geoset();
    ~osg_point_geoset() = default;
    osg_point_geoset(const osg_point_geoset&) = delete;
    osg_point_geoset& operator=(const osg_point_geoset&) = delete;

    ::osg::RefPtr<::osg::GeometryPtr> geometry; ///< private core; outlives the geoset if handed on
    std::uint64_t size = 0;                     ///< points in use, valid after setup()
    std::uint64_t wished_size = 0;              ///< as `size`
    std::uint64_t vertex_capacity = 0;          ///< vertex budget for extraction
    std::uint64_t vertex_count = 0;             ///< vertices extracted so far
    std::vector<std::string> names;             ///< emptied by clear(), not used otherwise
    bool resize_failed = false;                 ///< sticky until clear(): the fields grow no more
    float_box bbox;                             ///< of all points, valid after setup()

    /// Back to empty, with a fresh core; `vertex_capacity` is then 500000.
    void clear();

    /// Makes what was extracted ready for trees. Prints one line on standard error if memory runs
    /// out; the geoset is then empty.
    void setup();

    /// Resizes every field present to `points` rows. False after one line on standard output if
    /// that fails, and from then on.
    bool resizeFieldContainers(unsigned int points);

    /// Sets the vertex budget, and resizes the fields as resizeFieldContainers() does.
    void setWishedSize(unsigned long points);

    /// Refreshes `bbox`. Flat axes stay flat; zero without elements.
    void calc_bounding_box();
};

/// Extents for the trees; valid until the geoset grows or is set up anew.
MORVA_API point_extents<float> extents_on_axis(const osg_point_geoset& geoset, int axis);

/// Appends the points of one geometry node; see the head of this file for what they are.
///
/// toWorld         positions and normals go to world coordinates
/// searchMaterial  a core without material asks the material groups above the node
/// writeIds        texture coordinates 7 get the node's ID
/// runSetup        setup() at the end
/// returns         0
MORVA_API unsigned int extract(const ::osg::NodePtr& node, osg_point_geoset& geoset, bool toWorld,
                               bool searchMaterial, bool writeIds, bool runSetup);

} // namespace morva::osg
