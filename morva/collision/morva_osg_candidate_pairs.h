#pragma once

// Which nodes of a list can meet a given one, without asking each: a tree of balls over places.
// For the library's own source files; built by one thread, read by any number.

#include <cstdint>
#include <vector>

#include <morva/collision/morva_osg_lanes.h>

namespace morva::osg {

/// A box in world coordinates, and how it grows with the size of what is near it. Last lanes are 0.
struct near_query {
    lanes center;
    lanes half;      ///< of the box
    lanes growth;    ///< for each unit of the other's radius; at least 1
    bool everywhere; ///< nothing can be ruled out; the rest means nothing
};

/// A ball in world coordinates. One that is not finite is near everything.
struct placed_ball {
    lanes center; ///< the last lane is 0
    float radius;
};

/// Whether a query rules a ball out: its centre is not within the box grown for its radius.
bool isBeyond(const near_query& query, const placed_ball& ball);

/// A ball around all centres, with the largest radius on top; balls that are not finite make it
/// infinite. At least one ball.
placed_ball ballAround(const std::vector<placed_ball>& balls);

/// A query that rules out what each of two does.
near_query joined(const near_query& a, const near_query& b);

class ball_tree {
  public:
    explicit ball_tree(std::vector<placed_ball> balls);

    /// The numbers of the balls that a query can't rule out, ascending.
    void findNear(const near_query& query, std::vector<std::uint32_t>& found) const;

  private:
    /// Centres and the largest radius of a range of `order_`.
    struct node {
        lanes low, high;
        float radius;
        std::uint32_t first, count;
        std::uint32_t right; ///< 0 in a leaf; the left child is the next node
    };

    std::uint32_t build(std::uint32_t first, std::uint32_t count);
    void search(std::uint32_t at, const near_query& query, std::vector<std::uint32_t>& found) const;

    std::vector<placed_ball> balls_;
    std::vector<std::uint32_t> order_;      ///< the finite ones
    std::vector<std::uint32_t> everywhere_; ///< the others
    std::vector<node> nodes_;
};

} // namespace morva::osg
