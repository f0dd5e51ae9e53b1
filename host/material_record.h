#pragma once

// What the materials of a source file say beyond what a scene graph holds: the textures of
// roughness, normals, occlusion and light, which coordinates each one reads, extensions. A record
// is the material of a glTF file as it stands there; writers of glTF give it back.
//
//     keepRecords(document, materials, model);          after reading
//     ... the optimiser ...
//     const material_record* record = model.records.find(material);
//
// A material with a record has its number in the alpha of the emission, which lighting does not
// use: 1 without a record, otherwise 2 and up. So materials that differ only in their records
// differ for the optimiser, too, and whatever keeps the colours of a material keeps its record.
// Records of the same content have one number, whatever their materials are called.

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGRefPtr.h>

#include "image_codec.h"

namespace morva::host {

struct model;
class gltf_document;

/// An image as it lies in the source.
struct recorded_image {
    std::string name;
    encoded_image file;
};

/// A texture of the source. Numbers are those of the records' own lists.
// NOLINTNEXTLINE(bugprone-exception-escape): the JSON library's moves and ends do not throw
struct recorded_texture {
    nlohmann::json sampler; ///< as it stands; null without one
    int image = -1;         ///< -1: only in extensions
    /// The other forms of the image by extension, such as EXT_texture_webp.
    std::map<std::string, int> by_extension;
};

/// A place in a material that names a texture.
struct texture_use {
    nlohmann::json::json_pointer place; ///< of the object with the index
    std::size_t texture = 0;
    unsigned unit = 0;    ///< set of coordinates that it reads
    bool is_base = false; ///< the scene holds it
};

// NOLINTNEXTLINE(bugprone-exception-escape): the JSON library's moves and ends do not throw
struct material_record {
    std::string name;        ///< of the first material that has it
    nlohmann::json material; ///< without name, indices and sets of coordinates
    std::vector<texture_use> uses;
};

class material_records {
  public:
    /// The record of a material; null without one.
    const material_record* find(const ::osg::MaterialPtr& material) const;
    const std::vector<recorded_image>& images() const { return images_; }
    const std::vector<recorded_texture>& textures() const { return textures_; }
    /// Extensions that the source requires.
    const std::set<std::string>& required() const { return required_; }
    bool empty() const { return records_.empty(); }

    /// Number of an image or texture of this content, entered at its first coming.
    int add(recorded_image image);
    std::size_t add(recorded_texture texture);
    void require(const std::string& extension) { required_.insert(extension); }
    /// Gives a material a record.
    void give(const ::osg::MaterialPtr& material, material_record record);
    /// The record of a material, for changing it; null without one.
    material_record* edit(const ::osg::MaterialPtr& material);

    /// Takes all records off their materials, as for a file that has no place for them. Returns
    /// what is lost, one sentence, or nothing.
    std::vector<std::string> forget();
    /// What of the records none of these materials has, one sentence, or nothing.
    std::vector<std::string> missingFrom(const std::vector<::osg::MaterialPtr>& materials) const;

  private:
    std::size_t numberOf(const ::osg::MaterialPtr& material) const;

    std::vector<material_record> records_;
    std::vector<recorded_image> images_;
    std::vector<recorded_texture> textures_;
    std::set<std::string> required_;
    std::map<std::string, std::size_t> by_content_;
    std::map<std::pair<std::uint64_t, std::size_t>, int> image_numbers_; ///< by print and size
    std::map<std::string, std::size_t> texture_numbers_;
    std::vector<::osg::RefPtr<::osg::MaterialChunkPtr>> chunks_; ///< with a number
};

/// Keeps the records of the materials of a glTF 2.0 file, where they say more than the scene. A
/// transform of the base colour texture is applied to the coordinates that it reads.
///
/// by_json_index  the materials by their number in the file; null where nothing uses one
/// target         its scene has been read: the coordinates of cores are needed
void keepRecords(const gltf_document& document,
                 const std::vector<::osg::RefPtr<::osg::MaterialPtr>>& by_json_index,
                 model& target);

/// The same for a file that the import library has read into `target`, which numbers materials in
/// its own way; nothing for one that has become shorter meanwhile. The numbers are gone after.
void keepRecordsOfLibrary(const gltf_document& document, model& target);

} // namespace morva::host
