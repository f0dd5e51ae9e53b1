#pragma once

// Materials of a glTF file, from the materials of a scene.

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

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

/// What of a look a material of glTF holds, without the texture.
nlohmann::json materialOf(const surface& look);

/// Number of the written set of coordinates that holds each set of a core; -1 for none.
using set_numbers = std::array<int, 8>;

class gltf_materials {
  public:
    /// The records may be null.
    gltf_materials(gltf_buffer& buffer, const image_sources& sources,
                   const material_records* records)
        : records_(records), textures_(buffer, sources, records) {}

    /// Number of a material for cores with these sets, entered at its first coming; -1 for null. A
    /// texture without its coordinates is left out.
    int numberOf(const ::osg::MaterialPtr& material, const set_numbers& sets);
    /// Puts the lists into the file's JSON, empty ones left out.
    void addTo(nlohmann::json& file) const;
    /// What was left out, one sentence each.
    std::vector<std::string> notes() const;

  private:
    nlohmann::json plainEntry(const surface& look, bool has_coordinates);
    nlohmann::json recordedEntry(const material_record& record, const surface& look,
                                 const set_numbers& sets);
    void addExtensions(const nlohmann::json& object);

    const material_records* records_;
    gltf_textures textures_;
    std::map<std::pair<::osg::UInt32, set_numbers>, int> numbers_;
    std::set<std::string> extensions_;
    std::set<std::string> without_coordinates_; ///< names of textures left out
    nlohmann::json materials_ = nlohmann::json::array();
};

} // namespace morva::host
