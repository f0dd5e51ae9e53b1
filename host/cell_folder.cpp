#include "cell_folder.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#include <nlohmann/json.hpp>

#include "host_error.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

constexpr const char* stem = "cell_";

/// Whether there is something in a folder but for folders of unfinished runs.
bool holdsFiles(const std::string& path) {
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        if (entry.path().filename().string().rfind(".morva-", 0) != 0)
            return true;
    }
    return false;
}

/// "cell_0012" of "cell_0012.glb", "cell_0012_1.jpg" and all else that is beside it; empty for what
/// is no cell's.
std::string stemOf(const std::string& name) {
    const std::string start = stem;
    if (name.rfind(start, 0) != 0)
        return std::string();
    return name.substr(0, name.find_first_not_of("0123456789", start.size()));
}

/// The stems of the cells that a manifest tells of; none if it is not one of ours.
std::set<std::string> stemsIn(const std::string& manifest) {
    std::set<std::string> stems;
    std::ifstream file(manifest, std::ios::binary);
    const nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
    if (!json.is_object() || !json.contains("cells") || !json["cells"].is_array())
        return stems;
    for (const nlohmann::json& cell : json["cells"]) {
        if (!cell.is_object() || !cell.contains("file") || !cell["file"].is_string())
            continue;
        stems.insert(stemOf(cell["file"].get<std::string>()));
    }
    stems.erase(std::string());
    return stems;
}

} // namespace

std::string cellName(std::size_t cell, const std::string& format) {
    char number[32];
    std::snprintf(number, sizeof number, "%s%04zu.", stem, cell);
    return number + format;
}

cell_folder::cell_folder(const std::string& path, const std::string& input, bool overwrite)
    : path_(path), folder_(path), outputs_(input, overwrite),
      manifest_(&outputs_.add((fs::path(path) / "manifest.json").string())) {
    if (!overwrite && holdsFiles(path))
        throw host_error("the folder '" + path +
                             "' is not empty: --overwrite replaces what is "
                             "there",
                         exit_usage);
}

void cell_folder::commit() { outputs_.commit(oldCells()); }

/// Files of cells that the manifest in place tells of and the new one does not.
std::vector<std::string> cell_folder::oldCells() const {
    std::vector<std::string> gone;
    const std::set<std::string> stems = stemsIn(manifest_->target());
    if (stems.empty())
        return gone;
    const std::vector<std::string> written = manifest_->names();
    const std::set<std::string> fresh(written.begin(), written.end());
    std::error_code error;
    fs::directory_iterator entry(path_, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code unknown; // what can't be looked at is no plain file
        if (stems.count(stemOf(name)) != 0 && fresh.count(name) == 0 &&
            fs::is_regular_file(entry->symlink_status(unknown)))
            gone.push_back(entry->path().string());
    }
    return gone;
}

} // namespace morva::host
