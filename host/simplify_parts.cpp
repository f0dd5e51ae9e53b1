#include "simplify_parts.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <utility>

#include <OpenSG/OSGMatrix.h>

#include <morva/core/morva_osg_sink.h>
#include <morva/tools/morva_osg_simplify_limit.h>

#include "geometry_view.h"
#include "parallel.h"
#include "part_names.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

using morva::osg::linear_map;
using morva::osg::simplification;
using morva::osg::surface_distance;

constexpr double same_measure = 1e-5; ///< of products of axes, relative to the longest axis

using axis_products = std::array<double, 6>;

axis_products productsOf(const linear_map& map) {
    axis_products products{};
    std::size_t next = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t k = i; k < 3; ++k, ++next) {
            for (unsigned int axis = 0; axis < 3; ++axis)
                products[next] += double{map[i][axis]} * double{map[k][axis]};
        }
    }
    return products;
}

bool areAlike(const axis_products& a, const axis_products& b) {
    const double size = std::max({a[0], a[3], a[5]});
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!(std::abs(a[i] - b[i]) <= same_measure * size))
            return false;
    }
    return true;
}

linear_map mapOf(const ::osg::NodePtr& node) {
    const ::osg::Matrix world = node->getToWorld();
    linear_map map;
    for (::osg::UInt32 column = 0; column < 3; ++column) {
        for (::osg::UInt32 row = 0; row < 3; ++row) {
            const float value = world[column][row];
            map[column][row] = std::isfinite(value) ? value : row == column ? 1.f : 0.f;
        }
    }
    return map;
}

void addSpace(const linear_map& map, std::vector<drawn_space>& spaces) {
    const axis_products products = productsOf(map);
    const double squared = products[0];
    const bool uniform = areAlike(products, {squared, 0, 0, squared, 0, squared});
    const double scale = std::sqrt(squared);
    auto found = std::find_if(spaces.begin(), spaces.end(), [&](const drawn_space& space) {
        return uniform == space.uniform && (uniform || areAlike(products, productsOf(space.map)));
    });
    if (found == spaces.end())
        found = spaces.insert(found, {uniform, map, uniform ? scale : 1.0, 0, 0});
    found->scale = std::max(found->scale, uniform ? scale : 1.0);
    found->areas += uniform ? squared : 1.0;
    found->integrals += uniform ? squared * scale : 1.0;
}

/// The longest first part of a run that is within a distance in the world.
std::size_t stepsWithin(const simplified_part& part, std::size_t steps, double limit) {
    if (part.spaces.size() == 1 && part.spaces[0].uniform)
        return morva::osg::longestWithin(part.run, steps, limit / part.spaces[0].scale);
    std::vector<linear_map> maps;
    for (const drawn_space& space : part.spaces) {
        linear_map map = space.map;
        for (unsigned int i = 0; i < 3 && space.uniform; ++i) {
            map[i].setValues(0, 0, 0);
            map[i][i] = static_cast<float>(space.scale);
        }
        maps.push_back(map);
    }
    return morva::osg::longestWithin(part.run, steps, limit, maps);
}

/// Steps of the first state with no more than so many live triangles, of those up to `steps`.
std::size_t firstWith(const simplification& run, std::uint32_t live, std::size_t steps) {
    const auto end = run.steps.begin() + static_cast<std::ptrdiff_t>(steps);
    if (run.live <= live)
        return 0;
    const auto found = std::partition_point(run.steps.begin(), end,
                                            [=](const auto& step) { return step.live > live; });
    return std::min(steps, static_cast<std::size_t>(found - run.steps.begin()) + 1);
}

part_stop stopOf(const simplified_part& part, const morva::osg::simplify_stop& found, double asked,
                 const std::optional<double>& max_error) {
    const simplification& run = part.run;
    part_stop stop;
    stop.asked = asked;
    stop.steps = found.collapses;
    stop.floor = !found.reached;
    if (found.reached && stop.steps > 0) {
        const std::uint32_t before = run.liveAfter(stop.steps - 1),
                            live = run.liveAfter(stop.steps);
        if (live == 0 || std::abs(before - asked) < std::abs(live - asked))
            stop.steps = firstWith(run, before, stop.steps - 1);
        stop.floor = live == 0 && before >= asked + 1;
    }
    // A part that is gone is none. The start has triangles.
    while (stop.steps > 0 && morva::osg::simplifiedTriangles(run, stop.steps).of.empty()) {
        stop.steps /= 2;
        stop.floor = true;
    }
    if (max_error) {
        const std::size_t steps = stepsWithin(part, stop.steps, *max_error);
        stop.limited = steps < stop.steps;
        stop.floor = stop.floor && !stop.limited;
        stop.steps = steps;
    }
    stop.live = run.liveAfter(stop.steps);
    return stop;
}

std::uint32_t targetOf(double asked) {
    return static_cast<std::uint32_t>(std::max(1.0, std::floor(asked)));
}

/// What a part is asked for at a level; of a shared number, its share.
double askedOf(const simplified_part& part, const simplify_level& level, std::uint64_t all) {
    if (level.ratio)
        return *level.ratio * part.live;
    return level.triangles
               ? static_cast<double>(*level.triangles) * part.live / static_cast<double>(all)
               : 0.0;
}

} // namespace

std::vector<simplified_part> partsToSimplify(const ::osg::NodePtr& root,
                                             const morva::osg::simplify_options& options) {
    std::map<::osg::UInt32, std::size_t> place_of; // by the core's container
    std::vector<simplified_part> parts;
    for (const drawn_node& drawn : drawnNodes(root)) {
        const auto [place, fresh] =
            place_of.emplace(drawn.core.getFieldContainerId(), parts.size());
        if (fresh) {
            simplified_part part;
            part.core = drawn.core;
            forEachTriangle(geometry_view(drawn.core), [&](auto, auto, auto) { ++part.triangles; });
            part.live =
                part.triangles != 0 ? morva::osg::simplify(drawn.core, {}, options).live : 0;
            parts.push_back(std::move(part));
        }
        simplified_part& part = parts[place->second];
        ++part.drawn;
        addSpace(mapOf(drawn.node), part.spaces);
    }
    for (const named_part& named : namedParts(root, false)) {
        const auto place = place_of.find(named.node->getCore().getFieldContainerId());
        if (place == place_of.end())
            continue;
        simplified_part& part = parts[place->second];
        part.nodes.push_back(named.node);
        if (part.path.empty())
            part.path = named.path;
    }
    const auto empty = [](const simplified_part& part) { return part.live == 0; };
    parts.erase(std::remove_if(parts.begin(), parts.end(), empty), parts.end());
    return parts;
}

std::uint64_t drawnLive(const std::vector<simplified_part>& parts) {
    std::uint64_t sum = 0;
    for (const simplified_part& part : parts)
        sum += part.drawn * part.live;
    return sum;
}

void simplifyParts(std::vector<simplified_part>& parts, const simplify_request& request,
                   const std::function<void(std::size_t, std::size_t)>& tell) {
    const std::uint64_t all = drawnLive(parts);
    std::size_t behind = 0, total = 0;
    const auto lowest = [&](const simplified_part& part) {
        double least = part.live;
        for (const simplify_level& level : request.levels)
            least = std::min(least, askedOf(part, level, all));
        return targetOf(least);
    };
    for (const simplified_part& part : parts)
        total += part.live - lowest(part);
    const morva::sink_scope shown({nullptr, nullptr, [&](std::size_t done, std::size_t) {
                                       tell(std::min(behind + done, total), total);
                                   }});
    double carried = 0; // of a shared number, what the parts so far did not take or took too much
    for (simplified_part& part : parts) {
        std::vector<double> asked;
        std::vector<std::uint32_t> targets;
        for (const simplify_level& level : request.levels) {
            const double share = askedOf(part, level, all);
            const double more = level.triangles ? carried / static_cast<double>(part.drawn) : 0.0;
            asked.push_back(std::clamp(share + more, 0.0, static_cast<double>(part.live)));
            targets.push_back(targetOf(asked.back()));
        }
        part.run = morva::osg::simplify(part.core.get(), targets, request.options);
        for (std::size_t i = 0; i < asked.size(); ++i)
            part.stops.push_back(stopOf(part, part.run.stops[i], asked[i], request.max_error));
        const part_stop& stop = part.stops[0];
        if (!stop.floor && !stop.limited)
            carried = static_cast<double>(part.drawn) * (stop.asked - stop.live);
        behind += part.live - lowest(part);
    }
}

namespace {

/// A part's surfaces in one of its spaces.
struct distance_task {
    simplified_part* part;
    const drawn_space* space;
    std::unique_ptr<morva::osg::measured_surface> source, result;
    surface_distance to_source, to_result;
};

std::unique_ptr<morva::osg::measured_surface> surfaceOf(const distance_task& task,
                                                        std::size_t steps) {
    return std::make_unique<morva::osg::measured_surface>(
        morva::osg::simplifiedTriangles(task.part->run, steps),
        task.space->uniform ? nullptr : &task.space->map);
}

/// Each task twice, one side at a time: a single large part keeps two threads busy.
void carryOut(std::vector<distance_task>& tasks, std::size_t level) {
    runParallel(2 * tasks.size(), [&](std::size_t i) {
        distance_task& task = tasks[i / 2];
        if (i % 2 == 0)
            task.source = surfaceOf(task, 0);
        else
            task.result = surfaceOf(task, task.part->stops[level].steps);
    });
    runParallel(2 * tasks.size(), [&](std::size_t i) {
        distance_task& task = tasks[i / 2];
        if (i % 2 == 0)
            task.to_source = distanceToSource(*task.result, *task.source);
        else
            task.to_result = distanceToResult(*task.source, *task.result);
    });
    for (const distance_task& task : tasks) {
        surface_distance both = task.to_source + task.to_result;
        if (task.part->stops[level].steps == 0)
            both.largest = both.integral = 0; // but for rounding
        surface_distance& sum = task.part->stops[level].distance;
        sum = sum + surface_distance{both.largest * task.space->scale,
                                     both.integral * task.space->integrals,
                                     both.area * task.space->areas};
    }
}

} // namespace

void measureDistances(std::vector<simplified_part>& parts, std::size_t level) {
    constexpr std::uint64_t triangles_at_once = 1000000; // two trees over each of them
    std::vector<distance_task> tasks;
    std::uint64_t waiting = 0;
    for (simplified_part& part : parts) {
        for (const drawn_space& space : part.spaces) {
            tasks.push_back({&part, &space, nullptr, nullptr, {}, {}});
            waiting += part.live;
        }
        if (waiting >= triangles_at_once || &part == &parts.back()) {
            carryOut(tasks, level);
            tasks.clear();
            waiting = 0;
        }
    }
}

} // namespace morva::host
