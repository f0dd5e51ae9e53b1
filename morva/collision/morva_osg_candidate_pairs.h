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

/// A ball in world coordinates.
struct placed_ball {
    lanes center; ///< finite; the last lane is 0
    float radius; ///< infinity: near everything
};

/// Several balls: the box of their centres and the largest radius.
struct ball_heap {
    lanes low, high;
    float radius;

    explicit ball_heap(const placed_ball& ball)
        : low(ball.center), high(ball.center), radius(ball.radius) {}
    void add(const placed_ball& ball);
};

/// Whether a query rules all balls of a heap out: no centre is within the box grown for a radius.
bool isBeyond(const near_query& query, const ball_heap& balls);

/// A query that rules out what each of two does.
near_query joined(const near_query& a, const near_query& b);

/// Balls four at a time, for lists in which a tree does not pay.
class ball_rows {
  public:
    explicit ball_rows(const std::vector<placed_ball>& balls);

    /// The numbers of the balls that a query can't rule out, ascending.
    void findNear(const near_query& query, std::vector<std::uint32_t>& found) const;

  private:
    struct row {
        lanes x, y, z, radius;
    };
    std::vector<row> rows_;
    std::uint32_t count_;
};

class ball_tree {
  public:
    explicit ball_tree(std::vector<placed_ball> balls);

    /// As ball_rows::findNear().
    void findNear(const near_query& query, std::vector<std::uint32_t>& found) const;

  private:
    /// The balls of a range of `order_`.
    struct node {
        ball_heap balls;
        std::uint32_t first, count;
        std::uint32_t right; ///< 0 in a leaf; the left child is the next node
    };

    std::uint32_t build(std::uint32_t first, std::uint32_t count);
    void search(std::uint32_t at, const near_query& query, std::vector<std::uint32_t>& found) const;

    std::vector<placed_ball> balls_;
    std::vector<std::uint32_t> order_; ///< all of them, neighbours side by side
    std::vector<node> nodes_;
};

} // namespace morva::osg
