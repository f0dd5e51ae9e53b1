#pragma once

// The items of a packing by where they lie, to see whether a place is taken.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <morva/textures/texturatlas_free_pool.h>

namespace morva {

class placed_rows {
  public:
    /// tallest  height that no item is above; 0 or less keeps nothing, and no place is taken
    explicit placed_rows(std::int32_t tallest) : on_(tallest > 0) {
        while (std::int64_t{1} << shift_ < tallest)
            ++shift_;
    }

    void add(const placed_size& item) {
        if (on_)
            rows_[rowOf(item.place.height)].push_back(item);
    }

    /// Whether an item and a place share some area.
    bool meets(const placed_size& place) const {
        if (!on_)
            return false;
        // An item that begins above the row before ends above the place.
        const std::int64_t last = rowOf(std::int64_t{place.place.height} + place.size.height);
        for (std::int64_t row = rowOf(place.place.height) - 1; row <= last; ++row) {
            const auto found = rows_.find(row);
            if (found == rows_.end())
                continue;
            for (const placed_size& item : found->second) {
                if (overlap(item.place.width, item.size.width, place.place.width,
                            place.size.width) &&
                    overlap(item.place.height, item.size.height, place.place.height,
                            place.size.height))
                    return true;
            }
        }
        return false;
    }

  private:
    std::int64_t rowOf(std::int64_t y) const { return y >> shift_; }

    static bool overlap(std::int64_t a, std::int64_t a_size, std::int64_t b, std::int64_t b_size) {
        return a_size > 0 && b_size > 0 && a < b + b_size && b < a + a_size;
    }

    bool on_;
    unsigned shift_ = 0; ///< rows are 2^shift high, at least as high as the tallest
    std::unordered_map<std::int64_t, std::vector<placed_size>> rows_; ///< by where items begin
};

} // namespace morva
