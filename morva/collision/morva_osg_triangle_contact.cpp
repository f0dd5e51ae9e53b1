#include <morva/collision/morva_osg_triangle_contact.h>

#include <algorithm>
#include <cstring>

#include <morva/trees/ray_traversal.h>

namespace morva::osg {

namespace {

using hit_record = intersection_point<float, float3, float3>;

/// Whether a segment of any of four pairs may meet the front of its triangle; a NaN rejects
/// nothing. The steps of intersect_seg_triangle(), with the triangle's edges and normal at hand.
lane_mask mayMeet(const lanes3& p, const lanes3& q, const lanes3& a, const lanes3& ab,
                  const lanes3& ac, const lanes3& normal) {
    const lanes zero{};
    const lanes3 ap = p - a;
    const lanes t = dot(ap, normal);
    lane_mask out = t < zero;
    if (bitsOf(out) == 15)
        return ~out;
    const lanes3 qp = p - q;
    const lanes d = dot(qp, normal);
    out |= (d <= zero) | (t > d);
    if (bitsOf(out) == 15)
        return ~out;
    const lanes3 e = cross(qp, ap);
    const lanes v = dot(ac, e), w = dot(ab, e);
    out |= (v < zero) | (v > d) | (w > zero) | (v - w > d);
    return ~out;
}

/// The six segments, one after the other.
bool contactOf(const float_triangle& a, const float_triangle& b, float3& point) {
    hit_record record;
    const auto enters = [&record](const float_triangle& through, const float3& p, const float3& q) {
        intersect_seg_triangle(through.a, through.b, through.c, p, q, record);
        return record.hit;
    };
    if (!(enters(a, b.a, b.b) || enters(a, b.b, b.c) || enters(a, b.c, b.a) ||
          enters(b, a.a, a.b) || enters(b, a.b, a.c) || enters(b, a.c, a.a)))
        return false;
    point = record.point;
    return true;
}

/// Orders triangles by their bits, in any way that makes equal ones neighbours; 0 for equal ones.
int orderOfBits(const float_triangle& a, const float_triangle& b) {
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): -0 and 0 are not the same here
    return std::memcmp(&a, &b, sizeof a);
}

void keepDifferent(std::vector<leaf_entry>& entries) {
    std::sort(entries.begin(), entries.end(), [](const leaf_entry& a, const leaf_entry& b) {
        const int order = orderOfBits(*a.triangle, *b.triangle);
        return order != 0 ? order < 0 : a.place < b.place;
    });
    entries.erase(std::unique(entries.begin(), entries.end(),
                              [](const leaf_entry& a, const leaf_entry& b) {
                                  return orderOfBits(*a.triangle, *b.triangle) == 0;
                              }),
                  entries.end());
    std::sort(entries.begin(), entries.end(),
              [](const leaf_entry& a, const leaf_entry& b) { return a.place < b.place; });
}

void setLane(lanes3& to, std::size_t lane, const float3& p) {
    to.x[lane] = p[0];
    to.y[lane] = p[1];
    to.z[lane] = p[2];
}

} // namespace

void readLeaf(const bih_tree<float>& tree, const triangle_list& list, const bih_node<float>& leaf,
              std::vector<leaf_entry>& entries) {
    entries.clear();
    for (std::uint32_t i = 0; i < leaf.count; ++i) {
        const std::uint64_t object = tree.indices[std::uint64_t{leaf.first} + i];
        if (object < list.count)
            entries.push_back({list.triangles + object, i});
    }
    // The first contact is one of first occurrences: an equal one before would have been it.
    if (leaf.count > large_leaf)
        keepDifferent(entries);
}

void leaf_packs::load(const std::vector<leaf_entry>& entries,
                      const math::transformation_matrix<float>& m) {
    packs_.resize((entries.size() + 3) / 4);
    for (std::size_t i = 0; i < 4 * packs_.size(); ++i) {
        triangle_pack& pack = packs_[i / 4];
        const std::size_t lane = i % 4;
        const leaf_entry& entry = entries[std::min(i, entries.size() - 1)];
        const float_triangle moved{transformed(m, entry.triangle->a),
                                   transformed(m, entry.triangle->b),
                                   transformed(m, entry.triangle->c)};
        pack.triangle[lane] = moved;
        pack.place[lane] = entry.place;
        if (i < entries.size())
            pack.count = static_cast<std::uint32_t>(lane) + 1;
        setLane(pack.corner[0], lane, moved.a);
        setLane(pack.corner[1], lane, moved.b);
        setLane(pack.corner[2], lane, moved.c);
    }
    for (triangle_pack& pack : packs_) {
        pack.ab = pack.corner[1] - pack.corner[0];
        pack.ac = pack.corner[2] - pack.corner[0];
        pack.normal = cross(pack.ab, pack.ac);
    }
}

bool leaf_packs::firstContact(const float_triangle& a, std::uint32_t& place, float3& point) const {
    const lanes3 corner[3] = {allLanes(a.a), allLanes(a.b), allLanes(a.c)};
    const lanes3 ab = corner[1] - corner[0], ac = corner[2] - corner[0], normal = cross(ab, ac);
    for (const triangle_pack& pack : packs_) {
        lane_mask maybe{};
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t next = (k + 1) % 3;
            maybe |= mayMeet(pack.corner[k], pack.corner[next], corner[0], ab, ac, normal);
            maybe |=
                mayMeet(corner[k], corner[next], pack.corner[0], pack.ab, pack.ac, pack.normal);
        }
        for (std::size_t lane = 0; anyLane(maybe) && lane < pack.count; ++lane) {
            if (maybe[lane] != 0 && contactOf(a, pack.triangle[lane], point)) {
                place = pack.place[lane];
                return true;
            }
        }
    }
    return false;
}

} // namespace morva::osg
