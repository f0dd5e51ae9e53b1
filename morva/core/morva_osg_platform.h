#pragma once

// Calls whose form differs between releases of the scene graph.

#include <type_traits>

#include <OpenSG/OSGGeoFunctions.h>

namespace morva::osg {

namespace detail {

using eight_arguments = ::osg::Int32 (*)(::osg::GeometryPtr, ::osg::UInt32, bool, bool,
                                         ::osg::UInt32, bool, bool, bool);

/// Some releases lack the last argument; the form is chosen by the function's own type.
template <typename Function>
::osg::Int32 callOptimizer(Function optimizer, const ::osg::GeometryPtr& geometry,
                           ::osg::UInt32 iteration, bool createStrips, bool createFans,
                           ::osg::UInt32 minFanEdgeCount, bool colorCode, bool stitchStrips,
                           bool stripifyIsolatedTris) {
    if constexpr (std::is_same_v<Function, eight_arguments>) {
        return optimizer(geometry, iteration, createStrips, createFans, minFanEdgeCount, colorCode,
                         stitchStrips, stripifyIsolatedTris);
    } else {
        return optimizer(geometry, iteration, createStrips, createFans, minFanEdgeCount, colorCode,
                         stitchStrips);
    }
}

} // namespace detail

/// ::osg::createOptimizedPrimitives with eight arguments under every release; where there are
/// seven the last one has no effect.
inline ::osg::Int32 createOptimizedPrimitives(const ::osg::GeometryPtr& geometry,
                                              ::osg::UInt32 iteration, bool createStrips,
                                              bool createFans, ::osg::UInt32 minFanEdgeCount,
                                              bool colorCode, bool stitchStrips,
                                              bool stripifyIsolatedTris) {
    return detail::callOptimizer(&::osg::createOptimizedPrimitives, geometry, iteration,
                                 createStrips, createFans, minFanEdgeCount, colorCode, stitchStrips,
                                 stripifyIsolatedTris);
}

} // namespace morva::osg
