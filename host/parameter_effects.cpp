#include "parameter_effects.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace morva::host {

namespace {

template <std::size_t N>
bool isOneOf(const std::array<std::string_view, N>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

constexpr std::array<std::string_view, 3> dead = {"addcolorstex", "storeondisk", "silent"};
constexpr std::array<std::string_view, 10> of_merge = {
    "opt",           "toworld",     "calcnormals",    "deleteunusedtc", "ignorematerial",
    "mergesamename", "vertexcolor", "mergehierarchy", "alphageometry",  "keeprenderfalse"};
constexpr std::array<std::string_view, 3> of_atlas = {"texcoords", "exactatlas", "atlaspadding"};
constexpr std::array<std::string_view, 3> of_one_geometry = {"maxtris", "alphageometry",
                                                             "mostusedmaterial"};

} // namespace

std::string whyWithoutEffect(const std::string& key, const morva::osg::run_plan& plan) {
    const morva::osg::optTree_setup& setup = plan.setup;
    if (isOneOf(dead, key))
        return "is read, but changes nothing";
    if (setup.onegeometry && isOneOf(of_one_geometry, key))
        return "has no effect: onegeometry(true) sets it";
    if (isOneOf(of_merge, key) && !plan.merges)
        return "has no effect without maxtris";
    if (isOneOf(of_atlas, key) && !plan.atlas)
        return "has no effect without maxtexturesize";
    if (key == "optimizetc" && !plan.merges && !plan.atlas)
        return "has no effect without maxtris or maxtexturesize";
    if (key == "aoreplace" && setup.ambientocclusion == 0)
        return "has no effect without ambientocclusion";
    if (key == "numthreads" && !plan.merges && !plan.removes_parts && setup.ambientocclusion == 0)
        return "has no effect without maxtris";
    if (key == "maxtris" && setup.merge.cacheopt && !plan.builds_hull)
        return "bounds no core beside cacheopt(true)";
    return std::string();
}

} // namespace morva::host
