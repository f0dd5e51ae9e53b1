#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host_error.h"

namespace morva::host {

namespace {

/// More than the usual size saves turns between the processes; a refusal costs those only.
constexpr int pipe_bytes = 1 << 20;

[[noreturn]] void refuse(int reason) {
    if (reason == ENOMEM)
        throw std::bad_alloc();
    throw host_error(std::string("cannot start a process to read in: ") + std::strerror(reason));
}

std::array<int, 2> openPipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        refuse(errno);
    fcntl(ends[1], F_SETPIPE_SZ, pipe_bytes);
    return ends;
}

void silence() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
}

[[noreturn]] void work(const std::function<void(pipe_writer&)>& errand, int descriptor,
                       pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) // which may have gone before
        _exit(1);
    prctl(PR_SET_DUMPABLE, 0);
    silence();
    try {
        pipe_writer output(descriptor);
        errand(output);
        output.flush();
    } catch (...) {
        _exit(1);
    }
    _exit(0);
}

} // namespace

child_process::child_process(const std::function<void(pipe_writer&)>& errand)
    : child_process(openPipe(), errand) {}

child_process::child_process(const std::array<int, 2>& ends,
                             const std::function<void(pipe_writer&)>& errand)
    : input_(ends[1]), output_(ends[0]) {
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ < 0)
        refuse(errno);
    if (process_ == 0) {
        output_.close(); // or its writes would wait for a reader that has gone
        work(errand, ends[1], parent);
    }
    input_.close();
}

child_process::~child_process() {
    if (process_ == 0)
        return;
    kill(process_, SIGKILL);
    wait();
}

int child_process::wait() {
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return status;
}

std::string child_process::crash() {
    const int status = wait();
    if (!WIFSIGNALED(status))
        return "ended early";
    switch (WTERMSIG(status)) {
    case SIGSEGV:
        return "crashed (segmentation fault)";
    case SIGBUS:
        return "crashed (bus error)";
    case SIGFPE:
        return "crashed (arithmetic fault)";
    case SIGILL:
        return "crashed (illegal instruction)";
    case SIGABRT:
        return "gave up (abort)";
    case SIGKILL:
        return "was killed, perhaps for want of memory";
    default:
        return std::string("was ended by a signal (") + strsignal(WTERMSIG(status)) + ")";
    }
}

} // namespace morva::host
