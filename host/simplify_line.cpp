#include "simplify_line.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include <CLI/CLI.hpp>

#include "number_text.h"

namespace morva::host {

namespace {

[[noreturn]] void refuse(const std::string& option, const std::string& rule,
                         const std::string& text) {
    throw host_error(option + " needs " + rule + ", not '" + text + "'", exit_usage);
}

/// The numbers of an option.
std::vector<double> numbersAt(const std::string& option, const std::string& rule,
                              const std::string& text) {
    const auto commas = static_cast<std::size_t>(std::count(text.begin(), text.end(), ','));
    try {
        return numbersOf(text, commas + 1, rule);
    } catch (const host_error&) {
        refuse(option, rule, text);
    }
}

std::vector<double> ratiosOf(const std::string& option, const std::string& rule,
                             const std::string& text) {
    std::vector<double> ratios = numbersAt(option, rule, text);
    double above = std::numeric_limits<double>::infinity();
    for (const double ratio : ratios) {
        if (!(ratio > 0 && ratio <= 1 && ratio < above))
            refuse(option, rule, text);
        above = ratio;
    }
    return ratios;
}

double numberAt(const std::string& option, const std::string& rule, const std::string& text) {
    const std::vector<double> numbers = numbersAt(option, rule, text);
    if (numbers.size() != 1)
        refuse(option, rule, text);
    return numbers[0];
}

std::uint32_t countAt(const std::string& option, const std::string& text) {
    const std::string rule = "a whole number from 1 to 4294967295";
    const double number = numberAt(option, rule, text);
    if (!(number >= 1 && number <= std::numeric_limits<std::uint32_t>::max()) ||
        number != std::floor(number))
        refuse(option, rule, text);
    return static_cast<std::uint32_t>(number);
}

std::vector<simplify_level> levelsOf(const simplify_texts& texts) {
    std::vector<simplify_level> levels;
    if (!texts.triangles.empty())
        return {{std::nullopt, countAt("--triangles", texts.triangles)}};
    if (!texts.ratio.empty()) {
        const std::string rule = "a number above 0 and at most 1";
        const std::vector<double> ratios = ratiosOf("--ratio", rule, texts.ratio);
        if (ratios.size() != 1)
            refuse("--ratio", rule, texts.ratio);
        return {{ratios[0], std::nullopt}};
    }
    if (!texts.lods.empty()) {
        const std::string rule = "numbers above 0 and at most 1, each below the one before";
        for (const double ratio : ratiosOf("--lods", rule, texts.lods))
            levels.push_back({ratio, std::nullopt});
        return levels;
    }
    if (texts.max_error.empty())
        throw host_error("simplify needs --ratio, --triangles, --lods or --max-error; "
                         "see morva simplify --help",
                         exit_usage);
    return {{}};
}

} // namespace

void addSimplifyOptions(CLI::App& simplify, simplify_texts& texts) {
    CLI::Option* const ratio =
        simplify.add_option("--ratio", texts.ratio, "so much of each part's triangles stays");
    CLI::Option* const triangles = simplify.add_option(
        "--triangles", texts.triangles, "so many triangles stay, of each part its share");
    CLI::Option* const lods = simplify.add_option(
        "--lods", texts.lods,
        "ratios, each below the one before, from one run: OUT.lod1, OUT.lod2, ...");
    ratio->type_name("R")->excludes(triangles)->excludes(lods);
    triangles->type_name("N")->excludes(lods);
    lods->type_name("R,R,...");
    simplify
        .add_option("--max-error", texts.max_error,
                    "each part ends where it is farther than this from its source, in the world")
        ->type_name("E");
    simplify
        .add_option("--weld", texts.weld,
                    "what moves together: corners at one position, or those equal in all")
        ->check(CLI::IsMember({"position", "corner"}))
        ->capture_default_str();
    simplify.add_flag("--lock-borders", texts.lock_borders, "edges that end on an open edge stay");
    simplify.footer("Each drawn part is simplified on its own, parts that share a geometry once; "
                    "normals are made anew.\nIts distance is the greatest and the mean, both ways, "
                    "between corners, edge middles and centres of its\ntriangles and the source, "
                    "and between corners and centres of the source and the result.");
}

simplify_request requestOf(const simplify_texts& texts) {
    simplify_request request;
    request.levels = levelsOf(texts);
    request.numbered = !texts.lods.empty();
    if (!texts.max_error.empty()) {
        request.max_error = numberAt("--max-error", "a number of at least 0", texts.max_error);
        if (!(*request.max_error >= 0))
            refuse("--max-error", "a number of at least 0", texts.max_error);
    }
    request.options.weld = texts.weld == "corner" ? morva::osg::simplify_weld::corner
                                                  : morva::osg::simplify_weld::position;
    request.options.lock_borders = texts.lock_borders;
    return request;
}

std::string pathOf(const simplify_request& request, const std::string& output, std::size_t level) {
    if (!request.numbered)
        return output;
    const std::string end = std::filesystem::path(output).extension().string();
    return output.substr(0, output.size() - end.size()) + ".lod" + std::to_string(level + 1) + end;
}

} // namespace morva::host
