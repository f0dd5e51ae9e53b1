#pragma once

// What the texture stage of a run may do to a part, told before the run.

#include <OpenSG/OSGNode.h>

#include <morva/driver/morva_osg_run_plan.h>

#include "geometry_view.h"

namespace morva::host {

/// Whether baking takes all images away, before anything asks for them.
bool losesImages(const morva::osg::run_plan& run);

/// Whether a part may come out as triangles without indices, the degenerate ones of its own space
/// left out.
///
/// listed  it is neither hidden nor below a switch or to be left alone
bool mayBeFlattened(const ::osg::NodePtr& node, bool listed, const morva::osg::run_plan& run);

/// Whether some triangle of a part that may be flattened is cut: it has an image, and coordinates
/// beyond the limit.
bool mayBeCutForAtlas(const geometry_view& view, const ::osg::NodePtr& node,
                      const morva::osg::run_plan& run);

/// Whether a transparent part that may be flattened can come out opaque: what made it transparent
/// was its material, which gives way to that of an atlas.
bool mayTurnOpaque(const ::osg::NodePtr& node, const morva::osg::run_plan& run);

} // namespace morva::host
