#include "core_layout.h"

#include <vector>

namespace morva::host {

::osg::GeoColorsPtr colorsOf(const float* rgba, std::size_t count) {
    // The import library gives colours of a glTF file that have no alpha one of 0.
    const float alpha = count != 0 && rgba[3] == 0.f ? 0.f : 1.f;
    bool opaque = true;
    for (std::size_t i = 0; i < count && opaque; ++i)
        opaque = rgba[4 * i + 3] == alpha;
    if (!opaque)
        return filled<::osg::GeoColors4f>(rgba, count, sizeof(::osg::Color4f));
    std::vector<::osg::Color3f> plain(count);
    for (std::size_t i = 0; i < count; ++i)
        plain[i] = ::osg::Color3f(rgba[4 * i], rgba[4 * i + 1], rgba[4 * i + 2]);
    return filled<::osg::GeoColors3f>(plain.data(), count, sizeof(::osg::Color3f));
}

void setCoordinates(const ::osg::GeometryPtr& geometry, const coordinate_channels& channels,
                    unsigned first) {
    if (first >= channels.size() || channels[first] == ::osg::NullFC)
        first = 0;
    for (unsigned set = 0; set < channels.size(); ++set) {
        const ::osg::GeoTexCoordsPtr& property = channels[set == 0       ? first
                                                          : set == first ? 0
                                                                         : set];
        if (property == ::osg::NullFC)
            continue;
        switch (set) {
        case 0:
            geometry->setTexCoords(property);
            break;
        case 1:
            geometry->setTexCoords1(property);
            break;
        case 2:
            geometry->setTexCoords2(property);
            break;
        default:
            geometry->setTexCoords3(property);
            break;
        }
    }
}

} // namespace morva::host
