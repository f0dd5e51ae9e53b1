#pragma once

// Scene files to and fro, those of the platform, and a file taken apart without the layer's help.

#include <OpenSG/OSGSceneFileHandler.h>

#include <filesystem>

#include "scene_dump.h"

namespace scene_test {

using lines = std::vector<std::string>;

inline lines dumpOf(const NodePtr& root) { return scene_test::scene_dump(root).lines; }

inline std::string written(const NodePtr& root) {
    std::ostringstream out;
    EXPECT_TRUE(SceneFileHandler::the().write(root, out, "osb"));
    return out.str();
}

inline NodePtr readBack(const std::string& bytes) {
    std::istringstream in(bytes);
    return SceneFileHandler::the().read(in, "osb", nullptr);
}

// Files of the platform, beside dumps of what they hold.

inline const std::filesystem::path samples = MORVA_SCENE_FILES;

inline std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline std::vector<std::filesystem::path> sampleFiles() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(samples)) {
        if (entry.path().extension() == ".osb")
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// A file taken apart without the layer's help.
struct raw_field {
    std::string object, name, type;
    std::size_t data; ///< place of its data; the size stands in the 4 bytes before
    std::size_t size;
};

inline UInt32 numberAt(const std::string& bytes, std::size_t place) {
    UInt32 number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes.at(place + i));
    return number;
}

inline std::vector<raw_field> fieldsOf(const std::string& bytes) {
    std::size_t at = 41;
    const auto text = [&] {
        const std::size_t start = at + 4;
        at = start + numberAt(bytes, at);
        return bytes.substr(start, at - start - 1);
    };
    std::vector<raw_field> fields;
    for (std::string object; !(object = text()).empty();) {
        at += object == "Geometry" || object == "Image" ? 6 : 7;
        for (std::string name; !(name = text()).empty();) {
            const std::string type = text();
            const std::size_t size = numberAt(bytes, at) + (name == "pindices" ? 4 : 0);
            fields.push_back({object, name, type, at + 4, size});
            at += 4 + size;
        }
    }
    return fields;
}

} // namespace scene_test
