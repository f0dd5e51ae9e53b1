#pragma once

// Textures, samplers and images of a glTF file, each written once.

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGTextureChunk.h>

#include "gltf_buffer.h"
#include "image_codec.h"
#include "material_record.h"

namespace morva::host {

class gltf_textures {
  public:
    /// The records may be null.
    gltf_textures(gltf_buffer& buffer, const image_sources& sources,
                  const material_records* records)
        : buffer_(buffer), sources_(sources), records_(records) {}

    /// Number of the texture with an image and the sampler of a chunk, entered at its first
    /// coming; -1 without an image or for one that cannot be coded. The chunk may be null.
    int numberOf(const ::osg::ImagePtr& image, const ::osg::TextureChunkPtr& chunk);
    /// Number of a texture of the records, entered at its first coming.
    int numberOf(std::size_t recorded);
    /// Number of a texture with normals that change nothing.
    int flatNormals();
    /// Extensions that the textures need.
    const std::set<std::string>& extensions() const { return extensions_; }
    /// Puts the lists into the file's JSON, empty ones left out.
    void addTo(nlohmann::json& file) const;

  private:
    int textureNumber(nlohmann::json texture);
    int samplerNumber(nlohmann::json sampler);
    int imageNumber(const ::osg::ImagePtr& image);
    int imageNumber(const encoded_image& file, const std::string& name);

    gltf_buffer& buffer_;
    const image_sources& sources_;
    const material_records* records_;
    std::map<::osg::UInt32, int> image_numbers_;
    std::map<std::pair<std::uint64_t, std::size_t>, int> file_numbers_; ///< by print and size
    std::map<std::string, int> sampler_numbers_, texture_numbers_;      ///< by their text
    std::set<std::string> extensions_;
    nlohmann::json textures_ = nlohmann::json::array();
    nlohmann::json images_ = nlohmann::json::array();
    nlohmann::json samplers_ = nlohmann::json::array();
};

} // namespace morva::host
