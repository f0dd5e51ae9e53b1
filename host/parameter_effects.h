#pragma once

// Which keys of a parameter string do nothing in a run, by what the other keys ask for.

#include <string>

#include <morva/driver/morva_osg_run_plan.h>

namespace morva::host {

/// Why a known key, in lower case, has no effect in the run of `plan`: "needs maxtris"; empty if it
/// has, or may have.
std::string whyWithoutEffect(const std::string& key, const morva::osg::run_plan& plan);

} // namespace morva::host
