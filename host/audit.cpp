#include "audit.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <locale>
#include <optional>
#include <sstream>
#include <unordered_map>
#include <utility>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "parallel.h"
#include "scene_walk.h"
#include "text.h"
#include "triangle_measures.h"
#include "view_store.h"

namespace morva::host {

namespace {

/// Stands for all parts that come out under another name: no part that is checked has none.
const char* const renamed_parts = "";

std::string nameOf(const ::osg::NodePtr& node) {
    const ::osg::Char8* name = getName(node);
    return name != nullptr ? name : "";
}

/// What is there of a part, or is to be.
struct amount {
    std::uint64_t triangles = 0;
    std::uint64_t degenerate = 0; ///< of those
    measured_area surface;        ///< if wanted
};

void add(const amount& more, amount& sum) {
    sum.triangles += more.triangles;
    sum.degenerate += more.degenerate;
    sum.surface.area += more.surface.area;
    sum.surface.rounding += more.surface.rounding;
}

/// What counting the triangles of an output node needs, free of the scene graph.
struct output_node {
    const geometry_view& view;
    int set;                        ///< of texture coordinates that holds the IDs; -1 for none
    std::optional<placement> world; ///< if areas are wanted
};

/// Triangles of a core by ID; those without a known one count under -1. Their area too, if wanted.
std::map<int, amount> countById(const output_node& node) {
    const geometry_view& view = node.view;
    const int set = node.set;
    const bool areas = node.world.has_value();
    std::vector<::osg::Pnt3f> moved;
    if (areas)
        moved = placed(view, &*node.world);
    const auto names = static_cast<float>(morva::osg::getIDmapHandler().names.size());
    const property_column* ids = set >= 0 ? &view.coordinates[set] : nullptr;
    std::map<int, amount> counts;
    amount* last = nullptr; // runs of one part are long
    int last_id = 0;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        const float read = ids != nullptr && ids->present ? *ids->at(ids->row(a)) : -1.F;
        const int id = read >= 0.F && read < names ? static_cast<int>(read) : -1;
        if (last == nullptr || id != last_id)
            last = &counts[id];
        last_id = id;
        add({1, isDegenerate(view, a, b, c) ? 1u : 0u,
             areas ? triangleArea(view, moved, a, b, c) : measured_area()},
            *last);
    });
    return counts;
}

/// What an output node that holds geometry has.
struct counted_node {
    std::string name;
    std::map<int, amount> by_id;
    std::uint64_t line_ends = 0, points = 0;
};

/// In walk order.
std::vector<counted_node> countOutputs(const audit_plan& plan, const ::osg::NodePtr& result,
                                       view_store& views) {
    const std::vector<::osg::NodePtr> nodes = geometryNodes(result);
    std::deque<output_node> outputs;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        outputs.push_back({views.of(core), plan.has_ids ? idSetOf(node, plan.sources) : -1,
                           plan.areas ? std::optional<placement>(node) : std::nullopt});
    }
    std::vector<counted_node> counted(outputs.size());
    runParallel(outputs.size(), [&](std::size_t i) {
        counted[i].by_id = countById(outputs[i]);
        forEachLine(outputs[i].view, [&](std::size_t, std::size_t) { counted[i].line_ends += 2; });
        forEachPoint(outputs[i].view, [&](std::size_t) { ++counted[i].points; });
    });
    for (std::size_t i = 0; i < nodes.size(); ++i)
        counted[i].name = nameOf(nodes[i]);
    return counted;
}

/// IDs by output name, as the run has registered them.
std::unordered_map<std::string, std::vector<int>> idsByCore() {
    std::unordered_map<std::string, std::vector<int>> ids;
    for (const auto& [id, cores] : morva::osg::getIDmapHandler().usage) {
        for (const std::string& core : cores)
            ids[core].push_back(id);
    }
    return ids;
}

std::vector<id_record> idsOfRun() {
    const morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    std::vector<id_record> records(handler.names.size());
    for (std::size_t id = 0; id < records.size(); ++id) {
        records[id].name = handler.names[id];
        const auto used = handler.usage.find(static_cast<int>(id));
        if (used != handler.usage.end())
            records[id].cores.assign(used->second.begin(), used->second.end());
    }
    return records;
}

core_record recordOf(const std::string& name, const std::vector<int>& ids,
                     const std::map<int, amount>& counts) {
    core_record record;
    record.name = name;
    for (const auto& [id, counted] : counts)
        record.triangles += counted.triangles;
    for (const int id : ids) {
        const auto counted = counts.find(id);
        record.ids.emplace_back(id, counted != counts.end() ? counted->second.triangles : 0);
    }
    return record;
}

/// Of what the merge carried over: nodes of the source, and transparent ones in a new order.
print_list carriedPrints(const audit_plan& plan, const ::osg::NodePtr& result) {
    std::vector<::osg::NodePtr> merged, switched, transparent;
    morva::osg::getGeometryNodesForTree(result, merged, switched, transparent);
    node_numbers carried = plan.sources;
    for (const ::osg::NodePtr& node : transparent) {
        if (plan.order_is_new)
            carried.insert(node.getFieldContainerId());
    }
    print_list prints;
    for (const ::osg::NodePtr& node : geometryNodes(result)) {
        if (carried.count(node.getFieldContainerId()) != 0)
            addPrints(geometry_view(::osg::GeometryPtr::dcast(node->getCore())), 0, prints);
    }
    return prints;
}

void compareReordered(const audit_plan& plan, const ::osg::NodePtr& result,
                      audit_verdict& verdict) {
    if (plan.reordered.empty())
        return;
    for (const print_difference& difference :
         comparePrints(plan.reordered, carriedPrints(plan, result))) {
        const audited_part& part = plan.parts[difference.part];
        std::string text = "part '" + part.name + "': the new draw order shows " +
                           std::to_string(difference.again) + " triangles once too often and " +
                           std::to_string(difference.lost) + " not at all";
        if (part.degenerate == 0) {
            verdict.differences.push_back(std::move(text));
            continue;
        }
        text += "; it dropped " + std::to_string(part.degenerate) + " degenerate ones before";
        verdict.notes.push_back(std::move(text));
    }
}

/// What is to come out under one name.
struct expectation {
    std::uint64_t least = 0, most = 0;
    std::uint64_t kept_degenerate = 0;
    std::uint64_t sound = 0; ///< of `least`, those that are not degenerate in any case
    double area = 0.0;
    bool cut = false;  ///< or more, as pieces
    bool open = false; ///< less area as well
};

void add(const audited_part& part, expectation& sum) {
    sum.least += part.least;
    sum.most += part.most;
    sum.kept_degenerate += part.kept_degenerate;
    sum.sound += std::min(part.least, part.triangles - part.kept_degenerate);
    sum.area += part.area;
    sum.cut = sum.cut || part.cut;
    sum.open = sum.open || part.fate == part_fate::open;
}

std::map<std::string, expectation> expectedByName(const audit_plan& plan) {
    std::map<std::string, expectation> expected;
    for (const audited_part& part : plan.parts)
        add(part, expected[part.renamed ? renamed_parts : part.name]);
    return expected;
}

/// Triangles that collapsed on the way: no one sees them.
std::uint64_t collapsed(const expectation& expected, const amount& out) {
    return out.degenerate > expected.kept_degenerate ? out.degenerate - expected.kept_degenerate
                                                     : 0;
}

bool isRightCount(const expectation& expected, const amount& out) {
    const std::uint64_t seen = out.triangles - collapsed(expected, out);
    return seen >= expected.least && out.triangles - out.degenerate >= expected.sound &&
           (seen <= expected.most || expected.cut);
}

/// "48 came out", and how many more are degenerate.
std::string textOfCount(const expectation& expected, const amount& out) {
    const std::uint64_t lost = collapsed(expected, out);
    return std::to_string(out.triangles - lost) + " came out" +
           (lost != 0 ? " and " + std::to_string(lost) + " collapsed" : "");
}

/// An area that is no number is right: nothing can be told then.
bool isRightArea(const expectation& expected, const measured_area& out) {
    return !expected.cut || expected.open ||
           !(std::abs(out.area - expected.area) > 1e-6 * expected.area + out.rounding);
}

std::string textOfArea(double area) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << area;
    return text.str();
}

/// Compares what came out under one name, or in all, and says what is wrong.
void compare(const expectation& expected, const amount& out, bool areas, const std::string& who,
             std::vector<std::string>& differences) {
    if (!isRightCount(expected, out))
        differences.push_back(who + ": " + std::to_string(expected.most) +
                              (expected.cut ? " triangles or more" : " triangles") + " expected, " +
                              textOfCount(expected, out));
    else if (areas && !isRightArea(expected, out.surface))
        differences.push_back(who + ": cut into pieces, an area of " + textOfArea(expected.area) +
                              " went in, but " + textOfArea(out.surface.area) + " came out");
}

void compareByName(const std::map<std::string, expectation>& expected,
                   const std::map<std::string, amount>& out, bool areas, audit_verdict& verdict) {
    for (const auto& [name, sums] : expected) {
        const auto found = out.find(name);
        const std::string who =
            name == renamed_parts ? "parts in a new draw order" : "part '" + name + "'";
        compare(sums, found != out.end() ? found->second : amount(), areas, who,
                verdict.differences);
    }
}

expectation expectedInAll(const audit_plan& plan) {
    expectation all;
    for (const audited_part& part : plan.parts)
        add(part, all);
    return all;
}

/// Compares all that came out.
void compareSums(const audit_plan& plan, const expectation& all, const amount& out,
                 audit_verdict& verdict) {
    if (!isRightCount(all, out))
        verdict.differences.push_back(
            std::to_string(verdict.in) + " triangles went in, " +
            std::to_string(verdict.degenerate) + " of them degenerate and " +
            std::to_string(verdict.left_out) + " left out by rule" +
            (verdict.removed != 0 ? " and " + std::to_string(verdict.removed) + " removed" : "") +
            ", but " + textOfCount(all, out));
    else if (plan.areas && !plan.by_part)
        compare(all, out, true, "all parts", verdict.differences);
}

print_list printsInWorld(const ::osg::NodePtr& result) {
    print_list prints;
    for (const ::osg::NodePtr& node : geometryNodes(result)) {
        const placement world(node);
        addPrints(geometry_view(::osg::GeometryPtr::dcast(node->getCore())), 0, prints, &world);
    }
    return prints;
}

void compareUntouched(const audit_plan& plan, const ::osg::NodePtr& result,
                      audit_verdict& verdict) {
    if (plan.untouched.empty())
        return;
    for (const print_difference& difference :
         comparePrints(plan.untouched, printsInWorld(result))) {
        if (difference.lost != 0)
            verdict.differences.push_back("part '" + plan.parts[difference.part].name +
                                          "': " + std::to_string(difference.lost) +
                                          " triangles are not where they were");
    }
}

/// Compares what is gone with what interior removal says that it took off.
void compareRemoved(const audit_plan& plan, audit_verdict& verdict) {
    const auto gone = static_cast<std::size_t>(
        std::count_if(plan.parts.begin(), plan.parts.end(),
                      [](const audited_part& part) { return part.fate == part_fate::removed; }));
    if (plan.removed_parts && gone != *plan.removed_parts)
        verdict.differences.push_back(std::to_string(*plan.removed_parts) +
                                      " parts were removed, but " + std::to_string(gone) +
                                      " are gone");
}

/// Whether no part can lose triangles on its way from a hull to the output: a new draw order keeps
/// nothing beside lines.
bool keepsHull(const audit_plan& plan) {
    return std::none_of(plan.parts.begin(), plan.parts.end(), [](const audited_part& part) {
        return part.renamed && part.line_ends != 0;
    });
}

void compareHull(const audit_plan& plan, const ::osg::NodePtr& result, const amount& out,
                 audit_verdict& verdict) {
    const std::uint64_t sound = out.triangles - out.degenerate;
    if (plan.hull_triangles && keepsHull(plan) && sound < *plan.hull_triangles)
        verdict.differences.push_back("the hull has kept " + std::to_string(*plan.hull_triangles) +
                                      " triangles, but " + std::to_string(sound) + " came out");
    if (!plan.hull_source)
        return;
    const std::uint64_t strangers = countStrangers(*plan.hull_source, printsInWorld(result));
    if (strangers != 0)
        verdict.differences.push_back("the hull has " + std::to_string(strangers) +
                                      " triangles that did not go in");
}

void sumUp(const audit_plan& plan, const expectation& all, audit_verdict& verdict) {
    for (const audited_part& part : plan.parts) {
        verdict.in += part.triangles;
        const bool drops = part.fate == part_fate::merged || part.least != part.most;
        verdict.degenerate += drops && part.fate != part_fate::open ? part.degenerate : 0;
        verdict.left_out += part.fate == part_fate::left_out ? part.triangles : 0;
        verdict.removed += part.fate == part_fate::removed ? part.triangles : 0;
    }
    verdict.least = all.least;
    verdict.most = all.most;
    verdict.cut = all.cut;
}

/// A part without a name gets no ID: in a core with IDs its vertices read 0, as those of the first
/// name do.
void noteNameless(const audit_plan& plan, audit_verdict& verdict) {
    const auto nameless =
        std::count_if(plan.parts.begin(), plan.parts.end(), [](const audited_part& part) {
            return part.name.empty() && part.fate == part_fate::merged;
        });
    if (nameless == 0 || verdict.ids.empty())
        return;
    const bool one = nameless == 1;
    verdict.notes.push_back(
        std::to_string(nameless) +
        (one ? " part has no name: where it is" : " parts have no name: where they are") +
        " merged with named ones, the ID map lists " + (one ? "it" : "them") +
        " under the first named part, '" + validUtf8(verdict.ids[0].name) + "'");
}

/// A hierarchy without a merge leaves out what a merge would: whoever asked for it is to know.
void noteLeftOut(const audit_plan& plan, audit_verdict& verdict) {
    if (!plan.hierarchy || plan.merges)
        return;
    std::vector<std::string> names;
    for (const audited_part& part : plan.parts) {
        if (part.fate == part_fate::left_out)
            names.push_back(part.name);
    }
    if (!names.empty())
        verdict.notes.push_back("parts that are hidden, below a switch or level of detail, or to "
                                "be left alone are not in the hierarchy, " +
                                std::to_string(names.size()) + " of them: " + quotedNames(names));
}

/// Says by how many something that was counted changed; empty if it did not.
std::string textOfChange(std::uint64_t in, std::uint64_t out, const std::string& what) {
    if (out > in)
        return withCommas(out - in) + " " + what + " more come out than went in";
    return out == in
               ? std::string()
               : withCommas(in - out) + " of " + withCommas(in) + " " + what + " do not come out";
}

void noteThin(const audit_plan& plan, std::uint64_t line_ends, std::uint64_t points,
              audit_verdict& verdict) {
    std::uint64_t ends_in = 0, points_in = 0;
    bool points_alone = false;
    for (const audited_part& part : plan.parts) {
        ends_in += part.line_ends;
        points_in += part.points;
        points_alone =
            points_alone || (part.points != 0 && part.line_ends == 0 && part.triangles == 0);
    }
    const std::string of_lines = textOfChange(ends_in, line_ends, "line ends");
    if (!of_lines.empty())
        verdict.notes.push_back(of_lines);
    const std::string of_points = textOfChange(points_in, points, "points");
    if (!of_points.empty())
        verdict.notes.push_back(of_points + (points_alone && plan.merges && points < points_in
                                                 ? ": parts of points alone are not merged"
                                                 : ""));
}

} // namespace

audit_verdict judge(const audit_plan& plan, const ::osg::NodePtr& result, view_store* known) {
    view_store made_here;
    audit_verdict verdict;
    verdict.by_part = plan.by_part;
    const expectation all = expectedInAll(plan);
    sumUp(plan, all, verdict);
    const auto expected = expectedByName(plan);
    const auto ids_of = plan.has_ids ? idsByCore() : decltype(idsByCore())();
    if (plan.has_ids)
        verdict.ids = idsOfRun();

    amount sum;
    std::uint64_t line_ends = 0, points = 0;
    std::map<std::string, amount> out_by_name;
    for (const counted_node& node :
         countOutputs(plan, result, known != nullptr ? *known : made_here)) {
        const auto& [name, counts, ends_here, points_here] = node;
        line_ends += ends_here;
        points += points_here;
        for (const auto& [id, counted] : counts) {
            add(counted, sum);
            if (!plan.by_part)
                continue;
            const std::string& own = expected.count(name) != 0 ? name : renamed_parts;
            add(counted,
                out_by_name[id >= 0 ? verdict.ids[static_cast<std::size_t>(id)].name : own]);
        }
        if (plan.has_ids) {
            const auto ids = ids_of.find(name);
            verdict.cores.push_back(
                recordOf(name, ids != ids_of.end() ? ids->second : std::vector<int>(), counts));
        }
    }
    verdict.out = sum.triangles - collapsed(all, sum);
    for (const auto& [name, out] : out_by_name)
        verdict.out_by_name[name] = out.triangles;
    if (plan.by_part)
        compareByName(expected, out_by_name, plan.areas, verdict);
    noteNameless(plan, verdict);
    noteLeftOut(plan, verdict);
    noteThin(plan, line_ends, points, verdict);
    compareReordered(plan, result, verdict);
    compareRemoved(plan, verdict);
    compareUntouched(plan, result, verdict);
    compareHull(plan, result, sum, verdict);
    compareSums(plan, all, sum, verdict);
    return verdict;
}

const char* textOf(part_fate fate) {
    static const char* const texts[] = {"merged", "carried over", "left out", "removed", "open"};
    return texts[static_cast<int>(fate)];
}

} // namespace morva::host
