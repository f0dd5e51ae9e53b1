#include "number_text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <system_error>

#include "memory_watch.h"
#include "text.h"

namespace morva::host {

namespace {

constexpr std::string_view separators = " \t\r,";

double numberOf(std::string_view word) {
    const std::string shown = "'" + validUtf8(std::string(word)) + "' is ";
    // A plus sign is what people write and the standard's reader does not take.
    const bool plus = word.size() > 1 && word[0] == '+' && word[1] != '-' && word[1] != '+';
    const char* const end = word.data() + word.size();
    double number = 0.0;
    const auto [stop, error] = std::from_chars(word.data() + (plus ? 1 : 0), end, number);
    if (error == std::errc::result_out_of_range)
        throw host_error(shown + "out of range", exit_usage);
    if (error != std::errc() || stop != end)
        throw host_error(shown + "no number", exit_usage);
    if (!std::isfinite(number))
        throw host_error(shown + "not finite", exit_usage);
    return number;
}

} // namespace

std::vector<double> numbersOf(std::string_view text, std::size_t count, const std::string& what) {
    std::vector<double> numbers;
    std::size_t words = 0;
    for (std::size_t at = 0;; ++words) {
        at = text.find_first_not_of(separators, at);
        if (at == std::string_view::npos)
            break;
        const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
        if (words < count)
            numbers.push_back(numberOf(text.substr(at, end - at)));
        at = end;
    }
    if (words != count)
        throw host_error(what + " has " + std::to_string(count) + " numbers, here are " +
                             std::to_string(words),
                         exit_usage);
    return numbers;
}

float narrowed(double number) {
    const auto narrow = static_cast<float>(number);
    if (std::isfinite(narrow))
        return narrow;
    char text[32];
    std::snprintf(text, sizeof text, "%g", number);
    throw host_error(std::string("'") + text + "' is out of range", exit_usage);
}

number_table readNumberTable(const std::string& path, std::size_t width, const std::string& what) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string text;
    number_table table{width, {}, {}};
    for (std::size_t line = 1; std::getline(file, text); ++line) {
        if (text.find_first_not_of(separators) == std::string::npos)
            continue;
        const std::vector<double> row =
            atLine(path, line, [&] { return numbersOf(text, width, what); });
        table.values.insert(table.values.end(), row.begin(), row.end());
        table.lines.push_back(line);
    }
    memory_watch::check("reading '" + path + "'");
    if (!file.eof()) // not opened, a folder, or given up in between
        throw host_error("cannot read '" + path + "'" +
                         (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
    return table;
}

std::string shortText(float number) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    return std::string(text, error == std::errc() ? end : text);
}

double shortNumber(float number) {
    const std::string text = shortText(number);
    double same = number;
    std::from_chars(text.data(), text.data() + text.size(), same);
    return same;
}

} // namespace morva::host
