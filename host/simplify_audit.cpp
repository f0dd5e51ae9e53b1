#include "simplify_audit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_set>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_tools.h>

#include "geometry_view.h"
#include "part_names.h"
#include "scene_walk.h"
#include "triangle_measures.h"

namespace morva::host {

namespace {

std::string nameText(const ::osg::AttachmentContainerPtr& container) {
    const ::osg::Char8* name = ::osg::getName(container);
    return name != nullptr ? name : "";
}

/// The box of the triangles of a core.
struct triangle_box {
    std::array<float, 3> low = {HUGE_VALF, HUGE_VALF, HUGE_VALF};
    std::array<float, 3> high = {-HUGE_VALF, -HUGE_VALF, -HUGE_VALF};

    void grow(const float* place) {
        for (std::size_t i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], place[i]);
            high[i] = std::max(high[i], place[i]);
        }
    }
    bool holds(const triangle_box& other) const {
        for (std::size_t i = 0; i < 3; ++i) {
            if (other.low[i] < low[i] || other.high[i] > high[i])
                return false;
        }
        return true;
    }
};

/// What the triangles of a core come to.
struct core_facts {
    std::uint64_t triangles = 0, degenerate = 0;
    std::uint64_t odd_normals = 0; ///< not of length 1
    triangle_box box;              ///< of those that are not degenerate
};

core_facts factsOf(const geometry_view& view) {
    core_facts facts;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        ++facts.triangles;
        if (isDegenerate(view, a, b, c)) {
            ++facts.degenerate;
            return;
        }
        for (const std::uint32_t corner : {a, b, c}) {
            facts.box.grow(view.positions.at(view.positions.row(corner)));
            if (!view.normals.present)
                continue;
            const float* n = view.normals.at(view.normals.row(corner));
            const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
            facts.odd_normals += std::abs(length - 1) < 1e-3F ? 0 : 1;
        }
    });
    return facts;
}

/// Which properties there are beside positions and normals.
std::array<bool, geometry_view::coordinate_sets + 2> presentOf(const geometry_view& view) {
    std::array<bool, geometry_view::coordinate_sets + 2> present{};
    present[0] = view.colors.present;
    present[1] = view.secondary_colors.present;
    for (std::size_t set = 0; set < geometry_view::coordinate_sets; ++set)
        present[set + 2] = view.coordinates[set].present;
    return present;
}

void judgePart(const simplified_part& part, std::size_t level, audit_verdict& verdict) {
    const part_stop& stop = part.stops[level];
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(part.nodes[0]->getCore());
    const geometry_view is(core), was(part.core.get());
    const core_facts facts = factsOf(is);
    const auto fail = [&](const std::string& what) {
        verdict.differences.push_back("part '" + part.path + "': " + what);
    };
    verdict.out_by_name[part.path] += facts.triangles;
    if (facts.triangles != stop.triangles)
        fail(std::to_string(stop.triangles) + " triangles expected, " +
             std::to_string(facts.triangles) + " came out");
    if (facts.triangles == 0)
        fail("no triangle is left");
    if (stop.untouched) // with whatever came with it
        return;
    if (facts.degenerate != 0)
        fail(std::to_string(facts.degenerate) + " degenerate triangles came out");
    if (!is.normals.present || facts.odd_normals != 0)
        fail(std::to_string(facts.odd_normals) + " normals have not the length 1");
    if (!factsOf(was).box.holds(facts.box))
        fail("it reaches out of the box of its source");
    if (presentOf(is) != presentOf(was))
        fail("colours, coordinates or IDs are not those of its source");
}

} // namespace

simplify_audit::simplify_audit(const ::osg::NodePtr& root,
                               const std::vector<simplified_part>& parts)
    : root_(root), before_(countDrawn(root)) {
    std::unordered_set<::osg::UInt32> simplified;
    for (const simplified_part& part : parts)
        simplified.insert(part.core.get().getFieldContainerId());
    for (const named_part& part : namedNodes(root)) {
        const ::osg::NodeCorePtr core = part.node->getCore();
        const bool changes =
            core != ::osg::NullFC && simplified.count(core.getFieldContainerId()) != 0;
        nodes_.push_back({::osg::NodeRefPtr(part.node), part.node->getParent(), nameText(part.node),
                          core != ::osg::NullFC ? nameText(core) : "",
                          ::osg::NodeCoreRefPtr(changes ? ::osg::NodeCorePtr() : core),
                          ::osg::MaterialRefPtr(morva::osg::getMaterial(part.node))});
    }
}

simplify_audit::drawn_counts simplify_audit::countDrawn(const ::osg::NodePtr& root) {
    drawn_counts counts;
    for (const drawn_node& drawn : drawnNodes(root)) {
        const geometry_view view(drawn.core);
        forEachTriangle(view, [&](auto, auto, auto) { ++counts.triangles; });
        forEachLine(view, [&](auto, auto) { ++counts.lines; });
        forEachPoint(view, [&](auto) { ++counts.points; });
    }
    return counts;
}

void simplify_audit::judgeNodes(audit_verdict& verdict) const {
    for (const node_facts& was : nodes_) {
        const ::osg::NodePtr node = was.node.get();
        const ::osg::NodeCorePtr core = node->getCore();
        const bool same = node->getParent() == was.parent && nameText(node) == was.name &&
                          (was.core == ::osg::NullFC || core == was.core.get()) &&
                          (core == ::osg::NullFC || nameText(core) == was.core_name) &&
                          morva::osg::getMaterial(node) == was.material.get();
        if (!same)
            verdict.differences.push_back("node '" + was.name +
                                          "' is not as before: its place, name, core or material");
    }
}

void simplify_audit::judgeSums(const std::vector<simplified_part>& parts, std::size_t level,
                               audit_verdict& verdict) const {
    const drawn_counts after = countDrawn(root_);
    std::uint64_t expected = before_.triangles;
    for (const simplified_part& part : parts) {
        const part_stop& stop = part.stops[level];
        expected += part.drawn * stop.triangles;
        expected -= part.drawn * part.triangles;
        verdict.degenerate +=
            stop.untouched ? 0
                           : part.drawn * (part.triangles -
                                           morva::osg::simplifiedTriangles(part.run, 0).of.size());
    }
    verdict.in = before_.triangles;
    verdict.out = after.triangles;
    verdict.least = verdict.most = expected;
    if (after.triangles != expected)
        verdict.differences.push_back(std::to_string(expected) + " triangles expected, " +
                                      std::to_string(after.triangles) + " came out");
    if (after.lines != before_.lines || after.points != before_.points)
        verdict.differences.push_back("lines or points are not as before");
}

audit_verdict simplify_audit::judge(const std::vector<simplified_part>& parts,
                                    std::size_t level) const {
    audit_verdict verdict;
    verdict.by_part = true;
    judgeSums(parts, level, verdict);
    judgeNodes(verdict);
    for (const simplified_part& part : parts)
        judgePart(part, level, verdict);
    return verdict;
}

} // namespace morva::host
