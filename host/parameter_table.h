#pragma once

// What the keys of the parameter string are, for people: the table of `morva optimize --help`, and
// the values that a key takes.

#include <array>
#include <string>

namespace morva::host {

/// What the value of a key is.
enum class value_kind { number, flag, text, none };

struct parameter_row {
    const char* key; ///< in lower case
    value_kind kind;
    int least, most;           ///< of a number, both included
    const char* default_value; ///< empty: the key is off
    const char* meaning;       ///< in one line of the table
};

/// Every key that a run reads and that changes something, in the order of the table.
extern const std::array<parameter_row, 32> parameter_rows;

/// The row of a key in lower case, or null.
const parameter_row* rowOf(const std::string& key);

/// The values of a key as words: "0 to 3", "true or false".
std::string valuesOf(const parameter_row& row);

/// The table, a line a key, with a head.
std::string parameterTable();

} // namespace morva::host
