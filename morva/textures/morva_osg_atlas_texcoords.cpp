// Coordinates of an image, and where they lie in its atlas.

#include <morva/textures/morva_osg_scene_atlas.h>

#include <cmath>
#include <cstddef>

#include <morva/core/morva_osg_edits.h>
#include <morva/geosets/morva_osg_geoset_fields.h>

namespace morva::osg {

namespace {

/// One axis of an image in an atlas, in pixels.
struct axis_place {
    axis_place(int image_side, int atlas_side, int first)
        : moves(image_side != 0 && atlas_side != 0), image(image_side), atlas(atlas_side),
          start(first), texel(moves ? static_cast<float>(1.0 / image) : 0.0F) {}

    bool moves; ///< a side of 0 leaves coordinates as they are
    double image, atlas, start;
    float texel;

    float of(float value) const {
        if (!moves)
            return value;
        if (texel > value)
            value = texel;
        const float whole = std::trunc(value);
        const float fraction = value - whole;
        if (static_cast<double>(fraction) > 1.0 - static_cast<double>(texel) || value == whole)
            value -= texel;
        return static_cast<float>(static_cast<double>(value) * image / atlas + start / atlas);
    }
};

/// The coordinates of a geometry, which nobody else has: a copy where somebody had them, too.
::osg::GeoTexCoordsPtr ownCoordinates(const ::osg::GeometryPtr& geometry) {
    if (geometry->getTexCoords()->getParents().size() > 1) {
        const geometry_edit edit(geometry);
        geometry->setTexCoords(geometry->getTexCoords()->clone());
    }
    return geometry->getTexCoords();
}

} // namespace

bool adjustTexCoords(::osg::Vec2f& coordinate, int atlasWidth, int atlasHeight, int imageWidth,
                     int imageHeight, int x, int y) {
    coordinate[0] = axis_place(imageWidth, atlasWidth, x).of(coordinate[0]);
    coordinate[1] = axis_place(imageHeight, atlasHeight, y).of(coordinate[1]);
    return true;
}

bool adjustTexCoords(::osg::GeometryPtr geometry, unsigned int atlasWidth, unsigned int atlasHeight,
                     unsigned int imageWidth, unsigned int imageHeight, unsigned int x,
                     unsigned int y) {
    if (geometry == ::osg::NullFC || geometry->getTexCoords() == ::osg::NullFC)
        return true;
    const axis_place u(static_cast<int>(imageWidth), static_cast<int>(atlasWidth),
                       static_cast<int>(x));
    const axis_place v(static_cast<int>(imageHeight), static_cast<int>(atlasHeight),
                       static_cast<int>(y));
    texcoords_slot slot;
    slot.follow(ownCoordinates(geometry));
    const open_edit edit(slot.get());
    for (std::size_t row = 0; row < slot.size(); ++row) {
        const ::osg::Vec2f value = slot.value(row);
        slot.put(row, ::osg::Vec2f(u.of(value[0]), v.of(value[1])));
    }
    return true;
}

} // namespace morva::osg
