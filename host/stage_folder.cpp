#include "stage_folder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "host_error.h"
#include "output_file.h"
#include "run_marker.h"

namespace fs = std::filesystem;

namespace morva::host {

namespace {

/// Two open folders take 32 kB each. Below what malloc() maps by itself, so that it is in the heap.
constexpr std::size_t reserved_bytes = 96U << 10U;

struct stage_registry {
    std::mutex mutex;
    std::vector<std::string> paths; ///< folders that are there
    std::vector<std::string> made;  ///< folders for files
};

/// Never destroyed: a signal may come while the process ends.
stage_registry& registry() {
    static auto* const all = new stage_registry;
    return *all;
}

/// Removes a folder that others may still put files into.
void removeBusyFolder(const std::string& path) {
    std::error_code error;
    for (int tries = 0; tries < 200 && fs::exists(path, error); ++tries) {
        if (tries != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        removeRunFolder(path, error);
    }
}

} // namespace

stage_folder::stage_folder(const std::string& folder)
    : path_((fs::path(folder) / runFolderName()).string()), reserve_(reserved_bytes) {
    sweepEndedRuns(folder);
    const std::string marker = runMarker();
    stage_registry& all = registry();
    const std::lock_guard<std::mutex> guard(all.mutex);
    all.paths.push_back(path_); // first: it may throw
    if (mkdtemp(all.paths.back().data()) == nullptr) {
        const int reason = errno;
        all.paths.pop_back();
        throw host_error("cannot write in the folder '" + folder + "': " + std::strerror(reason));
    }
    path_ = all.paths.back();
    try {
        writeFile(path_ + "/" + run_marker_name, marker);
        fs::create_directory(fresh());
        fs::create_directory(old());
    } catch (const std::exception& error) {
        std::error_code ignored;
        removeRunFolder(path_, ignored);
        all.paths.pop_back();
        throw host_error("cannot write in the folder '" + folder + "': " + error.what());
    }
}

stage_folder::~stage_folder() {
    std::vector<char>().swap(reserve_); // the run may have ended for want of memory
    stage_registry& all = registry();
    const std::lock_guard<std::mutex> guard(all.mutex);
    std::error_code ignored;
    removeRunFolder(path_, ignored);
    if (ignored) // it may only have lacked a little memory
        removeRunFolder(path_, ignored);
    all.paths.erase(std::find(all.paths.begin(), all.paths.end(), path_));
}

made_folder::made_folder(const std::string& path) {
    stage_registry& all = registry();
    const std::lock_guard<std::mutex> guard(all.mutex);
    std::error_code error;
    if (fs::is_directory(path, error))
        return;
    path_ = fs::absolute(path).string();
    all.made.push_back(path_); // first: it may throw
    if (mkdir(path_.c_str(), 0777) == 0)
        return;
    const int reason = errno;
    all.made.pop_back();
    throw host_error("cannot make the folder '" + path + "': " + std::strerror(reason));
}

made_folder::~made_folder() {
    if (path_.empty())
        return;
    stage_registry& all = registry();
    const std::lock_guard<std::mutex> guard(all.mutex);
    rmdir(path_.c_str());
    all.made.erase(std::find(all.made.begin(), all.made.end(), path_));
}

std::unique_lock<std::mutex> holdStageFolders() {
    return std::unique_lock<std::mutex>(registry().mutex);
}

void removeStageFolders() {
    stage_registry& all = registry();
    all.mutex.lock(); // for good
    for (const std::string& path : all.paths)
        removeBusyFolder(path);
    for (const std::string& path : all.made)
        rmdir(path.c_str());
}

} // namespace morva::host
