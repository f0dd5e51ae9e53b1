#pragma once

// The free rectangles of a packing, in the order in which they are tried: by size, and of one size
// the one first that is there longest.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <morva/textures/texturatlas.h>

namespace morva {

/// A number as far as 32 bits hold it.
inline std::int32_t saturated(std::int64_t value) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(
        value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

/// A rectangle somewhere in an atlas.
struct placed_size {
    texturinfo size, place;
};

class free_pool {
  public:
    explicit free_pool(const texturatlas::map& content);
    texturatlas::map content() const;

    bool empty() const { return spaces_.empty(); }
    std::size_t size() const { return spaces_.size(); }
    const placed_size& operator[](std::size_t at) const { return spaces_[at]; }

    /// Where the first one is that does not come before a size.
    std::size_t notBefore(const texturinfo& size) const;
    /// Adds one behind those of its size.
    void add(std::int64_t width, std::int64_t height, std::int64_t x, std::int64_t y);
    void remove(std::size_t at);

    /// See texturatlas::combineFreeSpaces().
    void combine();

  private:
    std::vector<placed_size> spaces_; ///< in order
};

} // namespace morva
