#pragma once

// The road of empty parameters, on which the optimiser sees for itself what suits a scene.
//
//     const auto_road road = autoRoadOf(root);            before the run
//     plan = planAudit(root, parts, road);
//     notes = notesOn(road, root, parts, plan);
//     result = runOptimiser(root, "", record);

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGNode.h>

#include <morva/driver/morva_osg_auto.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"
#include "part_names.h"

namespace morva::host {

/// What the optimiser will do.
struct auto_road {
    morva::osg::auto_record scene; ///< what it sees; nothing is done yet
    /// Of a run that does the same with what is not to be left alone; its merge comes before cells.
    std::string parameters;
};

auto_road autoRoadOf(const ::osg::NodePtr& root);

/// optTree(), as the command has it: what goes into atlases on the road of empty parameters looks
/// as before.
::osg::NodePtr runOptimiser(const ::osg::NodePtr& root, const std::string& parameters,
                            morva::osg::run_record& record);

/// One sentence each on the road and why it is taken, and on what it leaves out and changes.
std::vector<std::string> notesOn(const auto_road& road, const std::vector<named_part>& parts,
                                 const audit_plan& plan);

/// All atlases of a run, those of cells included.
morva::osg::atlas_record atlasesOf(const morva::osg::auto_record& record);

/// The road in the report.
nlohmann::ordered_json jsonOf(const morva::osg::auto_record& record);

} // namespace morva::host
