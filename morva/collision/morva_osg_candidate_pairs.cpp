#include <morva/collision/morva_osg_candidate_pairs.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace morva::osg {

namespace {

constexpr std::uint32_t balls_of_a_leaf = 4;

} // namespace

void ball_heap::add(const placed_ball& ball) {
    low = smaller(low, ball.center);
    high = larger(high, ball.center);
    radius = std::max(radius, ball.radius);
}

bool isBeyond(const near_query& query, const ball_heap& balls) {
    const lanes reach = query.half + query.growth * allLanes(balls.radius);
    return !query.everywhere &&
           anyLane((balls.low > query.center + reach) | (balls.high < query.center - reach));
}

near_query joined(const near_query& a, const near_query& b) {
    const lanes low = smaller(a.center - a.half, b.center - b.half);
    const lanes high = larger(a.center + a.half, b.center + b.half);
    const lanes center = (low + high) * allLanes(0.5F);
    return {center, larger(high - center, center - low) * allLanes(1.00001F),
            larger(a.growth, b.growth), a.everywhere || b.everywhere};
}

ball_rows::ball_rows(const std::vector<placed_ball>& balls)
    : rows_((balls.size() + 3) / 4), count_(static_cast<std::uint32_t>(balls.size())) {
    for (std::size_t i = 0; i < 4 * rows_.size(); ++i) {
        row& to = rows_[i / 4];
        const placed_ball& ball = balls[std::min(i, balls.size() - 1)]; // lanes beyond don't count
        to.x[i % 4] = ball.center[0];
        to.y[i % 4] = ball.center[1];
        to.z[i % 4] = ball.center[2];
        to.radius[i % 4] = ball.radius;
    }
}

void ball_rows::findNear(const near_query& query, std::vector<std::uint32_t>& found) const {
    const auto isOff = [&query](std::size_t axis, lanes at, lanes radius) {
        const lanes reach = allLanes(query.half[axis]) + allLanes(query.growth[axis]) * radius;
        const lanes center = allLanes(query.center[axis]);
        return (at > center + reach) | (at < center - reach);
    };
    found.clear();
    for (std::uint32_t first = 0; first < count_; first += 4) {
        const row& four = rows_[first / 4];
        const lane_mask off = isOff(0, four.x, four.radius) | isOff(1, four.y, four.radius) |
                              isOff(2, four.z, four.radius);
        unsigned near = query.everywhere ? 15 : bitsOf(~off);
        for (; near != 0; near &= near - 1) {
            const std::uint32_t number = first + static_cast<std::uint32_t>(__builtin_ctz(near));
            if (number < count_)
                found.push_back(number);
        }
    }
}

ball_tree::ball_tree(std::vector<placed_ball> balls)
    : balls_(std::move(balls)), order_(balls_.size()) {
    std::iota(order_.begin(), order_.end(), 0U);
    build(0, static_cast<std::uint32_t>(order_.size()));
}

std::uint32_t ball_tree::build(std::uint32_t first, std::uint32_t count) {
    const auto at = static_cast<std::uint32_t>(nodes_.size());
    ball_heap balls(balls_[order_[first]]);
    for (std::uint32_t i = first + 1; i < first + count; ++i)
        balls.add(balls_[order_[i]]);
    nodes_.push_back({balls, first, count, 0});
    if (count <= balls_of_a_leaf)
        return at;
    std::size_t axis = 0;
    for (std::size_t k = 1; k < 3; ++k)
        if (balls.high[k] - balls.low[k] > balls.high[axis] - balls.low[axis])
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
    found.clear();
    search(0, query, found);
    std::sort(found.begin(), found.end());
}

void ball_tree::search(std::uint32_t at, const near_query& query,
                       std::vector<std::uint32_t>& found) const {
    const node& here = nodes_[at];
    if (isBeyond(query, here.balls))
        return;
    if (here.right != 0) {
        search(at + 1, query, found);
        search(here.right, query, found);
        return;
    }
    for (std::uint32_t i = here.first; i < here.first + here.count; ++i)
        if (!isBeyond(query, ball_heap(balls_[order_[i]])))
            found.push_back(order_[i]);
}

} // namespace morva::osg
