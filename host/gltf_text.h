#pragma once

// The text of a glTF file, taken apart in one pass.
//
//     gltf_text text;
//     if (!readText(characters, text)) ...     no JSON
//     text.json["meshes"]                      a tree; without the two lists below
//     text.accessors[3].count
//
// The lists of accessors and buffer views are three quarters of a large text; they become plain
// records and no tree, which halves the time (10 MB: 0.16 s as a tree, 0.09 s so; lexing alone
// 0.08 s; a library that knows the format takes 0.65 s).

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

namespace morva::host {

/// A buffer view as the text tells it, unchecked.
struct gltf_view_record {
    std::uint64_t buffer = 0, offset = 0, bytes = 0, stride = 0;
    bool plain = false; ///< no extensions, all of these numbers are numbers and told where needed
};

/// An accessor as the text tells it, unchecked.
struct gltf_accessor_record {
    std::uint64_t view = 0, offset = 0, component_type = 0, count = 0;
    std::uint8_t components = 0; ///< 1 to 4; 0: a matrix, or not told
    bool normalized = false;
    bool plain = false; ///< not sparse, no extensions, has a view, numbers as above
};

// NOLINTNEXTLINE(bugprone-exception-escape): the tree's own checks in debug builds
struct gltf_text {
    nlohmann::json json; ///< an object; lacks "accessors" and "bufferViews"
    std::vector<gltf_view_record> views;
    std::vector<gltf_accessor_record> accessors;
};

/// Parses a text. False if it is no JSON object, names a key twice in one object, or is nested
/// beyond 500 levels: copies and comparisons of the tree recurse. Iterative itself.
///
/// errors  std::bad_alloc
bool readText(const std::vector<char>& characters, gltf_text& text);

} // namespace morva::host
