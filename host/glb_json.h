#pragma once

// Looks into the text of a binary glTF file that must be of the plain kind.
//
// Whatever is not as expected is a host_error. Nobody reads its text: the file goes to the import
// library then.

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace morva::host {

/// errors  host_error, always
[[noreturn]] void refuseFile();

/// errors  host_error unless the condition holds
inline void requirePlain(bool condition) {
    if (!condition)
        refuseFile();
}

/// A member of an object; null if there is none.
const nlohmann::json* memberOf(const nlohmann::json& object, const char* key);
/// The same for one that is a list, or an object.
const nlohmann::json* listOf(const nlohmann::json& object, const char* key);
const nlohmann::json* objectOf(const nlohmann::json& object, const char* key);

/// A text below 1,000 bytes without a zero byte; empty if there is none.
std::string textOf(const nlohmann::json& object, const char* key);
/// A whole number that may be missing.
std::optional<unsigned> numberOf(const nlohmann::json& object, const char* key);
float floatOf(const nlohmann::json& object, const char* key, float otherwise);
/// Fills `count` floats if there is such a list; it must have this length.
bool readFloats(const nlohmann::json& object, const char* key, float* to, std::size_t count);

} // namespace morva::host
