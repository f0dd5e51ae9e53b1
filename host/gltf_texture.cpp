#include "gltf_texture.h"

#include <OpenSG/OSGGL.h>

#include "print.h"
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
    nlohmann::json sampler = {{"wrapS", GL_REPEAT}, {"wrapT", GL_REPEAT}};
    if (chunk != ::osg::NullFC) {
        sampler = {{"wrapS", wrapCode(chunk->getWrapS())}, {"wrapT", wrapCode(chunk->getWrapT())}};
        if (isPlainFilter(chunk->getMagFilter()))
            sampler["magFilter"] = chunk->getMagFilter();
        if (isFilter(chunk->getMinFilter()))
            sampler["minFilter"] = chunk->getMinFilter();
    }
    return textureNumber({{"source", source}, {"sampler", samplerNumber(std::move(sampler))}});
}

int gltf_textures::numberOf(std::size_t recorded) {
    const recorded_texture& from = records_->textures()[recorded];
    const auto image = [&](int number) {
        const recorded_image& file = records_->images()[static_cast<std::size_t>(number)];
        return imageNumber(file.file, file.name);
    };
    nlohmann::json texture = nlohmann::json::object();
    if (!from.sampler.is_null())
        texture["sampler"] = samplerNumber(from.sampler);
    if (from.image >= 0)
        texture["source"] = image(from.image);
    for (const auto& [extension, number] : from.by_extension) {
        texture["extensions"][extension]["source"] = image(number);
        extensions_.insert(extension);
    }
    return textureNumber(std::move(texture));
}

int gltf_textures::flatNormals() {
    const ::osg::ImageRefPtr image(imageFromTopRows(1, 1, {128, 128, 255, 255}, false));
    const int source = imageNumber({"image/png", encodePng(image.get())}, "");
    return textureNumber({{"source", source}});
}

int gltf_textures::textureNumber(nlohmann::json texture) {
    const auto place =
        texture_numbers_.try_emplace(texture.dump(), static_cast<int>(textures_.size()));
    if (place.second)
        textures_.push_back(std::move(texture));
    return place.first->second;
}

int gltf_textures::samplerNumber(nlohmann::json sampler) {
    const auto place =
        sampler_numbers_.try_emplace(sampler.dump(), static_cast<int>(samplers_.size()));
    if (place.second)
        samplers_.push_back(std::move(sampler));
    return place.first->second;
}

int gltf_textures::imageNumber(const ::osg::ImagePtr& image) {
    const auto known = image_numbers_.find(image.getFieldContainerId());
    if (known != image_numbers_.end())
        return known->second;
    const encoded_image* file = sources_.find(image);
    encoded_image coded;
    if (file == nullptr) {
        coded = {"image/png", encodePng(image)};
        file = &coded;
    }
    const int number = file->bytes.empty() ? -1 : imageNumber(*file, nameOf(image));
    image_numbers_.emplace(image.getFieldContainerId(), number);
    return number;
}

int gltf_textures::imageNumber(const encoded_image& file, const std::string& name) {
    const auto place = file_numbers_.try_emplace(
        {extendedPrint(empty_print, file.bytes.data(), file.bytes.size()), file.bytes.size()},
        static_cast<int>(images_.size()));
    if (!place.second)
        return place.first->second;
    images_.push_back({{"bufferView", buffer_.addBytes(file.bytes)}, {"mimeType", file.mime_type}});
    const std::string plain = fileName(name);
    if (!plain.empty() && plain[0] != '*')
        images_.back()["name"] = validUtf8(plain);
    return place.first->second;
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
