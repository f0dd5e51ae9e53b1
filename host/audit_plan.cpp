#include "audit.h"

#include <algorithm>
#include <set>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_run_plan.h>

#include "atlas_forecast.h"
#include "auto_road.h"
#include "geometry_view.h"
#include "parallel.h"
#include "scene_walk.h"
#include "triangle_measures.h"
#include "view_store.h"

namespace morva::host {

namespace {

using morva::osg::run_plan;

using node_ids = std::set<::osg::UInt32>;

node_ids idsOf(const std::vector<::osg::NodePtr>& nodes) {
    node_ids ids;
    for (const ::osg::NodePtr& node : nodes)
        ids.insert(node.getFieldContainerId());
    return ids;
}

/// What a part has its material from: its core, and that of the material group above it.
node_ids looksOf(const ::osg::NodePtr& node) {
    node_ids ids = {node->getCore().getFieldContainerId()};
    const ::osg::NodePtr group = morva::osg::searchMaterialGroup(node);
    if (group != ::osg::NullFC)
        ids.insert(group->getCore().getFieldContainerId());
    return ids;
}

/// Which lists of the merge each part stands in.
struct part_lists {
    part_lists(const ::osg::NodePtr& root, const run_plan& run) {
        std::vector<::osg::NodePtr> first, second, third, fourth;
        morva::osg::getGeometryNodesForTree(root, first, second, third);
        morva::osg::getTravMaskZeroNodes(root, fourth, false);
        plain = idsOf(first);
        switched = idsOf(second);
        transparent = idsOf(third);
        hidden = idsOf(fourth);
        if (!run.setup.mostusedmaterial)
            return;
        first.insert(first.end(), third.begin(), third.end());
        for (const ::osg::NodePtr& node : first)
            looks.merge(looksOf(node));
    }
    /// Whether one material for all the parts of the merge is that of this part, too.
    bool sharesALook(const ::osg::NodePtr& node) const {
        if (looks.empty())
            return false;
        const node_ids own = looksOf(node);
        return std::any_of(own.begin(), own.end(),
                           [this](::osg::UInt32 id) { return looks.count(id) != 0; });
    }
    /// Whether the merge takes the part, one way or the other.
    bool has(const ::osg::NodePtr& node) const {
        const ::osg::UInt32 id = node.getFieldContainerId();
        return plain.count(id) != 0 || transparent.count(id) != 0;
    }
    node_ids plain, switched, transparent, hidden;
    /// Where one material is given to all: what the parts of the merge have theirs from.
    node_ids looks;
};

/// Whether baking leaves a transparent part as it is: its image says what can be seen through.
bool staysTransparent(const ::osg::NodePtr& node, const run_plan& run) {
    const morva::osg::optTree_setup& setup = run.setup;
    return setup.ambientocclusion == 0 ||
           (!setup.aoreplace && morva::osg::getImage(node) != ::osg::NullFC);
}

/// Whether the merge carries a part over because one can see through it.
bool isTransparent(const ::osg::NodePtr& node, const part_lists& lists, const run_plan& run) {
    return !run.setup.merge.alphageometry &&
           lists.transparent.count(node.getFieldContainerId()) != 0 && staysTransparent(node, run);
}

/// Whether a part that the merge would carry over may come out merged, or the other way round.
bool mayChangeSides(const audited_part& part, const ::osg::NodePtr& node, const part_lists& lists,
                    const run_plan& run) {
    return run.merges &&
           (run.setup.mostusedmaterial ||
            (part.flattened && isTransparent(node, lists, run) && mayTurnOpaque(node, run)));
}

/// Whether degenerate triangles of a part are asked for in its own space alone.
bool staysInPlace(const audited_part& part, const ::osg::NodePtr& node, const part_lists& lists,
                  const run_plan& run) {
    if (!run.setup.merge.toworld || (run.atlas && !run.merges))
        return true;
    if (!isTransparent(node, lists, run))
        return false;
    return part.flattened ? !mayChangeSides(part, node, lists, run) : run.orders_cache;
}

/// What the draw order leaves of a part that is carried over: degenerate triangles go, if only
/// because a strip whose equal vertices were joined passes them over, and where there are lines a
/// large part keeps nothing else.
void foretellReordered(audited_part& part, const ::osg::NodePtr& node, const run_plan& run) {
    part.renamed = true;
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    const bool lines_alone = !morva::osg::isVertexCountBelowThreshold(node, run.cache_entries) &&
                             morva::osg::getNumberOfLines(core) != 0;
    part.least = lines_alone ? 0 : part.triangles - part.degenerate;
}

/// hull_is_whole  a hull leaves all of what is merged or carried over
void foretell(audited_part& part, const ::osg::NodePtr& node, const part_lists& lists,
              const run_plan& run, bool hull_is_whole) {
    const ::osg::UInt32 id = node.getFieldContainerId();
    const bool transparent = lists.transparent.count(id) != 0;
    const bool hidden = lists.hidden.count(id) != 0;
    const std::uint64_t sound = part.triangles - part.degenerate;
    const auto set = [&](part_fate fate, std::uint64_t least, std::uint64_t most) {
        part.fate = fate;
        part.least = least;
        part.most = most;
    };
    const morva::osg::optTree_setup& setup = run.setup;
    const bool listed = transparent || lists.plain.count(id) != 0;
    const bool stays =
        run.merges ? hidden && setup.merge.keeprenderfalse : listed || !run.builds_hierarchy;
    if (stays)
        set(part_fate::carried, part.triangles, part.triangles);
    else if (isTransparent(node, lists, run)) {
        set(part_fate::carried, part.triangles, part.triangles); // unless its order is made anew
        if (run.orders_cache)
            foretellReordered(part, node, run);
    } else if (listed)
        set(part_fate::merged, sound, sound);
    else
        set(part_fate::left_out, 0, 0);

    // What hangs below switches may come to light, or go where it is hidden, too.
    const bool left_out = part.fate == part_fate::left_out;
    const bool moves = ((setup.removelod || setup.removeswitch) &&
                        (lists.switched.count(id) != 0 || left_out || isHidden(node))) ||
                       (left_out && !hidden && lists.sharesALook(node));
    if (run.builds_hull || moves) {
        const bool is_whole = hull_is_whole && !moves;
        set(part_fate::open, is_whole ? std::min(part.least, sound) : 0, part.triangles);
    }
    // Equal vertices are joined on the way: a strip shows its degenerate triangles no more.
    else if ((run.removes_parts || setup.ambientocclusion != 0) && part.fate == part_fate::carried)
        set(part.fate, sound, part.triangles);
    else if (part.fate != part_fate::left_out && mayChangeSides(part, node, lists, run))
        set(part.degenerate != 0 ? part_fate::open : part.fate, sound, part.triangles);
    part.least = std::min(part.least, part.triangles - part.dropped);
}

/// What counting one part needs, free of the scene graph.
struct counting_task {
    const geometry_view* view;
    placement world;
    bool to_world;  ///< the merge sees the part in the world
    bool flattened; ///< the texture stage sees it in its own space before
};

/// Triangles of a part and how many of them are degenerate where the merge will see them.
void countPart(const counting_task& task, audited_part& part) {
    const geometry_view& view = *task.view;
    const std::vector<::osg::Pnt3f> moved = placed(view, task.to_world ? &task.world : nullptr);
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        ++part.triangles;
        const bool degenerate = isDegenerate(view, moved, a, b, c);
        part.degenerate += degenerate ? 1 : 0;
        part.dropped += task.flattened && (degenerate || isDegenerate(view, a, b, c)) ? 1 : 0;
    });
    forEachLine(view, [&](std::size_t, std::size_t) { part.line_ends += 2; });
    forEachPoint(view, [&](std::size_t) { ++part.points; });
}

/// Whether the first primitive is empty, or there are none: such geometry may go as a whole.
bool beginsEmpty(const ::osg::NodePtr& node) {
    const ::osg::GeoPLengthsPtr lengths = ::osg::GeometryPtr::dcast(node->getCore())->getLengths();
    return lengths == ::osg::NullFC || lengths->size() == 0 || lengths->getValue(0) == 0;
}

/// What becomes of a part where some must be left alone: what a merge takes comes out in cells,
/// the rest stays where it is.
void foretellBesideSkipped(audited_part& part, const ::osg::NodePtr& node,
                           const part_lists& lists) {
    part.least = part.most = part.triangles;
    part.fate = part_fate::carried;
    if (isHidden(node)) {
        part.fate = part_fate::left_out;
        part.least = part.most = 0;
    } else if (beginsEmpty(node)) {
        part.fate = part_fate::open;
        part.least = 0;
    } else if (lists.has(node)) {
        part.fate = part_fate::merged;
        part.most = part.triangles - part.degenerate;
        part.least = part.triangles - std::max(part.dropped, part.degenerate);
    }
}

/// Notes the degenerate triangles of parts that may be taken over as they are.
void countKept(const std::vector<counting_task>& tasks, const run_plan& run, audit_plan& plan) {
    runParallel(tasks.size(), [&](std::size_t i) {
        audited_part& part = plan.parts[i];
        if (part.fate == part_fate::left_out ||
            (part.fate == part_fate::merged && !run.setup.mostusedmaterial))
            return;
        const geometry_view& view = *tasks[i].view;
        forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
            part.kept_degenerate += isDegenerate(view, a, b, c) ? 1 : 0;
        });
    });
}

/// Area of a part in the world, as it is to come out.
double areaOf(const counting_task& task, const audited_part& part) {
    const geometry_view& view = *task.view;
    const std::vector<::osg::Pnt3f> moved = placed(view, &task.world);
    const bool merged = part.fate != part_fate::carried;
    double area = 0.0;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        if (!(merged && isDegenerate(view, moved, a, b, c)) &&
            !(part.flattened && isDegenerate(view, a, b, c)))
            area += triangleArea(view, moved, a, b, c).area;
    });
    return area;
}

/// Whether some triangle of a part reaches beyond the limit where its image repeats, which all
/// images do for a merge that asks no material. Under that of others it may repeat either way.
bool reachesBeyondInMerge(const geometry_view& view, const ::osg::NodePtr& node,
                          const run_plan& run) {
    const int limit = run.setup.merge.optimizetc;
    if (run.setup.merge.ignorematerial)
        return reachesBeyond(view, limit);
    if (!run.setup.mostusedmaterial)
        return reachesBeyond(view, limit, morva::osg::repeatsOf(morva::osg::getMaterial(node)));
    return reachesBeyond(view, limit) || reachesBeyond(view, limit, {true, false}) ||
           reachesBeyond(view, limit, {false, true});
}

/// Whether the merge may cut a part: some triangle's coordinates reach beyond the limit, and they
/// are kept. With atlases only the merge for a hull does.
bool mayBeCutInMerge(const geometry_view& view, const ::osg::NodePtr& node, const run_plan& run) {
    const morva::osg::mergeGeo_setup& setup = run.setup.merge;
    return (run.atlas ? run.setup.buildhull : run.merges) && !losesImages(run) &&
           setup.optimizetc > 0 && reachesBeyondInMerge(view, node, run) &&
           (!setup.deleteunusedtc || morva::osg::getImage(node) != ::osg::NullFC);
}

/// Whether more triangles of a part may come out than went in.
bool mayBeCut(const audited_part& part, const geometry_view& view, const ::osg::NodePtr& node,
              const run_plan& run) {
    const bool merged = part.fate == part_fate::merged || part.fate == part_fate::open;
    return (merged && mayBeCutInMerge(view, node, run)) ||
           (run.atlas && part.flattened && part.fate != part_fate::left_out &&
            mayBeCutForAtlas(view, node, run));
}

/// Whether a hull may have as many elements as there are, so that none is left out. By colours the
/// black ones go all the same.
bool isWholeHull(const std::vector<named_part>& parts, const std::vector<counting_task>& tasks,
                 const audit_plan& plan, const run_plan& run) {
    if (!run.setup.buildhull || run.setup.buildhullwithcolors)
        return false;
    std::uint64_t elements = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(parts[i].node->getCore());
        if (mayBeCutInMerge(*tasks[i].view, parts[i].node, run))
            return false; // into any number of pieces
        const std::uint64_t others =
            core->getLengths() == ::osg::NullFC // counts by length miss it
                ? morva::osg::cornersOf(core)
                : morva::osg::getNumberOfLines(core) + morva::osg::getNumberOfPoints(core);
        elements += std::max<std::uint64_t>(plan.parts[i].triangles + others,
                                            morva::osg::getNumberOfPrimitives(parts[i].node));
    }
    return elements <= run.setup.maxtris;
}

/// Notes the area of each part if the output can be compared by it.
void measureAreas(const std::vector<counting_task>& tasks, const run_plan& run, audit_plan& plan) {
    const auto cut = [](const audited_part& part) { return part.cut; };
    plan.areas = (run.setup.merge.toworld || !run.merges) &&
                 std::any_of(plan.parts.begin(), plan.parts.end(), cut);
    if (!plan.areas)
        return;
    runParallel(tasks.size(), [&](std::size_t i) {
        if (plan.parts[i].fate != part_fate::left_out)
            plan.parts[i].area = areaOf(tasks[i], plan.parts[i]);
    });
}

/// Notes the triangles that a hull may have. One that is cut on the way can't be told.
void noteHullSource(const std::vector<counting_task>& tasks, const run_plan& run,
                    audit_plan& plan) {
    if (!run.builds_hull || std::any_of(plan.parts.begin(), plan.parts.end(),
                                        [](const audited_part& part) { return part.cut; }))
        return;
    plan.hull_source.emplace();
    for (const counting_task& task : tasks) {
        addPrints(*task.view, 0, *plan.hull_source, &task.world);
        if (!run.setup.merge.toworld) // carried over parts are moved all the same
            addPrints(*task.view, 0, *plan.hull_source);
    }
}

/// Whether stages before the merge may take something off a scene.
bool mayTakeBefore(const run_plan& run) {
    return run.atlas || run.removes_parts || run.builds_hull || run.setup.removelod ||
           run.setup.removeswitch;
}

/// Whether all that is not degenerate of a part comes out as it is. A new draw order does not tell
/// where degenerate triangles were.
bool staysUntouched(const audited_part& part) {
    const bool odd_order = part.renamed && part.degenerate != 0;
    return part.fate != part_fate::left_out && !part.cut && !odd_order &&
           part.least + std::max(part.degenerate, part.dropped) >= part.triangles;
}

/// Notes the triangles that must come out where they are in the world.
void noteUntouched(const std::vector<counting_task>& tasks, const run_plan& run, audit_plan& plan) {
    if (!mayTakeBefore(run) || (run.merges && !run.setup.merge.toworld))
        return;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        if (staysUntouched(plan.parts[i]))
            addPrints(*tasks[i].view, static_cast<std::uint32_t>(i), plan.untouched,
                      &tasks[i].world, sound_where::in_own_space_too);
    }
}

/// Whether the IDs of a run tell each part. A nameless part gets none. One material for all, or
/// those of atlases, let nobody tell what is carried over. Normals made anew where no index follows
/// leave IDs that no index leads to. What the first merge of a hull carries over hidden may come
/// out of the second one in any way.
bool tellsParts(const std::vector<named_part>& parts, const part_lists& lists,
                const run_plan& run) {
    const morva::osg::mergeGeo_setup& merge = run.setup.merge;
    const bool lost_ids = merge.calcnormals && (merge.opt < 1 || merge.opt > 3);
    const bool merges_hidden = run.builds_hull && merge.keeprenderfalse && !lists.hidden.empty();
    const bool new_materials = run.setup.mostusedmaterial ||
                               (run.atlas && !run.atlas->exact && !lists.transparent.empty());
    return !lost_ids && !merges_hidden && !(run.orders_cache && new_materials) &&
           std::none_of(parts.begin(), parts.end(),
                        [](const named_part& part) { return part.name.empty(); });
}

/// Where a part of a run with parts to be left alone is looked at: in the world, where it is
/// merged; what one can see through in its own space before, where a draw order is made.
counting_task taskBesideSkipped(const geometry_view& view, const named_part& part,
                                const part_lists& lists) {
    const bool ordered = lists.transparent.count(part.node.getFieldContainerId()) != 0;
    return {&view, placement(part.node), lists.has(part.node), ordered};
}

/// besides_skipped  the result of the merge comes out in cells, behind it what is left alone
audit_plan planOfRun(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const run_plan& run, bool besides_skipped, view_store* known) {
    view_store own;
    view_store& views = known != nullptr ? *known : own;
    audit_plan plan;
    plan.sources = nodesOf(parts);
    const bool reorders = run.orders_cache && !besides_skipped;
    plan.hierarchy = run.builds_hierarchy;
    plan.merges = run.merges;
    if (run.removes_parts && !run.builds_hull && !run.setup.removelod && !run.setup.removeswitch)
        plan.removed_parts = 0;
    plan.order_is_new = reorders && !run.setup.merge.alphageometry;
    const part_lists lists(root, run);
    plan.has_ids = run.merges && run.tracks_ids;
    plan.by_part = plan.has_ids && tellsParts(parts, lists, run);

    std::vector<counting_task> tasks;
    for (const named_part& part : parts) {
        const geometry_view& view = views.of(::osg::GeometryPtr::dcast(part.node->getCore()));
        audited_part entry;
        entry.name = part.name;
        entry.original_name = part.original_name;
        entry.flattened = mayBeFlattened(part.node, lists.has(part.node), run);
        tasks.push_back(besides_skipped ? taskBesideSkipped(view, part, lists)
                                        : counting_task{&view, placement(part.node),
                                                        !staysInPlace(entry, part.node, lists, run),
                                                        entry.flattened});
        plan.parts.push_back(std::move(entry));
    }
    runParallel(tasks.size(), [&](std::size_t i) { countPart(tasks[i], plan.parts[i]); });

    const bool whole = isWholeHull(parts, tasks, plan, run);
    bool follows = reorders; // the triangles of what the draw order gets
    for (std::size_t i = 0; i < parts.size(); ++i) {
        audited_part& part = plan.parts[i];
        if (besides_skipped)
            foretellBesideSkipped(part, parts[i].node, lists);
        else
            foretell(part, parts[i].node, lists, run, whole);
        part.cut = mayBeCut(part, *tasks[i].view, parts[i].node, run);
        // Pieces are new triangles, and equal ones of other parts would pass for its own.
        if (mayChangeSides(part, parts[i].node, lists, run) || (part.renamed && part.cut))
            follows = false;
        // Where there are lines the draw order keeps nothing else: nothing to follow then.
        if (follows && part.fate == part_fate::carried &&
            part.least + part.degenerate >= part.triangles)
            addPrints(*tasks[i].view, static_cast<std::uint32_t>(i), plan.reordered);
    }
    if (!follows)
        plan.reordered.clear();
    noteHullSource(tasks, run, plan);
    if (!besides_skipped)
        noteUntouched(tasks, run, plan);
    countKept(tasks, run, plan);
    measureAreas(tasks, run, plan);
    return plan;
}

} // namespace

void noteRemoved(const std::vector<std::size_t>& places, audit_plan& plan) {
    for (const std::size_t place : places) {
        audited_part& part = plan.parts[place];
        part.fate = part_fate::removed;
        part.least = part.most = part.kept_degenerate = 0;
        part.area = 0.0;
        part.cut = part.renamed = part.flattened = false;
    }
    const auto isGone = [&plan](const triangle_print& print) {
        return plan.parts[print.part].fate == part_fate::removed;
    };
    for (print_list* list : {&plan.reordered, &plan.untouched})
        list->erase(std::remove_if(list->begin(), list->end(), isGone), list->end());
}

void noteStages(const morva::osg::run_record& record, audit_plan& plan) {
    if (plan.removed_parts)
        plan.removed_parts = record.removed_parts;
    plan.hull_triangles = record.hull_triangles;
}

audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const std::string& parameters, view_store* views) {
    return planOfRun(root, parts, morva::osg::planOf(parameters), false, views);
}

audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const auto_road& road, view_store* views) {
    return planOfRun(root, parts, morva::osg::planOf(road.parameters), road.scene.with_skipped,
                     views);
}

} // namespace morva::host
