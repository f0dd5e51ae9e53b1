#pragma once

// The per-axis arrays of a geoset while they are being made: freed at the end of the scope, unless
// they have changed places with those of the geoset.
//
//     axis_arrays wider(entries);             // may throw: nothing has happened then
//     wider.changePlaces(geoset.axis_min);    // cannot fail; the old ones go with the scope

#include <cstddef>
#include <utility>

#include <morva/core/morva_huge_pages.h>

namespace morva::osg {

/// Frees the three arrays of a geoset and their holder; null is fine.
inline void freeAxisArrays(float**& arrays) {
    if (arrays == nullptr)
        return;
    delete[] arrays[0];
    delete[] arrays;
    arrays = nullptr;
}

/// Three arrays of floats, not initialised, and the array that holds them. They are one block: a
/// large one goes back to the system when it is freed, where three would leave holes in the heap.
class axis_arrays {
  public:
    explicit axis_arrays(std::size_t entries) : arrays_(new float* [3] {}) {
        try {
            arrays_[0] = new float[3 * entries];
            wish_huge_pages(arrays_[0], 3 * entries * sizeof(float));
        } catch (...) {
            freeAxisArrays(arrays_);
            throw;
        }
        arrays_[1] = arrays_[0] + entries;
        arrays_[2] = arrays_[1] + entries;
    }
    axis_arrays(const axis_arrays&) = delete;
    axis_arrays& operator=(const axis_arrays&) = delete;
    ~axis_arrays() { freeAxisArrays(arrays_); }

    float* operator[](int axis) const { return arrays_[axis]; }
    void changePlaces(float**& other) { std::swap(arrays_, other); }

  private:
    float** arrays_;
};

} // namespace morva::osg
