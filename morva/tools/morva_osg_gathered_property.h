#pragma once

// Values that were gathered from a column of a core, as a property of a new one.

#include <vector>

#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// Like makeProperty(), for colours of four components, too.
///
/// column  that the values, as wide as its own, come from
::osg::RefPtr<::osg::AttachmentPtr> gatheredProperty(const ::osg::GeometryPtr& geometry,
                                                     vertex_property which,
                                                     const property_column& column,
                                                     const std::vector<float>& values);

} // namespace morva::osg
