#include "audit.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_tools.h>

#include "geometry_view.h"
#include "parallel.h"
#include "triangle_measures.h"

namespace morva::host {

namespace {

/// What the parameters mean for the fate of parts.
struct run_rules {
    explicit run_rules(std::string text) : keys(morva::osg::parseOptTreeParams(text)), setup(keys) {
        const unsigned limit = number("maxtris");
        one_geometry = flag("onegeometry");
        all_materials = setup.alphageometry || one_geometry;
        merges = limit != 0 || one_geometry || (setup.cacheopt && limit <= 10);
        open = flag("ambientgutout") || flag("buildhull") || flag("buildhullwithcolors") ||
               number("maxtexturesize") != 0;
        moves_switches = flag("removelod") || flag("removeswitch");
        one_material = flag("mostusedmaterial") || one_geometry;
        writes_ids = !setup.idmap.empty() || flag("idmapinroot");
        reorders = merges && setup.cacheopt && limit <= 10;
        cut_limit = merges ? setup.optimizetc : 0;
    }

    std::map<std::string, std::string> keys;
    morva::osg::mergeGeo_setup setup;
    bool merges, one_geometry, all_materials, one_material;
    bool writes_ids;     ///< output vertices tell their part
    bool reorders;       ///< the draw order is rebuilt
    bool open;           ///< stages that make or remove triangles
    bool moves_switches; ///< parts below switches may come to light
    int cut_limit;       ///< coordinates beyond it are cut; 0 or below: none

  private:
    bool flag(const char* key) const {
        const auto found = keys.find(key);
        return found != keys.end() && morva::osg::string2X<bool>(found->second);
    }
    unsigned number(const char* key) const {
        const auto found = keys.find(key);
        return found != keys.end() ? morva::osg::string2X<unsigned int>(found->second) : 0u;
    }
};

using node_ids = std::set<::osg::UInt32>;

node_ids idsOf(const std::vector<::osg::NodePtr>& nodes) {
    node_ids ids;
    for (const ::osg::NodePtr& node : nodes)
        ids.insert(node.getFieldContainerId());
    return ids;
}

/// Which lists of the merge each part stands in.
struct part_lists {
    explicit part_lists(const ::osg::NodePtr& root) {
        std::vector<::osg::NodePtr> first, second, third, fourth;
        morva::osg::getGeometryNodesForTree(root, first, second, third);
        morva::osg::getTravMaskZeroNodes(root, fourth, false);
        plain = idsOf(first);
        switched = idsOf(second);
        transparent = idsOf(third);
        hidden = idsOf(fourth);
    }
    node_ids plain, switched, transparent, hidden;
};

/// Entries of a vertex property up to which the draw order stays as it is.
constexpr unsigned int reorder_limit = 65533;

/// Whether the merge hands the part to the draw order as it is.
bool isReordered(const ::osg::NodePtr& node, const part_lists& lists, const run_rules& rules) {
    return rules.reorders && !rules.all_materials &&
           lists.transparent.count(node.getFieldContainerId()) != 0;
}

/// What the draw order leaves of a part that is carried over: degenerate triangles go, and where
/// there are lines it keeps nothing else.
void foretellReordered(audited_part& part, const ::osg::NodePtr& node) {
    part.renamed = true;
    if (morva::osg::isVertexCountBelowThreshold(node, reorder_limit))
        return;
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    const bool lines = morva::osg::getNumberOfLines(core) != 0;
    part.least = lines ? 0 : part.triangles - part.degenerate;
}

void foretell(audited_part& part, const ::osg::NodePtr& node, const part_lists& lists,
              const run_rules& rules) {
    const ::osg::UInt32 id = node.getFieldContainerId();
    const bool transparent = lists.transparent.count(id) != 0;
    const bool hidden = lists.hidden.count(id) != 0;
    const std::uint64_t sound = part.triangles - part.degenerate;
    const auto set = [&](part_fate fate, std::uint64_t least, std::uint64_t most) {
        part.fate = fate;
        part.least = least;
        part.most = most;
    };
    if (!rules.merges || (hidden && rules.setup.keeprenderfalse))
        set(part_fate::carried, part.triangles, part.triangles);
    else if (transparent && !rules.all_materials) {
        set(part_fate::carried, part.triangles, part.triangles); // unless its order is made anew
        if (rules.reorders)
            foretellReordered(part, node);
    } else if (transparent || lists.plain.count(id) != 0)
        set(part_fate::merged, sound, sound);
    else
        set(part_fate::left_out, 0, 0);

    const bool shifting = rules.open || rules.moves_switches;
    if (shifting &&
        (rules.open || lists.switched.count(id) != 0 || part.fate == part_fate::left_out))
        set(part_fate::open, 0, part.triangles);
    // One material for all may turn carried parts into merged ones, and the other way round.
    else if (rules.one_material && rules.merges && part.fate != part_fate::left_out)
        set(part.degenerate != 0 ? part_fate::open : part.fate, sound, part.triangles);
}

/// What counting one part needs, free of the scene graph.
struct counting_task {
    const geometry_view* view;
    placement world;
    bool to_world;
};

/// Triangles of a part and how many of them are degenerate where the merge will see them.
void countPart(const counting_task& task, audited_part& part) {
    const geometry_view& view = *task.view;
    const std::vector<::osg::Pnt3f> moved = placed(view, task.to_world ? &task.world : nullptr);
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        ++part.triangles;
        part.degenerate += isDegenerate(view, moved, a, b, c) ? 1 : 0;
    });
}

/// Notes the degenerate triangles of parts that may be taken over as they are.
void countKept(const std::vector<counting_task>& tasks, const run_rules& rules, audit_plan& plan) {
    runParallel(tasks.size(), [&](std::size_t i) {
        audited_part& part = plan.parts[i];
        if (part.fate == part_fate::left_out ||
            (part.fate == part_fate::merged && !rules.one_material))
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
    double area = 0.0;
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        if (part.fate == part_fate::carried || !isDegenerate(view, moved, a, b, c))
            area += triangleArea(view, moved, a, b, c).area;
    });
    return area;
}

/// Whether the merge may cut a part: some triangle's coordinates reach beyond the limit, and they
/// are kept.
bool mayBeCut(const geometry_view& view, const ::osg::NodePtr& node, const run_rules& rules) {
    return rules.cut_limit > 0 && reachesBeyond(view, rules.cut_limit) &&
           (!rules.setup.deleteunusedtc || morva::osg::getImage(node) != ::osg::NullFC);
}

/// Notes the area of each part if the output can be compared by it.
void measureAreas(const std::vector<counting_task>& tasks, const run_rules& rules,
                  audit_plan& plan) {
    const auto cut = [](const audited_part& part) { return part.cut; };
    plan.areas = rules.setup.toworld && std::any_of(plan.parts.begin(), plan.parts.end(), cut);
    if (!plan.areas)
        return;
    runParallel(tasks.size(), [&](std::size_t i) {
        if (plan.parts[i].fate != part_fate::left_out)
            plan.parts[i].area = areaOf(tasks[i], plan.parts[i]);
    });
}

/// Views by core, each made once.
class view_store {
  public:
    const geometry_view& of(const ::osg::GeometryPtr& core) {
        std::unique_ptr<geometry_view>& view = views_[core.getFieldContainerId()];
        if (!view)
            view = std::make_unique<geometry_view>(core);
        return *view;
    }

  private:
    std::map<::osg::UInt32, std::unique_ptr<geometry_view>> views_;
};

} // namespace

audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const std::string& parameters) {
    audit_plan plan;
    const run_rules rules(parameters);
    const part_lists lists(root);
    plan.has_ids = rules.merges && rules.writes_ids;
    // A nameless part gets no ID. One material for all lets nobody tell what is carried over.
    // Normals made anew where no index follows leave IDs that no index leads to.
    const bool lost_ids = rules.setup.calcnormals && (rules.setup.opt < 1 || rules.setup.opt > 3);
    plan.by_part = plan.has_ids && !lost_ids && !(rules.reorders && rules.one_material) &&
                   std::none_of(parts.begin(), parts.end(),
                                [](const named_part& part) { return part.name.empty(); });

    view_store views;
    std::vector<counting_task> tasks;
    for (const named_part& part : parts) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(part.node->getCore());
        const bool reordered = isReordered(part.node, lists, rules);
        tasks.push_back({&views.of(core), placement(part.node), rules.setup.toworld && !reordered});
        audited_part entry;
        entry.name = part.name;
        entry.original_name = part.original_name;
        plan.parts.push_back(std::move(entry));
    }
    runParallel(tasks.size(), [&](std::size_t i) { countPart(tasks[i], plan.parts[i]); });

    for (std::size_t i = 0; i < parts.size(); ++i) {
        foretell(plan.parts[i], parts[i].node, lists, rules);
        audited_part& part = plan.parts[i];
        part.cut = (part.fate == part_fate::merged || part.fate == part_fate::open) &&
                   mayBeCut(*tasks[i].view, parts[i].node, rules);
        // Where there are lines the draw order keeps nothing else: nothing to follow then.
        if (rules.reorders && !rules.one_material && part.fate == part_fate::carried &&
            part.least + part.degenerate >= part.triangles)
            addPrints(*tasks[i].view, static_cast<std::uint32_t>(i), plan.reordered);
    }
    countKept(tasks, rules, plan);
    measureAreas(tasks, rules, plan);
    return plan;
}

} // namespace morva::host
