#include "parameter_table.h"

#include <algorithm>
#include <climits>
#include <cstdio>

namespace morva::host {

namespace {

constexpr int any = INT_MAX;
constexpr value_kind number = value_kind::number, flag = value_kind::flag, text = value_kind::text;

} // namespace

const std::array<parameter_row, 32> parameter_rows = {{
    {"maxtris", number, 0, any, "0", "triangles of an output core; not 0: geometry is merged"},
    {"opt", number, 0, 3, "1", "0 no index, 1 one index, 2 one per property, 3 strips"},
    {"flat", flag, 0, 0, "true", "false: the result in a hierarchy that halves space"},
    {"cacheopt", flag, 0, 0, "false", "vertex-cache order; needs maxtris of 10 or less"},
    {"toworld", flag, 0, 0, "true", "positions in world coordinates"},
    {"calcnormals", flag, 0, 0, "false", "new normals, crease angle 30 degrees"},
    {"numthreads", number, INT_MIN, any, "processors", "so many merge groups at a time"},
    {"idmap", text, 0, 0, "", "which part went where: the ID map NAME.json"},
    {"idmapinroot", flag, 0, 0, "false", "the ID map on the root of the scene"},
    {"prefix", text, 0, 0, "", "start of generated names"},
    {"maxtexturesize", number, 0, 8192, "0", "from 32: images into atlases of this side"},
    {"exactatlas", flag, 0, 0, "true", "with atlases all looks as before"},
    {"atlaspadding", number, 0, 64, "0", "texels of its own around an image in an atlas"},
    {"texcoords", number, -1, any, "2", "further repeats keep their image out of an atlas"},
    {"optimizetc", number, -1, any, "2", "triangles whose image repeats more are cut; -1: off"},
    {"deleteunusedtc", flag, 0, 0, "true", "without an image, coordinates go"},
    {"alphageometry", flag, 0, 0, "false", "transparent geometry is merged, too"},
    {"keeprenderfalse", flag, 0, 0, "false", "hidden geometry is carried over, not dropped"},
    {"removelod", flag, 0, 0, "false", "levels of detail give way to the first"},
    {"removeswitch", flag, 0, 0, "false", "switches give way to what they show"},
    {"ignorematerial", flag, 0, 0, "false", "merges across materials"},
    {"mergesamename", flag, 0, 0, "false", "merges only nodes of one name"},
    {"mergehierarchy", flag, 0, 0, "false", "batches of large groups by a tree over nodes"},
    {"mostusedmaterial", flag, 0, 0, "false", "the most used material for everything"},
    {"onegeometry", flag, 0, 0, "false", "one material, as few geometries as possible"},
    {"vertexcolor", number, -1, any, "-1", "materials of fewer triangles into vertex colours"},
    {"ambientocclusion", number, 0, 255, "0", "n: occlusion into colours, (n + 1)^3 rays a vertex"},
    {"aoreplace", flag, 0, 0, "false", "baking gives grey in place of colours"},
    {"ambientgutout", flag, 0, 0, "false", "parts that nobody sees go"},
    {"buildhull", flag, 0, 0, "false", "the maxtris most open triangles stay"},
    {"buildhullwithcolors", flag, 0, 0, "false", "the same by values in the vertex colours"},
    {"help", value_kind::none, 0, 0, "", "prints the optimiser's own help text"},
}};

const parameter_row* rowOf(const std::string& key) {
    const auto found = std::find_if(parameter_rows.begin(), parameter_rows.end(),
                                    [&](const parameter_row& row) { return key == row.key; });
    return found == parameter_rows.end() ? nullptr : &*found;
}

std::string valuesOf(const parameter_row& row) {
    if (row.kind == flag)
        return "true or false";
    if (row.kind != number)
        return row.kind == text ? "text" : "any";
    if (row.most == any)
        return row.least == INT_MIN ? "a number" : "a number from " + std::to_string(row.least);
    return std::to_string(row.least) + " to " + std::to_string(row.most);
}

std::string parameterTable() {
    std::string table = "PARAMETERS: key(value),key(value),... without blanks, keys in any case\n";
    const auto add = [&table](const char* key, const std::string& values, const char* usual,
                              const char* meaning) {
        char line[160];
        std::snprintf(line, sizeof line, "  %-19s  %-16s  %-10s  %s\n", key, values.c_str(), usual,
                      meaning);
        table += line;
    };
    add("key", "values", "default", "meaning");
    for (const parameter_row& row : parameter_rows)
        add(row.key, valuesOf(row), row.default_value, row.meaning);
    return table;
}

} // namespace morva::host
