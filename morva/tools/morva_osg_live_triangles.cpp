#include <morva/tools/morva_osg_live_triangles.h>

#include <utility>

#include <morva/core/morva_huge_pages.h>

namespace morva::osg {

using ::osg::UInt32;

live_triangles::live_triangles(span<const UInt32> corners, const vertex_uses& uses)
    : corners_(corners), uses_(uses),
      vertices_(vector_in_huge_pages<vertex_state>(uses.first.size() - 1)),
      dead_(corners.size() / 3) {
    for (std::size_t v = 0; v < vertices_.size(); ++v) {
        const auto alone = static_cast<UInt32>(v);
        vertices_[v] = {alone, alone, alone, static_cast<UInt32>(uses.count(v))};
    }
    for (std::size_t t = 0; t < dead_.size(); ++t) {
        const UInt32 a = corners[3 * t], b = corners[3 * t + 1], c = corners[3 * t + 2];
        dead_[t] = a == b || b == c || c == a;
        live_ += dead_[t] ? 0 : 1;
    }
}

void live_triangles::join(vertex_pair pair) {
    const UInt32 coming = vertices_[pair.gone].class_at;
    UInt32& there = vertices_[pair.kept].class_at;
    if (pair.kept == pair.gone || coming == nobody)
        return;
    vertices_[pair.gone].class_at = nobody;
    if (there == nobody) {
        there = coming;
        return;
    }
    // Of equal ones those that are there: the triangles around them were just looked at.
    UInt32 smaller = coming, larger = there;
    if (vertices_[smaller].use >= vertices_[larger].use)
        std::swap(smaller, larger);
    killBetween(smaller, larger);
    UInt32 member = smaller; // a class bears the number of one of its vertices
    do {
        vertices_[member].class_of = larger;
        member = vertices_[member].next;
    } while (member != smaller);
    std::swap(vertices_[smaller].next, vertices_[larger].next);
    vertices_[larger].use += vertices_[smaller].use;
    there = larger;
}

void live_triangles::killBetween(UInt32 smaller, UInt32 larger) {
    UInt32 member = smaller;
    do {
        for (const UInt32 corner : uses_.of(member)) {
            const bool meets = vertices_[corners_[endOf(corner)]].class_of == larger ||
                               vertices_[corners_[edgeTo(corner)]].class_of == larger;
            if (!meets || dead_[corner / 3])
                continue;
            dead_[corner / 3] = true;
            --live_;
        }
        member = vertices_[member].next;
    } while (member != smaller);
}

} // namespace morva::osg
