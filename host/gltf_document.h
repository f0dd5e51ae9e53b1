#pragma once

// A .glb or .gltf file, opened for reading: its text as JSON, and where its values lie.
//
//     const gltf_document file("engine.glb");
//     file.version()                           1 or 2
//     file.json()["materials"]                 as it stands in the file
//     if (const auto values = file.accessor(3))
//         file.read(values->bytes(), to);
//
// Nothing is taken on trust. A file that cannot be opened, is no glTF, or has a text that is no
// JSON, names a key twice or is nested beyond 500 levels, is a host_error. What leads out of the
// file, or is of an unusual kind, is no accessor; whoever asks then leaves the file to the import
// library, which reads more kinds and has a text for each fault.
//
// Values are read from the file as they are asked for and never mapped: a file that somebody
// shortens meanwhile would end a process that has it mapped, and here is a host_error. Reading 285
// MB in pieces of 120 KB, into memory that has huge pages, on two threads, takes 0.10 s of
// processor time either way; mapped page by page it is at the mercy of 5,000 faults.
//
// Threads: any number may read at a time; nothing changes after the constructor.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "gltf_text.h"

namespace morva::host {

/// A piece of the binary chunk of a .glb, known to lie within it.
struct gltf_bytes {
    std::uint64_t first = 0; ///< from the start of the chunk
    std::uint64_t count = 0;
};

/// Values of an accessor, known to lie within the binary chunk and within their view.
struct gltf_accessor {
    std::uint64_t first = 0;     ///< byte of the first value, from the start of the chunk
    std::size_t count = 0;       ///< of values, below 2^32
    std::size_t components = 1;  ///< of a value: 1 to 4; matrices are no accessors here
    unsigned component_type = 0; ///< 5120 (signed byte) to 5126 (float)
    std::size_t stride = 0;      ///< bytes from a value to the next; at least valueBytes()
    bool normalized = false;

    std::size_t componentBytes() const {
        return component_type <= 5121 ? 1 : component_type <= 5123 ? 2 : 4;
    }
    std::size_t valueBytes() const { return components * componentBytes(); }
    bool isPacked() const { return stride == valueBytes(); }
    /// From the first value to the end of the last.
    gltf_bytes bytes() const {
        return {first, count == 0 ? 0 : (count - 1) * stride + valueBytes()};
    }
};

class gltf_document {
  public:
    /// errors  host_error, std::bad_alloc
    explicit gltf_document(const std::string& path);

    /// The text, always an object, without accessors and buffer views. In glTF 1.0 the lists are
    /// objects, too: by name.
    const nlohmann::json& json() const { return text_.json; }
    /// Of the format, by the text: 1 or 2.
    unsigned version() const { return version_; }
    /// Bytes of the binary chunk; 0 for a .gltf.
    std::uint64_t binaryBytes() const { return binary_.count; }

    /// An entry of a list of glTF 2.0, such as "nodes"; null if there is none or it is no object.
    const nlohmann::json* entry(const char* list, std::size_t index) const;
    /// The bytes of a buffer view; nothing if they are not all in the binary chunk.
    std::optional<gltf_bytes> view(std::size_t index) const;
    /// Where the values of an accessor lie; nothing if it is sparse or has no buffer view, and for
    /// matrices.
    std::optional<gltf_accessor> accessor(std::size_t index) const;

    /// Copies bytes of the binary chunk.
    /// errors  host_error: the file has become shorter, or cannot be read
    void read(const gltf_bytes& from, void* to) const;

  private:
    /// Closes the file.
    struct handle {
        explicit handle(const std::string& path);
        ~handle();
        handle(const handle&) = delete;
        handle& operator=(const handle&) = delete;
        int number;
        std::uint64_t bytes = 0;
    };
    void readAt(std::uint64_t start, std::uint64_t count, void* to) const;
    gltf_bytes findChunks();
    [[noreturn]] void refuse(const std::string& why) const;

    std::string path_;
    handle file_;
    gltf_bytes binary_; ///< from the start of the file
    gltf_text text_;
    unsigned version_ = 0;
};

/// The document of a file that the import library has read; null if it is no glTF by its extension,
/// or of a kind that the library reads and this does not.
std::unique_ptr<gltf_document> gltfDocumentOf(const std::string& path);

/// A whole number of an object, not negative; nothing if there is none or it is something else.
std::optional<std::size_t> wholeNumber(const nlohmann::json& object, const char* key);

} // namespace morva::host
