#include <morva/core/morva_osg_params.h>

#include <locale>
#include <sstream>

namespace {

/// A stream on `text` that reads numbers alike under every global locale.
std::istringstream streamOn(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    return stream;
}

template <typename T> T readNumber(const std::string& text) {
    T value = 0;
    std::istringstream stream = streamOn(text);
    stream >> value;
    return value;
}

std::string lowerCase(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

void convert(const std::string& text, std::string& field) { field = text; }
void convert(const std::string& text, std::optional<std::string>& field) { field = text; }
template <typename T> void convert(const std::string& text, T& field) {
    field = morva::osg::string2X<T>(text);
}

/// Fills every field whose key stands in the map.
template <typename Setup>
void readFields(const std::map<std::string, std::string>& parameters, Setup& setup) {
    forEachKey(setup, [&parameters](const char* key, auto& field) {
        const auto found = parameters.find(key);
        if (found != parameters.end())
            convert(found->second, field);
    });
}

} // namespace

namespace morva::osg {

std::vector<std::string> tokensOf(const std::string& text, const std::string& delimiters) {
    std::vector<std::string> tokens;
    std::size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const std::size_t end = text.find_first_of(delimiters, start);
        tokens.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
    return tokens;
}

std::size_t splitStringByDelimiter(const std::string& text, std::vector<std::string>& tokens,
                                   const std::string& delimiters) {
    const std::vector<std::string> more = tokensOf(text, delimiters);
    tokens.insert(tokens.end(), more.begin(), more.end());
    return tokens.size();
}

void buildParameterMap(std::vector<std::string>& tokens,
                       std::map<std::string, std::string>& target) {
    for (const std::string& token : tokens) {
        const std::size_t open = token.find('(');
        const std::size_t close = token.find(')');
        if (open == std::string::npos || close == std::string::npos)
            continue;
        // A close before the open wraps the length round, and the value runs to the end.
        target.emplace(lowerCase(token.substr(0, open)), token.substr(open + 1, close - open - 1));
    }
}

std::map<std::string, std::string> parseOptTreeParams(std::string& parameters) {
    std::vector<std::string> tokens = tokensOf(parameters, ",");
    std::map<std::string, std::string> result;
    buildParameterMap(tokens, result);
    return result;
}

template <> int string2X<int>(const std::string& text) { return readNumber<int>(text); }

template <> unsigned int string2X<unsigned int>(const std::string& text) {
    return readNumber<unsigned int>(text);
}

template <> bool string2X<bool>(const std::string& text) {
    bool flag = false;
    std::istringstream stream = streamOn(text);
    stream >> flag;
    if (stream.fail()) {
        // Reads on where the number ended: at the end of the text the flag keeps what it has.
        stream.clear();
        stream >> std::boolalpha >> flag;
    }
    return flag;
}

void string2float(std::vector<std::string>& texts, std::vector<float>& values) {
    float value = 0.0f; // not reset between texts: a blank text repeats the one before
    for (const std::string& text : texts) {
        std::istringstream stream = streamOn(text);
        stream >> value;
        values.push_back(value);
    }
}

std::string optTreeDoc() {
    static const char* const lines[] = {
        "Type of parameter & parameter name : description [default value or \"-\" if not set]",
        "",
        "int maxtris: Maximum Number of Triangles per GeometryCore [-]",
        "int vertexcolor: Store MaterialColor in VertexColor if geometry has less triangles than "
        "threshold [-]",
        "int texcoords: Ignore Geometry with TC greater than that value for texture atlas [2]",
        "int optimizeTC: Try to optimize higher TC to this value by cutting triangles [2]",
        "int opt: Output level of the geometry.(0:3 Vertices per Tris 1:Single Index 2:Shared "
        "Index 3:Optimized Primitives) [1]",
        "int ambientOcclusion: Adds ambient occlusion to the model. Parameter is the number of "
        "shots per vertex. [0]",
        "string idmap: Creating an IDmap(reference to original Geometry) with the given name [-]",
        "string Prefix: When naming geometry use this prefix (e.g. the filename) [-]",
        "bool toworld: Vertex positions are tranformed to world coordinates [true]",
        "bool flat: Scenegraph as a flat graph(true), or as an hierarchy(false) [true]",
        "bool cacheopt: Merges all Geometry with the same Material and create chunks with 65555 "
        "vertices [false]",
        "bool calcnormals: False: Keep Normals True: Recreate normals after building a Geometry "
        "[false]",
        "bool addColorsTex: Replaces the color of geometries with a colored texture in the "
        "TextureAtlas. [false]",
        "bool removeLODParts: Removes all LODs and replaces them with the first child. [false]",
        "bool removeSwitchParts: Removes all Switches and replaces them with the first child. "
        "[false]",
        "bool alphaGeometry: Geometry with transparent Materials will be processed (true) or left "
        "untouched (false). [false]",
        "Uint maxTextureSize: Maximum Texture Size for Texture Atlas.(Range: 32-8092) [-]",
        "Float centerBB: Output Scene will be transformed to a centered BB with the given size "
        "[-]",
        "",
        "Example: opt(1),maxtris(5000),flat(true),idmap(false)",
        "Note: Depending on the operation, not all parameters are used! Boolean values work both "
        "0/1 and false/true",
    };
    std::string text;
    for (const char* line : lines) {
        text += line;
        text += '\n';
    }
    return text;
}

mergeGeo_setup::mergeGeo_setup(std::map<std::string, std::string> parameters) {
    readFields(parameters, *this);
}

optTree_setup::optTree_setup(const std::map<std::string, std::string>& parameters) {
    readFields(parameters, *this);
}

bool isParameterKey(const std::string& key) {
    bool found = false;
    optTree_setup setup;
    forEachKey(setup, [&](const char* known, const auto&) { found = found || key == known; });
    return found;
}

} // namespace morva::osg
