#include <morva/tools/morva_osg_gathered_property.h>

namespace morva::osg {

::osg::RefPtr<::osg::AttachmentPtr> gatheredProperty(const ::osg::GeometryPtr& geometry,
                                                     vertex_property which,
                                                     const property_column& column,
                                                     const std::vector<float>& values) {
    if (column.width != 4)
        return makeProperty(geometry, which, values);
    const ::osg::RefPtr<::osg::GeoColors4fPtr> colors(::osg::GeoColors4f::create());
    const auto* rows = reinterpret_cast<const ::osg::Color4f*>(values.data());
    colors->editField().reserve(values.size() / 4);
    for (std::size_t i = 0; i < values.size() / 4; ++i)
        colors->editField().push_back(rows[i]);
    return ::osg::RefPtr<::osg::AttachmentPtr>(colors.get());
}

} // namespace morva::osg
