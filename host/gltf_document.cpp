#include "gltf_document.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host_error.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

constexpr std::size_t most_nested = 500;
constexpr std::uint32_t magic_of_file = 0x46546C67u, kind_json = 0x4E4F534Au,
                        kind_binary = 0x004E4942u;

/// Builds the tree of a text. Stops at a key that an object has already, and at deep nesting:
/// copies and comparisons of the tree recurse.
class tree_builder : public nlohmann::json_sax<json> {
  public:
    explicit tree_builder(json& root) : root_(root) {}

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override { return add(value); }
    bool number_float(number_float_t value, const string_t&) override { return add(value); }
    bool string(string_t& value) override { return add(std::move(value)); }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return open(json::object()); }
    bool start_array(std::size_t) override { return open(json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        const auto added =
            open_.back()->get_ref<json::object_t&>().emplace(std::move(name), nullptr);
        place_ = &added.first->second;
        return added.second;
    }
    bool parse_error(std::size_t, const std::string&, const json::exception&) override {
        return false;
    }

  private:
    /// Puts a value where the text is. Only the innermost list grows, so that all others stay.
    json& put(json value) {
        if (open_.empty())
            return root_ = std::move(value);
        if (open_.back()->is_object())
            return *place_ = std::move(value);
        auto& list = open_.back()->get_ref<json::array_t&>();
        return list.emplace_back(std::move(value));
    }
    bool add(json value) {
        put(std::move(value));
        return true;
    }
    bool open(json value) {
        open_.push_back(&put(std::move(value)));
        return open_.size() <= most_nested;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    json& root_;
    json* place_ = nullptr; ///< of the value whose key was read last
    std::vector<json*> open_;
};

std::uint32_t wordAt(const std::uint8_t* bytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// The first figure of the version that the text tells; 0 if it tells none.
unsigned versionIn(const json& text) {
    const auto asset = text.find("asset");
    if (asset == text.end() || !asset->is_object())
        return 0;
    const auto version = asset->find("version");
    if (version == asset->end())
        return 0;
    if (version->is_number())
        return version->get<double>() == 1.0 ? 1 : 0; // as early files have it
    if (!version->is_string())
        return 0;
    const std::string& figures = version->get_ref<const std::string&>();
    return figures.compare(0, 1, "1") == 0 ? 1 : figures.compare(0, 1, "2") == 0 ? 2 : 0;
}

std::size_t componentsOf(const json& accessor) {
    const auto type = accessor.find("type");
    if (type == accessor.end() || !type->is_string())
        return 0;
    const std::string& name = type->get_ref<const std::string&>();
    return name == "SCALAR" ? 1 : name == "VEC2" ? 2 : name == "VEC3" ? 3 : name == "VEC4" ? 4 : 0;
}

/// A whole number that may be missing; nothing if it is something else.
std::optional<std::size_t> wholeNumberOr(const json& object, const char* key,
                                         std::size_t otherwise) {
    return object.contains(key) ? wholeNumber(object, key) : otherwise;
}

} // namespace

std::optional<std::size_t> wholeNumber(const json& object, const char* key) {
    if (!object.is_object())
        return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number_unsigned())
        return std::nullopt;
    return found->get<std::size_t>();
}

gltf_document::handle::handle(const std::string& path)
    : number(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (number < 0)
        throw host_error("cannot open '" + path + "': " + std::strerror(errno));
    struct stat status {};
    if (fstat(number, &status) == 0 && S_ISREG(status.st_mode))
        bytes = static_cast<std::uint64_t>(status.st_size);
}

gltf_document::handle::~handle() { close(number); }

void gltf_document::refuse(const std::string& why) const {
    throw host_error("cannot read '" + path_ + "': " + why);
}

gltf_document::gltf_document(const std::string& path) : path_(path), file_(path) {
    const gltf_bytes place = extensionOf(path) == "glb" ? findChunks() : gltf_bytes{0, file_.bytes};
    std::vector<char> text(place.count);
    readAt(place.first, place.count, text.data());
    tree_builder builder(json_);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder) || !json_.is_object())
        refuse("its text is no JSON");
    version_ = versionIn(json_);
    if (version_ == 0)
        refuse("it is no glTF 1.0 or 2.0");
}

/// Finds the binary chunk, and returns where the text lies. glTF 2.0: three words, then chunks
/// of length, kind, bytes; 1.0: five words, text, bytes.
gltf_bytes gltf_document::findChunks() {
    std::uint8_t head[20];
    if (file_.bytes < sizeof head)
        refuse("it is too short");
    readAt(0, sizeof head, head);
    const std::uint32_t version = wordAt(head + 4);
    // Some files are shorter than they tell, but hold all that their text refers to.
    const std::uint64_t all = std::min<std::uint64_t>(wordAt(head + 8), file_.bytes);
    const std::uint64_t length = wordAt(head + 12);
    const std::uint64_t next = sizeof head + length;
    if (wordAt(head) != magic_of_file || (version != 1 && version != 2) || next > all ||
        wordAt(head + 16) != (version == 2 ? kind_json : 0))
        refuse("it does not begin as a binary glTF");
    if (version == 1) {
        binary_ = {next, all - next};
    } else if (all - next >= 8) {
        std::uint8_t chunk[8];
        readAt(next, sizeof chunk, chunk);
        const std::uint64_t count = wordAt(chunk);
        if (wordAt(chunk + 4) != kind_binary || count > all - next - sizeof chunk)
            refuse("its second chunk is damaged");
        binary_ = {next + sizeof chunk, count};
    }
    return {sizeof head, length};
}

void gltf_document::readAt(std::uint64_t start, std::uint64_t count, void* to) const {
    auto* at = static_cast<char*>(to);
    while (count != 0) {
        const ssize_t done =
            pread(file_.number, at, std::min<std::uint64_t>(count, std::uint64_t{1} << 30),
                  static_cast<off_t>(start));
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            refuse(done < 0 ? std::strerror(errno) : "it ends before its data does");
        at += done;
        start += static_cast<std::uint64_t>(done);
        count -= static_cast<std::uint64_t>(done);
    }
}

void gltf_document::read(const gltf_bytes& from, void* to) const {
    if (from.first > binary_.count || from.count > binary_.count - from.first)
        refuse("it ends before its data does");
    readAt(binary_.first + from.first, from.count, to);
}

const nlohmann::json* gltf_document::entry(const char* list, std::size_t index) const {
    const auto found = json_.find(list);
    if (found == json_.end() || !found->is_array() || index >= found->size() ||
        !(*found)[index].is_object())
        return nullptr;
    return &(*found)[index];
}

std::optional<gltf_bytes> gltf_document::view(std::size_t index) const {
    const nlohmann::json* const view = entry("bufferViews", index);
    const nlohmann::json* const buffer = entry("buffers", 0);
    if (view == nullptr || buffer == nullptr || buffer->contains("uri") ||
        wholeNumber(*view, "buffer") != 0)
        return std::nullopt;
    const auto first = wholeNumberOr(*view, "byteOffset", 0);
    const auto count = wholeNumber(*view, "byteLength");
    if (!first || !count || *first > binary_.count || *count > binary_.count - *first)
        return std::nullopt;
    return gltf_bytes{*first, *count};
}

std::optional<gltf_accessor> gltf_document::accessor(std::size_t index) const {
    const nlohmann::json* const from = entry("accessors", index);
    if (from == nullptr || from->contains("sparse"))
        return std::nullopt;
    const auto view_index = wholeNumber(*from, "bufferView");
    if (!view_index)
        return std::nullopt;
    const auto all = view(*view_index);
    const auto offset = wholeNumberOr(*from, "byteOffset", 0);
    const auto type = wholeNumber(*from, "componentType"), count = wholeNumber(*from, "count");
    gltf_accessor found;
    found.components = componentsOf(*from);
    if (!all || !offset || !type || !count || found.components == 0 || *type < 5120 ||
        *type > 5126 || *type == 5124 || *count > std::numeric_limits<std::uint32_t>::max() ||
        *offset > all->count)
        return std::nullopt;
    found.first = all->first + *offset;
    found.count = *count;
    found.component_type = static_cast<unsigned>(*type);
    const auto stride = wholeNumberOr(*entry("bufferViews", *view_index), "byteStride", 0);
    if (!stride || *stride > 0xFFFF || (*stride != 0 && *stride < found.valueBytes()))
        return std::nullopt;
    found.stride = *stride == 0 ? found.valueBytes() : *stride;
    if (found.bytes().count > all->count - *offset)
        return std::nullopt;
    const auto normalized = from->find("normalized");
    found.normalized = normalized != from->end() && *normalized == true;
    return found;
}

} // namespace morva::host
