#pragma once

// The images of a cell: which elements of a scene geoset come out in which material of an atlas.
//
//     cell_run    elements 4 5 6 7 8 9
//     textured    material of the atlas: 4 6 9       one core each
//     plain       5 7 8                              keep their materials
//
// One thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// The elements of a cell: object i is element `first + i`.
struct cell_run {
    kd_scene_geoset& scene; ///< with geosets
    std::uint64_t first = 0;
    std::uint64_t count = 0;

    /// The element of an object: the last one there is, after a line, for one that there is not; -1
    /// if there is none at all.
    std::int64_t element(std::size_t object) const { return scene.simple_object(first + object); }
    /// The same without a line.
    std::int64_t elementQuietly(std::size_t object) const {
        const std::uint64_t wanted = first + object;
        return wanted < scene.built_count ? static_cast<std::int64_t>(wanted)
                                          : static_cast<std::int64_t>(scene.built_count) - 1;
    }
};

/// Objects that come out in one material.
struct textured_objects {
    ::osg::RefPtr<::osg::MaterialPtr> material;
    std::vector<std::size_t> objects; ///< never empty, ascending
};

struct cell_textures {
    std::vector<textured_objects> textured;
    std::vector<std::size_t> plain; ///< ascending
};

/// Moves all images of a cell into one, whatever that changes: elements get their coordinates
/// there, and come out in a new material of it. An element whose image is another than RGB or RGBA
/// and can't be read as RGB, or that has no coordinates above 0, is plain.
///
/// optimizetc  triangles whose coordinates reach higher are cut; 0 or below: none
/// record      out: a line more for the atlas, and for each image that stays. Places are those
///             before the atlas is scaled to powers of two
/// prints      what createAtlas(), fillNewTexture() and ScaleImageToPowerof2() print; a line for
///             each object that is no element
/// errors      std::bad_alloc
///
/// An atlas that can't be made is a black image of 2 x 2 pixels, and coordinates stay.
cell_textures textureCell(const cell_run& run, int optimizetc, atlas_record& record);

/// Moves images of a cell into up to two, opaque and transparent ones, so that nothing looks
/// different: elements come out in copies of their materials. What an atlas can't show is plain, as
/// is what would be alone in one.
///
/// padding  texels of its own picture around each image, at most 64
/// record   out: as above; sides of an atlas are powers of two, and nothing is scaled
/// errors   std::bad_alloc
cell_textures textureCellExactly(const cell_run& run, int optimizetc, unsigned int padding,
                                 atlas_record& record);

} // namespace morva::osg
