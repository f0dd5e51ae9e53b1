#pragma once

// What `morva divide` is asked, and its part of the command line.

#include <string>

#include <morva/tools/morva_osg_model_cells.h>

namespace CLI {
class App;
}

namespace morva::host {

struct divide_options {
    morva::osg::model_cell_options cells;
    std::string by;             ///< "triangles", "size" or "indices"
    double limit = 0.0;         ///< as asked: of those
    std::string folder;         ///< for the cells; empty for a plan
    std::string format = "glb"; ///< extension of the cells' files, without a dot
    bool plan = false;          ///< tell the cells and write nothing
};

/// The numbers and choices of the command line as they are written.
struct divide_texts {
    std::string triangles, size, indices, straddle = "centre", normals = "keep", format = ".glb";
};

/// Adds all but the input and --overwrite.
void addDivideOptions(CLI::App& divide, divide_options& chosen, divide_texts& texts);

/// Reads the texts once the command line is parsed.
/// errors  host_error with exit_usage
void readDivideOptions(const CLI::App& divide, const divide_texts& texts, divide_options& chosen);

} // namespace morva::host
