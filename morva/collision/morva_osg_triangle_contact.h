#pragma once

// Triangle against triangle: the first of six edges that enters the other triangle through its
// front, the three of B through A before the three of A through B.
//
//     leaf_pack pack(tree_b, list_b, leaf_b, b_to_a);      B's corners in A's coordinates
//     pack.firstContact(triangle_a, pair, point)           `pair`: which of the leaf's triangles
//
// Four of B's triangles are tried at a time, each as it would be alone; whatever they can't rule
// out goes to intersect_seg_triangle(), which has the last word and gives the point.
//
// For the library's own source files; a pack belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <morva/collision/morva_osg_lanes.h>
#include <morva/core/morva_math.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/trees/bih_records.h>

namespace morva::osg {

/// A leaf with more triangles than this compares each different one once.
inline constexpr std::uint32_t large_leaf = 64;

/// A triangle of a leaf that is to be compared.
struct leaf_entry {
    const float_triangle* triangle;
    std::uint32_t place; ///< in the leaf, from 0 on
};

/// Reads the entries of a leaf, in order: all, or in a large leaf the first of each that are equal
/// to the last bit. Object numbers that the list does not have are passed over.
void readLeaf(const bih_tree<float>& tree, const triangle_list& list, const bih_node<float>& leaf,
              std::vector<leaf_entry>& entries);

/// Takes a corner of B into A's coordinates.
inline float3 transformed(const math::transformation_matrix<float>& m, const float3& p) {
    float3 result;
    for (std::size_t r = 0; r < 3; ++r)
        result[r] = p[0] * m[r] + p[1] * m[4 + r] + p[2] * m[8 + r] + m[12 + r];
    return result;
}

/// Up to four triangles of B, in A's coordinates; lanes beyond repeat the last one.
struct triangle_pack {
    lanes3 corner[3];
    lanes3 ab, ac, normal; ///< of the triangles
    float_triangle triangle[4];
    std::uint32_t place[4]; ///< in the leaf
    std::uint32_t count;    ///< 1 to 4
};

/// The triangles of a leaf of B, in A's coordinates.
class leaf_packs {
  public:
    /// Takes in a leaf in the place of the one before.
    void load(const std::vector<leaf_entry>& entries, const math::transformation_matrix<float>& m);

    /// The first triangle in contact with one of A.
    ///
    /// place    out: of B's triangle in its leaf
    /// point    out, left alone if there is none
    bool firstContact(const float_triangle& a, std::uint32_t& place, float3& point) const;

  private:
    std::vector<triangle_pack> packs_;
};

} // namespace morva::osg
