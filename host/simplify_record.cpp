#include "simplify_record.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::ordered_json;

std::string shortNumberText(double number) { return shortText(static_cast<float>(number)); }

std::uint64_t drawnLive(const simplify_record& record) {
    std::uint64_t sum = 0;
    for (const simplified_source& part : record.parts)
        sum += part.places * part.live;
    return sum;
}

/// "1 part", "2 parts"
std::string countOf(std::uint64_t count, const std::string& what) {
    return withCommas(count) + " " + what + (count == 1 ? "" : "s");
}

ordered_json jsonOf(const simplified_source& part, const part_stop& stop, bool measured) {
    ordered_json json = {{"name", validUtf8(part.path)},     {"places", part.places},
                         {"live_before", part.live},         {"live", stop.live},
                         {"triangles", stop.triangles},      {"floor_reached", stop.floor},
                         {"max_error_reached", stop.limited}};
    if (measured) {
        json["largest_distance"] = stop.distance.largest;
        json["mean_distance"] = stop.distance.mean();
    }
    return json;
}

ordered_json jsonOf(const simplify_record& record, const simplified_level& level) {
    const level_sums sums = sumsOf(record, level);
    ordered_json json = ordered_json::object();
    if (level.asked.ratio)
        json["ratio"] = *level.asked.ratio;
    if (level.asked.ratio || level.asked.triangles)
        json["asked"] = sums.asked;
    json["live"] = sums.live;
    json["parts_at_floor"] = sums.floors;
    json["parts_at_max_error"] = sums.limited;
    if (record.measured) {
        json["largest_distance"] = sums.distance.largest;
        json["mean_distance"] = sums.distance.mean();
    }
    ordered_json parts = ordered_json::array();
    for (std::size_t i = 0; i < record.parts.size(); ++i)
        parts.push_back(jsonOf(record.parts[i], level.stops[i], record.measured));
    json["parts"] = parts;
    return json;
}

} // namespace

level_sums sumsOf(const simplify_record& record, const simplified_level& level) {
    level_sums sums;
    for (std::size_t i = 0; i < record.parts.size(); ++i) {
        const part_stop& stop = level.stops[i];
        sums.live += record.parts[i].places * stop.live;
        sums.floors += stop.floor ? 1 : 0;
        sums.limited += stop.limited ? 1 : 0;
        sums.distance = sums.distance + stop.distance;
    }
    const double share = level.asked.ratio.value_or(0) * static_cast<double>(drawnLive(record));
    sums.asked = level.asked.triangles ? *level.asked.triangles
                                       : static_cast<std::uint64_t>(std::llround(share));
    return sums;
}

std::string titleOf(const simplify_record& record, const simplified_level& level) {
    if (level.asked.triangles)
        return countOf(*level.asked.triangles, "triangle");
    if (level.asked.ratio)
        return "ratio " + shortNumberText(*level.asked.ratio);
    return "distance " + shortNumberText(*record.request.max_error);
}

std::vector<std::string> notesOn(const simplify_record& record, const simplified_level& level) {
    const level_sums sums = sumsOf(record, level);
    const std::string reached = titleOf(record, level) + ": ";
    const std::string with = "; " + withCommas(sums.live) + " live triangles are left";
    std::vector<std::string> notes;
    if (sums.limited != 0)
        notes.push_back(reached + "the largest distance ends " + countOf(sums.limited, "part") +
                        with);
    const bool asked = level.asked.ratio || level.asked.triangles;
    if (!asked)
        return notes;
    if (sums.floors != 0)
        notes.push_back(reached + "floor reached in " + countOf(sums.floors, "part") +
                        ", where no further edge can go" + with);
    const auto apart = static_cast<double>(sums.live) - static_cast<double>(sums.asked);
    if (notes.empty() && std::abs(apart) > 0.01 * static_cast<double>(sums.asked) &&
        sums.asked < drawnLive(record))
        notes.push_back(reached + withCommas(sums.asked) + " were asked for, and steps of whole " +
                        "collapses come no nearer" + with);
    return notes;
}

std::string linesOf(const simplify_record& record) {
    char line[160];
    std::snprintf(line, sizeof line, "%-26s %16s %16s %16s\n", "simplified to", "live triangles",
                  "largest distance", "mean distance");
    std::string text = line;
    const auto add = [&](const std::string& title, std::uint64_t live,
                         const morva::osg::surface_distance& distance) {
        const std::string largest = record.measured ? shortNumberText(distance.largest) : "";
        const std::string mean = record.measured ? shortNumberText(distance.mean()) : "";
        std::snprintf(line, sizeof line, "%-26s %16s %16s %16s\n", title.c_str(),
                      withCommas(live).c_str(), largest.c_str(), mean.c_str());
        text += line;
    };
    add("source", drawnLive(record), {});
    for (const simplified_level& level : record.levels) {
        const level_sums sums = sumsOf(record, level);
        add(titleOf(record, level), sums.live, sums.distance);
    }
    return text;
}

ordered_json jsonOf(const simplify_record& record) {
    const bool corner = record.request.options.weld == morva::osg::simplify_weld::corner;
    ordered_json json = {{"weld", corner ? "corner" : "position"},
                         {"lock_borders", record.request.options.lock_borders}};
    if (record.request.max_error)
        json["max_error"] = *record.request.max_error;
    json["live_before"] = drawnLive(record);
    ordered_json levels = ordered_json::array();
    for (const simplified_level& level : record.levels)
        levels.push_back(jsonOf(record, level));
    json["levels"] = levels;
    return json;
}

} // namespace morva::host
