#include "options.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include "host_error.h"
#include "model_export.h"
#include "version.h"

namespace morva::host {

namespace {

void addCommon(CLI::App& app, options& chosen) {
    app.add_option("IN", chosen.input, "model file to read")->required();
    app.add_option("--report", chosen.report, "write the figures as JSON to this file");
    app.add_flag("-q,--quiet", chosen.quiet, "print errors only");
}

void check(const options& chosen) {
    if (chosen.quiet && chosen.verbose)
        throw host_error("--quiet and --verbose exclude each other", exit_usage);
    if (chosen.what != command::optimize)
        return;
    if (!canWrite(chosen.output))
        throw host_error("cannot write files like '" + chosen.output +
                             "'; known extensions: " + writableExtensions(),
                         exit_usage);
}

} // namespace

std::optional<options> parseCommandLine(int argc, const char* const* argv) {
    options chosen;
    std::string names = "unique";
    CLI::App app("Rebuilds model files into few, bounded geometry cores.", "morva");
    app.set_version_flag("--version", std::string("morva ") + version);
    app.require_subcommand(1);

    CLI::App* optimize = app.add_subcommand("optimize", "read, optimise, write, report");
    addCommon(*optimize, chosen);
    optimize->add_option("-o,--output", chosen.output, "model file to write")->required();
    optimize
        ->add_option("-p,--parameters", chosen.parameters,
                     "what to do, as key(value),key(value),...")
        ->capture_default_str();
    optimize
        ->add_option("--names", names,
                     "unique: give each part a path-like name of its own; keep: leave names")
        ->check(CLI::IsMember({"keep", "unique"}))
        ->capture_default_str();
    optimize->add_flag("--overwrite", chosen.overwrite,
                       "OUT may be IN, and files that belong to OUT may replace others");
    optimize->add_flag("-v,--verbose", chosen.verbose, "show what the optimiser prints");
    CLI::App* info = app.add_subcommand("info", "read and print the figures");
    addCommon(*info, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error, std::cout, std::cout);
            return std::nullopt;
        }
        throw host_error(std::string(error.what()) + "; see morva --help", exit_usage);
    }
    chosen.what = optimize->parsed() ? command::optimize : command::info;
    chosen.keep_names = names == "keep";
    check(chosen);
    return chosen;
}

} // namespace morva::host
