#pragma once

// The parameter language: one string switches everything that a run does.
//
//     "opt(1),maxtris(5000),Flat(true)"
//        | split at commas
//     opt(1)   maxtris(5000)   Flat(true)
//        | key before the first "(", in lower case; value up to the first ")"
//     flat -> "true", maxtris -> "5000", opt -> "1"
//        | string2X<T>, per key, by whoever reads it
//     mergeGeo_setup, and the keys that optTree reads itself
//
// Nothing here reports an error: a token without both brackets is passed over, a repeated key is
// dropped, unknown keys are kept and never looked up, and a value that does not convert gives
// what a stream read gives. Plain text, no state, any thread.

#include <morva/core/morva_export.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace morva::osg {

/// Splits a text at every character of a set.
///
/// text        any
/// tokens      appended to; no token is ever empty, since runs of delimiters count as one and
///             those at the ends of the text are dropped
/// delimiters  a set of characters, not a word; with none the whole text is one token
/// returns     how many elements `tokens` holds now, those from before the call included
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

/// The options of a run, read by the driver and the merge pass. Beside each field: its key in
/// the parameter map, if that is not the field's name, and what it does.
struct MORVA_API mergeGeo_setup {
    int vertexcolor = -1; ///< groups below this many triangles bake their colour in; < 1: off
    int texcoords = 2;    ///< coordinate limit of the atlas; -1 once the atlas stage has run
    int optimizetc = 2;   ///< target of the coordinate cutting, > 0: on; -1 after the atlas stage
    int opt = 1;          ///< output level 0 to 3
    int numthreads = 1;   ///< above 1: workers, one per material group, at most this many at once
    bool silent = false;  ///< less printing
    bool storeondisk = false;     ///< kept for callers; nothing acts on it
    bool toworld = true;          ///< positions go to world coordinates
    bool flat = true;             ///< no scene hierarchy
    bool cacheopt = false;        ///< run the vertex-cache stage, with a cell limit of 3000000
    bool calcnormals = false;     ///< make new normals after the rebuild
    bool addcolorstex = false;    ///< plain colours join the atlas as textures
    bool deleteunusedtc = true;   ///< drop texture coordinates that no texture uses
    bool mergesamename = false;   ///< merge only nodes of equal name within a material
    bool mergehierarchy = false;  ///< merge by the hierarchical road
    bool ignorematerial = false;  ///< all nodes form one group
    bool alphageometry = false;   ///< transparent geometry is merged too
    bool keeprenderfalse = false; ///< hidden geometry is carried over instead of dropped
    std::string idmap;            ///< name of the ID map; not empty: the run tracks names

    mergeGeo_setup() = default;

    /// Defaults first, then every field whose key (its own name) stands in the map.
    explicit mergeGeo_setup(std::map<std::string, std::string> parameters);
};

} // namespace morva::osg
