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

constexpr std::uint32_t magic_of_file = 0x46546C67u, kind_json = 0x4E4F534Au,
                        kind_binary = 0x004E4942u;

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

} // namespace

std::unique_ptr<gltf_document> gltfDocumentOf(const std::string& path) {
    const std::string extension = extensionOf(path);
    if (extension != "glb" && extension != "gltf")
        return nullptr;
    try {
        return std::make_unique<gltf_document>(path);
    } catch (const host_error&) {
        return nullptr;
    }
}

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
    if (!readText(text, text_))
        refuse("its text is no JSON");
    version_ = versionIn(text_.json);
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
    const auto found = text_.json.find(list);
    if (found == text_.json.end() || !found->is_array() || index >= found->size() ||
        !(*found)[index].is_object())
        return nullptr;
    return &(*found)[index];
}

std::optional<gltf_bytes> gltf_document::view(std::size_t index) const {
    const nlohmann::json* const buffer = entry("buffers", 0);
    if (index >= text_.views.size() || buffer == nullptr || buffer->contains("uri"))
        return std::nullopt;
    const gltf_view_record& view = text_.views[index];
    if (!view.plain || view.buffer != 0 || view.offset > binary_.count ||
        view.bytes > binary_.count - view.offset)
        return std::nullopt;
    return gltf_bytes{view.offset, view.bytes};
}

std::optional<gltf_accessor> gltf_document::accessor(std::size_t index) const {
    if (index >= text_.accessors.size())
        return std::nullopt;
    const gltf_accessor_record& from = text_.accessors[index];
    const auto all = from.plain ? view(from.view) : std::nullopt;
    if (!all || from.components == 0 || from.component_type < 5120 || from.component_type > 5126 ||
        from.component_type == 5124 || from.count > std::numeric_limits<std::uint32_t>::max() ||
        from.offset > all->count)
        return std::nullopt;
    gltf_accessor found;
    found.first = all->first + from.offset;
    found.count = from.count;
    found.components = from.components;
    found.component_type = static_cast<unsigned>(from.component_type);
    found.normalized = from.normalized;
    const std::uint64_t stride = text_.views[from.view].stride;
    found.stride = stride == 0 ? found.valueBytes() : stride;
    if (stride > 0xFFFF || found.stride < found.valueBytes() ||
        found.bytes().count > all->count - from.offset)
        return std::nullopt;
    return found;
}

} // namespace morva::host
