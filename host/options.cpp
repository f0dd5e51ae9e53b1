#include "options.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include <CLI/CLI.hpp>

#include <morva/driver/morva_osg_run_plan.h>

#include "host_error.h"
#include "memory_limit.h"
#include "model_export.h"
#include "output_formats.h"
#include "parameter_table.h"
#include "text.h"
#include "version.h"

namespace morva::host {

namespace {

void addInput(CLI::App& app, options& chosen) {
    app.add_option("IN", chosen.input, "model file to read")->required();
    app.add_option_function<std::string>(
           "--max-memory",
           [&chosen](const std::string& text) {
               chosen.max_memory = bytesOfSize(text);
               if (chosen.max_memory == 0)
                   throw CLI::ValidationError("--max-memory",
                                              "takes a size from 64M on, like 512M or 8G");
           },
           "stop beyond so much memory; as a rule three quarters of the machine's")
        ->type_name("SIZE");
}

void addCommon(CLI::App& app, options& chosen) {
    addInput(app, chosen);
    app.add_option("--report", chosen.report, "write the figures as JSON to this file");
    app.add_flag("-q,--quiet", chosen.quiet, "print errors only");
}

/// What all that write a model have.
void addOutput(CLI::App& app, options& chosen) {
    addCommon(app, chosen);
    app.add_option("-o,--output", chosen.output, "model file to write")->required();
    app.add_flag("--overwrite", chosen.overwrite,
                 "OUT may be IN, and files that belong to OUT may replace others");
}

/// What all that optimise have.
void addOptimiser(CLI::App& app, options& chosen, std::string& names) {
    addOutput(app, chosen);
    app.add_option("--names", names,
                   "unique: give each part a path-like name of its own; keep: leave names")
        ->check(CLI::IsMember({"keep", "unique"}))
        ->capture_default_str();
    app.add_option("--contact-sheet", chosen.contact_sheet,
                   "write a picture of all atlases to this .png")
        ->type_name("FILE");
    app.add_option("--max-growth", chosen.max_growth,
                   "refuse a result of more than N times the triangles that went in")
        ->type_name("N")
        ->check(CLI::Range(1.0, 1e9))
        ->capture_default_str();
    app.add_flag("-v,--verbose", chosen.verbose, "show what the optimiser prints");
}

CLI::App& addOptimize(CLI::App& app, options& chosen, std::string& names) {
    CLI::App& optimize = *app.add_subcommand("optimize", "read, optimise, write, report");
    addOptimiser(optimize, chosen, names);
    optimize
        .add_option("-p,--parameters", chosen.parameters,
                    "what to do, as key(value),key(value),...; empty: as morva auto")
        ->capture_default_str();
    optimize.add_flag("--ao-replace", chosen.ao_replace,
                      "ambientocclusion makes grey parts; else colours and textures stay");
    optimize
        .add_option("--removed", chosen.removed,
                    "write the parts that ambientgutout removes to this model file")
        ->type_name("FILE");
    optimize.footer(parameterTable() +
                    "Defaults are those of this command. What a key does is told in the manual: "
                    "man morva.");
    return optimize;
}

CLI::App& addAuto(CLI::App& app, options& chosen, std::string& names) {
    CLI::App& automatic = *app.add_subcommand("auto", "optimise in the way that suits the model");
    addOptimiser(automatic, chosen, names);
    return automatic;
}

/// The rays of `morva pick` as they are written.
struct ray_texts {
    std::string from, direction, to, file;
};

CLI::App& addPick(CLI::App& app, options& chosen, ray_texts& rays) {
    CLI::App& pick = *app.add_subcommand("pick", "tell which part a ray hits, and where");
    addInput(pick, chosen);
    CLI::Option* const file = pick.add_option(
        "--rays", rays.file, "file with one ray a line: six numbers, origin and direction");
    CLI::Option* const from = pick.add_option("--from", rays.from, "origin of a ray, in the world");
    CLI::Option* const direction =
        pick.add_option("--dir", rays.direction, "its direction, of any length");
    CLI::Option* const to = pick.add_option("--to", rays.to, "or a point that it goes through");
    file->type_name("FILE");
    for (CLI::Option* const triple : {from, direction, to})
        triple->type_name("X,Y,Z");
    file->excludes(from)->excludes(direction)->excludes(to);
    direction->needs(from)->excludes(to);
    to->needs(from);
    pick.add_flag("--all", chosen.pick.all, "every hit along the ray, near ones first");
    pick.add_flag("--both-sides", chosen.pick.both_sides, "triangles seen from behind count, too");
    pick.add_flag("--json", chosen.pick.json, "one object a ray and line, null for a miss");
    pick.add_option("-p,--parameters", chosen.pick.parameters,
                    "optimise the scene in memory as well, and show both answers side by side");
    return pick;
}

CLI::App& addCollide(CLI::App& app, options& chosen, std::string& poses) {
    CLI::App& collide = *app.add_subcommand("collide", "tell whether two parts touch, and where");
    addInput(collide, chosen);
    collide
        .add_option("--a", chosen.collide.a, "part or assembly: its path, or a name it alone has")
        ->type_name("NAME")
        ->required();
    collide.add_option("--b", chosen.collide.b, "another one, or rest: all but A")
        ->type_name("NAME")
        ->required();
    collide.add_flag("--all", chosen.collide.all, "every pair of parts that touch");
    collide
        .add_option("--poses", poses,
                    "file with one pose of B a line: its matrix to the world, 16 numbers, row by "
                    "row")
        ->type_name("FILE");
    collide.add_flag("--json", chosen.collide.json, "one object a line");
    return collide;
}

CLI::App& addSimplify(CLI::App& app, options& chosen, simplify_texts& texts) {
    CLI::App& simplify = *app.add_subcommand("simplify", "fewer triangles, part by part");
    addOutput(simplify, chosen);
    addSimplifyOptions(simplify, texts);
    return simplify;
}

CLI::App& addDivide(CLI::App& app, options& chosen, divide_texts& texts) {
    CLI::App& divide = *app.add_subcommand("divide", "cut a model into cells, one file each");
    addInput(divide, chosen);
    addDivideOptions(divide, chosen.divide, texts);
    divide.add_flag("--overwrite", chosen.overwrite,
                    "DIR may hold files; the cells of an earlier run go");
    divide.add_flag("-q,--quiet", chosen.quiet, "print errors only");
    return divide;
}

void checkContactSheet(const options& chosen) {
    const std::string& file = chosen.contact_sheet;
    if (file.empty())
        return;
    if (extensionOf(file) != "png")
        throw host_error("--contact-sheet writes PNG: '" + file + "' does not end in .png",
                         exit_usage);
    const morva::osg::run_plan plan = morva::osg::planOf(chosen.parameters);
    if (!plan.atlas && !plan.is_automatic)
        throw host_error("--contact-sheet goes with the parameter maxtexturesize(SIDE)",
                         exit_usage);
}

void check(const options& chosen) {
    if (chosen.quiet && chosen.verbose)
        throw host_error("--quiet and --verbose exclude each other", exit_usage);
    if (chosen.what != command::optimize && chosen.what != command::automatic &&
        chosen.what != command::simplify)
        return;
    for (const std::string& file : {chosen.output, chosen.removed}) {
        if (!file.empty() && !canWrite(file))
            throw host_error("cannot write files like '" + file +
                                 "'; known extensions: " + writableExtensions() + " (--formats)",
                             exit_usage);
    }
    if (chosen.what == command::simplify)
        return;
    checkContactSheet(chosen);
    if (!chosen.removed.empty() && !morva::osg::planOf(chosen.parameters).removes_parts)
        throw host_error("--removed goes with the parameter ambientgutout(true)", exit_usage);
}

std::vector<pick_ray> raysOf(const CLI::App& pick, const ray_texts& texts) {
    if (pick.count("--rays") != 0)
        return readRays(texts.file);
    if (pick.count("--dir") == 0 && pick.count("--to") == 0)
        throw host_error("pick needs --rays, or --from with --dir or --to; see morva pick --help",
                         exit_usage);
    return {pick.count("--to") != 0 ? rayTo(texts.from, texts.to)
                                    : rayAlong(texts.from, texts.direction)};
}

/// The words behind the command's name; `help VERB` asks for what `VERB --help` does.
std::vector<std::string> wordsOf(const CLI::App& app, int argc, const char* const* argv) {
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (words.empty() || words[0] != "help")
        return words;
    words.erase(words.begin());
    const auto isAsked = [&](const CLI::App* verb) { return verb->get_name() == words[0]; };
    if (!words.empty() && app.get_subcommands(isAsked).empty())
        throw host_error("there is no verb '" + words[0] + "'; see morva --help", exit_usage);
    words.emplace_back("--help");
    return words;
}

} // namespace

std::optional<options> parseCommandLine(int argc, const char* const* argv) {
    options chosen;
    chosen.max_memory = usualMemory();
    std::string names = "unique", poses;
    ray_texts rays;
    CLI::App app("Rebuilds model files into few, bounded geometry cores, and looks into them.",
                 "morva");
    app.set_version_flag("--version", std::string("morva ") + version);
    app.add_flag_callback(
        "--formats", [] { throw CLI::CallForVersion(formatTable(), 0); },
        "print the formats that can be written and what they keep");
    app.require_subcommand(1);
    const CLI::App& optimize = addOptimize(app, chosen, names);
    const CLI::App& automatic = addAuto(app, chosen, names);
    CLI::App& info = *app.add_subcommand("info", "read and print the figures");
    addCommon(info, chosen);
    const CLI::App& pick = addPick(app, chosen, rays);
    const CLI::App& collide = addCollide(app, chosen, poses);
    simplify_texts simplification;
    const CLI::App& simplify = addSimplify(app, chosen, simplification);
    divide_texts cells;
    const CLI::App& divide = addDivide(app, chosen, cells);
    // Now, since verbs take over what is there when they are added.
    app.footer("morva help VERB tells what a verb takes; morva help optimize the parameters, too.");

    try {
        std::vector<std::string> words = wordsOf(app, argc, argv);
        std::reverse(words.begin(), words.end()); // as the parser takes them
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error, std::cout, std::cout);
            return std::nullopt;
        }
        throw host_error(std::string(error.what()) + "; see morva --help", exit_usage);
    }
    chosen.what = optimize.parsed()    ? command::optimize
                  : automatic.parsed() ? command::automatic
                  : info.parsed()      ? command::info
                  : pick.parsed()      ? command::pick
                  : simplify.parsed()  ? command::simplify
                  : divide.parsed()    ? command::divide
                                       : command::collide;
    if (automatic.parsed())
        chosen.parameters.clear();
    chosen.keep_names = names == "keep";
    check(chosen);
    if (pick.parsed())
        chosen.pick.rays = raysOf(pick, rays);
    if (simplify.parsed())
        chosen.simplify = requestOf(simplification);
    if (divide.parsed())
        readDivideOptions(divide, cells, chosen.divide);
    if (collide.count("--poses") != 0)
        chosen.collide.poses = readPoses(poses);
    return chosen;
}

} // namespace morva::host
