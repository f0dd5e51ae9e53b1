#include "atlas_forecast.h"

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/textures/morva_osg_texcoords.h>

#include "atlas_notes.h"
#include "triangle_measures.h"

namespace morva::host {

namespace {

using morva::osg::run_plan;

/// Whether the stage meets parts with the images and coordinates that they have now.
bool comesFirst(const run_plan& run) {
    const morva::osg::optTree_setup& setup = run.setup;
    return !setup.mostusedmaterial && !setup.removelod && !setup.removeswitch &&
           !run.removes_parts && setup.ambientocclusion == 0 && !run.builds_hull;
}

} // namespace

bool losesImages(const run_plan& run) {
    const morva::osg::optTree_setup& setup = run.setup;
    return setup.ambientocclusion != 0 && setup.aoreplace &&
           morva::osg::raysInForce(static_cast<int>(setup.ambientocclusion)) != 0;
}

bool mayBeFlattened(const ::osg::NodePtr& node, bool listed, const run_plan& run) {
    if (!run.atlas || !(listed || run.setup.removelod || run.setup.removeswitch))
        return false;
    if (!comesFirst(run))
        return true;
    const auto half = static_cast<int>(sideOf(*run.atlas) / 2);
    return morva::osg::getNumberOfTriangles(::osg::GeometryPtr::dcast(node->getCore())) != 0 &&
           !morva::osg::checkGeoForTexIndex(node, static_cast<float>(run.atlas->texcoords), half);
}

bool mayBeCutForAtlas(const geometry_view& view, const ::osg::NodePtr& node, const run_plan& run) {
    const auto limit = static_cast<int>(run.atlas->optimizetc);
    const bool has_image =
        run.setup.mostusedmaterial || morva::osg::getImage(node) != ::osg::NullFC;
    return limit > 0 && has_image && !losesImages(run) && reachesBeyond(view, limit);
}

bool mayTurnOpaque(const ::osg::NodePtr& node, const run_plan& run) {
    return !run.atlas->exact && morva::osg::getImage(node) != ::osg::NullFC;
}

} // namespace morva::host
