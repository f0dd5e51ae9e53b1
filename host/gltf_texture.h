#pragma once

// Textures, samplers and images of a glTF file, each written once.

#include <array>
#include <map>
#include <utility>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGTextureChunk.h>

#include "gltf_buffer.h"
#include "image_codec.h"

namespace morva::host {

class gltf_textures {
  public:
    gltf_textures(gltf_buffer& buffer, const image_sources& sources)
        : buffer_(buffer), sources_(sources) {}

    /// Number of the texture with an image and the sampler of a chunk, entered at its first
    /// coming; -1 without an image or for one that cannot be coded. The chunk may be null.
    int numberOf(const ::osg::ImagePtr& image, const ::osg::TextureChunkPtr& chunk);
    /// Puts the lists into the file's JSON, empty ones left out.
    void addTo(nlohmann::json& file) const;

  private:
    /// Wrap S and T, magnifying and minifying filter; 0 for none given.
    using sampler = std::array<::osg::UInt32, 4>;

    int samplerNumber(const sampler& wanted);
    int imageNumber(const ::osg::ImagePtr& image);

    gltf_buffer& buffer_;
    const image_sources& sources_;
    std::map<::osg::UInt32, int> image_numbers_;
    std::map<sampler, int> sampler_numbers_;
    std::map<std::pair<int, int>, int> texture_numbers_; ///< by image and sampler
    nlohmann::json textures_ = nlohmann::json::array();
    nlohmann::json images_ = nlohmann::json::array();
    nlohmann::json samplers_ = nlohmann::json::array();
};

} // namespace morva::host
