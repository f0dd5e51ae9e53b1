#include <morva/tools/morva_osg_live_triangles.h>

#include <numeric>
#include <utility>

namespace morva::osg {

using ::osg::UInt32;

live_triangles::live_triangles(span<const UInt32> corners, const vertex_uses& uses)
    : corners_(corners), uses_(uses), class_at_(uses.first.size() - 1), next_(class_at_.size()),
      class_use_(class_at_.size()), dead_(corners.size() / 3) {
    std::iota(class_at_.begin(), class_at_.end(), 0U);
    class_of_ = next_ = class_at_; // each vertex alone, in the class of its number
    for (std::size_t v = 0; v < class_use_.size(); ++v)
        class_use_[v] = static_cast<UInt32>(uses.count(v));
    for (std::size_t t = 0; t < dead_.size(); ++t) {
        const UInt32 a = corners[3 * t], b = corners[3 * t + 1], c = corners[3 * t + 2];
        dead_[t] = a == b || b == c || c == a;
        live_ += dead_[t] ? 0 : 1;
    }
}

void live_triangles::join(vertex_pair pair) {
    const UInt32 coming = class_at_[pair.gone];
    UInt32& there = class_at_[pair.kept];
    if (pair.kept == pair.gone || coming == nobody)
        return;
    class_at_[pair.gone] = nobody;
    if (there == nobody) {
        there = coming;
        return;
    }
    UInt32 smaller = coming, larger = there;
    if (class_use_[smaller] > class_use_[larger])
        std::swap(smaller, larger);
    killBetween(smaller, larger);
    UInt32 member = smaller; // a class bears the number of one of its vertices
    do {
        class_of_[member] = larger;
        member = next_[member];
    } while (member != smaller);
    std::swap(next_[smaller], next_[larger]);
    class_use_[larger] += class_use_[smaller];
    there = larger;
}

void live_triangles::killBetween(UInt32 smaller, UInt32 larger) {
    UInt32 member = smaller;
    do {
        for (const UInt32 corner : uses_.of(member)) {
            const bool meets = class_of_[corners_[endOf(corner)]] == larger ||
                               class_of_[corners_[edgeTo(corner)]] == larger;
            if (!meets || dead_[corner / 3])
                continue;
            dead_[corner / 3] = true;
            --live_;
        }
        member = next_[member];
    } while (member != smaller);
}

} // namespace morva::osg
