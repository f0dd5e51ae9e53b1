#pragma once

// Moves the images of a whole scene into a few large ones, so that geometry that differs by its
// texture alone can be drawn, and merged, as one.
//
//     createTextureAtlasForScene(root, 4096, 2, 2);
//
//     geometry    brought near the unit square (optimizeTexCoords), images collected
//     images      laid out from the tallest to the lowest, each as often as its coordinates repeat,
//                 in as many atlases of one size as they need: opaque ones and transparent ones
//     geometry    coordinates lead into the atlas, which is its material from then on
//
// createTextureAtlas() does the same with more to ask for, and tells what it did. The steps stand
// here by themselves, too, for callers with lists of their own.
//
// Works on the calling thread, in place. Images of the scene are only read.

#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_options.h>
#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// Moves the images of all geometry that getGeometryNodes(root, ..., false) lists into atlases.
///
/// texcoords   geometry whose coordinates reach higher keeps its image
/// optimizetc  triangles whose coordinates reach higher are cut; as int, 0 or below: none is
/// returns     images placed; 0 for null
/// prints      how many images there are, and how many were placed; a line for a bad `textureSize`
/// errors      std::bad_alloc
///
/// Geometry in the lists gets a new core without indices, also if its image stays: see
/// optimizeTexCoords(). An image, by its first bytes (searchImageData), is placed once. One that is
/// alone among the opaque or the transparent ones stays, as do images with a side above half of
/// `textureSize`, larger than an atlas as they are laid out, or with pixels that an atlas can't
/// show. A material group above geometry with an atlas gives way to a plain group, and the other
/// geometry below it gets its material. A root that is a geometry itself stays as it is.
MORVA_API unsigned int createTextureAtlasForScene(::osg::NodePtr root, unsigned int textureSize,
                                                  unsigned int texcoords, unsigned int optimizetc);

/// The same with all that can be asked for.
///
/// record  out: what was done; what it held goes
MORVA_API unsigned int createTextureAtlas(::osg::NodePtr root, const atlas_options& options,
                                          atlas_record& record);

/// Appends the images that nodes show, each once, as searchImageData() tells them apart, with the
/// highest coordinates of all that show it.
///
/// Records of RGB and RGBA images point to the image's own pixels, those of other formats to RGB
/// copies that stay for the rest of the process. Images that an atlas can't show are passed over:
/// wide channels, no pixels, alpha below 255 in other formats than RGBA.
MORVA_API void collectImageData(const std::vector<::osg::NodePtr>& nodes,
                                std::vector<ImageData>& images);
/// Of the nodes that getGeometryNodes(root, nodes, false) lists.
MORVA_API void collectImageData(::osg::NodePtr root, std::vector<ImageData>& images);

/// Places images in as many atlases as they need, draws them, and gives the nodes that show them
/// the materials of the atlases.
///
/// images       out: sorted, and with their places
/// transparent  atlases are RGBA and their materials blend
/// textureSize  side of an atlas; rounded up to a power of two, 32 to 8192
/// returns      images placed; 0 for fewer than two images
/// errors       std::bad_alloc
MORVA_API unsigned int buildAtlases(const std::vector<::osg::NodePtr>& nodes,
                                    std::vector<ImageData>& images, bool transparent,
                                    unsigned int textureSize, bool hasVertexColors);

/// Places images in one atlas and draws them into its `image`, if it has one.
///
/// Images are taken in order, those with `inAtlas` left out. A free space of the same size is
/// taken first, then the one that leaves least, the first of several.
/// returns  how many images the atlas has then
/// method   guillotine packing, best area fit: "A Thousand Ways to Pack the Bin", J. Jylanki, 2010
MORVA_API unsigned int buildOneAtlas(std::vector<ImageData>& images, FixedTextureAtlas& atlas);

/// Gives each node that shows one of the images its coordinates in the atlas of that image and the
/// atlas's material. A material group above it becomes a plain group.
///
/// The coordinates of the first node of each atlas are those in an atlas of `usedWidth` times
/// `usedHeight` as they come in; the others those in the kept part. A core or coordinates that
/// others have, too, are copied before.
MORVA_API void replaceTexturesByTextureAtlas(const std::vector<::osg::NodePtr>& nodes,
                                             const std::vector<ImageData>& images,
                                             std::vector<FixedTextureAtlas>& atlases);

/// Moves a coordinate of an image to where that lies in an atlas, in pixels: x, y is its first one.
/// What is nearer than a texel to the edge of a tile goes a texel from it.
///
/// returns  true. A side of 0 leaves a component as it is, a NaN stays
MORVA_API bool adjustTexCoords(::osg::Vec2f& coordinate, int atlasWidth, int atlasHeight,
                               int imageWidth, int imageHeight, int x, int y);

/// The same for all coordinates 0 of a geometry, on a copy where another geometry has them, too.
/// True for null and without coordinates.
MORVA_API bool adjustTexCoords(::osg::GeometryPtr geometry, unsigned int atlasWidth,
                               unsigned int atlasHeight, unsigned int imageWidth,
                               unsigned int imageHeight, unsigned int x, unsigned int y);

} // namespace morva::osg
