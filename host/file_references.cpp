#include "file_references.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "text.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

constexpr std::size_t print_digits = 16;

bool continuesName(char letter) {
    const auto code = static_cast<unsigned char>(letter);
    return code >= 128 || std::isalnum(code) != 0 || letter == '_' || letter == '-' ||
           letter == '.' || letter == '%' || letter == '~';
}

/// Whether `name` stands in `text`, with a letter before and behind it that no name goes on with.
bool standsIn(const std::string& text, const std::string& name) {
    for (std::size_t at = text.find(name, 1); at != std::string::npos;
         at = text.find(name, at + 1)) {
        const std::size_t behind = at + name.size();
        if (behind < text.size() && !continuesName(text[at - 1]) && !continuesName(text[behind]))
            return true;
    }
    return false;
}

/// Those of `names` that stand in a file, as they are or as a URI.
std::set<std::string> namesIn(const fs::path& path, const std::set<std::string>& names) {
    std::set<std::string> found;
    std::size_t longest = 0;
    for (const std::string& name : names)
        longest = std::max(longest, encodedUri(name).size());
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    std::string piece = "\n"; // what is left of the piece before, with one letter before a name
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        piece.append(block.data(), static_cast<std::size_t>(file.gcount()));
        if (!file)
            piece += '\n';
        for (const std::string& name : names) {
            if (standsIn(piece, name) || standsIn(piece, encodedUri(name)))
                found.insert(name);
        }
        piece.erase(0, piece.size() - std::min(piece.size(), longest + 1));
    }
    return found;
}

/// Whether a name is "STEM.0123456789abcdef.bin".
bool isBufferName(const std::string& name) {
    static const std::string end = ".bin";
    if (name.size() <= 1 + print_digits + end.size() ||
        name.compare(name.size() - end.size(), end.size(), end) != 0)
        return false;
    const std::size_t first = name.size() - end.size() - print_digits;
    return name[first - 1] == '.' &&
           name.find_first_not_of("0123456789abcdef", first) == name.size() - end.size();
}

void removeFrom(std::set<std::string>& names, const std::set<std::string>& gone) {
    for (const std::string& name : gone)
        names.erase(name);
}

} // namespace

std::set<std::string> referredFiles(const std::string& model, const std::set<std::string>& names) {
    const fs::path folder = fs::path(model).parent_path();
    std::set<std::string> found, left = names;
    std::vector<fs::path> todo = {model};
    while (!todo.empty() && !left.empty()) {
        const fs::path next = todo.back();
        todo.pop_back();
        const std::set<std::string> here = namesIn(next, left);
        removeFrom(left, here);
        for (const std::string& name : here)
            todo.push_back(folder / name);
        found.insert(here.begin(), here.end());
    }
    return found;
}

std::string bufferName(const std::string& stem, std::uint64_t print) {
    char digits[print_digits + 1];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(print));
    return stem + "." + digits + ".bin";
}

std::set<std::string> ownBuffers(const std::string& model) {
    std::set<std::string> names;
    std::vector<fs::path> others;
    std::error_code error;
    fs::directory_iterator entry(fs::path(model).parent_path(), error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code unknown; // what can't be looked at is no plain file
        const fs::path& path = entry->path();
        const std::string kind = extensionOf(path.string());
        if (!entry->is_regular_file(unknown))
            continue;
        if (isBufferName(path.filename().string()))
            names.insert(path.filename().string());
        else if ((kind == "gltf" || kind == "glb") && path != model)
            others.push_back(path);
    }
    if (!names.empty())
        names = namesIn(model, names);
    for (const fs::path& other : others) {
        if (names.empty() || !std::ifstream(other)) // it may refer to any
            return {};
        removeFrom(names, namesIn(other, names));
    }
    return names;
}

} // namespace morva::host
