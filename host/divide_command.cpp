#include "divide_command.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "cell_audit.h"
#include "cell_folder.h"
#include "cell_ids.h"
#include "cell_record.h"
#include "command_steps.h"
#include "console.h"
#include "host_error.h"
#include "memory_watch.h"
#include "model_export.h"
#include "output_file.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

/// Writers say the same of many files.
constexpr std::size_t most_writer_notes = 20;

/// Sorts the parts of a model into those that are drawn and others.
void listParts(const ::osg::NodePtr& root, bool rename, cell_record& record) {
    std::unordered_map<::osg::UInt32, named_part> by_node;
    for (named_part& part : namedParts(root, rename)) {
        const ::osg::UInt32 id = part.node_id;
        by_node.emplace(id, std::move(part));
    }
    for (const drawn_node& drawn : drawnNodes(root)) {
        const auto found = by_node.find(drawn.node.getFieldContainerId());
        record.parts.push_back(std::move(found->second));
        by_node.erase(found);
    }
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const auto found = by_node.find(node.getFieldContainerId());
        if (found != by_node.end())
            record.left_out.push_back(found->second.path);
    }
}

void divideParts(cell_record& record) {
    std::vector<::osg::NodePtr> nodes;
    for (const named_part& part : record.parts)
        nodes.push_back(part.node);
    try {
        record.division = morva::osg::divideModel(nodes, record.asked.cells);
    } catch (const std::length_error& error) {
        throw host_error(std::string(error.what()) + ": choose a larger limit");
    }
    memory_watch::check("dividing");
    const std::size_t cells = record.division.cells.size();
    if (cells == 0)
        throw host_error("nothing to divide: no triangle, line or point that is shown has a "
                         "finite place");
    if (cells > most_cells)
        throw host_error("that makes " + withCommas(cells) + " cells, more than " +
                         withCommas(most_cells) + ": choose a larger limit");
    for (std::size_t i = 0; i < cells; ++i)
        record.files.push_back({cellName(i, record.asked.format), 0});
}

/// Writes the cells one by one, so that no more than one is in memory.
void writeCells(const model& source, const cell_ids& ids, const cell_folder& folder,
                progress& steps, cell_audit& audit, cell_record& record) {
    std::set<std::string> told;
    for (std::size_t i = 0; i < record.division.cells.size(); ++i) {
        steps.tell(i, record.division.cells.size());
        const ::osg::NodeRefPtr scene(morva::osg::cellScene(record.division, i));
        ids.attachTo(scene.get());
        audit.add(i, scene.get());
        const std::string path = folder.pathOf(record.files[i].path);
        for (std::string& note :
             writeModel(scene.get(), source.images, path, ids.table(), &source.records)) {
            if (told.size() < most_writer_notes && told.insert(note).second)
                record.notes.push_back(std::move(note));
        }
        record.files[i].bytes = std::filesystem::file_size(path);
    }
}

} // namespace

void divide(const options& chosen) {
    run_report report;
    cell_record record;
    record.asked = chosen.divide;
    // First of all, so that a wrong folder shows before the work is done.
    std::optional<cell_folder> folder;
    if (!chosen.divide.plan)
        folder.emplace(chosen.divide.folder, chosen.input, chosen.overwrite);
    progress steps(chosen.quiet);
    steps.begin("read");
    const model source = readChecked(chosen, report);
    if (folder)
        folder->keepOff(source.files_read);
    refuseFaults(measureScene(source.root.get(), measure::counts), chosen.input);
    record.input = report.input;
    record.notes = report.notes;
    const cell_ids ids(chosen.input, source, record.notes);
    listParts(source.root.get(), !ids.goesByNames(), record);
    steps.begin("divide");
    divideParts(record);
    for (std::string& note : notesOf(record))
        record.notes.push_back(std::move(note));
    if (!folder) {
        steps.end();
        tellNotes(record.notes, chosen.quiet);
        return tell(planOf(record));
    }
    steps.begin("write");
    cell_audit audit(record.parts, record.division,
                     record.asked.cells.straddle == morva::osg::cell_straddle::cut);
    writeCells(source, ids, *folder, steps, audit, record);
    steps.begin("audit");
    refuseDifferences(audit.judge(), "the cells do");
    record.triangles_in = audit.trianglesIn();
    record.triangles_out = audit.trianglesOut();
    steps.begin("manifest");
    writeFile(folder->pathOfManifest(), manifestOf(record));
    memory_watch::check("writing the manifest");
    folder->check();
    steps.end();
    tellNotes(record.notes, chosen.quiet);
    tell(chosen.quiet ? std::string()
                      : tableOf(record) + stageLines(steps.stages()) +
                            "audit: " + withCommas(record.triangles_in) + " triangles in, " +
                            withCommas(record.triangles_out) + " out: passed, part by part\n");
    folder->commit();
}

} // namespace morva::host
