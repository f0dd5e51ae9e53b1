#include "gltf_buffer.h"

#include <cstring>
#include <utility>

#include "print.h"

namespace morva::host {

namespace {

// Numbers of the glTF format.
constexpr int vertex_target = 34962;
constexpr int index_target = 34963;
constexpr int type_float = 5126;
constexpr int type_uint8 = 5121;
constexpr int type_uint16 = 5123;
constexpr int type_uint32 = 5125;

constexpr std::array<char, 7> padding = {0, 0, 0, 0, 0, 0, 0};

} // namespace

void gltf_buffer::alignTo(std::size_t alignment) {
    const std::size_t rest = size_ % alignment;
    if (rest == 0)
        return;
    blocks_.push_back({padding.data(), alignment - rest});
    size_ += alignment - rest;
}

int gltf_buffer::addView(const void* bytes, std::size_t size, int target) {
    nlohmann::json view = {{"buffer", 0}, {"byteOffset", size_}, {"byteLength", size}};
    if (target != 0)
        view["target"] = target;
    views_.push_back(std::move(view));
    blocks_.push_back({bytes, size});
    size_ += size;
    alignTo(4);
    return static_cast<int>(views_.size()) - 1;
}

int gltf_buffer::addAccessor(int view, int component_type, const char* type, std::size_t count) {
    accessors_.push_back({{"bufferView", view},
                          {"componentType", component_type},
                          {"type", type},
                          {"count", count}});
    return static_cast<int>(accessors_.size()) - 1;
}

int gltf_buffer::addFloats(const float* values, int components, std::size_t count) {
    static const std::array<const char*, 5> types = {"", "SCALAR", "VEC2", "VEC3", "VEC4"};
    const auto width = static_cast<std::size_t>(components);
    const int view = addView(values, count * width * sizeof(float), vertex_target);
    return addAccessor(view, type_float, types[width], count);
}

int gltf_buffer::addPositions(const float* values, std::size_t count,
                              const std::array<float, 3>& low, const std::array<float, 3>& high) {
    const int accessor = addFloats(values, 3, count);
    accessors_.back()["min"] = low;
    accessors_.back()["max"] = high;
    return accessor;
}

int gltf_buffer::addFloats(std::vector<float> values, int components) {
    floats_.push_back(std::move(values));
    const std::vector<float>& kept = floats_.back();
    return addFloats(kept.data(), components, kept.size() / static_cast<std::size_t>(components));
}

int gltf_buffer::addIndices(const std::vector<std::uint32_t>& indices, std::size_t vertex_count) {
    const bool narrow = vertex_count <= 65535;
    std::vector<std::uint8_t> bytes(indices.size() * (narrow ? 2 : 4));
    if (narrow) {
        for (std::size_t i = 0; i < indices.size(); ++i) {
            const auto value = static_cast<std::uint16_t>(indices[i]);
            std::memcpy(bytes.data() + 2 * i, &value, 2);
        }
    } else if (!indices.empty()) {
        std::memcpy(bytes.data(), indices.data(), bytes.size());
    }
    bytes_.push_back(std::move(bytes));
    const int view = addView(bytes_.back().data(), bytes_.back().size(), index_target);
    return addAccessor(view, narrow ? type_uint16 : type_uint32, "SCALAR", indices.size());
}

int gltf_buffer::addRows(const std::vector<std::uint32_t>& rows, std::uint32_t highest) {
    if (highest > 0xFFFF)
        return addFloats(std::vector<float>(rows.begin(), rows.end()), 1);
    // Whatever their width, values of vertices begin at multiples of four bytes.
    std::vector<std::uint8_t> bytes(4 * rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        std::memcpy(bytes.data() + 4 * i, &rows[i], 4);
    bytes_.push_back(std::move(bytes));
    const int view = addView(bytes_.back().data(), bytes_.back().size(), vertex_target);
    views_.back()["byteStride"] = 4;
    return addAccessor(view, highest > 0xFF ? type_uint16 : type_uint8, "SCALAR", rows.size());
}

int gltf_buffer::addBytes(const std::vector<std::uint8_t>& bytes, std::size_t alignment) {
    alignTo(alignment);
    bytes_.push_back(bytes);
    return addView(bytes_.back().data(), bytes_.back().size(), 0);
}

std::uint64_t gltf_buffer::print() const {
    std::uint64_t print = empty_print;
    for (const block& part : blocks_)
        print = extendedPrint(print, part.bytes, part.size);
    return print;
}

void gltf_buffer::writeTo(output_file& file) const {
    for (const block& part : blocks_)
        file.write(part.bytes, part.size);
}

} // namespace morva::host
