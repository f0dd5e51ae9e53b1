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

/// What takes in what this thread says; null: it is said at once.
thread_local held_texts* held = nullptr;

std::string joinedPieces(text_pieces text) {
    std::string joined;
    for (const std::string_view piece : text)
        joined += piece;
    return joined;
}

/// Hands each line of a text over. A text of one piece needs no memory for it.
void hand_over(const line_taker& take, text_pieces text) {
    std::string joined;
    std::string_view rest;
    if (text.size() == 1) {
        rest = *text.begin();
    } else {
        joined = joinedPieces(text);
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
    if (held != nullptr)
        return held->add(held_texts::kind::line, line, after);
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.out)
        hand_over(state().sink.out, line);
    else
        write_line(std::cout, line, after);
}

void say_over_progress(text_pieces line) {
    if (held != nullptr)
        return held->add(held_texts::kind::line_over_progress, line, flush::yes);
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
    if (held != nullptr)
        return held->add(held_texts::kind::error, line, flush::yes);
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.error)
        hand_over(state().sink.error, line);
    else
        write_line(std::cerr, line, flush::yes);
}

void say_progress(std::size_t done, std::size_t total, text_pieces text, flush after) {
    if (held != nullptr)
        return held->add(held_texts::kind::progress, text, after, done, total);
    const std::lock_guard<std::mutex> guard(state().mutex);
    if (state().sink.progress) {
        state().sink.progress(done, total);
        return;
    }
    write(std::cout, text);
    if (after == flush::yes)
        std::cout.flush();
}

held_texts::scope::scope(held_texts& texts) : before_(held) { held = &texts; }

held_texts::scope::~scope() { held = before_; }

void held_texts::add(kind how, text_pieces text, flush after, std::size_t done, std::size_t total) {
    texts_.push_back({how, joinedPieces(text), after, done, total});
}

void held_texts::give() {
    const auto all = std::exchange(texts_, {});
    for (const held_text& one : all) {
        if (one.how == kind::line)
            say({one.text}, one.after);
        else if (one.how == kind::line_over_progress)
            say_over_progress({one.text});
        else if (one.how == kind::error)
            say_error({one.text});
        else
            say_progress(one.done, one.total, {one.text}, one.after);
    }
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
