#include "atlas_report.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

using morva::osg::atlas_obstacle;
using nlohmann::ordered_json;

constexpr std::size_t most_lines = 16; ///< of atlases

std::string sidesOf(std::uint64_t width, std::uint64_t height) {
    return withCommas(width) + " x " + withCommas(height);
}

std::string counted(std::uint64_t number, const std::string& what, const std::string& many) {
    return withCommas(number) + " " + (number == 1 ? what : many);
}

std::string lineOf(const morva::osg::recorded_atlas& atlas, std::size_t number) {
    char filled[32];
    std::snprintf(filled, sizeof filled, "%.1f", 100.0 * atlas.occupancy);
    return "atlas " + std::to_string(number) + ": " + sidesOf(atlas.width, atlas.height) + ", " +
           counted(atlas.images.size(), "image", "images") + ", " + filled + " % filled" +
           (atlas.transparent ? ", transparent\n" : "\n");
}

/// The images that one reason keeps out.
struct kept_out {
    std::vector<std::string> names;
    std::uint64_t geometries = 0;
};

std::string lineOf(atlas_obstacle obstacle, const kept_out& images) {
    return counted(images.names.size(), "image", "images") + " of " +
           counted(images.geometries, "geometry", "geometries") + " left out, " + textOf(obstacle) +
           ": " + quotedNames(images.names) + "\n";
}

} // namespace

std::string shownName(const ::osg::ImagePtr& image) {
    if (image == ::osg::NullFC)
        return "image";
    const std::string name = nameOf(image);
    if (name.empty())
        return "image of " + sidesOf(static_cast<std::uint64_t>(image->getWidth()),
                                     static_cast<std::uint64_t>(image->getHeight()));
    return name[0] == '*' ? "image " + name.substr(1) : name;
}

std::string atlasLines(const morva::osg::atlas_record& record) {
    std::string text = record.atlases.empty() ? "no atlas is made\n" : "";
    for (std::size_t i = 0; i < record.atlases.size() && i < most_lines; ++i)
        text += lineOf(record.atlases[i], i);
    if (record.atlases.size() > most_lines)
        text += "and " + withCommas(record.atlases.size() - most_lines) + " more\n";
    std::map<atlas_obstacle, kept_out> by_reason;
    for (const morva::osg::left_out_image& left : record.left_out) {
        kept_out& images = by_reason[left.obstacle];
        images.names.push_back(shownName(left.image.get()));
        images.geometries += left.geometries;
    }
    for (const auto& [obstacle, images] : by_reason)
        text += lineOf(obstacle, images);
    return text;
}

ordered_json jsonOf(const morva::osg::atlas_record& record) {
    ordered_json made = ordered_json::array(), left_out = ordered_json::array();
    for (const morva::osg::recorded_atlas& atlas : record.atlases) {
        ordered_json images = ordered_json::array();
        for (const morva::osg::placed_image& placed : atlas.images)
            images.push_back({{"name", validUtf8(shownName(placed.image.get()))},
                              {"x", placed.x},
                              {"y", placed.y},
                              {"width", placed.width},
                              {"height", placed.height},
                              {"columns", placed.columns},
                              {"rows", placed.rows}});
        made.push_back({{"width", atlas.width},
                        {"height", atlas.height},
                        {"transparent", atlas.transparent},
                        {"occupancy", atlas.occupancy},
                        {"images", images}});
    }
    for (const morva::osg::left_out_image& left : record.left_out)
        left_out.push_back({{"name", validUtf8(shownName(left.image.get()))},
                            {"reason", textOf(left.obstacle)},
                            {"geometries", left.geometries}});
    return {{"made", made}, {"left_out", left_out}, {"geometries", record.geometries}};
}

} // namespace morva::host
