#pragma once

// What is told of a simplification: lines of the table, and a part of the JSON report.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audit.h"
#include "file_record.h"
#include "simplify_parts.h"
#include "statistics.h"

namespace morva::host {

/// One output.
struct simplified_level {
    simplify_level asked;
    file_record output; ///< bytes is 0 if the audit failed
    scene_statistics after;
    audit_verdict verdict;
    std::vector<part_stop> stops; ///< one per part
};

/// A part as it was.
struct simplified_source {
    std::string path;
    std::uint64_t places = 0; ///< how often it is drawn
    std::uint32_t live = 0;   ///< triangles with three different corners
};

struct simplify_record {
    simplify_request request;
    bool measured = false; ///< the distances
    std::vector<simplified_source> parts;
    std::vector<simplified_level> levels;
};

/// What a level comes to, over all places.
struct level_sums {
    std::uint64_t asked = 0, live = 0;
    std::uint64_t floors = 0, limited = 0; ///< parts
    morva::osg::surface_distance distance{};
};
level_sums sumsOf(const simplify_record& record, const simplified_level& level);

/// "ratio 0.25", "20,000 triangles", "distance 0.1"
std::string titleOf(const simplify_record& record, const simplified_level& level);

/// What a user is to know of a level, one sentence each.
std::vector<std::string> notesOn(const simplify_record& record, const simplified_level& level);

/// Lines of the table: one per level.
std::string linesOf(const simplify_record& record);

/// The part of the report, but for files, figures and audits.
nlohmann::ordered_json jsonOf(const simplify_record& record);

} // namespace morva::host
