#pragma once

// Triangle geometry as flat elements: what stands between a scene and the trees.
//
//     triangle i   vertices 3 i, 3 i + 1 and 3 i + 2 of every field
//     axis a       axis_min[a][i], axis_max[a][i]: its extent, for the trees
//     rays         simple_tris[i]: its corners, once convert() has run
//
//     osg_geoset geoset;
//     for (const auto& node : nodes)
//         extract(node, geoset, true, false, false, false, false);
//     geoset.setup();                                     // size, arrays and box mean something
//     now compile(geoset, tree, setup, kd_strategy_ObjMedian()); // may cut: the geoset grows
//
// The fields live in one private geometry, unindexed, and are usually longer than 3 * size rows.
// Triangles change through this class only, so that fields, arrays and corner copies agree.
// A cut replaces a triangle by one piece and appends the others: numbers in a tree stay valid.
// One thread at a time, reading included.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>

namespace morva::osg {

struct element_appender;
struct geoset_fields;

/// One triangle with all its attributes; zero, and without a name, until it is filled.
struct osg_primitive {
    ::osg::Pnt3f positions[3];
    ::osg::Vec3f normals[3];
    ::osg::Color3f colors[3];
    ::osg::Color3f secondary_colors[3];
    ::osg::Vec2f texcoords[3];
    ::osg::Vec2f texcoords1[3];
    ::osg::Vec2f texcoords2[3];
    ::osg::Vec2f texcoords3[3];
    float texcoords7[3] = {}; ///< first component: the ID
    std::string name;
};

/// Triangles in the fields of one private geometry. After setup(): `size` is at most
/// `wished_size`, the fields have at least `3 * size` rows, and the axis arrays, `simple_tris` if
/// there, and `bbox` agree with the positions of all `size` triangles.
class MORVA_API osg_geoset {
  public:
    using scalar_type = float;
    using point_type = math::vector<float, 3>;
    using vector_type = math::vector<float, 3>;
    static constexpr unsigned int corners = 3; ///< vertices per element

    osg_geoset();
    ~osg_geoset();
    osg_geoset(const osg_geoset&) = delete;
    osg_geoset& operator=(const osg_geoset&) = delete;

    std::uint64_t size = 0;            ///< triangles in use, valid after setup()
    std::uint64_t wished_size = 0;     ///< entries of each axis array and of `simple_tris`
    std::uint64_t vertex_capacity = 0; ///< vertex budget for extraction; may be set before it
    std::uint64_t vertex_count = 0;    ///< vertices extracted so far, and those of added pieces
    ::osg::RefPtr<::osg::GeometryPtr> geometry; ///< private core; outlives the geoset if handed on
    float** axis_min = nullptr; ///< owned: 3 arrays of `wished_size` entries, or null
    float** axis_max = nullptr; ///< as `axis_min`
    /// Cut points of the plane below: first end of an edge, second end, point.
    std::map<::osg::Pnt3d, std::map<::osg::Pnt3d, ::osg::Pnt3d>> split_cache;
    std::int32_t split_axis = -1;          ///< axis of `split_cache`, -1 before the first cut
    double split_plane = 0;                ///< plane of `split_cache`
    float_triangle* simple_tris = nullptr; ///< owned: `wished_size` entries, null until convert()
    std::vector<std::string> names;        ///< emptied by clear(), not used otherwise
    bool resize_failed = false; ///< sticky until clear(): fields grow no more, nothing is cut
    float_box bbox;             ///< of all triangles, valid after setup()

    /// Fields are as long as what was extracted, `vertex_capacity` is only room to grow without a
    /// copy, and setup() leaves no spare rows. Stays over clear().
    bool lean = false;

    /// Back to empty, with a fresh core; `vertex_capacity` is then 500000.
    void clear();

    /// Makes what was extracted ready for trees. Vertices that fill no triangle are ignored. The
    /// fields come out with `3 * vertex_count` rows, three times what the triangles use, or with
    /// `vertex_count` if `lean`. Normals are calculated if there are none. The length of the one
    /// primitive, which extraction counts by what sources claim, becomes `3 * size`.
    /// errors  one line on standard error; the geoset then has no triangles
    void setup();

    /// Resizes every field present to `3 * triangles` rows; false, and nothing changes, from the
    /// first failure on. That one prints a line on standard output and brings the old length
    /// back, as far as it can.
    bool resizeFieldContainers(unsigned int triangles);

    /// Refreshes the axis arrays of the triangles `first` to `last`, both included, below `size`.
    void calc_axis_min_max(unsigned int first, unsigned int last);

    /// Frees the axis arrays, once the trees are built: nothing is cut or added afterwards.
    void dropExtents();

    /// Refreshes `bbox`. Flat axes stay flat; zero without triangles.
    void calc_bounding_box();

    /// Copies the corners of a triangle into `simple_tris`, if there.
    void prepareSimpleTris(unsigned int index);

    /// Makes `simple_tris` for all triangles; from then on every change keeps it in step.
    void convert();

    /// Appends a triangle with the attributes of triangle `source` at its corners: normals and ID
    /// corner by corner, colours and coordinates interpolated. False if that is not possible,
    /// after one line on standard error if the geoset could not grow. Room grows by 2, from 1000
    /// triangles on by 1.3.
    bool addObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, const ::osg::Pnt3f& p2,
                   unsigned long source);

    /// Moves the corners of a triangle; colours and coordinates follow along its old plane,
    /// normals and ID stay.
    void ModifyObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, const ::osg::Pnt3f& p2,
                      unsigned int index);

    /// Writes the vertices of triangle `target` with the attributes of `source`, all but the ID.
    /// Rows that a field does not have are left out. False after one line on standard error if
    /// memory runs out.
    bool add_GeoFields(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1, const ::osg::Pnt3f& p2,
                       unsigned long source, unsigned int target);

    /// A triangle's colour at `point`: at a corner that corner's, elsewhere by the areas towards
    /// the corners, not clamped. Zero without such colours.
    /// set  1 reads secondary colours, anything else colours
    ::osg::Color3f interpolate_color(unsigned int element, const ::osg::Pnt3f& point,
                                     unsigned int set = 0) const;

    /// The same for texture coordinates.
    /// unit  1, 2 or 3, anything else means unit 0
    ::osg::Vec2f interpolate_texcoord(unsigned int element, const ::osg::Pnt3f& point,
                                      unsigned int unit = 0) const;

    /// Reads a triangle with all attributes that there are. An index past the end prints a line
    /// on standard output and reads the last triangle.
    void setTriangle(osg_primitive& primitive, unsigned int index) const;

    /// Where the edge from `p` to `q` meets the plane `axis` = `plane`, in double precision. Both
    /// directions of an edge give the same bits until another plane is asked for.
    ///
    /// result   out: the point, exactly on the plane
    /// returns  false, after one line on standard output, where the cut would be within 1e-5 of
    ///          an end or is not finite; `result` is then not to be used
    bool calcSplitPoint(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, double plane, int axis,
                        ::osg::Pnt3d* result);

    /// Cuts a triangle at a plane into pieces with its winding: `element` becomes one of them, the
    /// others are appended.
    ///
    /// pieces       out: triangles appended, 0, 1 or 2; 0 means that the triangle is as before
    /// first_piece  out: `size` before the call
    ///
    /// A plane much nearer to one corner than to another goes through that corner. A cut that
    /// would leave a piece that must not be kept is not made.
    void splitElement(unsigned long element, double plane, int axis, int& pieces,
                      unsigned long& first_piece);

    /// Halves a triangle, at the middle of an edge or across its longest axis.
    ///
    /// pieces       out: triangles appended, 0, 1 or 2
    /// first_piece  out: `size` before the call
    /// edge         1, 2 or 3 for the edge from A to B, B to C or C to A; 0 for the longest
    /// by_axis      across the longest axis; slivers are always cut that way
    void splitElementInTwoParts(unsigned long element, int& pieces, unsigned long& first_piece,
                                int edge, bool by_axis);

  private:
    friend struct element_appender;

    geoset_fields& fields() const;
    bool resizeRows(std::size_t rows);
    void flattenNormals(std::uint64_t vertices);
    bool growForOneMore();
    bool canCut(unsigned long element) const;
    void cutThroughEdges(unsigned long element, const ::osg::Pnt3f (&t)[3], double plane, int axis,
                         int lone, int& pieces);
    void cutThroughCorner(unsigned long element, const ::osg::Pnt3f (&t)[3], double plane, int axis,
                          int corner, int& pieces);
    bool replaceByTwo(unsigned long element, const ::osg::Pnt3f (&added)[3],
                      const ::osg::Pnt3f (&stays)[3]);
    void takeLastOff();

    /// The way to the rows of each field, looked up again when a property changes.
    std::unique_ptr<geoset_fields> field_access_;
};

/// Appends the triangles of one geometry node, of any primitive and index layout, corner order
/// kept; primitives without lengths take all vertices. Children are not visited.
///
/// toWorld         positions and normals go to world coordinates
/// searchMaterial  a core without material asks the material groups above the node
/// writeIds        texture coordinates 7 get the node's ID; also if the core has them already
/// runSetup        setup() at the end
/// cleanTexCoords  a node without a texture image loses its coordinates 0 to 3: the scene changes
/// returns         triangles left out because they must not be kept, see is_rogue()
///
/// Rows of earlier nodes read a default where only later nodes have an attribute: white, normal
/// (0, 1, 0), coordinates (0, 0). A node without normals in a geoset with normals makes all
/// normals so far anew, one per triangle. Corners that lead outside the source's positions make
/// their triangle one to be left out.
/// errors          one line on standard error; the geoset holds what it held before
MORVA_API unsigned int extract(const ::osg::NodePtr& node, osg_geoset& geoset, bool toWorld,
                               bool searchMaterial, bool writeIds, bool runSetup,
                               bool cleanTexCoords);

/// Whether a core has any of the coordinates 0 to 3.
MORVA_API bool hasTexCoords(const ::osg::GeometryPtr& geometry);

/// Takes the coordinates 0 to 3 off a core, as extract() does for a node without a texture image.
MORVA_API void dropTexCoords(const ::osg::GeometryPtr& geometry);

/// Writes one value to all rows of a property; null is ignored.
MORVA_API void fillFCwithValue(const ::osg::GeoColorsPtr& property, const ::osg::Color3f& value);
MORVA_API void fillFCwithValue(const ::osg::GeoTexCoordsPtr& property, const ::osg::Vec2f& value);
MORVA_API void fillFCwithValue(const ::osg::GeoNormalsPtr& property, const ::osg::Vec3f& value);

/// Moves a geometry's vertices near the origin, by whole numbers, and keeps the difference in a
/// TransformChunk of its material, so that large coordinates reach the graphics hardware whole.
/// A missing material or chunk is made. Without positions nothing happens; a material of another
/// kind than ChunkMaterial prints a line on standard output.
MORVA_API void addTransformChunk(::osg::GeometryPtr geometry);

} // namespace morva::osg
