#pragma once

// Does the output hold what went in?
//
//     audit_plan plan = planAudit(parts, parameters);   before optTree: counts per part
//     optTree(...)
//     audit_verdict verdict = judge(plan, result);      after it
//
// Per source part: triangles in = triangles out + triangles dropped as degenerate. Parts that the
// optimiser leaves out by its rules (hidden, below a switch, with a switch material) count with
// their reason. With an ID map the output tells the part of each triangle, and each part is
// checked on its own; without one the parts are checked together.

#include <cstdint>
#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "part_names.h"

namespace morva::host {

enum class part_fate {
    merged,   ///< poured together and cut: degenerate triangles go
    carried,  ///< taken over as it is
    left_out, ///< not in the output, by rule
    open      ///< the parameters ask for more than can be foretold: some of it may be left
};

/// A source part and what may come out of it.
struct audited_part {
    std::string name, original_name;
    part_fate fate = part_fate::merged;
    std::uint64_t triangles = 0;
    std::uint64_t degenerate = 0;      ///< of those, dropped if the part is merged
    std::uint64_t least = 0, most = 0; ///< triangles in the output; equal unless open
};

struct audit_plan {
    std::vector<audited_part> parts;
    bool by_part = false; ///< the run writes IDs
};

struct audit_verdict {
    std::uint64_t in = 0, degenerate = 0, left_out = 0;
    std::uint64_t least = 0, most = 0, out = 0;
    bool by_part = false;
    std::vector<std::string> differences; ///< one sentence each; empty: the audit is passed
};

/// Counts what the parts hold and foretells what comes out. Reads the scene; O(triangles).
audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const std::string& parameters);

/// Counts the triangles below `result`, hidden ones too, and compares.
audit_verdict judge(const audit_plan& plan, const ::osg::NodePtr& result);

/// "merged", "carried over", ...
const char* textOf(part_fate fate);

} // namespace morva::host
