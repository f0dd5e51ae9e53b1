#pragma once

// A companion of a picking tree for collision: for each node the box of its triangles as they are,
// and how they face. With it a descent skips pairs of nodes that hold no contact.
//
//          n  n   n                 slab      low <= axis * (corner - center) <= high
//         _^__^___^_  high          cone      every triangle's normal is within asin(spread) of
//        /__________\               the line along `axis`
//                     low           reach     longest box that the descent can have for a leaf
//
// The test of triangles works in single precision, on corners that the matrix has moved and
// rounded. Why a pair of nodes can be ruled out all the same, with u = 2^-24:
//
// 1. An edge from p to q passes a triangle with corner a and normal n only if 0 <= t <= d for
//    t = (p - a) n and d = (p - q) n, both computed with the same n. They differ from the exact
//    products with that n by at most 4 u |p - a| |n| and 4 u |p - q| |n|. So no edge passes where
//    all corners are on one side of the plane through a by more than 8 u (|p - a| + |p - q|): that
//    is what cones and slabs show, for edges of B in triangles of A and the other way round. Cones
//    are of normals as computed, so a sliver's counts as it comes out, and a normal of 0 lets
//    nothing pass. B's normals are turned by the rounding rho of the corners, by at most
//    asin(blur (10 rho / scale + 24 u radius)).
// 2. Boxes of leaves overlap where triangles are compared. Nodes that are farther apart than the
//    reach of both together are never compared, and 1 is asked of nearer corners alone.
// 3. Otherwise, with a gap of h along some axis between the nodes: a pass of an edge puts it within
//    |R| / d of the triangle, where R, for the rounding in d, t, v and w, is at most
//    32 u |p - q| |b - a| |c - a| |p - a|. So d, and with it the height of both ends of the edge
//    over the plane, is at most 8 u (2 + 3 tilt |p - a| / h) of what it could be: below 4e-4, since
//    h is at least 1/256 of tilt |p - a|, the tilt being the sine between edges and the plane
//    across the gap. Such an edge lies in the plane of a triangle that it is apart from. Faces of
//    parts do where axes or large faces are parallel, and there this rule is not used (`strict_`).
//    In any other pose it takes a coincidence of two numbers to that precision, and then another
//    one for the rounding errors to come out in order: it is the one case in which the literal way
//    could report a contact, of triangles that are apart, that is not reported with the companions.
//
// Matrices that are not a similarity to within 1e-4, scales beyond 1e-3 to 1e3 and coordinates
// beyond 1e12 get no filter. 36 bytes for each node of the tree, which has 1.6 for a triangle of a
// regular mesh.
//
// Threads: those of bih_companions. For the library's own source files.

#include <cstdint>
#include <cstring>
#include <vector>

#include <morva/collision/morva_osg_lanes.h>
#include <morva/collision/morva_osg_tree_descent.h>
#include <morva/core/morva_math.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/trees/bih_records.h>

namespace morva::osg {

/// A number of at least 0 in 16 bits, rounded up by less than 1 %: the upper half of a float.
class upper_float {
  public:
    upper_float() = default;
    explicit upper_float(float value) {
        std::uint32_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        bits_ = static_cast<std::uint16_t>((bits + 0xFFFFU) >> 16);
    }
    float value() const {
        const std::uint32_t bits = std::uint32_t{bits_} << 16;
        float result;
        std::memcpy(&result, &bits, sizeof result);
        return result;
    }

  private:
    std::uint16_t bits_ = 0;
};

/// More than any measure of a box.
inline constexpr float unlimited = 1e30F;

inline constexpr float axis_unit = 1.F / 32767.F;

/// What lies below a node; in the core's coordinates.
struct fitted_box {
    float center[3] = {};
    float radius = -1.F;       ///< no corner is farther from the centre; < 0: no triangles
    std::int16_t axis[3] = {}; ///< times 32767; its length is within 1e-4 of 1, or 0
    std::int16_t low = 0;      ///< of the slab along `axis` from the centre: times radius / 32767
    std::int16_t high = 0;     ///< the same
    upper_float spread;        ///< sine of the cone's half angle; 1 or more: normals of all kinds
    upper_float blur;          ///< longest edge by length of normal, 1 / length
    upper_float reach;         ///< diagonal of the largest box of a leaf
    std::uint8_t half[4] = {}; ///< sides of the box from the centre: times radius / 255; last 0
};
static_assert(sizeof(fitted_box) == 36);

struct fitted_boxes : bih_companion {
    std::vector<fitted_box> nodes; ///< one per node of the tree
    std::vector<float3> faces;     ///< normals of the largest plane faces, either way; at most 24
    std::vector<lanes3> face_rows; ///< the same four at a time, and 0 beyond
    float3 low, high;              ///< box of all triangles
    std::uint64_t depth = 0;       ///< of the tree
};

/// Makes the companion of a tree over a list; the caller publishes it, or destroys it.
/// errors  std::bad_alloc
fitted_boxes* fitBoxes(const bih_tree<float>& tree, const triangle_list& list);

/// Rules out pairs of nodes of two trees in one pose.
class fitted_filter {
  public:
    /// Where a side's descent begins.
    struct side {
        const fitted_boxes& boxes;
        float3 low, high; ///< box that the descent gives the root, in the core's coordinates
    };

    fitted_filter(const side& a, const side& b, const math::transformation_matrix<float>& b_to_a);

    /// Whether it may be used with this matrix.
    bool suits() const { return suits_; }

    /// Which of the pairs hold no contact, as pair_bits.
    unsigned rejects(const next_nodes& a, const next_nodes& b) const;

  private:
    bool axesAreParallel() const;
    lanes3 turnedBack(const lanes3& v) const; ///< to B's axes

    const fitted_box* a_;
    const fitted_box* b_;
    lanes columns_[4];    ///< of the matrix
    lanes turned_[3];     ///< the first three over the scale
    lanes spread_b_[3];   ///< magnitudes of the first three
    lanes spread_a_[3]{}; ///< magnitudes of what was turned, row by row
    float scale_;         ///< of the matrix
    float reach_scale_;   ///< from a reach of B to the diagonal of its box in A's coordinates
    float reach_more_;    ///< that boxes of leaves may be larger than the reaches say
    float rounding_;      ///< of positions worked out here
    float blur_scale_;    ///< length by which B's normals are blurred, in B's coordinates
    float skew_;          ///< sine of the angle by which the matrix bends
    bool strict_;         ///< axes or large faces of A and B are parallel
    bool suits_ = false;
};

} // namespace morva::osg
