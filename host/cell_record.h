#pragma once

// A division as the host tells of it, whole: what the manifest, the table and the notes are made
// of.

#include <cstdint>
#include <string>
#include <vector>

#include <morva/tools/morva_osg_model_cells.h>

#include "divide_options.h"
#include "part_names.h"
#include "report.h"

namespace morva::host {

struct cell_record {
    divide_options asked;
    file_record input;
    std::vector<named_part> parts;     ///< that are drawn, in the order of the division
    std::vector<std::string> left_out; ///< paths of parts that are not drawn, and in no cell
    morva::osg::cell_division division;
    std::vector<file_record> files; ///< one per cell, under their names in the folder
    std::uint64_t triangles_in = 0, triangles_out = 0; ///< as audited
    std::vector<std::string> notes;
};

/// What is to be known of a division, one sentence each.
std::vector<std::string> notesOf(const cell_record& record);

/// The cells and what is in them, one line each, and their sums.
std::string planOf(const cell_record& record);

/// The sums, for the end of a run.
std::string tableOf(const cell_record& record);

/// The text of manifest.json; its schema is docs/manifest.schema.json.
std::string manifestOf(const cell_record& record);

} // namespace morva::host
