#pragma once

// What `morva simplify` is asked on the command line.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <morva/tools/morva_osg_simplify.h>

namespace CLI {
class App;
}

namespace morva::host {

/// How far one output goes down: neither of both if the distance alone decides.
struct simplify_level {
    std::optional<double> ratio;            ///< of the live triangles of each part, 0 to 1
    std::optional<std::uint32_t> triangles; ///< of all parts together, above 0
};

struct simplify_request {
    std::vector<simplify_level> levels;
    bool numbered = false;           ///< the outputs are OUT.lod1, OUT.lod2, ...
    std::optional<double> max_error; ///< in the world
    morva::osg::simplify_options options;
};

/// The request as it is written.
struct simplify_texts {
    std::string ratio, triangles, lods, max_error, weld = "position";
    bool lock_borders = false;
};

/// Adds what `texts` takes in to the command.
void addSimplifyOptions(CLI::App& simplify, simplify_texts& texts);

/// errors  host_error with exit_usage
simplify_request requestOf(const simplify_texts& texts);

/// Where a level, from 0 on, is written: "out.glb", or "out.lod1.glb", ...
std::string pathOf(const simplify_request& request, const std::string& output, std::size_t level);

} // namespace morva::host
