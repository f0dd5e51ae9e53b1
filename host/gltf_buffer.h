#pragma once

// The binary part of a glTF file: blocks end to end, each on a 4-byte boundary.
//
//     gltf_buffer buffer;
//     int accessor = buffer.addFloats(normals, 3, count);
//     ...
//     buffer.writeTo(file);          // the blocks
//     buffer.takeViews(), takeAccessors()    // their JSON
//
// Blocks that the caller owns are not copied: they must live and stay as they are until written.

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "output_file.h"

namespace morva::host {

class gltf_buffer {
  public:
    /// Adds `count` entries of `components` floats and returns their accessor. The caller keeps
    /// the values.
    int addFloats(const float* values, int components, std::size_t count);
    /// Adds positions, three floats each, with their bounds.
    int addPositions(const float* values, std::size_t count, const std::array<float, 3>& low,
                     const std::array<float, 3>& high);
    /// The same for values that the buffer takes over.
    int addFloats(std::vector<float> values, int components);
    /// Adds indices and returns their accessor: 16 bits wide if all are below `vertex_count` and
    /// that is at most 65,535.
    int addIndices(const std::vector<std::uint32_t>& indices, std::size_t vertex_count);
    /// Adds one number per vertex and returns their accessor: as narrow as the highest wants,
    /// floats above 65,535, which are exact up to `exact_rows`.
    int addRows(const std::vector<std::uint32_t>& rows, std::uint32_t highest);
    static constexpr std::uint32_t exact_rows = 1u << 24;
    /// Adds plain bytes, from a multiple of `alignment` on, and returns their view.
    int addBytes(const std::vector<std::uint8_t>& bytes, std::size_t alignment = 4);

    std::uint64_t size() const { return size_; }
    /// The print of all bytes.
    std::uint64_t print() const;
    /// The lists for the file, once all is added.
    nlohmann::json takeViews() { return std::move(views_); }
    nlohmann::json takeAccessors() { return std::move(accessors_); }
    void writeTo(output_file& file) const;

  private:
    struct block {
        const void* bytes;
        std::size_t size;
    };
    void alignTo(std::size_t alignment);
    int addView(const void* bytes, std::size_t size, int target);
    int addAccessor(int view, int component_type, const char* type, std::size_t count);

    std::vector<block> blocks_;
    std::deque<std::vector<float>> floats_;
    std::deque<std::vector<std::uint8_t>> bytes_;
    std::uint64_t size_ = 0;
    nlohmann::json views_ = nlohmann::json::array();
    nlohmann::json accessors_ = nlohmann::json::array();
};

} // namespace morva::host
