#include "gltf_texture.h"

#include <cstddef>
#include <string>

#include <OpenSG/OSGGL.h>

#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

::osg::UInt32 wrapCode(::osg::UInt32 wrap) {
    return wrap == GL_CLAMP || wrap == GL_CLAMP_TO_EDGE ? GL_CLAMP_TO_EDGE
           : wrap == GL_MIRRORED_REPEAT                 ? GL_MIRRORED_REPEAT
                                                        : GL_REPEAT;
}

bool isPlainFilter(::osg::UInt32 filter) { return filter == GL_NEAREST || filter == GL_LINEAR; }

bool isFilter(::osg::UInt32 filter) {
    return isPlainFilter(filter) ||
           (filter >= GL_NEAREST_MIPMAP_NEAREST && filter <= GL_LINEAR_MIPMAP_LINEAR);
}

/// Names may tell where an image was on somebody's disk.
std::string fileName(const std::string& name) {
    const std::size_t end = name.find_last_of("/\\");
    return end == std::string::npos ? name : name.substr(end + 1);
}

} // namespace

int gltf_textures::numberOf(const ::osg::ImagePtr& image, const ::osg::TextureChunkPtr& chunk) {
    const int source = image != ::osg::NullFC ? imageNumber(image) : -1;
    if (source < 0)
        return -1;
    sampler wanted = {GL_REPEAT, GL_REPEAT, 0, 0};
    if (chunk != ::osg::NullFC)
        wanted = {wrapCode(chunk->getWrapS()), wrapCode(chunk->getWrapT()),
                  isPlainFilter(chunk->getMagFilter()) ? chunk->getMagFilter() : 0,
                  isFilter(chunk->getMinFilter()) ? chunk->getMinFilter() : 0};
    const int number = samplerNumber(wanted);
    const auto place = texture_numbers_.emplace(std::make_pair(source, number),
                                                static_cast<int>(textures_.size()));
    if (place.second)
        textures_.push_back({{"source", source}, {"sampler", number}});
    return place.first->second;
}

int gltf_textures::samplerNumber(const sampler& wanted) {
    const auto place = sampler_numbers_.emplace(wanted, static_cast<int>(samplers_.size()));
    if (place.second) {
        samplers_.push_back({{"wrapS", wanted[0]}, {"wrapT", wanted[1]}});
        if (wanted[2] != 0)
            samplers_.back()["magFilter"] = wanted[2];
        if (wanted[3] != 0)
            samplers_.back()["minFilter"] = wanted[3];
    }
    return place.first->second;
}

int gltf_textures::imageNumber(const ::osg::ImagePtr& image) {
    const auto known = image_numbers_.find(image.getFieldContainerId());
    if (known != image_numbers_.end())
        return known->second;
    int number = -1;
    const encoded_image* file = sources_.find(image);
    encoded_image coded;
    if (file == nullptr) {
        coded = {"image/png", encodePng(image)};
        file = &coded;
    }
    if (!file->bytes.empty()) {
        number = static_cast<int>(images_.size());
        images_.push_back(
            {{"bufferView", buffer_.addBytes(file->bytes)}, {"mimeType", file->mime_type}});
        const std::string name = fileName(nameOf(image));
        if (!name.empty() && name[0] != '*')
            images_.back()["name"] = validUtf8(name);
    }
    image_numbers_.emplace(image.getFieldContainerId(), number);
    return number;
}

void gltf_textures::addTo(nlohmann::json& file) const {
    const auto add = [&](const char* key, const nlohmann::json& list) {
        if (!list.empty())
            file[key] = list;
    };
    add("textures", textures_);
    add("images", images_);
    add("samplers", samplers_);
}

} // namespace morva::host
