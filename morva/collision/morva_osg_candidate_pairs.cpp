#include <morva/collision/morva_osg_candidate_pairs.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace morva::osg {

namespace {

constexpr std::uint32_t balls_of_a_leaf = 4;

bool isFinite(const placed_ball& ball) {
    const lanes nothing = (ball.center + allLanes(ball.radius)) * lanes{};
    return !anyLane(nothing != lanes{});
}

/// Whether a box of centres with radii of at most `radius` is out of a query's reach; a NaN is not.
bool isBeyond(const near_query& query, lanes low, lanes high, float radius) {
    const lanes reach = query.half + query.growth * allLanes(radius);
    return anyLane((low > query.center + reach) | (high < query.center - reach));
}

} // namespace

bool isBeyond(const near_query& query, const placed_ball& ball) {
    return !query.everywhere && isBeyond(query, ball.center, ball.center, ball.radius);
}

placed_ball ballAround(const std::vector<placed_ball>& balls) {
    placed_ball around = balls.front();
    lanes low = around.center, high = around.center;
    for (const placed_ball& ball : balls) {
        if (!isFinite(ball))
            return ball;
        low = smaller(low, ball.center);
        high = larger(high, ball.center);
        around.radius = std::max(around.radius, ball.radius);
    }
    around.center = (low + high) * allLanes(0.5F);
    const lanes half = larger(high - around.center, around.center - low);
    around.radius = (around.radius + std::max({half[0], half[1], half[2]})) * 1.00001F;
    return around;
}

near_query joined(const near_query& a, const near_query& b) {
    const lanes low = smaller(a.center - a.half, b.center - b.half);
    const lanes high = larger(a.center + a.half, b.center + b.half);
    const lanes center = (low + high) * allLanes(0.5F);
    return {center, larger(high - center, center - low) * allLanes(1.00001F),
            larger(a.growth, b.growth), a.everywhere || b.everywhere};
}

ball_tree::ball_tree(std::vector<placed_ball> balls) : balls_(std::move(balls)) {
    for (std::uint32_t i = 0; i < balls_.size(); ++i)
        (isFinite(balls_[i]) ? order_ : everywhere_).push_back(i);
    if (!order_.empty())
        build(0, static_cast<std::uint32_t>(order_.size()));
}

std::uint32_t ball_tree::build(std::uint32_t first, std::uint32_t count) {
    const auto at = static_cast<std::uint32_t>(nodes_.size());
    node here{};
    here.first = first;
    here.count = count;
    here.low = here.high = balls_[order_[first]].center;
    for (std::uint32_t i = first; i < first + count; ++i) {
        const placed_ball& ball = balls_[order_[i]];
        here.low = smaller(here.low, ball.center);
        here.high = larger(here.high, ball.center);
        here.radius = std::max(here.radius, ball.radius);
    }
    nodes_.push_back(here);
    if (count <= balls_of_a_leaf)
        return at;
    std::size_t axis = 0;
    for (std::size_t k = 1; k < 3; ++k)
        if (here.high[k] - here.low[k] > here.high[axis] - here.low[axis])
            axis = k;
    const auto begin = order_.begin() + first;
    std::nth_element(begin, begin + count / 2, begin + count,
                     [&](std::uint32_t a, std::uint32_t b) {
                         return balls_[a].center[axis] < balls_[b].center[axis];
                     });
    build(first, count / 2);
    const std::uint32_t right = build(first + count / 2, count - count / 2);
    nodes_[at].right = right;
    return at;
}

void ball_tree::findNear(const near_query& query, std::vector<std::uint32_t>& found) const {
    found = everywhere_;
    if (query.everywhere)
        found.insert(found.end(), order_.begin(), order_.end());
    else if (!nodes_.empty())
        search(0, query, found);
    std::sort(found.begin(), found.end());
}

void ball_tree::search(std::uint32_t at, const near_query& query,
                       std::vector<std::uint32_t>& found) const {
    const node& here = nodes_[at];
    if (isBeyond(query, here.low, here.high, here.radius))
        return;
    if (here.right != 0) {
        search(at + 1, query, found);
        search(here.right, query, found);
        return;
    }
    for (std::uint32_t i = here.first; i < here.first + here.count; ++i) {
        const placed_ball& ball = balls_[order_[i]];
        if (!isBeyond(query, ball.center, ball.center, ball.radius))
            found.push_back(order_[i]);
    }
}

} // namespace morva::osg
