#include "growth_notes.h"

namespace morva::host {

namespace {

/// Less than this is no news.
constexpr double told_growth = 1.02;

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
    return text;
}

} // namespace

std::vector<std::string> growthNotes(const scene_statistics& before, const scene_statistics& after,
                                     const morva::osg::run_plan& plan) {
    // Of fewer triangles no core can have been bounded.
    if (plan.is_automatic || !plan.merges || plan.orders_cache ||
        after.triangles <= plan.setup.maxtris)
        return {};
    std::vector<std::string> grown, reasons;
    if (static_cast<double>(after.geometry_bytes) >
        told_growth * static_cast<double>(before.geometry_bytes))
        grown.emplace_back("geometry bytes");
    if (before.acmr > 0 && after.acmr > told_growth * before.acmr)
        grown.emplace_back("cache misses");
    if (grown.empty())
        return {};
    // Placed once each, what was shared takes its own room.
    if (before.draw_calls > before.geometry_cores && plan.setup.merge.toworld)
        reasons.emplace_back("parts that shared a core have come apart");
    reasons.emplace_back("each core of at most maxtris triangles has its own copy of the vertices "
                         "on its border");
    reasons.emplace_back("its triangles are in the order of space");
    return {joined(grown) + " grow: " + joined(reasons) +
            "; cacheopt(true) without maxtris orders them for the vertex cache"};
}

} // namespace morva::host
