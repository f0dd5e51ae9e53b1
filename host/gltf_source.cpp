#include "gltf_source.h"

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <utility>

#include "host_error.h"
#include "text.h"

namespace morva::host {

namespace {

// Numbers of the glTF format.
constexpr std::size_t type_uint8 = 5121, type_uint16 = 5123, type_uint32 = 5125, type_float = 5126;

std::uint64_t sizeOf(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error)
        throw host_error("cannot read '" + path + "': " + error.message());
    return size;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

int hexDigit(char letter) {
    const char* const digits = "0123456789abcdef";
    const char* const found =
        std::strchr(digits, letter >= 'A' && letter <= 'F' ? letter + 32 : letter);
    return found != nullptr && letter != '\0' ? static_cast<int>(found - digits) : -1;
}

/// A reference without its %XX.
std::string decodedUri(const std::string& uri) {
    std::string name;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        const int high = uri[i] == '%' && i + 2 < uri.size() ? hexDigit(uri[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(uri[i + 2]) : -1;
        if (low >= 0)
            i += 2;
        name.push_back(low >= 0 ? static_cast<char>(16 * high + low) : uri[i]);
    }
    return name;
}

/// The bytes of a text in base 64, up to the first letter that is none of it.
std::vector<std::uint8_t> decodedBase64(const std::string& text, std::size_t first) {
    static const std::string letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<int, 256> values;
    values.fill(-1);
    for (std::size_t i = 0; i < letters.size(); ++i)
        values[static_cast<std::uint8_t>(letters[i])] = static_cast<int>(i);
    std::vector<std::uint8_t> bytes;
    std::uint32_t bits = 0;
    int held = 0;
    for (std::size_t i = first; i < text.size(); ++i) {
        const int value = values[static_cast<std::uint8_t>(text[i])];
        if (value < 0)
            break;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        held += 6;
        if (held >= 8)
            bytes.push_back(static_cast<std::uint8_t>(bits >> (held -= 8)));
    }
    return bytes;
}

template <typename Number> Number valueAt(const std::uint8_t* at) {
    Number value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

} // namespace

void gltf_source::damaged(const std::string& how) const {
    throw host_error("'" + path_ + "' is damaged: " + how);
}

gltf_source::gltf_source(const std::string& path, const char* mention) : path_(path) {
    const std::string text = extensionOf(path) == "glb" ? readBinary() : readText();
    json_ = nlohmann::json::object();
    // The importer takes texts that are no JSON to the letter; those of no use are not read.
    if (text.find(mention) == std::string::npos)
        return;
    json_ = nlohmann::json::parse(text, nullptr, false);
    if (!json_.is_object())
        damaged("it holds no glTF text");
    findBuffers();
}

std::string gltf_source::readText() const {
    const place file{path_, 0, sizeOf(path_), {}};
    const std::vector<std::uint8_t> bytes = bytesOf(file, 0, file.size);
    return {bytes.begin(), bytes.end()};
}

/// Header of three words, then chunks: length, kind, bytes. The first one is the text.
std::string gltf_source::readBinary() {
    const std::uint64_t size = sizeOf(path_);
    const place file{path_, 0, size, {}};
    const auto word = [&](std::uint64_t at) {
        return valueAt<std::uint32_t>(bytesOf(file, at, 4).data());
    };
    if (size < 20 || word(0) != 0x46546C67u || word(4) != 2)
        damaged("it does not begin as a binary glTF 2.0");
    const std::uint64_t length = word(12), next = 20 + length;
    const std::vector<std::uint8_t> text = bytesOf(file, 20, length);
    if (next + 8 <= size && word(next + 4) == 0x004E4942u)
        chunk_ = {path_, next + 8, word(next), {}};
    return {text.begin(), text.end()};
}

void gltf_source::findBuffers() {
    if (!json_.contains("buffers") || !json_["buffers"].is_array())
        return;
    for (const nlohmann::json& buffer : json_["buffers"]) {
        const auto uri = buffer.is_object() ? buffer.find("uri") : buffer.end();
        if (uri != buffer.end() && uri->is_string())
            buffers_.push_back(placeOf(uri->get_ref<const std::string&>()));
        else
            buffers_.push_back(buffers_.empty() ? chunk_ : place());
    }
}

gltf_source::place gltf_source::placeOf(const std::string& uri) const {
    place found;
    if (uri.compare(0, 5, "data:") == 0) {
        const std::size_t comma = uri.find(";base64,");
        if (comma == std::string::npos)
            damaged("a buffer's data is not in base 64");
        found.bytes = decodedBase64(uri, comma + 8);
        found.size = found.bytes.size();
        return found;
    }
    found.file = pathOf(uri);
    found.size = sizeOf(found.file);
    return found;
}

std::vector<std::uint8_t> gltf_source::file(const std::string& uri) const {
    const place found = placeOf(uri);
    return bytesOf(found, 0, found.size);
}

std::string gltf_source::pathOf(const std::string& uri) const {
    return folderOf(path_) + decodedUri(uri);
}

std::vector<std::uint8_t> gltf_source::bytesOf(const place& from, std::uint64_t start,
                                               std::uint64_t size) const {
    if (start > from.size || size > from.size - start)
        damaged("it ends before its data does");
    if (from.file.empty()) {
        const auto first = from.bytes.begin() + static_cast<std::ptrdiff_t>(start);
        return {first, first + static_cast<std::ptrdiff_t>(size)};
    }
    std::vector<std::uint8_t> bytes;
    if (from.start + start + size > sizeOf(from.file))
        damaged("it ends before its data does");
    bytes.resize(size);
    std::ifstream file(from.file, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from.start + start));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
    if (!file)
        throw host_error("cannot read '" + from.file + "'");
    return bytes;
}

const nlohmann::json& gltf_source::entry(const char* list, std::size_t number) const {
    const auto found = json_.find(list);
    if (found == json_.end() || !found->is_array() || number >= found->size() ||
        !(*found)[number].is_object())
        damaged("it has no number " + std::to_string(number) + " of its " + list);
    return (*found)[number];
}

std::size_t gltf_source::number(const nlohmann::json& object, const char* key,
                                std::size_t otherwise) const {
    return object.is_object() && object.contains(key) ? number(object, key) : otherwise;
}

std::size_t gltf_source::number(const nlohmann::json& object, const char* key) const {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number_unsigned())
        damaged(std::string("'") + key + "' is no whole number");
    return found->get<std::size_t>();
}

std::string gltf_source::text(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::vector<std::uint8_t> gltf_source::bytesOf(const nlohmann::json& view, std::uint64_t start,
                                               std::uint64_t size) const {
    const std::size_t buffer = number(view, "buffer");
    const std::size_t offset = number(view, "byteOffset", 0), length = number(view, "byteLength");
    if (buffer >= buffers_.size())
        damaged("it has no buffer " + std::to_string(buffer));
    if (start > length || size > length - start || offset > buffers_[buffer].size)
        damaged("it ends before its data does");
    return bytesOf(buffers_[buffer], offset + start, size);
}

std::vector<std::uint8_t> gltf_source::view(std::size_t number) const {
    const nlohmann::json& view = entry("bufferViews", number);
    return bytesOf(view, 0, this->number(view, "byteLength"));
}

std::vector<std::uint32_t> gltf_source::wholeNumbers(std::size_t accessor) const {
    const nlohmann::json& entry = this->entry("accessors", accessor);
    const std::size_t type = number(entry, "componentType"), count = number(entry, "count");
    const std::size_t width = type == type_uint8                          ? 1
                              : type == type_uint16                       ? 2
                              : type == type_uint32 || type == type_float ? 4
                                                                          : 0;
    if (width == 0 || text(entry, "type") != "SCALAR" || entry.contains("sparse"))
        damaged("accessor " + std::to_string(accessor) + " is no list of whole numbers");
    std::vector<std::uint32_t> values;
    if (count == 0)
        return values;
    const nlohmann::json& view = this->entry("bufferViews", number(entry, "bufferView"));
    const std::size_t stride = number(view, "byteStride", width);
    if (stride < width || count > std::numeric_limits<std::uint32_t>::max() || stride > 0xFFFF)
        damaged("accessor " + std::to_string(accessor) + " is no list of whole numbers");
    const std::vector<std::uint8_t> bytes =
        bytesOf(view, number(entry, "byteOffset", 0), (count - 1) * stride + width);
    values.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* const at = bytes.data() + i * stride;
        const float real = type == type_float ? valueAt<float>(at) : 0.f;
        if (!(real >= 0.f && real < 4294967296.f && std::trunc(real) == real))
            damaged("accessor " + std::to_string(accessor) + " is no list of whole numbers");
        values[i] = type == type_float    ? static_cast<std::uint32_t>(real)
                    : type == type_uint8  ? *at
                    : type == type_uint16 ? valueAt<std::uint16_t>(at)
                                          : valueAt<std::uint32_t>(at);
    }
    return values;
}

} // namespace morva::host
