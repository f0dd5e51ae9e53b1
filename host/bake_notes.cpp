#include "bake_notes.h"

#include <algorithm>
#include <cstdint>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>

#include "parameter_notes.h"
#include "text.h"

namespace morva::host {

namespace {

/// Rays of one thread in a second, on models of some thousand to some hundred thousand triangles.
constexpr double rays_per_second = 3e6;

std::uint64_t bakedVertices(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> nodes;
    morva::osg::getGeometryNodes(root, nodes, false);
    std::uint64_t vertices = 0;
    for (const ::osg::NodePtr& node : nodes) {
        const auto core = ::osg::GeometryPtr::dcast(node->getCore());
        vertices += core->getPositions() != ::osg::NullFC ? core->getPositions()->size() : 0;
    }
    return vertices;
}

/// "50 seconds", "3 minutes"
std::string textOfTime(double seconds) {
    if (seconds < 100.0)
        return withCommas(static_cast<std::uint64_t>(seconds) + 1) + " seconds";
    return withCommas(static_cast<std::uint64_t>(seconds / 60.0) + 1) + " minutes";
}

/// The first shots of a run: those of its set of rays.
int firstShots(const morva::osg::optTree_setup& setup) {
    return setup.ambientgutout ? morva::osg::gutout_shots
                               : static_cast<int>(setup.ambientocclusion);
}

/// Names of parts that a hull by colours leaves out.
std::string namesWithoutColors(const std::vector<named_part>& parts) {
    std::vector<std::string> names;
    for (const named_part& part : parts) {
        const auto core = ::osg::GeometryPtr::dcast(part.node->getCore());
        if (core != ::osg::NullFC && core->getColors() == ::osg::NullFC)
            names.push_back(part.name);
    }
    return quotedNames(names);
}

} // namespace

std::string withKeptColors(const std::string& parameters, bool replace) {
    std::string text = parameters;
    const auto keys = morva::osg::parseOptTreeParams(text);
    if (replace || keys.count("ambientocclusion") == 0 || keys.count("aoreplace") != 0)
        return parameters;
    return parameters + ",aoreplace(false)";
}

std::string bakeEstimate(const ::osg::NodePtr& root, const std::string& parameters) {
    const morva::osg::optTree_setup setup = morva::osg::planOf(parameters).setup;
    const auto shots = static_cast<int>(setup.ambientocclusion);
    if (shots == 0 || morva::osg::raysInForce(shots) == 0)
        return {};
    const std::uint64_t vertices = bakedVertices(root);
    const std::uint64_t rays = morva::osg::raysInForce(firstShots(setup));
    const double all = static_cast<double>(vertices) * static_cast<double>(rays);
    return "baking fires " + withCommas(rays) + " rays for each of " + withCommas(vertices) +
           " vertices, about " +
           textOfTime(all / rays_per_second / std::max(setup.merge.numthreads, 1));
}

std::vector<std::string> bakeNotes(const std::vector<named_part>& parts,
                                   const std::string& parameters) {
    std::vector<std::string> notes;
    const morva::osg::run_plan plan = morva::osg::planOf(parameters);
    const morva::osg::optTree_setup& setup = plan.setup;
    const auto shots = static_cast<int>(setup.ambientocclusion);
    const bool bakes = shots != 0 && morva::osg::raysInForce(shots) != 0;
    if (shots != 0 && !bakes)
        notes.push_back("ambientocclusion takes 1 to 255 shots: nothing is baked");
    if (setup.ambientgutout)
        notes.push_back("ambientgutout makes all normals anew");
    const std::size_t rays = morva::osg::raysInForce(firstShots(setup));
    if (rays != 0 && ((setup.ambientgutout && bakes) ||
                      (setup.buildhull && rays != morva::osg::raysInForce(morva::osg::hull_shots))))
        notes.push_back("the set of rays is that of the first stage that fires some: " +
                        withCommas(rays) + " for each vertex in all stages");
    if (plan.builds_hull)
        notes.push_back("a hull comes out in cache order: maxtris says how much of it stays, and "
                        "does not bound its cores");
    if (setup.buildhullwithcolors)
        notes.push_back("buildhullwithcolors counts points and lines and keeps triangles only");
    const std::string names = setup.buildhullwithcolors && !setup.buildhull && !bakes
                                  ? namesWithoutColors(parts)
                                  : std::string();
    if (!names.empty())
        notes.push_back("parts without vertex colours are left out of the hull: " + names);
    return notes;
}

} // namespace morva::host
