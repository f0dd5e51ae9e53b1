#pragma once

// A range of values that somebody else owns: pointer and length, nothing more. Passes hand
// blocks of scene data around as spans, so that loops run on plain values.
//
//     void sum(span<const float> values);
//     sum(some_vector);              // any vector of the element type converts
//     sum(span<const float>(p, n));  // and so does a pointer with a length
//
// A span is as valid as the storage behind it: growing the vector or dropping the property ends
// it. Indices are not checked outside of assertions. Copies are cheap; pass by value.

#include <cassert>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace morva {

/// `size()` values of type `T` from `data()` on; an empty span may have a null `data()`.
template <typename T> class span {
  public:
    using element_type = T;
    using value_type = std::remove_cv_t<T>;
    using iterator = T*;

    constexpr span() = default;
    constexpr span(T* values, std::size_t count) : data_(values), size_(count) {}

    /// The whole of a vector; the vector must not grow while the span is in use.
    template <typename U, typename Allocator,
              typename = std::enable_if_t<std::is_convertible_v<U (*)[], T (*)[]>>>
    span(std::vector<U, Allocator>& values) : data_(values.data()), size_(values.size()) {}

    /// The whole of a constant vector, for spans of constant values.
    template <typename U, typename Allocator,
              typename = std::enable_if_t<std::is_convertible_v<const U (*)[], T (*)[]>>>
    span(const std::vector<U, Allocator>& values) : data_(values.data()), size_(values.size()) {}

    /// An array of known length.
    template <std::size_t N> constexpr span(T (&values)[N]) : data_(values), size_(N) {}

    /// A span of values as a span of constant values.
    template <typename U, typename = std::enable_if_t<!std::is_same_v<U, T> &&
                                                      std::is_convertible_v<U (*)[], T (*)[]>>>
    constexpr span(const span<U>& other) : data_(other.data()), size_(other.size()) {}

    constexpr T* data() const { return data_; }
    constexpr std::size_t size() const { return size_; }
    constexpr bool empty() const { return size_ == 0; }
    constexpr T* begin() const { return data_; }
    constexpr T* end() const { return data_ + size_; }

    constexpr T& operator[](std::size_t index) const {
        assert(index < size_);
        return data_[index];
    }
    constexpr T& front() const { return (*this)[0]; }
    constexpr T& back() const { return (*this)[size_ - 1]; }

    /// The values from `first` on, at most `count` of them; what lies past the end is left out,
    /// so a `first` at or past the end gives an empty span.
    constexpr span subspan(std::size_t first,
                           std::size_t count = static_cast<std::size_t>(-1)) const {
        if (first >= size_)
            return span();
        const std::size_t rest = size_ - first;
        return span(data_ + first, count < rest ? count : rest);
    }

  private:
    T* data_ = nullptr;
    std::size_t size_ = 0;
};

template <typename T, typename Allocator> span(std::vector<T, Allocator>&) -> span<T>;
template <typename T, typename Allocator> span(const std::vector<T, Allocator>&) -> span<const T>;

} // namespace morva
