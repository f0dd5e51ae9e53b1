#pragma once

// What a run tells: the table for people and the JSON report for programs.

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <morva/driver/morva_osg_auto.h>
#include <morva/textures/morva_osg_atlas_record.h>

#include "audit.h"
#include "simplify_record.h"
#include "stage_clock.h"
#include "statistics.h"

namespace morva::host {

/// Everything that a run tells. `after` and what belongs to it is absent for `morva info`, and for
/// `morva simplify` with several outputs.
struct run_report {
    std::string command;    ///< "optimize", "auto", "info" or "simplify"
    std::string parameters; ///< as given
    file_record input, output;
    std::optional<file_record> id_map; ///< if one was written
    scene_statistics before;
    std::optional<scene_statistics> after;
    bool tells_hierarchy = false; ///< levels and leaves are among the figures
    std::optional<audit_plan> plan;
    std::optional<audit_verdict> verdict;
    std::optional<morva::osg::atlas_record> atlases;  ///< if the run was to make some
    std::optional<morva::osg::auto_record> automatic; ///< of a run with empty parameters
    std::optional<simplify_record> simplified;        ///< of `morva simplify`
    std::vector<stage_record> stages;
    std::vector<std::string> notes;
};

/// The table: one line per figure, with one column or two; then the stages and the audit.
std::string tableOf(const run_report& report);

/// The stages, one line each, and their sum.
std::string stageLines(const std::vector<stage_record>& stages);

/// The report; keys never change their meaning within one number of "schema".
nlohmann::ordered_json jsonOf(const run_report& report);

} // namespace morva::host
