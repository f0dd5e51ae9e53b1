#pragma once

// Standard output and standard error while several threads print.
//
// The streams' own buffers are safe to share. One that an application has put in their place (a
// log window, a capture) need not be: two threads would write into it at once. While a
// worker_output lives, such a buffer stands behind a line_gate, which hands it whole lines, one
// thread at a time:
//
//     worker 1 --"Empty Geo"--> [Empty Geo.......]
//     worker 2 --"No Geo.\n"--> [No Geo.\n] ------mutex--> the application's buffer
//
// Main thread only, and not while workers run.

#include <iostream>
#include <map>
#include <mutex>
#include <streambuf>
#include <string>
#include <thread>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Collects what each thread writes, and passes it on line by line. What is left of a line at the
/// end is passed on then.
class MORVA_API line_gate : public std::streambuf {
  public:
    explicit line_gate(std::streambuf* target_) : target(target_) {}
    ~line_gate() override;

  private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

    std::streambuf* target;
    std::mutex mutex;                                  ///< guards the target and the parts
    std::map<std::thread::id, std::string> unfinished; ///< lines that lack their end
};

/// Puts line gates before replaced buffers of std::cout and std::cerr.
class MORVA_API worker_output {
  public:
    worker_output() : out(std::cout), error(std::cerr) {}

  private:
    class gated_stream {
      public:
        explicit gated_stream(std::ostream& stream_);
        gated_stream(const gated_stream&) = delete;
        gated_stream& operator=(const gated_stream&) = delete;
        ~gated_stream();

      private:
        std::ostream& stream;
        std::streambuf* own; ///< the buffer that the stream came with
        line_gate gate;
        bool gated;
    };

    gated_stream out;
    gated_stream error;
};

} // namespace morva::osg
