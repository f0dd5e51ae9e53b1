#pragma once

// The command line.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "collide_poses.h"
#include "divide_options.h"
#include "pick_rays.h"
#include "simplify_line.h"

namespace morva::host {

enum class command { optimize, automatic, info, pick, collide, simplify, divide };

/// What `morva pick` is asked.
struct pick_options {
    std::vector<pick_ray> rays;
    bool all = false;        ///< every hit along a ray
    bool both_sides = false; ///< triangles seen from behind, too
    bool json = false;
    std::optional<std::string> parameters; ///< of the run whose result is picked beside the file
};

/// What `morva collide` is asked.
struct collide_options {
    std::string a, b; ///< names of nodes; "rest" for `b`: all but `a`
    bool all = false; ///< every pair in contact
    bool json = false;
    std::optional<std::vector<collide_pose>> poses; ///< of `b`; none: as it stands
};

struct options {
    command what = command::info;
    std::string input;
    std::string output;                                         ///< optimize, auto, simplify
    std::string parameters = "opt(1),maxtris(5000),flat(true)"; ///< of optimize; of auto empty
    std::string report;                                         ///< JSON file; empty: none
    bool keep_names = false;                                    ///< optimize and auto
    bool overwrite = false;                                     ///< of all that write
    bool ao_replace = false;      ///< optimize only: baking replaces colours and materials
    std::string removed;          ///< optimize only: model file of removed parts; empty: none
    std::string contact_sheet;    ///< optimize and auto: picture of all atlases; empty: none
    std::uint64_t max_memory = 0; ///< bytes that the run may take
    double max_growth = 20.0;     ///< optimize and auto: triangles out, in times those that go in
    bool quiet = false, verbose = false;
    pick_options pick;         ///< pick only
    collide_options collide;   ///< collide only
    simplify_request simplify; ///< simplify only
    divide_options divide;     ///< divide only
};

/// Reads the command line, and the files of rays and poses that it names.
///
/// returns  the options, or nothing if the command line asked for help or the version, which is
///          then printed
/// errors   host_error, with exit_usage if the command line or a line of these files is wrong
std::optional<options> parseCommandLine(int argc, const char* const* argv);

} // namespace morva::host
