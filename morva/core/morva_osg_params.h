#pragma once

// The parameter language: one string switches everything that a run does.
//
//     "opt(1),maxtris(5000),Flat(true)"
//        | split at commas
//     opt(1)   maxtris(5000)   Flat(true)
//        | key before the first "(", in lower case; value up to the first ")"
//     flat -> "true", maxtris -> "5000", opt -> "1"
//        | string2X<T>, as forEachKey() says which field a key answers
//     optTree_setup and, within it, mergeGeo_setup
//
// A new key is a field of one of the two records and its line in forEachKey() below it.
//
// Nothing here reports an error: a token without both brackets is passed over, a repeated key is
// dropped, unknown keys are kept and never looked up, and a value that does not convert gives
// what a stream read gives. Plain text, no state, any thread.

#include <morva/core/morva_export.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace morva::osg {

/// The parts of a text between the characters of a set.
///
/// delimiters  a set of characters, not a word; with none the whole text is one token
/// returns     in order; no token is ever empty, since runs of delimiters count as one and those
///             at the ends of the text are dropped
MORVA_API std::vector<std::string> tokensOf(const std::string& text, const std::string& delimiters);

/// Appends tokensOf() to `tokens`, and returns how many elements that holds now.
MORVA_API std::size_t splitStringByDelimiter(const std::string& text,
                                             std::vector<std::string>& tokens,
                                             const std::string& delimiters);

/// Enters each token of the form `key(value)` into `target`, keys folded to lower case (ASCII).
///
/// The value runs to the first ")" of the token and is neither trimmed nor folded. A token without
/// both brackets is passed over, and of equal keys the first stays, an earlier one in `target`
/// included. With a ")" before the "(" the value runs to the end of the token.
MORVA_API void buildParameterMap(std::vector<std::string>& tokens,
                                 std::map<std::string, std::string>& target);

/// The map of a parameter string: tokens between commas, then `buildParameterMap`. A value can
/// therefore hold no comma. `parameters` stays as it is.
MORVA_API std::map<std::string, std::string> parseOptTreeParams(std::string& parameters);

/// The value that a formatted stream read takes from the start of `text`; what follows it is
/// ignored.
///
/// int, unsigned int  0 for no number, the range limit beyond the range; an unsigned -1 wraps
/// bool               reads a number first, and if that fails reads on for a lower-case word:
///                    "1", "true" and every number but 0 that ends the text are true; the empty
///                    text, other words and "2x" (the second read finds the x) are false
template <typename T> T string2X(const std::string& text);
template <> MORVA_API int string2X<int>(const std::string& text);
template <> MORVA_API unsigned int string2X<unsigned int>(const std::string& text);
template <> MORVA_API bool string2X<bool>(const std::string& text);

/// Appends one float per text. A text of white space only gives the value of the text before it
/// (0 if it is the first), a text that starts otherwise without a number gives 0.
MORVA_API void string2float(std::vector<std::string>& texts, std::vector<float>& values);

/// The help text on the parameters, for people: 23 lines. It is no list of the true keys.
MORVA_API std::string optTreeDoc();

/// The options of the merge pass. Each field is named after its key.
struct MORVA_API mergeGeo_setup {
    int vertexcolor = -1; ///< groups below this many triangles bake their colour in; < 1: off
    int texcoords = 2;    ///< coordinate limit of the atlas; -1 once the atlas stage has run
    int optimizetc = 2;   ///< target of the coordinate cutting, > 0: on; -1 after that stage
    int opt = 1;          ///< output level 0 to 3
    int numthreads = 1;   ///< above 1: workers, one per material group, at most this many at once
    bool silent = false;  ///< less printing
    bool storeondisk = false;     ///< kept for callers; nothing acts on it
    bool toworld = true;          ///< positions go to world coordinates
    bool flat = true;             ///< no scene hierarchy
    bool cacheopt = false;        ///< run the vertex-cache stage, with cells of a whole batch
    bool calcnormals = false;     ///< make new normals after the rebuild
    bool addcolorstex = false;    ///< printed; nothing acts on it
    bool deleteunusedtc = true;   ///< drop texture coordinates that no texture uses
    bool mergesamename = false;   ///< merge only nodes of equal name within a material
    bool mergehierarchy = false;  ///< merge by the hierarchical road
    bool ignorematerial = false;  ///< all nodes form one group
    bool alphageometry = false;   ///< transparent geometry is merged too
    bool keeprenderfalse = false; ///< hidden geometry is carried over instead of dropped
    std::string idmap;            ///< name of the ID map; not empty: the run tracks names

    mergeGeo_setup() = default;

    /// Defaults first, then every field whose key stands in the map.
    explicit mergeGeo_setup(std::map<std::string, std::string> parameters);
};

/// Calls `visit(key, field)` for each key that a field answers.
template <typename Visit> void forEachKey(mergeGeo_setup& setup, const Visit& visit) {
    visit("vertexcolor", setup.vertexcolor);
    visit("texcoords", setup.texcoords);
    visit("optimizetc", setup.optimizetc);
    visit("opt", setup.opt);
    visit("numthreads", setup.numthreads);
    visit("silent", setup.silent);
    visit("storeondisk", setup.storeondisk);
    visit("toworld", setup.toworld);
    visit("flat", setup.flat);
    visit("cacheopt", setup.cacheopt);
    visit("calcnormals", setup.calcnormals);
    visit("addcolorstex", setup.addcolorstex);
    visit("deleteunusedtc", setup.deleteunusedtc);
    visit("mergesamename", setup.mergesamename);
    visit("mergehierarchy", setup.mergehierarchy);
    visit("ignorematerial", setup.ignorematerial);
    visit("alphageometry", setup.alphageometry);
    visit("keeprenderfalse", setup.keeprenderfalse);
    visit("idmap", setup.idmap);
}

/// All options of a run: those of the merge pass, and those that optTree() reads itself, each
/// named after its key. What a run makes of them is told by planOf() of the driver.
struct MORVA_API optTree_setup {
    mergeGeo_setup merge;
    unsigned int maxtris = 0;          ///< triangles per output core; not 0: geometry is merged
    unsigned int maxtexturesize = 0;   ///< side of a texture atlas; not 0: images go into some
    bool exactatlas = false;           ///< nothing looks different in an atlas: see atlas_options
    unsigned int atlaspadding = 0;     ///< texels around each image in an atlas, at most 64
    unsigned int ambientocclusion = 0; ///< shots per vertex; not 0: occlusion is baked in
    bool mostusedmaterial = false;     ///< one material for the whole scene
    bool removelod = false;            ///< levels of detail give way to their first child
    bool removeswitch = false;         ///< switches give way to what they show
    bool aoreplace = true;             ///< baking replaces colours and materials, or multiplies
    bool ambientgutout = false;        ///< what nobody sees goes
    bool buildhull = false;            ///< a hull in place of the model
    bool buildhullwithcolors = false;  ///< the same, by values in the vertex colours
    bool idmapinroot = false;          ///< the ID map is attached to the new root
    bool onegeometry = false;          ///< as few geometries as possible
    std::optional<std::string> help;   ///< the help text is printed if the key is there
    std::string prefix;                ///< of generated names

    optTree_setup() = default;

    /// As for mergeGeo_setup.
    explicit optTree_setup(const std::map<std::string, std::string>& parameters);
};

/// As above, for the keys of the merge pass too.
template <typename Visit> void forEachKey(optTree_setup& setup, const Visit& visit) {
    forEachKey(setup.merge, visit);
    visit("maxtris", setup.maxtris);
    visit("maxtexturesize", setup.maxtexturesize);
    visit("exactatlas", setup.exactatlas);
    visit("atlaspadding", setup.atlaspadding);
    visit("ambientocclusion", setup.ambientocclusion);
    visit("aoreplace", setup.aoreplace);
    visit("mostusedmaterial", setup.mostusedmaterial);
    visit("removelod", setup.removelod);
    visit("removeswitch", setup.removeswitch);
    visit("ambientgutout", setup.ambientgutout);
    visit("buildhull", setup.buildhull);
    visit("buildhullwithcolors", setup.buildhullwithcolors);
    visit("idmapinroot", setup.idmapinroot);
    visit("onegeometry", setup.onegeometry);
    visit("help", setup.help);
    visit("prefix", setup.prefix);
}

/// Whether a key, in lower case, is one of a run.
MORVA_API bool isParameterKey(const std::string& key);

} // namespace morva::osg
