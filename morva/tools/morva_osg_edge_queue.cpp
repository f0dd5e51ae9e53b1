#include <morva/tools/morva_osg_edge_queue.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <morva/core/morva_huge_pages.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr std::size_t fan_out = 8;

/// The least of eight numbers.
double leastOf(const double* numbers) {
    double least = never;
    for (std::size_t i = 0; i < fan_out; ++i)
        least = numbers[i] < least ? numbers[i] : least;
    return least;
}

std::size_t filledUp(std::size_t count) { return (count + fan_out - 1) / fan_out * fan_out; }

} // namespace

vertex_uses::vertex_uses(std::size_t vertices, span<const UInt32> vertex_of_corner)
    : first(vertices + 2), corners(vector_in_huge_pages<UInt32>(vertex_of_corner.size())) {
    for (const UInt32 vertex : vertex_of_corner)
        ++first[vertex + 2];
    for (std::size_t v = 2; v < first.size(); ++v)
        first[v] += first[v - 1];
    // first[v + 1] is where the next corner of v goes: at last, where those of v + 1 begin.
    for (std::size_t corner = 0; corner < corners.size(); ++corner)
        corners[first[vertex_of_corner[corner] + 1]++] = static_cast<UInt32>(corner);
    first.pop_back();
}

std::vector<bool> borderVertices(const vertex_uses& uses, span<const UInt32> corners) {
    std::vector<bool> border(uses.first.size() - 1);
    std::vector<UInt32> others; // once per edge of a triangle at the vertex
    for (std::size_t v = 0; v < border.size(); ++v) {
        others.clear();
        for (const UInt32 corner : uses.of(v)) {
            const UInt32 next = corners[endOf(corner)], before = corners[edgeTo(corner)];
            if (next == v || before == v || next == before)
                continue;
            others.push_back(next);
            others.push_back(before);
        }
        std::sort(others.begin(), others.end());
        for (std::size_t i = 0, end = 0; i < others.size(); i = end) {
            while (end < others.size() && others[end] == others[i])
                ++end;
            if (end - i == 1)
                border[v] = true; // and the other end, when its turn comes
        }
    }
    return border;
}

least_tree::least_tree(std::vector<double> numbers) {
    levels_.push_back(std::move(numbers));
    levels_[0].resize(filledUp(levels_[0].size()), never);
    for (std::size_t count = levels_[0].size() / fan_out; count > 0;
         count = count == 1 ? 0 : filledUp(count) / fan_out)
        levels_.emplace_back(filledUp(count), never);
    mendAll();
}

void least_tree::mend(std::size_t place) {
    for (std::size_t level = 1; level < levels_.size(); ++level) {
        place /= fan_out;
        const double least = leastOf(&levels_[level - 1][place * fan_out]);
        if (levels_[level][place] == least)
            return;
        levels_[level][place] = least;
    }
}

void least_tree::mendAll() {
    for (std::size_t level = 1; level < levels_.size(); ++level) {
        const std::vector<double>& below = levels_[level - 1];
        for (std::size_t place = 0; place * fan_out < below.size(); ++place)
            levels_[level][place] = leastOf(&below[place * fan_out]);
    }
}

std::size_t least_tree::least() const {
    std::size_t place = 0;
    if (levels_[0].empty() || !(levels_.back()[0] < std::numeric_limits<double>::max()))
        return none;
    // From the top down: the first of those that are as low as the node above.
    for (std::size_t level = levels_.size() - 1; level-- > 0;) {
        const double least = levels_[level + 1][place];
        place *= fan_out;
        while (levels_[level][place] != least)
            ++place;
    }
    return place;
}

std::vector<edge_queue::vertex_state> edge_queue::statesOf(span<const ::osg::Pnt3f> places,
                                                           const vertex_uses& uses) {
    auto states = vector_in_huge_pages<vertex_state>(places.size());
    for (std::size_t v = 0; v < places.size(); ++v)
        states[v] = {places[v], static_cast<UInt32>(uses.count(v))};
    return states;
}

edge_queue::edge_queue(span<const ::osg::Pnt3f> places, span<const UInt32> corners,
                       const vertex_uses& uses, const std::vector<bool>& locked)
    : corners_(corners), uses_(uses), vertices_(statesOf(places, uses)),
      closed_(closedEdges(corners, locked)), costs_(leastCosts()), left_(corners.size()) {
    if (closed_.empty() || (closed_[0] & 1U) != 0)
        findNext();
    else
        chosen_ = 0;
}

std::vector<std::uint8_t> edge_queue::closedEdges(span<const UInt32> corners,
                                                  const std::vector<bool>& locked) {
    std::vector<std::uint8_t> closed(corners.size() / 3);
    for (std::size_t edge = 0; edge < corners.size() && !locked.empty(); ++edge) {
        if (locked[corners[edge]] || locked[corners[endOf(edge)]])
            closed[edge / 3] = static_cast<std::uint8_t>(closed[edge / 3] | 1U << edge % 3);
    }
    return closed;
}

std::vector<double> edge_queue::leastCosts() const {
    std::vector<double> costs;
    const std::size_t room = filledUp(closed_.size());
    costs.reserve(room);
    wish_huge_pages(costs.data(), room * sizeof(double));
    for (std::size_t triangle = 0; triangle < closed_.size(); ++triangle)
        costs.push_back(leastCost(triangle));
    return costs;
}

double edge_queue::costOf(std::size_t edge) const {
    if ((closed_[edge / 3] >> edge % 3 & 1U) != 0)
        return never;
    const vertex_state& start = vertices_[corners_[edge]];
    const vertex_state& end = vertices_[corners_[endOf(edge)]];
    const double cost = distanceBetween(start.place, end.place) + start.references + end.references;
    return cost < std::numeric_limits<double>::max() ? cost : never; // a NaN, too
}

double edge_queue::leastCost(std::size_t triangle) const {
    if (closed_[triangle] == all_closed)
        return never;
    return std::min({costOf(3 * triangle), costOf(3 * triangle + 1), costOf(3 * triangle + 2)});
}

bool edge_queue::findNext() {
    const std::size_t triangle = costs_.least();
    chosen_ = triangle == least_tree::none ? triangle : 3 * triangle;
    if (chosen_ == least_tree::none)
        return false;
    while (costOf(chosen_) != costs_[triangle])
        ++chosen_;
    __builtin_prefetch(&uses_.first[corners_[chosen_]]);
    return true;
}

vertex_pair edge_queue::collapse() {
    const std::size_t edge = chosen_;
    const vertex_pair pair{corners_[edge], corners_[endOf(edge)]};
    vertex_state& kept = vertices_[pair.kept];
    const vertex_state& gone = vertices_[pair.gone];
    moveToMiddle(kept.place, gone.place);
    kept.references += gone.references - 1;
    closed_[edge / 3] = static_cast<std::uint8_t>(closed_[edge / 3] | 1U << edge % 3);
    --left_;
    recalculate(pair.kept); // its triangle among the others
    return pair;
}

void edge_queue::recalculate(std::size_t vertex) {
    const span<const UInt32> at = uses_.of(vertex);
    // Out of the cache, all of it: asked for together.
    for (const UInt32 corner : at) {
        costs_.fetch(corner / 3);
        __builtin_prefetch(&corners_[corner]);
    }
    for (const UInt32 corner : at) {
        __builtin_prefetch(&vertices_[corners_[endOf(corner)]]);
        __builtin_prefetch(&vertices_[corners_[edgeTo(corner)]]);
    }
    const bool all = at.size() > costs_.mendsOfAll();
    for (const UInt32 corner : at) {
        costs_.put(corner / 3, leastCost(corner / 3));
        if (!all)
            costs_.mend(corner / 3);
    }
    if (all)
        costs_.mendAll();
}

} // namespace morva::osg
