#pragma once

// Line geometry as flat elements: what osg_geoset is for triangles, with two vertices per element.
//
//     element i   vertices 2 i and 2 i + 1 of every field
//     axis a      axis_min[a][i], axis_max[a][i]: its extent, for the trees
//
//     osg_line_geoset lines;
//     extract(node, lines, true, false, false, true);
//     compile(lines, tree, setup, kd_strategy_ObjMedian());
//
// Carried are positions, normals, both colours and texture coordinates 7, which hold the ID.
// Textures are not. Only kd-trees are built over lines, and no rays are fired at them.
// One owner while filling and building; any readers afterwards.

#include <cstdint>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>

namespace morva::osg {

/// Lines in the fields of one private geometry. After setup() the fields hold at least
/// `2 * size` rows and the axis arrays agree with the positions of all `size` lines.
class MORVA_API osg_line_geoset {
  public:
    using scalar_type = float;
    using point_type = math::vector<float, 3>;
    using vector_type = math::vector<float, 3>;
    static constexpr unsigned int corners = 2; ///< vertices per element

    osg_line_geoset();
    ~osg_line_geoset();
    osg_line_geoset(const osg_line_geoset&) = delete;
    osg_line_geoset& operator=(const osg_line_geoset&) = delete;

    ::osg::RefPtr<::osg::GeometryPtr> geometry; ///< private core; outlives the geoset if handed on
    std::uint64_t size = 0;                     ///< lines in use, valid after setup()
    std::uint64_t wished_size = 0;              ///< entries of each axis array
    std::uint64_t vertex_capacity = 0;          ///< vertex budget for extraction
    std::uint64_t vertex_count = 0;             ///< vertices extracted so far
    float** axis_min = nullptr;     ///< owned: 3 arrays of `wished_size` entries, or null
    float** axis_max = nullptr;     ///< as `axis_min`
    std::vector<std::string> names; ///< emptied by clear(), not used otherwise
    bool resize_failed = false;     ///< sticky until clear(): the fields grow no more
    float_box bbox;                 ///< of all lines, valid after setup()

    /// Back to empty, with a fresh core; `vertex_capacity` is then 500000.
    void clear();

    /// Makes what was extracted ready for trees. An odd last vertex is ignored. Prints one line on
    /// standard error if memory runs out; the geoset is then empty or its arrays are stale.
    void setup();

    /// Resizes every field present to `2 * lines` rows. False after one line on standard output
    /// if that fails, and from then on.
    bool resizeFieldContainers(unsigned int lines);

    /// Sets the vertex budget, and resizes the fields as resizeFieldContainers() does.
    void setWishedSize(unsigned long lines);

    /// Refreshes `bbox`. Flat axes stay flat; zero without elements.
    void calc_bounding_box();

    /// The element's colour at `point`, by its x coordinate alone: infinite or NaN on a line
    /// without extent in x. At an end that end's colour.
    /// set  1 reads secondary colours, anything else colours
    ::osg::Color3f interpolate_color(unsigned int element, const ::osg::Pnt3f& point,
                                     unsigned int set = 0) const;

    /// Gives the element other ends; its colours follow along the old line.
    void ModifyObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, unsigned int element);

    /// Writes line `target` with the attributes of line `source`: colours interpolated, normals
    /// and IDs copied end by end. False after one line on standard error if memory runs out.
    bool add_GeoFields(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, unsigned long source,
                       unsigned int target);

    /// Cuts a line at a plane: `element` keeps the second half, a new line `first_piece` gets the
    /// first one.
    ///
    /// pieces       out: 1, or 0 if nothing changed, after one line on standard output
    /// first_piece  out: `size` before the call
    void splitElement(unsigned long element, double plane, int axis, int& pieces,
                      unsigned long& first_piece);

  private:
    void calc_axis_min_max(std::uint64_t first, std::uint64_t last);
    bool growForOneMore();
};

/// Appends the lines of one geometry node, of any line primitive and index layout.
///
/// toWorld         positions and normals go to world coordinates
/// searchMaterial  a core without material asks the material groups above the node
/// writeIds        texture coordinates 7 get the node's ID
/// runSetup        setup() at the end
/// returns         0
///
/// Every line is kept, those of no length too. Normals of a source without any are (0, 1, 0).
MORVA_API unsigned int extract(const ::osg::NodePtr& node, osg_line_geoset& geoset, bool toWorld,
                               bool searchMaterial, bool writeIds, bool runSetup);

} // namespace morva::osg
