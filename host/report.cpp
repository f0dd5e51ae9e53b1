#include "report.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace morva::host {

namespace {

using nlohmann::ordered_json;

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

struct table_row {
    const char* title;
    std::string (*text)(const scene_statistics&);
};

const table_row rows[] = {
    {"nodes", [](const scene_statistics& s) { return withCommas(s.nodes); }},
    {"geometry cores", [](const scene_statistics& s) { return withCommas(s.geometry_cores); }},
    {"draw calls", [](const scene_statistics& s) { return withCommas(s.draw_calls); }},
    {"materials", [](const scene_statistics& s) { return withCommas(s.materials); }},
    {"textures", [](const scene_statistics& s) { return withCommas(s.textures); }},
    {"triangles", [](const scene_statistics& s) { return withCommas(s.triangles); }},
    {"lines", [](const scene_statistics& s) { return withCommas(s.lines); }},
    {"points", [](const scene_statistics& s) { return withCommas(s.points); }},
    {"vertices", [](const scene_statistics& s) { return withCommas(s.vertices); }},
    {"16-bit index entries",
     [](const scene_statistics& s) { return withCommas(s.index_entries_16); }},
    {"32-bit index entries",
     [](const scene_statistics& s) { return withCommas(s.index_entries_32); }},
    {"cache misses per triangle", [](const scene_statistics& s) { return fixed(s.acmr, 3); }},
    {"geometry bytes", [](const scene_statistics& s) { return withCommas(s.geometry_bytes); }},
};

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
                       withCommas(verdict.out) + " out: ";
    text += verdict.differences.empty() ? "passed" : "FAILED";
    return text + "\n";
}

ordered_json jsonOf(const scene_statistics& s) {
    return {{"nodes", s.nodes},
            {"geometry_cores", s.geometry_cores},
            {"draw_calls", s.draw_calls},
            {"materials", s.materials},
            {"textures", s.textures},
            {"triangles", s.triangles},
            {"lines", s.lines},
            {"points", s.points},
            {"vertices", s.vertices},
            {"index_entries_16", s.index_entries_16},
            {"index_entries_32", s.index_entries_32},
            {"acmr_32_lru", s.acmr},
            {"geometry_bytes", s.geometry_bytes}};
}

ordered_json jsonOf(const file_record& file) {
    return {
        {"path", validUtf8(file.path)}, {"format", extensionOf(file.path)}, {"bytes", file.bytes}};
}

ordered_json jsonOf(const audit_verdict& verdict) {
    return {{"passed", verdict.differences.empty()},
            {"by_part", verdict.by_part},
            {"triangles_in", verdict.in},
            {"degenerate", verdict.degenerate},
            {"left_out", verdict.left_out},
            {"triangles_out", verdict.out},
            {"least_expected", verdict.least},
            {"most_expected", verdict.most},
            {"differences", verdict.differences}};
}

ordered_json jsonOf(const std::vector<audited_part>& parts) {
    ordered_json list = ordered_json::array();
    for (const audited_part& part : parts)
        list.push_back({{"name", validUtf8(part.name)},
                        {"original_name", validUtf8(part.original_name)},
                        {"fate", textOf(part.fate)},
                        {"triangles", part.triangles},
                        {"degenerate", part.degenerate}});
    return list;
}

} // namespace

std::string tableOf(const run_report& report) {
    std::string text;
    const bool two = report.after.has_value();
    addLine(text, "", two ? "before" : "", "after", two);
    for (const table_row& row : rows)
        addLine(text, row.title, row.text(report.before), two ? row.text(*report.after) : "", two);
    addLine(text, "file bytes", withCommas(report.input.bytes), withCommas(report.output.bytes),
            two);
    if (!report.stages.empty()) {
        text += "\n";
        addLine(text, "stage", "seconds", "peak memory", true);
        double seconds = 0.0;
        std::uint64_t peak = 0;
        for (const stage_record& stage : report.stages) {
            addLine(text, stage.name, fixed(stage.seconds, 3), readableBytes(stage.peak_bytes),
                    true);
            seconds += stage.seconds;
            peak = std::max(peak, stage.peak_bytes);
        }
        addLine(text, "all", fixed(seconds, 3), readableBytes(peak), true);
    }
    if (report.verdict)
        text += "\n" + auditLine(*report.verdict);
    return text;
}

ordered_json jsonOf(const run_report& report) {
    ordered_json file = {{"schema", "morva-report-1"}, {"command", report.command}};
    file["input"] = jsonOf(report.input);
    if (report.after) {
        file["output"] = jsonOf(report.output);
        file["parameters"] = validUtf8(report.parameters);
    }
    file["before"] = jsonOf(report.before);
    if (report.after)
        file["after"] = jsonOf(*report.after);
    if (report.verdict)
        file["audit"] = jsonOf(*report.verdict);
    ordered_json stages = ordered_json::array();
    for (const stage_record& stage : report.stages)
        stages.push_back(
            {{"name", stage.name}, {"seconds", stage.seconds}, {"peak_bytes", stage.peak_bytes}});
    file["stages"] = stages;
    ordered_json notes = ordered_json::array();
    for (const std::string& note : report.notes)
        notes.push_back(validUtf8(note));
    file["notes"] = notes;
    if (report.plan)
        file["parts"] = jsonOf(report.plan->parts);
    return file;
}

} // namespace morva::host
