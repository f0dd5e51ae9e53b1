#include "material_record.h"

#include <algorithm>

#include <OpenSG/OSGChunkMaterial.h>

#include "print.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

/// Number in the alpha of an emission: the one of the first record.
constexpr float first_number = 2.f;

::osg::MaterialChunkPtr colorsOf(const ::osg::MaterialPtr& material) {
    const auto chunks = ::osg::ChunkMaterialPtr::dcast(chosenMaterial(material));
    if (chunks == ::osg::NullFC)
        return ::osg::NullFC;
    for (const ::osg::StateChunkPtr& chunk : *chunks->getMFChunks()) {
        const auto colors = ::osg::MaterialChunkPtr::dcast(chunk);
        if (colors != ::osg::NullFC)
            return colors;
    }
    return ::osg::NullFC;
}

void setNumber(const ::osg::MaterialChunkPtr& colors, float number) {
    ::osg::Color4f emission = colors->getEmission();
    emission[3] = number;
    beginEditCP(colors, ::osg::MaterialChunk::EmissionFieldMask);
    colors->setEmission(emission);
    endEditCP(colors, ::osg::MaterialChunk::EmissionFieldMask);
}

/// Equal for records that say the same.
std::string contentOf(const material_record& record) {
    nlohmann::json content = {record.material};
    for (const texture_use& use : record.uses)
        content.push_back({use.place.to_string(), use.is_base ? 0 : use.texture, use.unit});
    return content.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

/// Behind the last one without a record.
std::size_t material_records::numberOf(const ::osg::MaterialPtr& material) const {
    const ::osg::MaterialChunkPtr colors =
        records_.empty() ? ::osg::MaterialChunkPtr() : colorsOf(material);
    const float number = colors != ::osg::NullFC ? colors->getEmission()[3] - first_number : -1.f;
    return number >= 0.f && number < static_cast<float>(records_.size())
               ? static_cast<std::size_t>(number)
               : records_.size();
}

const material_record* material_records::find(const ::osg::MaterialPtr& material) const {
    const std::size_t number = numberOf(material);
    return number < records_.size() ? &records_[number] : nullptr;
}

material_record* material_records::edit(const ::osg::MaterialPtr& material) {
    const std::size_t number = numberOf(material);
    return number < records_.size() ? &records_[number] : nullptr;
}

int material_records::add(recorded_image image) {
    const std::vector<std::uint8_t>& bytes = image.file.bytes;
    const auto place = image_numbers_.try_emplace(
        {extendedPrint(empty_print, bytes.data(), bytes.size()), bytes.size()},
        static_cast<int>(images_.size()));
    if (place.second)
        images_.push_back(std::move(image));
    return place.first->second;
}

std::size_t material_records::add(recorded_texture texture) {
    const nlohmann::json content = {texture.sampler, texture.image, texture.by_extension};
    const auto place = texture_numbers_.try_emplace(content.dump(), textures_.size());
    if (place.second)
        textures_.push_back(std::move(texture));
    return place.first->second;
}

void material_records::give(const ::osg::MaterialPtr& material, material_record record) {
    const ::osg::MaterialChunkPtr colors = colorsOf(material);
    if (colors == ::osg::NullFC)
        return;
    const auto place = by_content_.try_emplace(contentOf(record), records_.size());
    if (place.second)
        records_.push_back(std::move(record));
    setNumber(colors, first_number + static_cast<float>(place.first->second));
    chunks_.emplace_back(colors);
}

std::vector<std::string> material_records::forget() {
    for (const auto& colors : chunks_)
        setNumber(colors.get(), 1.f);
    chunks_.clear();
    std::vector<std::string> names;
    for (const material_record& record : records_)
        names.push_back(record.name);
    records_.clear();
    if (names.empty())
        return {};
    return {"textures other than base colours and extensions of materials are left out: " +
            quotedNames(names)};
}

std::vector<std::string>
material_records::missingFrom(const std::vector<::osg::MaterialPtr>& materials) const {
    std::vector<bool> met(records_.size() + 1, false);
    for (const ::osg::MaterialPtr& material : materials)
        met[numberOf(material)] = true;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        if (!met[i])
            names.push_back(records_[i].name);
    }
    if (names.empty())
        return {};
    return {"these materials come out as others, without their textures other than base colours "
            "and their extensions: " +
            quotedNames(names)};
}

} // namespace morva::host
