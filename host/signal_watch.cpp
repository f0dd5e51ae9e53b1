#include "signal_watch.h"

#include <csignal>
#include <exception>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include "stage_folder.h"

namespace morva::host {

namespace {

/// Those of the signals that are not ignored.
sigset_t watchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction present = {};
        // Blocked signals wait even where they are ignored: the thread would take them.
        if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN)
            sigaddset(&set, signal);
    }
    return set;
}

/// Waits for a signal and ends the process by it.
void endBySignal(const sigset_t& set) {
    int signal = 0;
    if (sigwait(&set, &signal) != 0)
        return;
    try {
        removeStageFolders();
    } catch (const std::exception&) {
        // The next run sweeps.
    }
    std::signal(signal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    kill(getpid(), signal);
}

} // namespace

void watchSignals() {
    const sigset_t set = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // threads started from here on inherit it
    try {
        std::thread([set] { endBySignal(set); }).detach();
    } catch (const std::exception&) {
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
}

} // namespace morva::host
