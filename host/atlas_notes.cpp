#include "atlas_notes.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_params.h>

#include "atlas_forecast.h"
#include "atlas_report.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

constexpr unsigned int least_side = 32, most_side = 8192;

std::uint64_t count(const audit_plan& plan, bool (*holds)(const audited_part&)) {
    return static_cast<std::uint64_t>(std::count_if(plan.parts.begin(), plan.parts.end(), holds));
}

bool isFlattened(const audited_part& part) { return part.flattened; }

bool staysTransparent(const audited_part& part) {
    return part.flattened && part.fate == part_fate::carried && !part.renamed;
}

/// Bytes of the files that the images of an atlas come from, as far as they are known.
std::uint64_t fileBytes(const morva::osg::recorded_atlas& atlas, const image_sources& images) {
    std::uint64_t bytes = 0;
    for (const morva::osg::placed_image& placed : atlas.images) {
        const encoded_image* const file = images.find(placed.image.get());
        bytes += file != nullptr ? file->bytes.size() : 0;
    }
    return bytes;
}

bool isCutOff(const morva::osg::placed_image& placed, const morva::osg::recorded_atlas& atlas) {
    return placed.x + std::uint64_t{placed.width} * placed.columns > atlas.width ||
           placed.y + std::uint64_t{placed.height} * placed.rows > atlas.height;
}

} // namespace

std::string withExactAtlas(const std::string& parameters) {
    std::string text = parameters;
    if (!morva::osg::planOf(parameters).atlas ||
        morva::osg::parseOptTreeParams(text).count("exactatlas") != 0)
        return parameters;
    return parameters + ",exactatlas(true)";
}

unsigned int sideOf(const morva::osg::atlas_options& asked) {
    const unsigned int side = asked.textureSize;
    return side < least_side || side > most_side ? most_side : side;
}

std::vector<std::string> atlasNotes(const audit_plan& plan, const std::string& parameters) {
    std::vector<std::string> notes;
    const morva::osg::run_plan run = morva::osg::planOf(parameters);
    if (!run.atlas)
        return notes;
    if (sideOf(*run.atlas) != run.atlas->textureSize)
        notes.push_back("maxtexturesize takes 32 to 8192: 8192 is taken in place of " +
                        withCommas(run.atlas->textureSize));
    if (losesImages(run))
        notes.push_back("ambientocclusion takes all images away before there are atlases");
    const std::uint64_t transparent = run.merges ? count(plan, &staysTransparent) : 0;
    if (!run.merges && count(plan, &isFlattened) != 0)
        notes.push_back("without maxtris, maxtexturesize leaves geometry without indices: each "
                        "triangle has three vertices of its own");
    if (transparent != 0)
        notes.push_back(withCommas(transparent) +
                        (transparent == 1 ? " transparent part comes" : " transparent parts come") +
                        " out without indices and not merged: alphageometry(true) merges what is "
                        "transparent");
    return notes;
}

std::vector<std::string> notesOnAtlases(const morva::osg::atlas_record& record, bool has_ids) {
    std::vector<std::string> notes;
    if (record.atlases.empty())
        return notes;
    std::vector<std::string> cut_off;
    for (const morva::osg::recorded_atlas& atlas : record.atlases) {
        for (const morva::osg::placed_image& placed : atlas.images) {
            if (isCutOff(placed, atlas))
                cut_off.push_back(shownName(placed.image.get()));
        }
    }
    if (!cut_off.empty())
        notes.push_back("images reach beyond what is kept of their atlas, and look wrong: " +
                        quotedNames(cut_off) + "; exactatlas(true) keeps them whole");
    if (has_ids)
        notes.push_back("appearances in the ID map are those of the atlases");
    return notes;
}

void nameAtlases(const morva::osg::atlas_record& record) {
    for (std::size_t i = 0; i < record.atlases.size(); ++i) {
        const ::osg::ImagePtr image = record.atlases[i].image.get();
        if (nameOf(image).empty())
            ::osg::setName(image, "atlas " + std::to_string(i));
    }
}

std::string codeAtlases(const morva::osg::atlas_record& record, image_sources& images) {
    std::uint64_t before = 0, after = 0;
    for (const morva::osg::recorded_atlas& atlas : record.atlases) {
        const std::uint64_t bytes = fileBytes(atlas, images);
        if (bytes == 0)
            continue;
        encoded_image file{"image/png", encodePng(atlas.image.get())};
        before += bytes;
        after += file.bytes.size();
        images.rememberFinal(atlas.image.get(), std::move(file));
    }
    if (after <= before)
        return {};
    return "images that took " + readableBytes(before) + " in files of their own take " +
           readableBytes(after) + " in atlases, which are PNG";
}

} // namespace morva::host
