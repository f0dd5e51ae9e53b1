#pragma once

// A .glb or .gltf file as it lies on the disk: its JSON, and numbers out of its buffers.
//
//     const gltf_source file("out.glb", "EXT_structural_metadata");
//     file.json()["meshes"] ...        empty if the text does not mention the extension
//     file.wholeNumbers(accessor)      indices, rows of tables
//     file.view(3)                     bytes of a buffer view
//
// Bytes are read as they are asked for. Nothing is taken on trust: what leads out of a file, or is
// not what it should be, is a host_error that says so.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace morva::host {

class gltf_source {
  public:
    /// mention  what the text must mention to be taken in
    /// errors   host_error: the file cannot be read, or is no glTF
    gltf_source(const std::string& path, const char* mention);

    const nlohmann::json& json() const { return json_; }
    /// An entry of a list of the file, such as "nodes".
    const nlohmann::json& entry(const char* list, std::size_t number) const;
    /// A whole number of an object; without a default it must be there.
    std::size_t number(const nlohmann::json& object, const char* key) const;
    std::size_t number(const nlohmann::json& object, const char* key, std::size_t otherwise) const;

    /// A text of an object; empty if there is none.
    static std::string text(const nlohmann::json& object, const char* key);

    /// The bytes of a buffer view.
    std::vector<std::uint8_t> view(std::size_t number) const;
    /// The bytes that a reference leads to: a file beside this one, or the reference itself.
    std::vector<std::uint8_t> file(const std::string& uri) const;
    /// The path of a reference to a file.
    std::string pathOf(const std::string& uri) const;
    /// The values of an accessor of one component each. Floats must be whole numbers.
    std::vector<std::uint32_t> wholeNumbers(std::size_t accessor) const;

    /// Says that the file is damaged.
    [[noreturn]] void damaged(const std::string& how) const;

  private:
    /// Where the bytes of a buffer are.
    struct place {
        std::string file;                ///< empty: in `bytes`
        std::uint64_t start = 0;         ///< in the file
        std::uint64_t size = 0;          ///< that are there
        std::vector<std::uint8_t> bytes; ///< of a data URI
    };
    std::string readText() const;
    std::string readBinary();
    void findBuffers();
    place placeOf(const std::string& uri) const;
    std::vector<std::uint8_t> bytesOf(const place& from, std::uint64_t start,
                                      std::uint64_t size) const;
    std::vector<std::uint8_t> bytesOf(const nlohmann::json& view, std::uint64_t start,
                                      std::uint64_t size) const;

    std::string path_;
    nlohmann::json json_;
    place chunk_; ///< of a .glb
    std::vector<place> buffers_;
};

} // namespace morva::host
