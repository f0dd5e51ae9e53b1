#include "glb_json.h"

#include <limits>

#include "gltf_document.h"
#include "host_error.h"

namespace morva::host {

using nlohmann::json;

void refuseFile() { throw host_error("the file is not of the plain kind"); }

const json* memberOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

const json* listOf(const json& object, const char* key) {
    const json* const found = memberOf(object, key);
    requirePlain(found == nullptr || found->is_array());
    return found;
}

const json* objectOf(const json& object, const char* key) {
    const json* const found = memberOf(object, key);
    requirePlain(found == nullptr || found->is_object());
    return found;
}

std::string textOf(const json& object, const char* key) {
    const json* const found = memberOf(object, key);
    if (found == nullptr)
        return std::string();
    requirePlain(found->is_string());
    std::string text = found->get<std::string>();
    // The import library cuts longer ones, and ends them at a zero.
    requirePlain(text.size() < 1000 && text.find('\0') == std::string::npos);
    return text;
}

std::optional<unsigned> numberOf(const json& object, const char* key) {
    if (!object.contains(key))
        return std::nullopt;
    const auto number = wholeNumber(object, key);
    requirePlain(number && *number <= std::numeric_limits<int>::max());
    return static_cast<unsigned>(*number);
}

float floatOf(const json& object, const char* key, float otherwise) {
    const json* const found = memberOf(object, key);
    requirePlain(found == nullptr || found->is_number());
    return found == nullptr ? otherwise : static_cast<float>(found->get<double>());
}

bool readFloats(const json& object, const char* key, float* to, std::size_t count) {
    const json* const list = listOf(object, key);
    if (list == nullptr)
        return false;
    requirePlain(list->size() == count);
    for (const json& value : *list) {
        requirePlain(value.is_number());
        *to++ = static_cast<float>(value.get<double>());
    }
    return true;
}

} // namespace morva::host
