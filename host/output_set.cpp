#include "output_set.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "file_references.h"
#include "host_error.h"
#include "text.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

bool haveSameContent(const fs::path& one, const fs::path& other) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(one, error);
    if (error || size != fs::file_size(other, error) || error)
        return false;
    std::ifstream first(one, std::ios::binary), second(other, std::ios::binary);
    std::vector<char> a(1 << 16), b(1 << 16);
    for (std::uintmax_t left = size; left != 0;) {
        const auto count = std::min<std::uintmax_t>(left, a.size());
        if (!first.read(a.data(), static_cast<std::streamsize>(count)) ||
            !second.read(b.data(), static_cast<std::streamsize>(count)) ||
            !std::equal(a.data(), a.data() + count, b.data()))
            return false;
        left -= count;
    }
    return true;
}

/// Names of the files that belong to an output.
std::vector<std::string> sideFiles(const staged_output& output) {
    std::vector<std::string> names = output.names();
    names.pop_back();
    return names;
}

std::string nameOf(const std::string& path) { return fs::path(path).filename().string(); }

} // namespace

output_set::output_set(const std::string& input, bool overwrite)
    : input_(identityOf(input)), overwrite_(overwrite) {}

staged_output& output_set::addModel(const std::string& target) {
    in_place_ = input_ && input_ == identityOf(withoutLinks(target));
    if (in_place_ && !overwrite_)
        throw host_error("'" + target + "' is the input: --overwrite replaces it", exit_usage);
    outputs_.push_back(std::make_unique<staged_output>(target));
    return *outputs_.back();
}

staged_output& output_set::add(const std::string& target) {
    const std::string place = withoutLinks(target);
    if (input_ && input_ == identityOf(place))
        throw host_error("'" + target + "' is the input", exit_usage);
    for (const auto& other : outputs_) {
        if (areOneFile(place, other->target()))
            throw host_error("'" + target + "' and '" + nameOf(other->target()) +
                                 "' cannot be one file",
                             exit_usage);
    }
    outputs_.push_back(std::make_unique<staged_output>(target));
    return *outputs_.back();
}

void output_set::keepOff(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        const std::optional<file_identity> identity = identityOf(file);
        if (identity)
            read_.push_back(*identity);
    }
    for (const auto& output : outputs_) {
        const bool replaces_input = in_place_ && output == outputs_.front();
        if (!replaces_input && wasRead(output->target()))
            throw host_error("cannot write '" + nameOf(output->target()) +
                             "': the input refers to it");
    }
}

void output_set::drop(const staged_output& output) {
    outputs_.erase(std::find_if(outputs_.begin(), outputs_.end(),
                                [&](const auto& one) { return one.get() == &output; }));
}

void output_set::check() const { plannedMoves(); }

void output_set::commit(const std::vector<std::string>& gone) {
    const std::vector<file_move> moves = plannedMoves();
    std::vector<std::string> all_gone = buffersWithoutModel();
    std::copy_if(gone.begin(), gone.end(), std::back_inserter(all_gone),
                 [this](const std::string& path) { return !wasRead(path); });
    moveAll(moves, all_gone);
}

std::vector<file_move> output_set::plannedMoves() const {
    std::vector<file_move> moves;
    for (std::size_t i = outputs_.size(); i-- > 0;) {
        const staged_output& output = *outputs_[i];
        planSideFiles(output, moves);
        moves.push_back(
            {output.path(), output.target(), output.old() + "/" + nameOf(output.path())});
    }
    return moves;
}

void output_set::planSideFiles(const staged_output& output, std::vector<file_move>& moves) const {
    const std::vector<std::string> names = sideFiles(output);
    const fs::path folder = fs::path(output.target()).parent_path();
    std::error_code error;
    std::set<std::string> present;
    for (const std::string& name : names) {
        if (fs::exists(fs::symlink_status(folder / name, error)))
            present.insert(name);
    }
    const std::set<std::string> referred =
        overwrite_ ? std::set<std::string>() : referredFiles(output.target(), present);
    for (const std::string& name : names) {
        const std::string from = output.folder() + "/" + name, to = (folder / name).string();
        if (present.count(name) != 0 && haveSameContent(from, to))
            continue;
        if (present.count(name) != 0) {
            const std::string reason = whyNotReplaced(to, referred.count(name) != 0);
            if (!reason.empty()) {
                std::string text = "cannot write '";
                text.append(name).append("' beside '").append(nameOf(output.target()));
                throw host_error(text.append("': ").append(reason));
            }
        }
        for (const auto& other : outputs_) {
            if (areOneFile(to, other->target()))
                throw host_error("cannot write '" + name + "': '" + nameOf(other->target()) +
                                 "' goes there");
        }
        moves.push_back({from, to, output.old() + "/" + name});
    }
}

/// Why a file that belongs to an output may not go to a place that is taken; empty if it may.
/// `referred`: the output in place refers to the file there.
std::string output_set::whyNotReplaced(const std::string& path, bool referred) const {
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(path, error)))
        return "it is no plain file";
    if (wasRead(path) && !in_place_)
        return "the input refers to it";
    return referred || overwrite_ ? "" : "it is another model's; --overwrite replaces it";
}

bool output_set::wasRead(const std::string& path) const {
    const std::optional<file_identity> identity = identityOf(path);
    return identity && std::find(read_.begin(), read_.end(), *identity) != read_.end();
}

/// Buffers that nobody refers to once the model is replaced.
std::vector<std::string> output_set::buffersWithoutModel() const {
    std::vector<std::string> gone;
    for (const auto& output : outputs_) {
        if (extensionOf(output->target()) != "gltf" || !identityOf(output->target()))
            continue;
        const std::vector<std::string> fresh = output->names();
        const fs::path folder = fs::path(output->target()).parent_path();
        for (const std::string& name : ownBuffers(output->target())) {
            const std::string path = (folder / name).string();
            if (std::find(fresh.begin(), fresh.end(), name) == fresh.end() &&
                (in_place_ || !wasRead(path)))
                gone.push_back(path);
        }
    }
    return gone;
}

} // namespace morva::host
