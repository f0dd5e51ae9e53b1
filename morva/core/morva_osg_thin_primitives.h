#pragma once

// Lines and points of a core that has triangles as well, for passes that take these alone.

#include <vector>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// The primitives of lines and points of a core.
inline std::vector<primitive_run> thinPrimitives(const ::osg::GeometryPtr& core) {
    std::vector<primitive_run> runs;
    forEachPrimitive(core, cornersOf(core), rest_rule::left_out, [&](const primitive_run& run) {
        if (run.type <= GL_LINE_STRIP && run.length > 0)
            runs.push_back(run);
    });
    return runs;
}

/// Gives a geometry the types and lengths of primitives.
inline void setPrimitives(const ::osg::GeometryPtr& geometry,
                          const std::vector<primitive_run>& runs) {
    const ::osg::RefPtr<::osg::GeoPTypesUI8Ptr> types(::osg::GeoPTypesUI8::create());
    const ::osg::RefPtr<::osg::GeoPLengthsUI32Ptr> lengths(::osg::GeoPLengthsUI32::create());
    for (const primitive_run& run : runs) {
        types->editField().push_back(static_cast<::osg::UInt8>(run.type));
        lengths->editField().push_back(static_cast<::osg::UInt32>(run.length));
    }
    geometry->setTypes(types.get());
    geometry->setLengths(lengths.get());
}

} // namespace morva::osg
