#pragma once

// Does the output hold what went in?
//
//     audit_plan plan = planAudit(root, parts, parameters);   before optTree: counts per part
//     optTree(root, parameters, record)
//     noteStages(record, plan)                                what the stages say they did
//     audit_verdict verdict = judge(plan, result);            after it
//
// Per source part: triangles in = triangles out + triangles dropped as degenerate. Parts that the
// optimiser leaves out by its rules (hidden, below a switch, with a switch material) count with
// their reason. A degenerate triangle in the output is a missing one, unless it came with a part
// that is taken over as it is. With an ID map the output tells the part of each triangle, and each
// part is checked on its own; without one the parts are checked together.
//
// Parts that are carried over whole while the draw order is rebuilt come out under names of the
// optimiser's own: they are checked together, and their triangles one by one. Where degenerate
// triangles were dropped the new order may show a triangle twice and leave another out; that is
// told, and is no failure.
//
// Interior removal takes whole parts: noteRemoved() tells which, and they count as none. Of a hull
// single triangles are left: each must be one that went in. How many depends on their values, but
// for a hull that may have as many as there are: it has them all.
//
// Where stages before the merge may change parts (atlases, interior removal, hulls, switches taken
// out), each part that they are to leave alone is looked at triangle by triangle: all of them must
// come out where they were. What those stages did is told by their record: as many parts must be
// gone as were taken off, and of a hull as many triangles must be there as it kept.
//
// With texture atlases parts may lose the triangles that are degenerate in their own space before
// anything else happens to them.
//
// Lines and points are counted, too: where their number changes, a note says by how many. Parts
// that hold points alone are no parts to a merge.
//
// Parts whose texture coordinates reach beyond the limit may be cut into any number of pieces: of
// those at least as many triangles must come out as went in, with the same area.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/driver/morva_osg_scenerebuild.h>

#include "part_names.h"
#include "part_table.h"
#include "triangle_prints.h"
#include "view_store.h"

namespace morva::host {

struct auto_road;

enum class part_fate {
    merged,   ///< poured together and cut: degenerate triangles go
    carried,  ///< taken over as it is
    left_out, ///< not in the output, by rule
    removed,  ///< not in the output: nobody sees it
    open      ///< the parameters ask for more than can be foretold: some of it may be left
};

/// A source part and what may come out of it.
struct audited_part {
    std::string name, original_name;
    part_fate fate = part_fate::merged;
    std::uint64_t triangles = 0;
    std::uint64_t degenerate = 0;      ///< of those, dropped if the part is merged
    std::uint64_t dropped = 0;         ///< these and what the way to atlases drops, if it has one
    std::uint64_t least = 0, most = 0; ///< triangles in the output; equal unless open
    std::uint64_t kept_degenerate = 0; ///< degenerate ones that may be among them
    std::uint64_t line_ends = 0, points = 0; ///< where the part stands: each line has two ends
    double area = 0.0;                       ///< of what is to come out, if the plan compares areas
    bool cut = false;                        ///< more than `most` may come out, as pieces
    bool flattened = false;                  ///< on the way to atlases indices may go, see above
    bool renamed = false;                    ///< comes out under another name, see above
};

struct audit_plan {
    std::vector<audited_part> parts;
    node_numbers sources;      ///< nodes of the parts: those in the output are carried over
    bool has_ids = false;      ///< the run writes IDs
    bool by_part = false;      ///< and they tell each part, so that each can be checked
    bool areas = false;        ///< some part is cut, and the output is in the world
    bool hierarchy = false;    ///< the run puts the parts into a hierarchy
    bool merges = false;       ///< and pours them together before
    bool order_is_new = false; ///< transparent parts are carried over in a new draw order
    /// Triangles of all parts where they are in the output, for a hull: others must not be there.
    std::optional<print_list> hull_source;
    /// Triangles that must be in the output where they are now, of parts that no stage changes;
    /// none if no stage asks for it.
    print_list untouched;
    /// That interior removal says it took off; none where other stages take parts off as well.
    std::optional<std::size_t> removed_parts;
    std::optional<std::uint64_t> hull_triangles; ///< that a hull says it kept
    print_list reordered; ///< triangles of the parts that are carried over while orders are made
};

/// An ID of the run: an input name and where its geometry went.
struct id_record {
    std::string name;
    std::vector<std::string> cores; ///< names of output nodes, ascending
};

/// An output node that holds geometry.
struct core_record {
    std::string name;
    std::uint64_t triangles = 0;
    /// IDs with geometry in it, ascending, and how many of the triangles are theirs.
    std::vector<std::pair<int, std::uint64_t>> ids;
};

struct audit_verdict {
    std::uint64_t in = 0, degenerate = 0, left_out = 0, removed = 0;
    std::uint64_t least = 0, most = 0;
    std::uint64_t out = 0; ///< without those that are degenerate and were not before
    bool by_part = false;
    bool cut = false;                     ///< more than `most` may have come out, as pieces
    std::vector<std::string> differences; ///< one sentence each; empty: the audit is passed
    std::vector<std::string> notes;       ///< what is odd and no failure, one sentence each
    std::map<std::string, std::uint64_t> out_by_name; ///< triangles per part name, if `by_part`
    std::vector<id_record> ids;                       ///< by ID; empty unless the run wrote IDs
    std::vector<core_record> cores; ///< in walk order; empty unless the run wrote IDs
};

/// Counts what the parts hold and foretells what comes out. Reads the scene; O(triangles).
///
/// views  of its cores, if there are some already
audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const std::string& parameters, view_store* views = nullptr);

/// The same for a run with empty parameters.
audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const auto_road& road, view_store* views = nullptr);

/// Takes down what the stages of the run say they did.
void noteStages(const morva::osg::run_record& record, audit_plan& plan);

/// Takes it down that these parts, by their places, are off the scene.
void noteRemoved(const std::vector<std::size_t>& places, audit_plan& plan);

/// Counts the triangles below `result`, hidden ones too, and compares.
audit_verdict judge(const audit_plan& plan, const ::osg::NodePtr& result,
                    view_store* views = nullptr);

/// "merged", "carried over", ...
const char* textOf(part_fate fate);

} // namespace morva::host
