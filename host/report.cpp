#include "report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "atlas_report.h"
#include "auto_road.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::ordered_json;

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

/// A figure of a scene in the table and in the report.
struct figure {
    const char *title, *key;
    std::uint64_t scene_statistics::*count; ///< null: cache misses per triangle
    bool of_hierarchy = false;              ///< told where the report tells the hierarchy
};

const figure figures[] = {
    {"nodes", "nodes", &scene_statistics::nodes},
    {"levels of nodes", "levels", &scene_statistics::levels, true},
    {"leaves", "leaves", &scene_statistics::leaves, true},
    {"geometry cores", "geometry_cores", &scene_statistics::geometry_cores},
    {"draw calls", "draw_calls", &scene_statistics::draw_calls},
    {"materials", "materials", &scene_statistics::materials},
    {"textures", "textures", &scene_statistics::textures},
    {"triangles", "triangles", &scene_statistics::triangles},
    {"lines", "lines", &scene_statistics::lines},
    {"points", "points", &scene_statistics::points},
    {"vertices", "vertices", &scene_statistics::vertices},
    {"16-bit index entries", "index_entries_16", &scene_statistics::index_entries_16},
    {"32-bit index entries", "index_entries_32", &scene_statistics::index_entries_32},
    {"cache misses per triangle", "acmr_32_lru", nullptr},
    {"geometry bytes", "geometry_bytes", &scene_statistics::geometry_bytes},
};

std::string textOf(const scene_statistics& scene, const figure& what) {
    return what.count == nullptr ? fixed(scene.acmr, 3) : withCommas(scene.*what.count);
}

void addLine(std::string& text, const std::string& title, const std::string& first,
             const std::string& second, bool two) {
    char line[160];
    if (two)
        std::snprintf(line, sizeof line, "%-26s %16s %16s\n", title.c_str(), first.c_str(),
                      second.c_str());
    else
        std::snprintf(line, sizeof line, "%-26s %16s\n", title.c_str(), first.c_str());
    text += line;
}

std::string auditLine(const audit_verdict& verdict) {
    std::string text = "audit: " + withCommas(verdict.in) + " triangles in, " +
                       withCommas(verdict.degenerate) + " degenerate, " +
                       withCommas(verdict.left_out) + " left out by rule, " +
                       (verdict.removed != 0 ? withCommas(verdict.removed) + " removed, " : "") +
                       withCommas(verdict.out) +
                       (verdict.cut && verdict.out > verdict.most ? " out in pieces: " : " out: ");
    text += verdict.differences.empty() ? "passed" : "FAILED";
    return text + (verdict.by_part ? ", part by part\n" : "\n");
}

/// The figures that a report tells.
std::vector<figure> figuresOf(const run_report& report) {
    std::vector<figure> told;
    std::copy_if(std::begin(figures), std::end(figures), std::back_inserter(told),
                 [&](const figure& what) { return report.tells_hierarchy || !what.of_hierarchy; });
    return told;
}

ordered_json jsonOf(const scene_statistics& scene, const std::vector<figure>& told) {
    ordered_json json;
    for (const figure& what : told) {
        if (what.count == nullptr)
            json[what.key] = scene.acmr;
        else
            json[what.key] = scene.*what.count;
    }
    return json;
}

ordered_json jsonOf(const file_record& file) {
    return {
        {"path", validUtf8(file.path)}, {"format", extensionOf(file.path)}, {"bytes", file.bytes}};
}

ordered_json jsonOfTexts(const std::vector<std::string>& texts) {
    ordered_json list = ordered_json::array();
    for (const std::string& text : texts)
        list.push_back(validUtf8(text));
    return list;
}

ordered_json jsonOf(const audit_verdict& verdict) {
    return {{"passed", verdict.differences.empty()},
            {"by_part", verdict.by_part},
            {"triangles_in", verdict.in},
            {"degenerate", verdict.degenerate},
            {"left_out", verdict.left_out},
            {"removed", verdict.removed},
            {"triangles_out", verdict.out},
            {"least_expected", verdict.least},
            {"most_expected", verdict.most},
            {"differences", jsonOfTexts(verdict.differences)},
            {"notes", jsonOfTexts(verdict.notes)}};
}

/// The simplification with the files and scenes of its levels.
ordered_json jsonOfLevels(const run_report& report) {
    ordered_json json = jsonOf(*report.simplified);
    for (std::size_t i = 0; i < report.simplified->levels.size(); ++i) {
        const simplified_level& level = report.simplified->levels[i];
        ordered_json& entry = json["levels"][i];
        entry["output"] = jsonOf(level.output);
        entry["after"] = jsonOf(level.after, figuresOf(report));
        entry["audit"] = jsonOf(level.verdict);
    }
    return json;
}

/// Where the names of parts lead: to the ID of the name, and from it to the parts.
struct name_index {
    explicit name_index(const run_report& report) {
        const std::vector<id_record>& ids = report.verdict->ids;
        for (std::size_t id = 0; id < ids.size(); ++id)
            id_of.emplace(ids[id].name, id);
        const std::vector<audited_part>& parts = report.plan->parts;
        for (std::size_t i = 0; i < parts.size(); ++i)
            parts_of[parts[i].name].push_back(i);
    }
    std::unordered_map<std::string, std::size_t> id_of;
    std::unordered_map<std::string, std::vector<std::size_t>> parts_of;
};

/// Every part with its way: the ID and the cores behind it, and what came out, if it can be told.
ordered_json jsonOfParts(const run_report& report, const name_index& index) {
    ordered_json list = ordered_json::array();
    for (const audited_part& part : report.plan->parts) {
        ordered_json entry = {
            {"name", validUtf8(part.name)},  {"original_name", validUtf8(part.original_name)},
            {"fate", textOf(part.fate)},     {"triangles", part.triangles},
            {"degenerate", part.degenerate}, {"may_be_cut", part.cut}};
        const auto out = report.verdict->out_by_name.find(part.name);
        const bool alone = index.parts_of.at(part.name).size() == 1 && !part.renamed;
        if (report.verdict->by_part && alone)
            entry["triangles_out"] = out == report.verdict->out_by_name.end() ? 0 : out->second;
        const auto id = index.id_of.find(part.name);
        if (id != index.id_of.end()) {
            entry["id"] = id->second;
            entry["cores"] = jsonOfTexts(report.verdict->ids[id->second].cores);
        }
        list.push_back(std::move(entry));
    }
    return list;
}

ordered_json jsonOfIds(const run_report& report, const name_index& index) {
    ordered_json list = ordered_json::array();
    for (std::size_t id = 0; id < report.verdict->ids.size(); ++id) {
        const id_record& record = report.verdict->ids[id];
        ordered_json originals = ordered_json::array(), numbers = ordered_json::array();
        const auto parts = index.parts_of.find(record.name);
        for (const std::size_t part :
             parts != index.parts_of.end() ? parts->second : std::vector<std::size_t>()) {
            originals.push_back(validUtf8(report.plan->parts[part].original_name));
            numbers.push_back(part);
        }
        list.push_back({{"id", id},
                        {"name", validUtf8(record.name)},
                        {"original_names", originals},
                        {"parts", numbers},
                        {"cores", jsonOfTexts(record.cores)}});
    }
    return list;
}

ordered_json jsonOfCores(const run_report& report) {
    ordered_json list = ordered_json::array();
    for (const core_record& core : report.verdict->cores) {
        ordered_json ids = ordered_json::array();
        for (const auto& [id, triangles] : core.ids)
            ids.push_back({{"id", id}, {"triangles", triangles}});
        list.push_back(
            {{"name", validUtf8(core.name)}, {"triangles", core.triangles}, {"ids", ids}});
    }
    return list;
}

} // namespace

std::string stageLines(const std::vector<stage_record>& stages) {
    std::string text;
    addLine(text, "stage", "seconds", "peak memory", true);
    double seconds = 0.0;
    std::uint64_t peak = 0;
    for (const stage_record& stage : stages) {
        addLine(text, stage.name, fixed(stage.seconds, 3), readableBytes(stage.peak_bytes), true);
        seconds += stage.seconds;
        peak = std::max(peak, stage.peak_bytes);
    }
    addLine(text, "all", fixed(seconds, 3), readableBytes(peak), true);
    return text;
}

std::string tableOf(const run_report& report) {
    std::string text;
    const bool two = report.after.has_value();
    addLine(text, "", two ? "before" : "", "after", two);
    for (const figure& what : figuresOf(report))
        addLine(text, what.title, textOf(report.before, what),
                two ? textOf(*report.after, what) : "", two);
    addLine(text, "file bytes", withCommas(report.input.bytes), withCommas(report.output.bytes),
            two);
    if (report.atlases)
        text += "\n" + atlasLines(*report.atlases);
    if (!report.stages.empty())
        text += "\n" + stageLines(report.stages);
    if (report.simplified) {
        text += "\n" + linesOf(*report.simplified) + "\n";
        for (const simplified_level& level : report.simplified->levels)
            text += auditLine(level.verdict);
    }
    if (report.verdict)
        text += "\n" + auditLine(*report.verdict);
    return text;
}

ordered_json jsonOf(const run_report& report) {
    ordered_json file = {{"schema", "morva-report-1"}, {"command", report.command}};
    file["input"] = jsonOf(report.input);
    const bool optimised = report.after && !report.simplified;
    if (optimised) {
        file["output"] = jsonOf(report.output);
        file["parameters"] = validUtf8(report.parameters);
        if (report.id_map)
            file["id_map"] = jsonOf(*report.id_map);
    }
    file["before"] = jsonOf(report.before, figuresOf(report));
    if (optimised)
        file["after"] = jsonOf(*report.after, figuresOf(report));
    if (report.automatic)
        file["road"] = jsonOf(*report.automatic);
    if (report.simplified)
        file["simplified"] = jsonOfLevels(report);
    if (report.atlases)
        file["atlases"] = jsonOf(*report.atlases);
    if (report.verdict)
        file["audit"] = jsonOf(*report.verdict);
    ordered_json stages = ordered_json::array();
    for (const stage_record& stage : report.stages)
        stages.push_back(
            {{"name", stage.name}, {"seconds", stage.seconds}, {"peak_bytes", stage.peak_bytes}});
    file["stages"] = stages;
    file["notes"] = jsonOfTexts(report.notes);
    if (!report.plan || !report.verdict)
        return file;
    const name_index index(report);
    file["parts"] = jsonOfParts(report, index);
    if (report.plan->has_ids) {
        file["ids"] = jsonOfIds(report, index);
        file["cores"] = jsonOfCores(report);
    }
    return file;
}

} // namespace morva::host
