#include "auto_road.h"

#include <functional>
#include <thread>

#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGSwitch.h>

#include <morva/driver/morva_osg_run_plan.h>

#include "parameter_notes.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

/// Whether a node stands below a switch or a level of detail.
bool isBelowChoice(const ::osg::NodePtr& node) {
    for (::osg::NodePtr up = node->getParent(); up != ::osg::NullFC; up = up->getParent()) {
        if (::osg::SwitchPtr::dcast(up->getCore()) != ::osg::NullFC ||
            ::osg::DistanceLODPtr::dcast(up->getCore()) != ::osg::NullFC)
            return true;
    }
    return false;
}

using part_rule = std::function<bool(const named_part&, const audited_part&)>;

/// Adds a sentence with the names of the parts that a rule holds for, if there are some.
void noteParts(const std::string& text, const std::vector<named_part>& parts,
               const audit_plan& plan, const part_rule& holds, std::vector<std::string>& notes) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (holds(parts[i], plan.parts[i]))
            names.push_back(plan.parts[i].name);
    }
    if (!names.empty())
        notes.push_back(text + ", " + withCommas(names.size()) + " of them: " + quotedNames(names));
}

std::string counted(std::size_t count, const std::string& what) {
    return withCommas(count) + (count == 1 ? " part " : " parts ") + what;
}

/// Which road, and why.
std::string roadNote(const morva::osg::auto_record& scene) {
    if (!scene.with_skipped)
        return std::string("automatic road: nothing is to be left alone; ") +
               (scene.has_images ? "images go into atlases, then " : "") +
               "geometry is merged by material, in cache order";
    std::string why;
    if (scene.hidden != 0)
        why = counted(scene.hidden, "hidden");
    if (scene.left_alone != 0)
        why += (why.empty() ? "" : " and ") +
               counted(scene.left_alone, "with a switch material or a cube texture");
    return "automatic road: " + why + "; the others are merged, and come out in cells";
}

} // namespace

auto_road autoRoadOf(const ::osg::NodePtr& root) {
    auto_road road{morva::osg::autoRoadOf(root), "cacheopt(true)"};
    if (road.scene.has_images && !road.scene.with_skipped)
        road.parameters += ",maxtexturesize(4096),exactatlas(true)";
    return road;
}

::osg::NodePtr runOptimiser(const ::osg::NodePtr& root, const std::string& parameters,
                            morva::osg::run_record& record) {
    if (!morva::osg::planOf(parameters).is_automatic)
        return morva::osg::optTree(root, withThreads(parameters), record);
    morva::osg::auto_options options;
    options.exactatlas = true;
    options.numthreads = static_cast<int>(std::thread::hardware_concurrency());
    record = {};
    return morva::osg::optTree(root, options, record.automatic.emplace());
}

std::vector<std::string> notesOn(const auto_road& road, const std::vector<named_part>& parts,
                                 const audit_plan& plan) {
    std::vector<std::string> notes = {roadNote(road.scene)};
    const auto isGone = [](const audited_part& part) { return part.fate == part_fate::left_out; };
    noteParts(
        "hidden parts are left out", parts, plan,
        [&](const named_part& part, const audited_part& audited) {
            return isGone(audited) && isHidden(part.node);
        },
        notes);
    noteParts(
        "parts below a switch or level of detail are left out", parts, plan,
        [&](const named_part& part, const audited_part& audited) {
            return isGone(audited) && !isHidden(part.node) && isBelowChoice(part.node);
        },
        notes);
    noteParts(
        "parts whose image repeats more than twice may be cut there", parts, plan,
        [](const named_part&, const audited_part& audited) { return audited.cut; }, notes);
    if (road.scene.with_skipped)
        notes.push_back("cells make normals anew, with edges from 30 degrees on, and textured "
                        "parts of one material one core");
    return notes;
}

morva::osg::atlas_record atlasesOf(const morva::osg::auto_record& record) {
    morva::osg::atlas_record all = record.atlas;
    for (const morva::osg::cell_record* cells : {&record.unmerged, &record.merged}) {
        const morva::osg::atlas_record& more = cells->textures;
        all.atlases.insert(all.atlases.end(), more.atlases.begin(), more.atlases.end());
        all.left_out.insert(all.left_out.end(), more.left_out.begin(), more.left_out.end());
        all.geometries += more.geometries;
    }
    return all;
}

nlohmann::ordered_json jsonOf(const morva::osg::auto_record& record) {
    return {{"cells", record.unmerged.cells + record.merged.cells},
            {"with_cells", record.with_skipped},
            {"hidden", record.hidden},
            {"left_alone", record.left_alone},
            {"below_switches", record.below_switches},
            {"has_images", record.has_images}};
}

} // namespace morva::host
