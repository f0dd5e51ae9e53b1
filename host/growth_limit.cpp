#include "growth_limit.h"

#include <morva/driver/morva_osg_run_plan.h>

#include "host_error.h"
#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

/// A merge takes at least so many for each triangle drawn: three corners of a position and an
/// index. (Measured on engines that share their cores: 46.)
constexpr std::uint64_t bytes_per_triangle = 32;

} // namespace

void refuseBomb(const scene_statistics& before, const options& chosen) {
    const morva::osg::run_plan plan = morva::osg::planOf(chosen.parameters);
    if ((plan.merges || plan.is_automatic) &&
        before.triangles > chosen.max_memory / bytes_per_triangle)
        throw host_error("'" + chosen.input + "' draws " + withCommas(before.triangles) +
                         " triangles: merging them needs more than " +
                         readableBytes(chosen.max_memory) + " of memory (--max-memory)");
}

void refuseGrowth(const scene_statistics& before, const scene_statistics& after, double most) {
    if (static_cast<double>(after.triangles) <= most * static_cast<double>(before.triangles))
        return;
    throw host_error("the result has " + withCommas(after.triangles) + " triangles for " +
                     withCommas(before.triangles) + " that went in (--max-growth)");
}

} // namespace morva::host
