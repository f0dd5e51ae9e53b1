#include "file_moves.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "host_error.h"
#include "stage_folder.h"

namespace morva::host {

namespace {

[[noreturn]] void fail(const std::string& path) {
    const int reason = errno;
    throw host_error("cannot write '" + path.substr(path.rfind('/') + 1) +
                     "': " + std::strerror(reason));
}

/// Gives a new file what the one in its place has.
void handOn(const struct stat& old, const std::string& path) {
    struct stat fresh = {};
    const bool other = stat(path.c_str(), &fresh) == 0 &&
                       (fresh.st_uid != old.st_uid || fresh.st_gid != old.st_gid);
    // Only the first may be refused; permissions come second, since a new owner clears some.
    if (other && chown(path.c_str(), old.st_uid, old.st_gid) != 0)
        errno = 0;
    if (chmod(path.c_str(), old.st_mode & 07777) != 0)
        fail(path);
}

/// Keeps a file under a second name or, where a file can't have two, under that one alone.
void keep(const std::string& path, const std::string& backup) {
    if (link(path.c_str(), backup.c_str()) != 0 && std::rename(path.c_str(), backup.c_str()) != 0)
        fail(path);
}

/// The moves done so far, which go back unless all are.
class undo_list {
  public:
    ~undo_list() {
        for (std::size_t i = steps_.size(); i-- > 0;) {
            const step& last = steps_[i];
            if (last.replaced)
                std::rename(last.move->backup.c_str(), last.move->to.c_str());
            else
                unlink(last.move->to.c_str());
        }
    }
    explicit undo_list(std::size_t count) { steps_.reserve(count); }
    undo_list(const undo_list&) = delete;
    undo_list& operator=(const undo_list&) = delete;

    void carryOut(const file_move& move) {
        struct stat old = {};
        const bool replaced = lstat(move.to.c_str(), &old) == 0;
        if (replaced) {
            handOn(old, move.from);
            keep(move.to, move.backup);
            steps_.push_back({&move, true});
        }
        if (std::rename(move.from.c_str(), move.to.c_str()) != 0)
            fail(move.to);
        if (!replaced)
            steps_.push_back({&move, false});
    }
    void forget() { steps_.clear(); }

  private:
    struct step {
        const file_move* move;
        bool replaced;
    };
    std::vector<step> steps_;
};

} // namespace

void moveAll(const std::vector<file_move>& moves, const std::vector<std::string>& gone) {
    const std::unique_lock<std::mutex> hold = holdStageFolders();
    undo_list done(moves.size());
    for (const file_move& move : moves)
        done.carryOut(move);
    done.forget();
    for (const std::string& path : gone)
        std::remove(path.c_str()); // what stays does no harm
}

} // namespace morva::host
