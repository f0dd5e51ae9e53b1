#pragma once

// The per-axis arrays of a geoset while they are being made: freed at the end of the scope, unless
// they have changed places with those of the geoset.
//
//     axis_arrays wider(entries);             // may throw: nothing has happened then
//     wider.changePlaces(geoset.axis_min);    // cannot fail; the old ones go with the scope

#include <cstddef>
#include <utility>

namespace morva::osg {

/// Frees the three arrays of a geoset and their holder; null is fine.
inline void freeAxisArrays(float**& arrays) {
    if (arrays == nullptr)
        return;
    for (int axis = 0; axis < 3; ++axis)
        delete[] arrays[axis];
    delete[] arrays;
    arrays = nullptr;
}

/// Three arrays of floats, not initialised, and the array that holds them.
class axis_arrays {
  public:
    explicit axis_arrays(std::size_t entries) : arrays(new float* [3] {}) {
        try {
            for (int axis = 0; axis < 3; ++axis)
                arrays[axis] = new float[entries];
        } catch (...) {
            freeAxisArrays(arrays);
            throw;
        }
    }
    axis_arrays(const axis_arrays&) = delete;
    axis_arrays& operator=(const axis_arrays&) = delete;
    ~axis_arrays() { freeAxisArrays(arrays); }

    float* operator[](int axis) const { return arrays[axis]; }
    void changePlaces(float**& other) { std::swap(arrays, other); }

  private:
    float** arrays;
};

} // namespace morva::osg
