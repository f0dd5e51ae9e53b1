#pragma once

// Materials of a binary glTF 2.0 file in the import library's form.
//
//     glb_materials materials(document);
//     std::unique_ptr<aiMaterial> red = materials.read(3);       the file's fourth
//     std::unique_ptr<aiMaterial> plain = materials.standard();
//     materials.images()                                         those that they use
//
// Only what importMaterial() looks at is there.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <assimp/material.h>
#include <assimp/texture.h>

#include "gltf_document.h"

namespace morva::host {

class glb_materials {
  public:
    explicit glb_materials(const gltf_document& document);

    /// errors  host_error: it is not of the plain kind
    std::unique_ptr<aiMaterial> read(std::size_t index);
    /// That of meshes without one.
    std::unique_ptr<aiMaterial> standard();

    /// The files of the images in the order of their first use: "*0", "*1", ...
    std::vector<std::unique_ptr<aiTexture>>& images() { return images_; }

  private:
    void addTexture(const nlohmann::json& owner, const char* key, aiTextureType kind,
                    aiMaterial& to);
    void addSampler(const nlohmann::json& texture, aiTextureType kind, aiMaterial& to) const;
    const std::string& imageName(std::size_t index);

    const gltf_document& document_;
    std::vector<std::string> names_; ///< of each image of the file; empty before its first use
    std::vector<std::unique_ptr<aiTexture>> images_;
};

} // namespace morva::host
