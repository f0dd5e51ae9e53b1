#include "file_identity.h"

#include <filesystem>

#include <sys/stat.h>

#include "host_error.h"

namespace fs = std::filesystem;

namespace morva::host {

std::optional<file_identity> identityOf(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return file_identity{status.st_dev, status.st_ino};
}

std::string withoutLinks(const std::string& path) {
    const std::string beginning = "cannot write '" + path + "': ";
    std::error_code error;
    fs::path place(path);
    // By hand: a link may lead to a file that is still to be made. The kernel's limit is 40, too.
    for (int links = 0; fs::is_symlink(fs::symlink_status(place, error)); ++links) {
        if (links == 40)
            throw host_error(beginning + "its links lead in a circle");
        const fs::path next = fs::read_symlink(place, error);
        place = next.is_absolute() ? next : place.parent_path() / next;
    }
    if (!place.has_filename() || fs::is_directory(place, error))
        throw host_error(beginning + "it is a folder");
    const fs::path folder = place.has_parent_path() ? place.parent_path() : fs::path(".");
    if (!fs::exists(folder, error))
        throw host_error(beginning + "there is no folder '" + folder.string() + "'");
    if (!fs::is_directory(folder, error))
        throw host_error(beginning + "'" + folder.string() + "' is no folder");
    const fs::path real = fs::canonical(folder, error);
    if (error)
        throw host_error(beginning + error.message());
    return (real / place.filename()).string();
}

bool areOneFile(const std::string& one, const std::string& other) {
    if (one == other)
        return true;
    const std::optional<file_identity> first = identityOf(one);
    return first && first == identityOf(other);
}

} // namespace morva::host
