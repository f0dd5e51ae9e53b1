#include "audit.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_params.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "geometry_view.h"
#include "parallel.h"

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
    }

    std::map<std::string, std::string> keys;
    morva::osg::mergeGeo_setup setup;
    bool merges, one_geometry, all_materials, one_material;
    bool writes_ids;     ///< output vertices tell their part
    bool open;           ///< stages that make or remove triangles
    bool moves_switches; ///< parts below switches may come to light

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

/// Whether some node above is in the set: then its whole subtree goes where it goes.
bool hasAncestorIn(const ::osg::NodePtr& node, const node_ids& ids) {
    for (::osg::NodePtr above = node->getParent(); above != ::osg::NullFC;
         above = above->getParent()) {
        if (ids.count(above.getFieldContainerId()) != 0)
            return true;
    }
    return false;
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
    if (!rules.merges)
        set(part_fate::carried, part.triangles, part.triangles);
    else if (hidden && rules.setup.keeprenderfalse)
        set(part_fate::carried, part.triangles, part.triangles);
    else if (transparent && !rules.all_materials)
        set(part_fate::carried, part.triangles, part.triangles);
    else if (transparent || lists.plain.count(id) != 0)
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
    // What hangs below a carried node goes with it, and is merged besides.
    if (part.fate == part_fate::merged &&
        ((!rules.all_materials && hasAncestorIn(node, lists.transparent)) ||
         (rules.setup.keeprenderfalse && hasAncestorIn(node, lists.hidden))))
        set(part_fate::open, part.least, part.most + part.triangles);
}

/// What counting one part needs, free of the scene graph.
struct counting_task {
    const geometry_view* view;
    float matrix[4][3];
    bool to_world;
};

/// Triangles of a part and how many of them are degenerate where the merge will see them.
void countPart(const counting_task& task, audited_part& part) {
    const geometry_view& view = *task.view;
    const auto& m = task.matrix;
    std::vector<::osg::Pnt3f> moved(view.runs.empty() ? 0 : view.positions.count);
    for (std::uint32_t i = 0; i < moved.size(); ++i) {
        const float* p = view.positions.at(i);
        for (::osg::UInt32 row = 0; row < 3; ++row)
            moved[i][row] = task.to_world
                                ? m[0][row] * p[0] + m[1][row] * p[1] + m[2][row] * p[2] + m[3][row]
                                : p[row];
    }
    const auto point = [&](std::uint32_t corner) -> const ::osg::Pnt3f& {
        return moved[view.index(view.positions, corner)];
    };
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        ++part.triangles;
        part.degenerate += morva::osg::is_rogue(point(a), point(b), point(c)) ? 1 : 0;
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

void collectGeometry(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& nodes) {
    if (::osg::GeometryPtr::dcast(node->getCore()) != ::osg::NullFC)
        nodes.push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collectGeometry(node->getChild(i), nodes);
}

std::uint64_t countTriangles(const geometry_view& view) {
    std::uint64_t count = 0;
    forEachTriangle(view, [&](auto, auto, auto) { ++count; });
    return count;
}

/// The set of texture coordinates that holds the IDs of an output node; -1 for none.
int idSetOf(const ::osg::NodePtr& node, const ::osg::GeometryPtr& core) {
    const auto& mapping = morva::osg::getIDmapHandler().texCoordMapping;
    const ::osg::Char8* name = getName(node);
    const auto found = name != nullptr ? mapping.find(name) : mapping.end();
    if (found != mapping.end() && found->second.size() == 3)
        return found->second[2] - '0';
    return core->getTexCoords7() != ::osg::NullFC ? 7 : -1;
}

/// Adds the triangles of an output node to the parts that their IDs name.
void countByName(const ::osg::NodePtr& node, const geometry_view& view, int set,
                 std::map<std::string, std::uint64_t>& counts) {
    const std::vector<std::string>& names = morva::osg::getIDmapHandler().names;
    const attribute_view* ids = set >= 0 ? &view.coordinates[set] : nullptr;
    const ::osg::Char8* own = getName(node);
    forEachTriangle(view, [&](std::uint32_t a, auto, auto) {
        const float id = ids != nullptr && ids->present() ? *ids->at(view.index(*ids, a)) : -1.f;
        const bool known = id >= 0.f && id < static_cast<float>(names.size());
        ++counts[known ? names[static_cast<std::size_t>(id)] : own != nullptr ? own : ""];
    });
}

void compareByName(const audit_plan& plan, const std::map<std::string, std::uint64_t>& counts,
                   audit_verdict& verdict) {
    std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> expected;
    for (const audited_part& part : plan.parts) {
        expected[part.name].first += part.least;
        expected[part.name].second += part.most;
    }
    for (const auto& [name, range] : expected) {
        const auto found = counts.find(name);
        const std::uint64_t out = found != counts.end() ? found->second : 0;
        if (out < range.first || out > range.second)
            verdict.differences.push_back("part '" + name + "': " + std::to_string(range.second) +
                                          " triangles expected, " + std::to_string(out) +
                                          " came out");
    }
}

} // namespace

audit_plan planAudit(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                     const std::string& parameters) {
    audit_plan plan;
    const run_rules rules(parameters);
    // A nameless part gets no ID.
    plan.by_part = rules.merges && rules.writes_ids &&
                   std::none_of(parts.begin(), parts.end(),
                                [](const named_part& part) { return part.name.empty(); });
    const part_lists lists(root);

    view_store views;
    std::vector<counting_task> tasks;
    for (const named_part& part : parts) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(part.node->getCore());
        counting_task task{&views.of(core), {}, rules.setup.toworld};
        const ::osg::Matrix matrix = part.node->getToWorld();
        for (::osg::UInt32 column = 0; column < 4; ++column)
            for (::osg::UInt32 row = 0; row < 3; ++row)
                task.matrix[column][row] = matrix[column][row];
        tasks.push_back(task);
        audited_part entry;
        entry.name = part.name;
        entry.original_name = part.original_name;
        plan.parts.push_back(std::move(entry));
    }
    runParallel(tasks.size(), [&](std::size_t i) { countPart(tasks[i], plan.parts[i]); });

    for (std::size_t i = 0; i < parts.size(); ++i) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(parts[i].node->getCore());
        foretell(plan.parts[i], parts[i].node, lists, rules);
        // Of strips of quads alone, or without lengths, the merge sees no triangles.
        if (plan.parts[i].fate == part_fate::merged &&
            morva::osg::getNumberOfTriangles(core) == 0) {
            plan.parts[i].fate = part_fate::left_out;
            plan.parts[i].least = plan.parts[i].most = 0;
        }
    }
    return plan;
}

audit_verdict judge(const audit_plan& plan, const ::osg::NodePtr& result) {
    audit_verdict verdict;
    verdict.by_part = plan.by_part;
    for (const audited_part& part : plan.parts) {
        verdict.in += part.triangles;
        verdict.degenerate += part.fate == part_fate::merged ? part.degenerate : 0;
        verdict.left_out += part.fate == part_fate::left_out ? part.triangles : 0;
        verdict.least += part.least;
        verdict.most += part.most;
    }
    std::vector<::osg::NodePtr> nodes;
    collectGeometry(result, nodes);
    std::map<std::string, std::uint64_t> counts;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        const geometry_view view(core);
        verdict.out += countTriangles(view);
        if (plan.by_part)
            countByName(node, view, idSetOf(node, core), counts);
    }
    if (plan.by_part)
        compareByName(plan, counts, verdict);
    if (verdict.out < verdict.least || verdict.out > verdict.most)
        verdict.differences.push_back(std::to_string(verdict.in) + " triangles went in, " +
                                      std::to_string(verdict.degenerate) +
                                      " of them degenerate and " +
                                      std::to_string(verdict.left_out) + " left out by rule, but " +
                                      std::to_string(verdict.out) + " came out");
    return verdict;
}

const char* textOf(part_fate fate) {
    switch (fate) {
    case part_fate::merged:
        return "merged";
    case part_fate::carried:
        return "carried over";
    case part_fate::left_out:
        return "left out";
    default:
        return "open";
    }
}

} // namespace morva::host
