#pragma once

// The command line.

#include <optional>
#include <string>

namespace morva::host {

enum class command { optimize, info };

struct options {
    command what = command::info;
    std::string input;
    std::string output;                                         ///< optimize only
    std::string parameters = "opt(1),maxtris(5000),flat(true)"; ///< optimize only
    std::string report;                                         ///< JSON file; empty: none
    bool keep_names = false;                                    ///< optimize only
    bool overwrite = false;                                     ///< optimize only
    bool quiet = false, verbose = false;
};

/// Reads the command line.
///
/// returns  the options, or nothing if the command line asked for help or the version, which is
///          then printed
/// errors   host_error with exit_usage
std::optional<options> parseCommandLine(int argc, const char* const* argv);

} // namespace morva::host
