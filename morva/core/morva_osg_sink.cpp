#include <morva/core/morva_osg_sink.h>

#include <exception>
#include <iostream>
#include <mutex>
#include <new>
#include <string>

namespace morva {

namespace {

using line_taker = std::function<void(std::string_view)>;

struct sink_state {
    std::mutex mutex; ///< guards the sink and the standard streams
    output_sink sink;
};

sink_state& state() {
    static sink_state the_state;
    return the_state;
}

/// Unformatted: what the caller has set for the stream's numbers does not matter.
void write(std::ostream& stream, text_pieces text) {
    for (const std::string_view piece : text)
        stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
}

void write_line(std::ostream& stream, text_pieces line, flush after) {
    write(stream, line);
    stream.put('\n');
    if (after == flush::yes)
        stream.flush();
}

/// Hands each line of a text over. A text of one piece needs no memory for it.
void hand_over(const line_taker& take, text_pieces text) {
    std::string joined;
    std::string_view rest;
    if (text.size() == 1) {
        rest = *text.begin();
    } else {
        for (const std::string_view piece : text)
            joined += piece;
        rest = joined;
    }
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        take(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    take(rest);
}

} // namespace

output_sink set_sink(output_sink sink) {
    const std::lock_guard<std::mutex> guard(state().mutex);
    std::swap(state().sink, sink);
    return sink;
}

void say(text_pieces line, flush after) {
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.out)
        hand_over(state().sink.out, line);
    else
        write_line(std::cout, line, after);
}

void say_over_progress(text_pieces line) {
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.out) {
        hand_over(state().sink.out, line);
        return;
    }
    if (!state().sink.progress)
        std::cout.put('\r');
    write_line(std::cout, line, flush::yes);
}

void say_error(text_pieces line) {
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.error)
        hand_over(state().sink.error, line);
    else
        write_line(std::cerr, line, flush::yes);
}

void say_progress(std::size_t done, std::size_t total, text_pieces text, flush after) {
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.progress) {
        state().sink.progress(done, total);
        return;
    }
    write(std::cout, text);
    if (after == flush::yes)
        std::cout.flush();
}

void print_caught(const caught_texts& texts) noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc& error) {
            say_error({texts.no_memory, error.what()});
        } catch (const std::exception& error) {
            say_error({texts.standard, error.what()});
        } catch (...) {
            say_error({texts.unknown});
        }
    } catch (...) { // of the sink: nobody is left to tell
    }
}

} // namespace morva
