#include "commands.h"

#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <unistd.h>

#include <morva/core/morva_osg_sink.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "atlas_notes.h"
#include "audit.h"
#include "auto_road.h"
#include "bake_notes.h"
#include "collide_command.h"
#include "command_steps.h"
#include "console.h"
#include "contact_sheet.h"
#include "coordinate_sets.h"
#include "divide_command.h"
#include "growth_limit.h"
#include "growth_notes.h"
#include "host_error.h"
#include "id_map_output.h"
#include "memory_limit.h"
#include "memory_watch.h"
#include "model.h"
#include "model_export.h"
#include "output_file.h"
#include "output_formats.h"
#include "output_set.h"
#include "parameter_notes.h"
#include "part_names.h"
#include "part_table.h"
#include "pick_command.h"
#include "removed_parts.h"
#include "report.h"
#include "scene_walk.h"
#include "simplify_command.h"
#include "staged_output.h"
#include "text.h"
#include "view_store.h"

namespace morva::host {

namespace {

/// What is shown of what the optimiser says: its lines, if at all, and its progress on a terminal
/// only.
morva::output_sink shownParts(bool lines, progress& steps) {
    morva::output_sink sink;
    if (!lines)
        sink.out = [](std::string_view) {};
    // A terminal that shows the lines can do with the progress between them.
    if (!lines || isatty(STDOUT_FILENO) == 0)
        sink.progress = [&steps](std::size_t done, std::size_t total) { steps.tell(done, total); };
    return sink;
}

/// Keeps the input and, where it is another one, the result.
::osg::NodeRefPtr optimised(const model& source, const options& chosen,
                            const std::string& parameters, progress& steps, run_report& report) {
    const morva::osg::run_plan plan = morva::osg::planOf(parameters);
    const morva::sink_scope shown(shownParts(chosen.verbose || plan.setup.help, steps));
    morva::osg::run_record record;
    const ::osg::NodePtr result = runOptimiser(source.root.get(), parameters, record);
    noteStages(record, *report.plan);
    if (plan.atlas)
        report.atlases = std::move(record.atlas);
    if (record.automatic && record.automatic->has_images)
        report.atlases = atlasesOf(*record.automatic);
    report.automatic = std::move(record.automatic);
    memory_watch::check("optimising");
    if (result == ::osg::NullFC)
        throw host_error("the optimiser gave no scene");
    return ::osg::NodeRefPtr(result);
}

/// Names the atlases and makes them ready to be written; notes what is to be known of them.
void tellOfAtlases(const options& chosen, image_sources& images, run_report& report) {
    if (!report.atlases || report.atlases->atlases.empty())
        return;
    nameAtlases(*report.atlases);
    const std::string growth =
        extensionOf(chosen.output) != "osb" ? codeAtlases(*report.atlases, images) : std::string();
    if (!growth.empty())
        report.notes.push_back(growth);
    for (std::string& note : notesOnAtlases(*report.atlases, report.plan->has_ids))
        report.notes.push_back(std::move(note));
    memory_watch::check("coding atlases");
}

/// Writes the picture of all atlases; no file if there are none.
void writeContactSheet(const staged_output& stage, output_set& outputs, run_report& report) {
    if (!report.atlases || report.atlases->atlases.empty()) {
        report.notes.push_back("there is no atlas: no contact sheet is written");
        return outputs.drop(stage);
    }
    const std::vector<std::uint8_t> file = encodePng(contactSheet(*report.atlases).get());
    writeFile(stage.path(), std::string(file.begin(), file.end()));
    memory_watch::check("writing the contact sheet");
}

void noteBroughtIds(std::size_t cores, run_report& report) {
    if (cores != 0)
        report.notes.push_back(std::to_string(cores) +
                               (cores == 1 ? " geometry brings" : " geometries bring") +
                               " IDs in coordinate set 7: those of the ID map take their place");
}

/// Refuses to write a file that shows nothing.
void refuseEmpty(const run_report& report, const std::string& output, bool quiet) {
    const scene_statistics& after = *report.after;
    const output_format& format = *outputFormatOf(output);
    if (after.triangles + (format.lines ? after.lines : 0) + (format.points ? after.points : 0) !=
        0)
        return;
    tellNotes(report.notes, quiet); // they may say why
    if (after.lines + after.points != 0)
        throw host_error("nothing is left to write: what there is to draw are lines or points, and "
                         "a ." +
                         extensionOf(output) + " keeps none of them");
    if (report.before.triangles + report.before.lines == 0 && report.before.points != 0)
        throw host_error("nothing is left to draw: the file holds points alone, " +
                         withCommas(report.before.points) +
                         " of them, and those are not merged; -p 'maxtris(0)' keeps them as they "
                         "are");
    if (morva::osg::planOf(report.parameters).builds_hull)
        throw host_error("nothing is left to draw: no triangle is open enough for the hull");
    throw host_error("nothing is left to draw: every triangle is degenerate or left out");
}

void addTexts(const std::vector<std::string>& more, std::vector<std::string>& texts) {
    texts.insert(texts.end(), more.begin(), more.end());
}

/// Plans the audit, and notes what is to be known of the run before it.
void planRun(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
             const std::string& parameters, view_store& views, run_report& report) {
    std::string equal = parameters;
    if (morva::osg::planOf(parameters).is_automatic) {
        const auto_road road = autoRoadOf(root);
        report.plan = planAudit(root, parts, road, &views);
        addTexts(notesOn(road, parts, *report.plan), report.notes);
        equal = road.parameters;
    } else {
        report.plan = planAudit(root, parts, parameters, &views);
    }
    report.tells_hierarchy = report.plan->hierarchy;
    addTexts(atlasNotes(*report.plan, equal), report.notes);
}

/// Notes what stages with rays do, and says at once how long they may take.
void tellOfOcclusion(const model& source, const std::vector<named_part>& parts,
                     const std::string& parameters, bool quiet, run_report& report) {
    for (std::string& note : bakeNotes(parts, parameters))
        report.notes.push_back(std::move(note));
    const std::string estimate = bakeEstimate(source.root.get(), withThreads(parameters));
    if (!estimate.empty())
        tellNotes({estimate}, quiet);
}

/// Writes the parts that interior removal took off; no file if there are none.
void writeRemoved(const removal_watch& watch, const std::vector<std::size_t>& gone,
                  const model& source, const staged_output& stage, output_set& outputs,
                  run_report& report) {
    if (gone.empty()) {
        report.notes.push_back("no part was removed: no file is written for them");
        return outputs.drop(stage);
    }
    for (std::string& note : writeModel(watch.sceneOf(gone).get(), source.images, stage.path(),
                                        nullptr, &source.records))
        report.notes.push_back("removed parts: " + std::move(note));
}

} // namespace

void optimize(const options& chosen) {
    run_report report;
    report.command = chosen.what == command::automatic ? "auto" : "optimize";
    report.parameters = chosen.parameters;
    // First of all, so that a wrong folder shows before the work is done.
    output_set outputs(chosen.input, chosen.overwrite);
    const staged_output& stage = outputs.addModel(chosen.output);
    staged_output* const report_stage = addUnlessEmpty(outputs, chosen.report);
    progress steps(chosen.quiet);
    const std::string parameters =
        withExactAtlas(withKeptColors(chosen.parameters, chosen.ao_replace));
    const bool nobody_reads = chosen.quiet && chosen.report.empty();
    id_map_output id_map(parameters, outputs);
    std::string run = id_map.parameters();
    staged_output* const removed_stage = addUnlessEmpty(outputs, chosen.removed);
    staged_output* const sheet_stage = addUnlessEmpty(outputs, chosen.contact_sheet);
    const measure wanted = nobody_reads ? measure::counts : measure::all;

    steps.begin("read");
    model source = readChecked(chosen, report);
    outputs.keepOff(source.files_read);
    for (std::string& note : parameterNotes(chosen.parameters))
        report.notes.push_back(std::move(note));
    steps.begin("measure");
    view_store views; // of the source, later of the result
    report.before = measureScene(source.root.get(), wanted, &views);
    refuseFaults(report.before, chosen.input);
    refuseBomb(report.before, chosen);
    const std::vector<named_part> parts = namedParts(source.root.get(), !chosen.keep_names);
    if (id_map.wanted() && !chosen.keep_names)
        makeTreeSafe(source.root.get());
    planRun(source.root.get(), parts, parameters, views, report);
    views.clear();
    tellOfOcclusion(source, parts, parameters, chosen.quiet, report);
    std::optional<removal_watch> watch;
    if (morva::osg::planOf(parameters).removes_parts)
        watch.emplace(source.root.get(), parts);
    if (report.plan->has_ids)
        noteBroughtIds(dropBroughtIds(parts), report);
    if (keepsRecords(extensionOf(chosen.output)))
        run = spareCoordinates(source.root.get(), run, source.records);
    steps.begin("optimise");
    const ::osg::NodeRefPtr result = optimised(source, chosen, run, steps, report);
    steps.begin("audit");
    const std::vector<std::size_t> gone =
        watch ? watch->removed(result.get()) : std::vector<std::size_t>();
    noteRemoved(gone, *report.plan);
    report.after = measureScene(result.get(), wanted, &views);
    report.verdict = judge(*report.plan, result.get(), &views);
    for (const std::string& note : report.verdict->notes)
        report.notes.push_back(note);
    refuseEmpty(report, chosen.output, chosen.quiet);
    refuseGrowth(report.before, *report.after, chosen.max_growth);
    addTexts(growthNotes(report.before, *report.after, morva::osg::planOf(parameters)),
             report.notes);
    const bool passed = report.verdict->differences.empty();
    if (passed) {
        steps.begin("write");
        tellOfAtlases(chosen, source.images, report);
        const part_table table =
            report.plan->has_ids ? partTableOf(parts, result.get()) : part_table();
        const part_table* const known = report.plan->has_ids ? &table : nullptr;
        for (std::string& note :
             writeModel(result.get(), source.images, stage.path(), known, &source.records, &views))
            report.notes.push_back(std::move(note));
        addTexts(source.records.missingFrom(materialsOf(result.get())), report.notes);
        report.output = {chosen.output, stage.bytes()};
        id_map.check(outputs, report);
        if (removed_stage != nullptr)
            writeRemoved(*watch, gone, source, *removed_stage, outputs, report);
        if (sheet_stage != nullptr)
            writeContactSheet(*sheet_stage, outputs, report);
    } else {
        outputs.drop(stage);
        if (removed_stage != nullptr)
            outputs.drop(*removed_stage);
        if (sheet_stage != nullptr)
            outputs.drop(*sheet_stage);
        id_map.drop(outputs);
    }
    steps.end();

    report.stages = steps.stages();
    finish(chosen, report, report_stage, outputs);
    refuseDifferences(report.verdict->differences, "the output does");
}

void info(const options& chosen) {
    run_report report;
    report.command = "info";
    report.tells_hierarchy = true;
    output_set outputs(chosen.input, false);
    staged_output* const report_stage = addUnlessEmpty(outputs, chosen.report);
    progress steps(chosen.quiet);
    steps.begin("read");
    const model source = readChecked(chosen, report);
    outputs.keepOff(source.files_read);
    steps.begin("measure");
    report.before = measureScene(source.root.get());
    refuseFaults(report.before, chosen.input);
    steps.end();
    report.stages = steps.stages();
    finish(chosen, report, report_stage, outputs);
}

namespace {

void carryOut(const options& chosen) {
    switch (chosen.what) {
    case command::optimize:
    case command::automatic:
        return optimize(chosen);
    case command::info:
        return info(chosen);
    case command::pick:
        return pick(chosen);
    case command::collide:
        return collide(chosen);
    case command::simplify:
        return simplify(chosen);
    case command::divide:
        return divide(chosen);
    }
}

} // namespace

int run(int argc, const char* const* argv) {
    const memory_watch memory;
    std::optional<memory_limit> limit;
    try {
        const std::optional<options> chosen = parseCommandLine(argc, argv);
        if (!chosen) {
            tell("");
            return exit_good;
        }
        limit.emplace(chosen->max_memory);
        carryOut(*chosen);
        return exit_good;
    } catch (const host_error& error) {
        tellError(error.what());
        return error.code;
    } catch (const std::bad_alloc&) {
        tellError(outOfMemory("running"));
    } catch (const std::exception& error) {
        tellError(error.what());
    }
    return exit_failed;
}

} // namespace morva::host
