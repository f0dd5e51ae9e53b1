#pragma once

// Does a simplified scene hold what it is to hold?
//
//     const simplify_audit audit(root, parts);     before the first level is shown
//     showLevel(parts, 0);
//     audit_verdict verdict = audit.judge(parts, 0);
//
// Told from the scene alone: every node is there, in its place, with its name and material. A part
// has as many triangles as its stop tells, none of them degenerate, none outside of the source's
// box, with normals of length 1 and all other properties that the source has. Lines, points, and
// whatever is not simplified are as before.

#include <cstdint>
#include <string>
#include <vector>

#include "audit.h"
#include "simplify_parts.h"

namespace morva::host {

class simplify_audit {
  public:
    /// root   with the source's cores; stays with the caller for as long as this lives
    simplify_audit(const ::osg::NodePtr& root, const std::vector<simplified_part>& parts);

    audit_verdict judge(const std::vector<simplified_part>& parts, std::size_t level) const;

  private:
    /// A node of the source.
    struct node_facts {
        ::osg::NodeRefPtr node;
        ::osg::NodePtr parent;
        std::string name, core_name;
        ::osg::NodeCoreRefPtr core; ///< null for a part that is simplified
        ::osg::MaterialRefPtr material;
    };
    /// What is drawn, by kind.
    struct drawn_counts {
        std::uint64_t triangles = 0, lines = 0, points = 0;
    };

    static drawn_counts countDrawn(const ::osg::NodePtr& root);
    void judgeNodes(audit_verdict& verdict) const;
    void judgeSums(const std::vector<simplified_part>& parts, std::size_t level,
                   audit_verdict& verdict) const;

    ::osg::NodePtr root_;
    std::vector<node_facts> nodes_;
    drawn_counts before_;
};

} // namespace morva::host
