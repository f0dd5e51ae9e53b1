#pragma once

// Atlases in the table and in the report.

#include <string>

#include <nlohmann/json.hpp>

#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::host {

/// A name of an image for people. Images within a model file are called by their number there.
std::string shownName(const ::osg::ImagePtr& image);

/// One line an atlas, then one for each reason why images are in none, of bounded length.
std::string atlasLines(const morva::osg::atlas_record& record);

/// All atlases with their images, and all images that are in none.
nlohmann::ordered_json jsonOf(const morva::osg::atlas_record& record);

} // namespace morva::host
