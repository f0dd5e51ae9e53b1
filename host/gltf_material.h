#pragma once

// Materials of a glTF file, from the materials of a scene.

#include <map>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include "gltf_texture.h"

namespace morva::host {

/// The look of a material as writers need it.
struct surface {
    float base[4] = {1.f, 1.f, 1.f, 1.f};
    float emission[3] = {0.f, 0.f, 0.f};
    float specular[3] = {0.f, 0.f, 0.f};
    float metalness = 0.f, shininess = 0.f;
    bool two_sided = false, blended = false, masked = false;
    float cutoff = .5f;
    ::osg::TextureChunkPtr texture; ///< null without one
    ::osg::ImagePtr image;          ///< null without one
};

/// Reads the chunks, or the fields of a simple material; the last texture chunk counts.
surface surfaceOf(const ::osg::MaterialPtr& material);

class gltf_materials {
  public:
    gltf_materials(gltf_buffer& buffer, const image_sources& sources)
        : textures_(buffer, sources) {}

    /// Number of a material, entered at its first coming; -1 for null.
    int numberOf(const ::osg::MaterialPtr& material);
    /// Puts the lists into the file's JSON, empty ones left out.
    void addTo(nlohmann::json& file) const;

  private:
    gltf_textures textures_;
    std::map<::osg::UInt32, int> numbers_;
    nlohmann::json materials_ = nlohmann::json::array();
};

} // namespace morva::host
