#include "simplify_command.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "command_steps.h"
#include "host_error.h"
#include "memory_watch.h"
#include "model_export.h"
#include "simplify_audit.h"
#include "simplify_ids.h"
#include "simplify_parts.h"
#include "simplify_scene.h"
#include "text.h"

namespace morva::host {

namespace {

/// Room for each level; the first may replace the input.
std::vector<staged_output*> addLevels(const options& chosen, output_set& outputs) {
    std::vector<staged_output*> stages;
    for (std::size_t i = 0; i < chosen.simplify.levels.size(); ++i) {
        const std::string path = pathOf(chosen.simplify, chosen.output, i);
        stages.push_back(i == 0 ? &outputs.addModel(path) : &outputs.add(path));
    }
    return stages;
}

simplify_record recordOf(const simplify_request& request, const std::vector<simplified_part>& parts,
                         bool measured) {
    simplify_record record;
    record.request = request;
    record.measured = measured;
    for (const simplified_part& part : parts)
        record.parts.push_back({part.path, part.drawn, part.live});
    return record;
}

/// The road of a level once its parts are settled: show, measure, audit, write.
class level_writer {
  public:
    /// wants_all  somebody reads the figures
    level_writer(const options& chosen, const model& source, std::optional<part_table> table,
                 std::vector<simplified_part>& parts, progress& steps, bool wants_all)
        : chosen_(chosen), source_(source), table_(std::move(table)), parts_(parts), steps_(steps),
          audit_(source.root.get(), parts), wants_all_(wants_all) {}

    simplified_level write(std::size_t level, const staged_output& stage,
                           std::vector<std::string>& notes) {
        simplified_level written;
        written.asked = chosen_.simplify.levels[level];
        steps_.begin("rebuild");
        showLevel(parts_, level);
        memory_watch::check("rebuilding parts");
        if (wants_all_) {
            steps_.begin("compare");
            measureDistances(parts_, level);
            memory_watch::check("comparing with the source");
        }
        for (const simplified_part& part : parts_)
            written.stops.push_back(part.stops[level]);
        steps_.begin("audit");
        written.after =
            measureScene(source_.root.get(), wants_all_ ? measure::all : measure::counts);
        written.verdict = audit_.judge(parts_, level);
        written.output.path = pathOf(chosen_.simplify, chosen_.output, level);
        if (!written.verdict.differences.empty())
            return written;
        steps_.begin("write");
        const part_table* const known = table_ ? &*table_ : nullptr;
        for (std::string& note :
             writeModel(source_.root.get(), source_.images, stage.path(), known, &source_.records))
            notes.push_back(std::move(note));
        written.output.bytes = stage.bytes();
        return written;
    }

  private:
    const options& chosen_;
    const model& source_;
    std::optional<part_table> table_; ///< that the input has
    std::vector<simplified_part>& parts_;
    progress& steps_;
    simplify_audit audit_;
    bool wants_all_;
};

/// The notes of several outputs, each once.
void addNotes(const std::vector<std::string>& notes, run_report& report) {
    for (const std::string& note : notes) {
        if (std::find(report.notes.begin(), report.notes.end(), note) == report.notes.end())
            report.notes.push_back(note);
    }
}

} // namespace

void simplify(const options& chosen) {
    run_report report;
    report.command = "simplify";
    output_set outputs(chosen.input, chosen.overwrite);
    const std::vector<staged_output*> stages = addLevels(chosen, outputs);
    staged_output* const report_stage = addUnlessEmpty(outputs, chosen.report);
    progress steps(chosen.quiet);

    steps.begin("read");
    const model source = readChecked(chosen, report);
    outputs.keepOff(source.files_read);
    steps.begin("measure");
    const bool wants_all = !chosen.quiet || !chosen.report.empty();
    report.before = measureScene(source.root.get(), wants_all ? measure::all : measure::counts);
    refuseFaults(report.before, chosen.input);
    std::optional<part_table> table;
    const std::string format = extensionOf(chosen.output);
    if (format == "glb" || format == "gltf")
        table = enterParts(chosen.input, source);
    std::vector<simplified_part> parts =
        partsToSimplify(source.root.get(), chosen.simplify.options);
    if (parts.empty())
        report.notes.emplace_back("there are no triangles to simplify");
    level_writer writer(chosen, source, std::move(table), parts, steps, wants_all);
    report.simplified = recordOf(chosen.simplify, parts, wants_all);
    steps.begin("simplify");
    simplifyParts(parts, chosen.simplify,
                  [&](std::size_t done, std::size_t total) { steps.tell(done, total); });
    memory_watch::check("simplifying");
    std::vector<std::string> differences;
    for (std::size_t i = 0; i < stages.size(); ++i) {
        std::vector<std::string> notes;
        simplified_level level = writer.write(i, *stages[i], notes);
        const std::vector<std::string>& found = level.verdict.differences;
        differences.insert(differences.end(), found.begin(), found.end());
        addNotes(notesOn(*report.simplified, level), report);
        addNotes(notes, report);
        report.simplified->levels.push_back(std::move(level));
    }
    steps.end();

    if (stages.size() == 1) {
        report.after = report.simplified->levels[0].after;
        report.output = report.simplified->levels[0].output;
    }
    for (std::size_t i = 0; i < stages.size() && !differences.empty(); ++i)
        outputs.drop(*stages[i]);
    report.stages = steps.stages();
    finish(chosen, report, report_stage, outputs);
    refuseDifferences(differences, "the output does");
}

} // namespace morva::host
