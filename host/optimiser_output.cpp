#include "optimiser_output.h"

#include <utility>

namespace morva::host {

namespace {

/// Length of a number with "% " behind it at the start of a text; 0 for none.
std::size_t progressLength(const std::string& text) {
    const std::size_t end = text.find_first_not_of("0123456789.e+-");
    const bool found = end != std::string::npos && end != 0 && text.compare(end, 2, "% ") == 0;
    return found ? end + 2 : 0;
}

} // namespace

optimiser_output::optimiser_output(std::streambuf* lines,
                                   std::function<void(const std::string&)> progress)
    : lines_(lines), progress_(std::move(progress)) {}

optimiser_output::~optimiser_output() {
    cutProgressOff();
    if (lines_ != nullptr)
        lines_->sputn(piece_.data(), static_cast<std::streamsize>(piece_.size()));
}

optimiser_output::int_type optimiser_output::overflow(int_type letter) {
    if (!traits_type::eq_int_type(letter, traits_type::eof())) {
        const std::lock_guard<std::mutex> guard(mutex_);
        take(traits_type::to_char_type(letter));
    }
    return traits_type::not_eof(letter);
}

std::streamsize optimiser_output::xsputn(const char* text, std::streamsize count) {
    const std::lock_guard<std::mutex> guard(mutex_);
    for (std::streamsize i = 0; i < count; ++i)
        take(text[i]);
    return count;
}

int optimiser_output::sync() {
    const std::lock_guard<std::mutex> guard(mutex_);
    // Progress has no end of its own: the flush is when it is to be seen.
    if (after_return_ && progressLength(piece_) == piece_.size() && !piece_.empty())
        endOfProgress();
    return lines_ != nullptr ? lines_->pubsync() : 0;
}

void optimiser_output::take(char letter) {
    if (letter == '\r') {
        endOfProgress();
        after_return_ = true;
        return;
    }
    piece_ += letter;
    if (letter != '\n')
        return;
    cutProgressOff();
    if (lines_ != nullptr)
        lines_->sputn(piece_.data(), static_cast<std::streamsize>(piece_.size()));
    piece_.clear();
    after_return_ = false;
}

void optimiser_output::endOfProgress() {
    if (!piece_.empty())
        progress_(piece_);
    piece_.clear();
}

void optimiser_output::cutProgressOff() {
    const std::size_t length = after_return_ ? progressLength(piece_) : 0;
    if (length == 0)
        return;
    progress_(piece_.substr(0, length));
    piece_.erase(0, length);
}

} // namespace morva::host
