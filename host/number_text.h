#pragma once

// Numbers that people write and read: points on the command line, files of rows, answers. The
// decimal point is "." under every locale.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host_error.h"

namespace morva::host {

/// The numbers of a text with blanks, tabs or commas between them.
///
/// count   as many as there have to be
/// what    what the text is to be, for the error: "a point"
/// errors  host_error with exit_usage: another count, no number, NaN or infinite
std::vector<double> numbersOf(std::string_view text, std::size_t count, const std::string& what);

/// A number narrowed to single precision.
/// errors  host_error with exit_usage: out of its range
float narrowed(double number);

/// Rows of `width` numbers from a text file.
struct number_table {
    std::size_t width = 0;
    std::vector<double> values;     ///< `width` for each row
    std::vector<std::size_t> lines; ///< of the file, from 1; one per row

    std::size_t rows() const { return lines.size(); }
    const double* row(std::size_t i) const { return values.data() + i * width; }
};

/// Reads a file with one row a line. Lines of blanks alone are passed over.
///
/// what    what a line holds, for the error: "a ray"
/// errors  host_error: the file cannot be read; with exit_usage and the number of the line: it is
///         not as numbersOf() wants it
number_table readNumberTable(const std::string& path, std::size_t width, const std::string& what);

/// Calls `act` for what stands in a line of a file: a host_error of it gets the place in front.
template <typename Act> auto atLine(const std::string& path, std::size_t line, const Act& act) {
    try {
        return act();
    } catch (const host_error& error) {
        throw host_error("'" + path + "', line " + std::to_string(line) + ": " + error.what(),
                         error.code);
    }
}

/// The shortest text that reads back as the same number.
std::string shortText(float number);

/// The number that shortText() shows: in JSON 0.1f is 0.1, not 0.10000000149011612.
double shortNumber(float number);

} // namespace morva::host
