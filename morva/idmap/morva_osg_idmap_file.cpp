#include <morva/idmap/morva_osg_idmap_file.h>

#include <algorithm>
#include <fstream>
#include <locale>
#include <utility>

#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_filetools.h>

namespace morva::osg {

namespace {

/// The colours of one side of a material; zeros for what it does not tell.
struct side_colors {
    ::osg::Color4f diffuse{0.0F, 0.0F, 0.0F, 0.0F};
    ::osg::Color4f specular{0.0F, 0.0F, 0.0F, 0.0F};
    ::osg::Color4f ambient{0.0F, 0.0F, 0.0F, 0.0F};
    ::osg::Color4f emission{0.0F, 0.0F, 0.0F, 0.0F};
    float shininess = 0.0F;
};

/// The keys of one side in the order of the file.
struct side_keys {
    const char *diffuse, *specular, *emissive, *ambient, *shininess, *transparency;
};

constexpr side_keys front_keys = {"diffuseColor",     "specularColor", "emissiveColor",
                                  "ambientIntensity", "shininess",     "transparency"};
constexpr side_keys back_keys = {"backDiffuseColor",     "backSpecularColor", "backEmissiveColor",
                                 "backAmbientIntensity", "backShininess",     "backTransparency"};

void writeColor(std::ostream& file, const char* key, const ::osg::Color4f& color) {
    file << '"' << key << "\": \"" << static_cast<double>(color[0]) << ' '
         << static_cast<double>(color[1]) << ' ' << static_cast<double>(color[2]) << "\",\n";
}

void writeNumber(std::ostream& file, const char* key, float value, const char* end) {
    file << '"' << key << "\": \"" << static_cast<double>(value) << '"' << end;
}

/// Six lines, the last without its end.
void writeSide(std::ostream& file, const side_keys& keys, const side_colors& side) {
    writeColor(file, keys.diffuse, side.diffuse);
    writeColor(file, keys.specular, side.specular);
    writeColor(file, keys.emissive, side.emission);
    writeNumber(file, keys.ambient, getAmbientIntensity(side.diffuse, side.ambient), ",\n");
    writeNumber(file, keys.shininess, 0.0078125F * side.shininess, ",\n");
    writeNumber(file, keys.transparency, 1.0F - side.diffuse[3], "");
}

/// Whether a back side was ever set. A NaN differs from the preset.
bool isSet(const side_colors& back) {
    const ::osg::Color4f& color = back.diffuse;
    return !(color[0] == 1.0F && color[1] == 1.0F && color[2] == 1.0F && color[3] == 0.0F);
}

void writeAppearance(std::ostream& file, const ::osg::MaterialPtr& material,
                     const std::string& name) {
    side_colors front, back;
    getColor(material, front.diffuse, front.specular, front.ambient, front.emission,
             front.shininess);
    const bool has_back = getBackColor(material, back.diffuse, back.specular, back.ambient,
                                       back.emission, back.shininess);
    file << "{\n\"name\": \"" << name << "\",\n\"material\": { \n";
    writeSide(file, front_keys, front);
    if (has_back && isSet(back)) {
        file << ",\n";
        writeSide(file, back_keys, back);
    }
    file << "\n}}";
}

/// The appearances by the number in their names, which are otherwise alike.
std::vector<std::pair<::osg::MaterialPtr, std::string>> inOrder(const JsonFileContent& content) {
    std::vector<std::pair<::osg::MaterialPtr, std::string>> sorted(content.appearances.begin(),
                                                                   content.appearances.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        const std::size_t left = a.second.size(), right = b.second.size();
        return left != right ? left < right : a.second < b.second;
    });
    return sorted;
}

void writeAppearances(std::ostream& file, const JsonFileContent& content) {
    file << "\"appearance\": [ \n";
    const char* between = "";
    for (const auto& [material, name] : inOrder(content)) {
        file << between;
        writeAppearance(file, livingOne(material), name);
        between = ",\n";
    }
    file << "],\n";
}

/// The entry at `index`, or an empty one past the end.
template <typename Value>
const Value& entryAt(const std::vector<Value>& values, std::size_t index) {
    static const Value none{};
    return index < values.size() ? values[index] : none;
}

void writeMapping(std::ostream& file, const JsonFileContent& content) {
    file << "\"mapping\": [\n";
    const char* between = "";
    // Both go up by ID; IDs that name nothing stand before or behind.
    for (const auto& [id, cores] : content.usage) {
        const auto at = static_cast<std::size_t>(id);
        if (id < 0 || at >= content.names.size())
            continue;
        file << between << "{\n\"name\": \"" << content.names[at] << "\",\n";
        file << "\"min\": \"" << entryAt(content.mins, at) << "\",\n";
        file << "\"max\": \"" << entryAt(content.maxs, at) << "\",\n";
        file << "\"appearance\": \"" << entryAt(content.appearanceNames, at) << "\",\n";
        file << "\"usage\": [";
        const char* comma = "";
        for (const std::string& core : cores) {
            file << comma << '"' << core << '"';
            comma = ",";
        }
        file << "]\n}";
        between = ",\n";
    }
    file << "],\n";
}

} // namespace

map_file writeMapFile(const std::string& name, const JsonFileContent& content) {
    if (content.names.empty() || content.mins.empty() || content.maxs.empty() ||
        content.usage.empty())
        return map_file::none;

    std::vector<char> buffer(1 << 18); // outlives the stream
    std::ofstream file;
    file.imbue(std::locale::classic());
    file.rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    file.open(name, std::ios::trunc);
    if (!file) {
        say({"Unable to open ", name, ". No IDmap/Json File created."});
        return map_file::not_opened;
    }
    file << "{\n\"numberOfIDs\":" << content.usage.size() << ",\n";
    file << "\"maxGeoCount\":" << content.maxGeoCount << ",\n";
    writeAppearances(file, content);
    writeMapping(file, content);
    file << "\"tree\":\n{\n" << content.tree.str() << "}\n}\n\n";
    file.close();
    return file.fail() || content.tree.fail() ? map_file::cut_short : map_file::whole;
}

} // namespace morva::osg
