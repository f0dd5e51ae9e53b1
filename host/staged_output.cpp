#include "staged_output.h"

#include <algorithm>
#include <filesystem>

#include "file_identity.h"
#include "host_error.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

/// The place without links, where a plain file is or could be.
std::string plainPlace(const std::string& target) {
    std::string place = withoutLinks(target);
    std::error_code error;
    if (fs::exists(place, error) && !fs::is_regular_file(place, error))
        throw host_error("cannot write '" + target + "': it is no plain file");
    return place;
}

/// The folder of a place without links, called as it was given wherever it can: what the optimiser
/// is to write there goes through its parameters, which can't hold every name.
std::string folderOf(const std::string& target, const std::string& place) {
    std::error_code error;
    const fs::path path = fs::is_symlink(fs::symlink_status(target, error)) ? place : target;
    return path.has_parent_path() ? path.parent_path().string() : ".";
}

} // namespace

staged_output::staged_output(const std::string& target)
    : name_(fs::path(target).filename().string()), target_(plainPlace(target)),
      stage_(folderOf(target, target_)) {}

std::vector<std::string> staged_output::names() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(stage_.fresh()))
        names.push_back(entry.path().filename().string());
    const auto place = std::find(names.begin(), names.end(), name_);
    if (place == names.end())
        throw host_error("cannot write '" + name_ + "': nothing was written");
    names.erase(place);
    std::sort(names.begin(), names.end());
    names.push_back(name_);
    return names;
}

std::uint64_t staged_output::bytes() const {
    std::uint64_t sum = 0;
    for (const std::string& name : names())
        sum += fs::file_size(fs::path(stage_.fresh()) / name);
    return sum;
}

} // namespace morva::host
