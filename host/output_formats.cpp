#include "output_formats.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include <OpenSG/OSGSimpleAttachments.h>

#include "geometry_view.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

struct column {
    const char* title; ///< in the table, and of what is lost
    bool output_format::*kept;
};

const column columns[] = {
    {"lines", &output_format::lines},      {"points", &output_format::points},
    {"tree", &output_format::tree},        {"names", &output_format::names},
    {"sharing", &output_format::sharing},  {"materials", &output_format::materials},
    {"textures", &output_format::textures}};

bool isTree(const ::osg::NodePtr& root) {
    ::osg::Matrix place;
    if (placementOf(root, place))
        return true;
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i) {
        const ::osg::NodePtr child = root->getChild(i);
        if (child->getNChildren() != 0 || placementOf(child, place))
            return true;
    }
    return false;
}

/// What a scene has, as a format would keep it. Sharing is no loss to see.
output_format contentsOf(const ::osg::NodePtr& root) {
    output_format has = {"", false, false, isTree(root), false, false, false, false};
    for (const drawn_node& drawn : drawnNodes(root)) {
        has.names = has.names || getName(drawn.node) != nullptr;
        has.materials = has.materials || drawn.material != ::osg::NullFC;
        has.textures = has.textures || !imagesOf(drawn.material).empty();
        const geometry_view view(drawn.core);
        for (const auto& run : view.runs) {
            has.points = has.points || run.type == GL_POINTS;
            has.lines = has.lines || run.type == GL_LINES || run.type == GL_LINE_STRIP ||
                        run.type == GL_LINE_LOOP;
        }
    }
    return has;
}

} // namespace

const std::vector<output_format>& outputFormats() {
    static const std::vector<output_format> formats = {
        // extension, lines, points, tree, names, sharing, materials, textures
        {"assbin", true, true, true, true, true, true, true},
        {"dae", true, false, true, false, true, true, true},
        {"glb", true, true, true, true, true, true, true},
        {"gltf", true, true, true, true, true, true, true},
        {"obj", true, true, false, true, false, true, true},
        {"osb", true, true, true, true, true, true, true},
        {"ply", true, true, false, false, false, false, false},
        {"stl", false, false, false, false, false, false, false}};
    return formats;
}

const output_format* outputFormatOf(const std::string& path) {
    const std::string extension = extensionOf(path);
    const std::vector<output_format>& all = outputFormats();
    const auto found = std::find_if(all.begin(), all.end(), [&](const output_format& format) {
        return extension == format.extension;
    });
    return found != all.end() ? &*found : nullptr;
}

std::string formatTable() {
    std::ostringstream text;
    text << "Formats that are written, and what they keep besides triangles.\n"
            "tree: nodes below nodes, with transforms; sharing: one core for several nodes.\n"
            "A .dae changes names and drops the colour below a texture; an .obj gives nodes that\n"
            "share a core one name.\n\n"
            "        ";
    for (const column& kept : columns)
        text << "  " << kept.title;
    for (const output_format& format : outputFormats()) {
        std::string line = "\n." + std::string(format.extension);
        line.resize(9, ' ');
        text << line;
        for (const column& kept : columns) {
            std::string cell = format.*kept.kept ? "  yes" : "  -";
            cell.resize(std::string(kept.title).size() + 2, ' ');
            text << cell;
        }
    }
    return text.str();
}

std::string lossesOf(const output_format& format, const ::osg::NodePtr& root) {
    if (std::all_of(std::begin(columns), std::end(columns),
                    [&](const column& each) { return format.*each.kept; }))
        return std::string();
    const output_format has = contentsOf(root);
    std::vector<std::string> lost;
    for (const column& each : columns) {
        if (has.*each.kept && !(format.*each.kept))
            lost.emplace_back(each.title);
    }
    if (lost.empty())
        return std::string();
    std::string text = "." + std::string(format.extension) + " keeps no ";
    for (std::size_t i = 0; i < lost.size(); ++i)
        text += (i == 0 ? "" : i + 1 == lost.size() ? " and no " : ", no ") + lost[i];
    return text + ": left out";
}

} // namespace morva::host
