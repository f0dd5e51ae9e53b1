#pragma once

// Work in a process of its own, which may crash, hang or take too much without harm to this one.
//
//     child_process child([](pipe_writer& out) { out.text(doubtfulWork()); });
//     try {
//         text = child.output().text();
//     } catch (const pipe_ended&) {
//         reason = child.crash();
//     }
//
// The process is a copy of this one and sees all that it had; what the work changes stays there. It
// prints nothing, leaves no core file, and goes when this one goes, however that ends: signals from
// a terminal are for this process to take.

#include <array>
#include <functional>
#include <string>

#include <sys/types.h>

#include "byte_pipe.h"

namespace morva::host {

class child_process {
  public:
    /// Starts the work; an exception from it ends the stream.
    /// errors  host_error or std::bad_alloc: there is no process or no pipe to be had
    explicit child_process(const std::function<void(pipe_writer&)>& work);
    /// Ends the process if it still runs.
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    /// What the work sends.
    pipe_reader& output() { return output_; }
    /// Waits for the end of a process whose stream ended early, and tells how it ended, like
    /// "crashed (segmentation fault)".
    std::string crash();

  private:
    child_process(const std::array<int, 2>& ends, const std::function<void(pipe_writer&)>& work);
    int wait();

    pipe_end input_; ///< for the child alone
    pipe_reader output_;
    pid_t process_ = 0; ///< 0: its end has been seen
};

} // namespace morva::host
