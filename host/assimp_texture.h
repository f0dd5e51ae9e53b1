#pragma once

// The files behind the textures of the import library's scenes.

#include <string>

#include <assimp/scene.h>

#include <OpenSG/OSGImage.h>

#include "image_codec.h"
#include "model.h"

namespace morva::host {

struct found_texture {
    ::osg::ImagePtr image; ///< null: there is none that can be read
    encoded_image file;    ///< without a type if the pixels came as such, or in another format
};

/// Looks for a texture in the scene itself and, as a file, in a folder. One that cannot be read is
/// noted.
found_texture findTexture(const aiScene& scene, const std::string& name, const std::string& folder,
                          bool keep_alpha, model& target);

/// The wrap mode of OpenGL for one of the import library.
::osg::UInt32 wrapOf(int mode);

} // namespace morva::host
