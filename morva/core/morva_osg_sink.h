#pragma once

// Where the library's texts go: lines, and how far a stage is. By default to the standard streams;
// a host can take them in, to show or to drop them:
//
//     stage --say-----------> one lock --> sink.out       else std::cout    "done.\n"
//           --say_error-----> one lock --> sink.error     else std::cerr    "Error occured in
//           ...\n"
//           --say_progress--> one lock --> sink.progress  else std::cout    "\r11.1% "
//
//     const morva::sink_scope quiet({[](std::string_view) {}, nullptr,
//                                    [&](std::size_t done, std::size_t total) { bar(done, total);
//                                    }});
//     optTree(root, "cacheopt(true),maxtris(10)");
//
// Any thread: what a worker says comes out as a whole, and the parts of a sink are called by one
// thread at a time. They must not call the library. There is one sink for the process.

#include <cstddef>
#include <deque>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include <morva/core/morva_export.h>

namespace morva {

/// What takes the texts in. An empty member leaves its texts to the standard streams. Whatever a
/// member throws goes on in the stage that spoke, as an error of its own would.
struct output_sink {
    /// Gets each line for standard output, without its end.
    std::function<void(std::string_view line)> out;
    /// Gets each line for standard error, without its end.
    std::function<void(std::string_view line)> error;
    /// Gets how many of a stage's equal steps are behind it. `total` is above 0; it need not come
    /// to `done == total`.
    std::function<void(std::size_t done, std::size_t total)> progress;
};

/// Puts a sink in the place of the one so far, which is returned. Running workers speak to the new
/// one from then on.
MORVA_API output_sink set_sink(output_sink sink);

/// A sink for as long as this lives, then the one before.
class sink_scope {
  public:
    explicit sink_scope(output_sink sink) : former_(set_sink(std::move(sink))) {}
    ~sink_scope() { set_sink(std::move(former_)); }
    sink_scope(const sink_scope&) = delete;
    sink_scope& operator=(const sink_scope&) = delete;

  private:
    output_sink former_;
};

/// A text in pieces, which are put together only where a sink wants them so: nothing is allocated
/// on the way to the standard streams.
using text_pieces = std::initializer_list<std::string_view>;

/// Whether a standard stream is flushed behind a text.
enum class flush { yes, no };

/// Says one line on standard output; its end is added. Line ends within it make several lines.
MORVA_API void say(text_pieces line, flush after = flush::yes);

/// Says one line over what say_progress() wrote: a carriage return stands before it, but only where
/// progress goes to the stream, too.
MORVA_API void say_over_progress(text_pieces line);

/// Says one line on standard error; its end is added.
MORVA_API void say_error(text_pieces line);

/// Tells how far a stage is: `done` of `total` equal steps, `total` above 0.
///
/// text  for standard output, as it stands: carriage return, number, no line end
MORVA_API void say_progress(std::size_t done, std::size_t total, text_pieces text,
                            flush after = flush::yes);

/// What a thread says for a while, to be said later: of work that is done side by side, in its
/// order. One thread at a time.
class MORVA_API held_texts {
  public:
    /// Takes in all that the calling thread says meanwhile.
    class MORVA_API scope {
      public:
        explicit scope(held_texts& texts);
        scope(const scope&) = delete;
        scope& operator=(const scope&) = delete;
        ~scope();

      private:
        held_texts* before_;
    };

    /// Says all of it on the calling thread, and forgets it.
    void give();

    /// How a text came.
    enum class kind { line, line_over_progress, error, progress };

    /// Appends a text.
    void add(kind how, text_pieces text, flush after, std::size_t done = 0, std::size_t total = 0);

  private:
    struct held_text {
        kind how;
        std::string text;
        flush after;
        std::size_t done, total; ///< of progress
    };
    std::deque<held_text> texts_;
};

/// What a stage says of an exception that it stops; the first two are followed by its own text.
struct caught_texts {
    std::string_view no_memory; ///< std::bad_alloc
    std::string_view standard;  ///< other standard exceptions
    std::string_view unknown;   ///< everything else
};

/// Says a line on standard error for the exception that is being handled: call it in a handler.
/// Nothing leaves it; a line that the sink fails on is lost.
MORVA_API void print_caught(const caught_texts& texts) noexcept;

} // namespace morva
