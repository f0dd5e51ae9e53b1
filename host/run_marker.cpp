#include "run_marker.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

#include "print.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

constexpr const char* title = "morva run";

/// What tells one run from all others. An empty text is one that the system does not tell.
struct run_identity {
    std::string host, boot, space, process, start;
};

/// The lines of a mark, in their order.
constexpr std::pair<const char*, std::string run_identity::*> lines_of_marker[] = {
    {"host ", &run_identity::host},
    {"boot ", &run_identity::boot},
    {"space ", &run_identity::space},
    {"process ", &run_identity::process},
    {"start ", &run_identity::start}};

std::string firstLineOf(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// When a process started, in clock ticks since the machine did; "ended" for one that only waits
/// for its parent to ask how it ended, which may be for ever; empty if there is none.
std::string startOf(const std::string& process) {
    const std::string line = firstLineOf("/proc/" + process + "/stat");
    // The name of the program stands in brackets, and may hold any. The start is the 20th behind.
    const std::size_t bracket = line.rfind(')');
    if (bracket == std::string::npos)
        return std::string();
    std::istringstream words(line.substr(bracket + 1));
    std::string state, word;
    words >> state;
    if (state == "Z" || state == "X")
        return "ended";
    for (int i = 1; i < 20; ++i)
        words >> word;
    return words ? word : std::string();
}

/// Machines may have one name: where they have numbers, these tell them apart.
std::string hostName() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return std::string();
    return std::string(name) + " " + firstLineOf("/etc/machine-id");
}

run_identity ownIdentity() {
    std::error_code error;
    const std::string process = std::to_string(getpid());
    return {hostName(), firstLineOf("/proc/sys/kernel/random/boot_id"),
            fs::read_symlink("/proc/self/ns/pid", error).string(), process, startOf(process)};
}

/// Nothing for any other text.
std::optional<run_identity> identityIn(const std::string& marker) {
    std::istringstream text(marker);
    std::string line;
    if (!std::getline(text, line) || line != title)
        return std::nullopt;
    run_identity found;
    for (const auto& [key, member] : lines_of_marker) {
        const std::size_t length = std::strlen(key);
        if (!std::getline(text, line) || text.eof() || line.compare(0, length, key) != 0)
            return std::nullopt; // a line without its end is still being written
        found.*member = line.substr(length);
    }
    return found;
}

/// Whether a process is there, be it another user's or one on its way out.
bool isThere(const std::string& process) {
    return kill(static_cast<pid_t>(std::stol(process)), 0) == 0 || errno != ESRCH;
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.size() < 10 &&
           text.find_first_not_of("0123456789") == std::string::npos && text != "0";
}

/// Whether a process of this machine, of this start and space of it, is surely gone.
bool isGone(const std::string& process, const std::string& start) {
    if (!isNumber(process))
        return false;
    if (!isThere(process))
        return true;
    const std::string now = startOf(process);
    return !now.empty() && !start.empty() && now != start;
}

/// Print of the machine, its start and the space of process numbers; empty if some are not known.
std::string placePrint(const run_identity& own) {
    if (own.host.empty() || own.boot.empty() || own.space.empty())
        return std::string();
    const std::string text = own.host + "\n" + own.boot + "\n" + own.space;
    char digits[17];
    std::snprintf(
        digits, sizeof digits, "%016llx",
        static_cast<unsigned long long>(extendedPrint(empty_print, text.data(), text.size())));
    return digits;
}

/// Whether a text is the mark of a run of this machine that is over.
bool isOfEndedRun(const std::string& marker) {
    const std::optional<run_identity> found = identityIn(marker);
    const run_identity own = ownIdentity();
    if (!found || own.host.empty() || own.boot.empty() || found->host != own.host ||
        found->boot.empty() || !isNumber(found->process))
        return false;
    if (found->boot != own.boot)
        return true;
    // Numbers of another space say nothing here.
    return !own.space.empty() && found->space == own.space && isGone(found->process, found->start);
}

/// Whether a folder is called like those of a run that is over.
bool isNameOfEndedRun(const std::string& name) {
    std::istringstream text(name);
    std::string title_part, process, start, print, rest;
    std::getline(text, title_part, '-');
    std::getline(text, process, '-');
    std::getline(text, start, '-');
    std::getline(text, print, '-');
    std::getline(text, rest);
    return rest.size() == 6 && !print.empty() && print == placePrint(ownIdentity()) &&
           isGone(process, start);
}

/// The mark in a folder; empty if there is none.
std::string markerIn(const fs::path& folder) {
    std::error_code error;
    const fs::path path = folder / run_marker_name;
    if (!fs::is_regular_file(fs::symlink_status(path, error)))
        return std::string();
    std::string text(1024, ' '); // longer than any mark
    std::ifstream file(path, std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace

std::string runMarker() {
    const run_identity own = ownIdentity();
    std::string text = std::string(title) + "\n";
    for (const auto& [key, member] : lines_of_marker)
        text += key + own.*member + "\n";
    return text;
}

std::string runFolderName() {
    const run_identity own = ownIdentity();
    return ".morva-" + own.process + "-" + own.start + "-" + placePrint(own) + "-XXXXXX";
}

void removeRunFolder(const std::string& path, std::error_code& error) {
    try {
        // An open folder takes a buffer: one at a time, since there may be no room for two.
        std::error_code ignored;
        std::vector<fs::path> all;
        for (fs::directory_iterator entry(path, ignored);
             !ignored && entry != fs::directory_iterator(); entry.increment(ignored)) {
            if (entry->path().filename() != run_marker_name)
                all.push_back(entry->path());
        }
        for (const fs::path& one : all)
            fs::remove_all(one, ignored);
    } catch (const std::bad_alloc&) { // then the mark goes with the rest
    }
    fs::remove_all(path, error);
}

void sweepEndedRuns(const std::string& folder) {
    std::error_code error, ignored;
    std::vector<fs::path> marked, unmarked;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const fs::path& path = entry->path();
        const std::string name = path.filename().string();
        if (name.compare(0, 7, ".morva-") != 0 || !fs::is_directory(entry->symlink_status(ignored)))
            continue;
        const std::string marker = markerIn(path);
        if (isOfEndedRun(marker))
            marked.push_back(path);
        else if (marker.empty() && isNameOfEndedRun(name))
            unmarked.push_back(path);
    }
    for (const fs::path& path : marked)
        removeRunFolder(path.string(), ignored);
    for (const fs::path& path : unmarked) {
        fs::remove(path / run_marker_name, ignored); // empty, if it is there
        fs::remove(path, ignored);                   // fails if anything is in it
    }
}

} // namespace morva::host
