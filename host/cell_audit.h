#pragma once

// Do the cells hold what went in?
//
//     cell_audit audit(parts, division, cut);
//     for each cell: audit.add(cell, scene);          what is about to be written
//     for (const std::string& difference : audit.judge()) ...
//
// Asked of the scenes, part by part, whatever the division says of itself: lines and points are all
// there, and so are triangles: each in one cell alone, told by the bits of its corners in the
// part's own space. Where triangles were cut: the same area within rounding, and closed seams,
// which means that each corner that was not there before is in at least two cells.

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/tools/morva_osg_model_cells.h>

#include "part_names.h"
#include "triangle_measures.h"
#include "triangle_prints.h"

namespace morva::host {

class cell_audit {
  public:
    /// Counts what goes in. Parts with one name are checked together.
    /// parts  those that were divided, in the order of the division
    cell_audit(const std::vector<named_part>& parts, const morva::osg::cell_division& division,
               bool cut);

    /// Counts what a cell's scene holds.
    void add(std::size_t cell, const ::osg::NodePtr& scene);

    /// What is wrong, one sentence each; empty: the audit is passed.
    std::vector<std::string> judge();

    std::uint64_t trianglesIn() const;
    std::uint64_t trianglesOut() const;

  private:
    /// What went in or came out under a name.
    struct amounts {
        std::uint64_t triangles = 0, lines = 0, points = 0;
        measured_area surface;
    };
    struct entry {
        std::string name;
        amounts in, out;
        std::uint64_t unplaced = 0;
    };
    /// A corner that was not there before, and a cell that has it.
    struct cut_corner {
        std::uint64_t print;
        std::uint32_t cell, entry;
    };

    std::uint32_t entryOf(const std::string& name);
    void count(const geometry_view& view, const placement& world, amounts& to) const;
    void judgeEntry(const entry& part, std::vector<std::string>& differences) const;
    void judgePrints(std::vector<std::string>& differences);
    void judgeSeams(std::vector<std::string>& differences);

    bool cut_;
    std::vector<entry> entries_;
    std::unordered_map<std::string, std::uint32_t> entry_of_name_;
    std::vector<std::string> strangers_;        ///< names of no part
    print_list before_, after_;                 ///< of whole triangles; empty if some may be cut
    std::vector<std::uint64_t> corners_before_; ///< ascending once all parts are in
    std::vector<cut_corner> cut_corners_;
};

} // namespace morva::host
