#include "divide_options.h"

#include <cmath>

#include <CLI/CLI.hpp>

#include "host_error.h"
#include "model_export.h"
#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

constexpr double corners_of_triangle = 3.0;

/// A count that makes sense as a limit.
double countOf(const std::string& text, const std::string& what, double least) {
    const double count = numbersOf(text, 1, what)[0];
    if (!(count >= least) || count != std::floor(count))
        throw host_error(what + " is a whole number, at least " +
                             std::to_string(static_cast<int>(least)) + ": not '" + text + "'",
                         exit_usage);
    return count;
}

void readLimit(const CLI::App& divide, const divide_texts& texts, divide_options& chosen) {
    using morva::osg::cell_measure;
    if (divide.count("--triangles") != 0) {
        chosen.by = "triangles";
        chosen.limit = countOf(texts.triangles, "--triangles", 1.0);
        chosen.cells.limit = chosen.limit;
    } else if (divide.count("--indices") != 0) {
        chosen.by = "indices";
        chosen.limit = countOf(texts.indices, "--indices", corners_of_triangle);
        chosen.cells.limit = std::floor(chosen.limit / corners_of_triangle);
    } else if (divide.count("--size") != 0) {
        chosen.by = "size";
        chosen.limit = numbersOf(texts.size, 1, "--size")[0];
        if (!(chosen.limit > 0.0))
            throw host_error("--size is above 0: not '" + texts.size + "'", exit_usage);
        chosen.cells.measure = cell_measure::size;
        chosen.cells.limit = chosen.limit;
    } else {
        throw host_error("divide needs --triangles, --size or --indices; see morva divide --help",
                         exit_usage);
    }
}

} // namespace

void addDivideOptions(CLI::App& divide, divide_options& chosen, divide_texts& texts) {
    CLI::Option* const folder =
        divide.add_option("--cells", chosen.folder, "folder for the cells, new or empty");
    folder->type_name("DIR");
    CLI::Option* const triangles =
        divide.add_option("--triangles", texts.triangles, "at most so many triangles in a cell");
    CLI::Option* const size = divide.add_option(
        "--size", texts.size, "cells of at most this size on every axis, in units of the file");
    CLI::Option* const indices = divide.add_option(
        "--indices", texts.indices, "at most so many indices in a cell, three a triangle");
    triangles->type_name("N")->excludes(size)->excludes(indices);
    indices->type_name("N")->excludes(size);
    size->type_name("X");
    divide
        .add_option("--straddle", texts.straddle,
                    "centre: a triangle goes where its centre is; cut: each cell gets its piece")
        ->check(CLI::IsMember({"centre", "cut"}))
        ->capture_default_str();
    divide.add_option("--normals", texts.normals, "keep: as they are; recalc: anew in every cell")
        ->check(CLI::IsMember({"keep", "recalc"}))
        ->capture_default_str();
    divide.add_option("--format", texts.format, "what the cells are written as")
        ->type_name("EXT")
        ->capture_default_str();
    divide.add_flag("--plan", chosen.plan, "tell the cells and what is in them, write nothing");
}

void readDivideOptions(const CLI::App& divide, const divide_texts& texts, divide_options& chosen) {
    readLimit(divide, texts, chosen);
    if (chosen.folder.empty() && !chosen.plan)
        throw host_error("divide needs --cells DIR, or --plan; see morva divide --help",
                         exit_usage);
    if (texts.straddle == "cut")
        chosen.cells.straddle = morva::osg::cell_straddle::cut;
    if (texts.normals == "recalc")
        chosen.cells.normals = morva::osg::cell_normals::recalc;
    chosen.format = extensionOf("cell." + texts.format); // with a dot in front or without
    if (!canWrite("cell." + chosen.format))
        throw host_error("cannot write cells as '" + texts.format +
                             "'; known extensions: " + writableExtensions(),
                         exit_usage);
}

} // namespace morva::host
