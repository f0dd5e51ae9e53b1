#include <morva/collision/morva_osg_candidate_pairs.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace morva::osg {

namespace {

constexpr std::uint32_t balls_of_a_leaf = 4;

bool isFinite(const placed_ball& ball) {
    return std::isfinite(ball.center[0]) && std::isfinite(ball.center[1]) &&
           std::isfinite(ball.center[2]) && std::isfinite(ball.radius);
}

/// Whether a box of centres with radii of at most `radius` is out of a query's reach.
bool isBeyond(const near_query& query, const double (&low)[3], const double (&high)[3],
              double radius) {
    for (std::size_t k = 0; k < 3; ++k) {
        const double reach = query.half[k] + query.growth[k] * radius;
        if (low[k] > query.center[k] + reach || high[k] < query.center[k] - reach)
            return true;
    }
    return false;
}

} // namespace

bool isBeyond(const near_query& query, const placed_ball& ball) {
    return !query.everywhere && isFinite(ball) &&
           isBeyond(query, ball.center, ball.center, ball.radius);
}

placed_ball ballAround(const std::vector<placed_ball>& balls) {
    placed_ball around = balls.front();
    double low[3], high[3], square = 0.0;
    std::copy_n(around.center, 3, low);
    std::copy_n(around.center, 3, high);
    for (const placed_ball& ball : balls) {
        if (!isFinite(ball))
            return ball;
        for (std::size_t k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], ball.center[k]);
            high[k] = std::max(high[k], ball.center[k]);
        }
        around.radius = std::max(around.radius, ball.radius);
    }
    for (std::size_t k = 0; k < 3; ++k) {
        around.center[k] = (low[k] + high[k]) * 0.5;
        square += (high[k] - low[k]) * (high[k] - low[k]) * 0.25;
    }
    around.radius += std::sqrt(square) * (1.0 + 1e-9);
    return around;
}

near_query joined(const near_query& a, const near_query& b) {
    near_query both{};
    both.everywhere = a.everywhere || b.everywhere;
    for (std::size_t k = 0; k < 3; ++k) {
        const double low = std::min(a.center[k] - a.half[k], b.center[k] - b.half[k]);
        const double high = std::max(a.center[k] + a.half[k], b.center[k] + b.half[k]);
        both.center[k] = (low + high) * 0.5;
        both.half[k] = (high - low) * (0.5 + 1e-9);
        both.growth[k] = std::max(a.growth[k], b.growth[k]);
    }
    return both;
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
    for (std::uint32_t i = first; i < first + count; ++i) {
        const placed_ball& ball = balls_[order_[i]];
        for (std::size_t k = 0; k < 3; ++k) {
            here.low[k] = i == first ? ball.center[k] : std::min(here.low[k], ball.center[k]);
            here.high[k] = i == first ? ball.center[k] : std::max(here.high[k], ball.center[k]);
        }
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
