#include "assimp_texture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

#include <assimp/material.h>

#include <OpenSG/OSGGL.h>

namespace morva::host {

namespace {

/// Bytes of a texture that lies in a file beside the model; empty if there is none.
std::vector<std::uint8_t> readTextureFile(const std::string& folder, std::string name,
                                          model& target) {
    std::replace(name.begin(), name.end(), '\\', '/');
    const std::string path = name.compare(0, 1, "/") == 0 ? name : folder + name;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file && errno == ENOMEM)
        throw std::bad_alloc();
    if (file)
        target.files_read.push_back(path);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(file), {});
}

std::string mimeTypeOf(const std::vector<std::uint8_t>& bytes) {
    const auto starts = [&](const char* magic, std::size_t length) {
        return bytes.size() >= length && std::memcmp(bytes.data(), magic, length) == 0;
    };
    return starts("\x89PNG", 4) ? "image/png" : starts("\xFF\xD8\xFF", 3) ? "image/jpeg" : "";
}

/// Plain texels of an embedded texture, four bytes each.
::osg::ImagePtr importTexels(const aiTexture& texture, bool keep_alpha) {
    if (texture.mWidth > 32768 || texture.mHeight > 32768)
        return ::osg::NullFC;
    const std::size_t count = std::size_t{texture.mWidth} * texture.mHeight;
    std::vector<std::uint8_t> rgba(4 * count);
    for (std::size_t i = 0; i < count; ++i) {
        rgba[4 * i] = texture.pcData[i].r;
        rgba[4 * i + 1] = texture.pcData[i].g;
        rgba[4 * i + 2] = texture.pcData[i].b;
        rgba[4 * i + 3] = texture.pcData[i].a;
    }
    return imageFromTopRows(texture.mWidth, texture.mHeight, std::move(rgba), keep_alpha);
}

} // namespace

found_texture findTexture(const aiScene& scene, const std::string& name, const std::string& folder,
                          bool keep_alpha, model& target) {
    found_texture found{::osg::NullFC, {}};
    std::vector<std::uint8_t>& bytes = found.file.bytes;
    const aiTexture* texture = scene.GetEmbeddedTexture(name.c_str());
    if (texture == nullptr) {
        bytes = readTextureFile(folder, name, target);
    } else if (texture->pcData != nullptr && texture->mHeight == 0) {
        const auto* first = reinterpret_cast<const std::uint8_t*>(texture->pcData);
        bytes.assign(first, first + texture->mWidth);
    } else if (texture->pcData != nullptr) {
        found.image = importTexels(*texture, keep_alpha);
    }
    if (!bytes.empty())
        found.image = decodeImage(bytes.data(), bytes.size(), keep_alpha);
    if (found.image == ::osg::NullFC)
        target.notes.push_back("texture '" + name + "' cannot be read; it is left out");
    found.file.mime_type = mimeTypeOf(bytes);
    return found;
}

::osg::UInt32 wrapOf(int mode) {
    return mode == aiTextureMapMode_Clamp    ? GL_CLAMP_TO_EDGE
           : mode == aiTextureMapMode_Mirror ? GL_MIRRORED_REPEAT
                                             : GL_REPEAT;
}

} // namespace morva::host
