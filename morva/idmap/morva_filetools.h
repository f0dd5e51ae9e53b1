#pragma once

// The ID map as a text file for hosts, and small helpers for files and texts.
//
//     morva::writeJsonFile("parts.json", morva::osg::getIDmapHandler(), root);
//
//     {
//     "numberOfIDs":2,            IDs that came out somewhere
//     "maxGeoCount":1,            names given out for cores
//     "appearance": [ ...],       one block per material, by number
//     "mapping": [ ...],          one block per ID: name, box, appearance, cores that hold it
//     "tree":                     the input trees, as recorded
//     {
//     ...
//     }
//     }
//
// The text is JSON as long as the names are: nothing is escaped but the values of the tree's
// meta data. Readers lean on its exact look, blanks and line ends included. Numbers have six
// significant digits, whatever the global locale is.
//
// Driver's thread, no locks.

#include <cstddef>
#include <string>
#include <vector>

#include <OpenSG/OSGColor.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/idmap/morva_osg_idmap_content.h>

namespace morva {

/// Writes the ID map to a file, over what stands there.
///
/// name     of the file, with its extension
/// content  see JsonFileContent; appearances must be of materials that live. An ID without a
///          box or an appearance gets the origin and the empty text
/// node     not used
/// returns  whether the file was opened. False without a file if names, boxes or usage are
///          empty, or if it cannot be opened. What fails later, a full disk say, is not told
///          here: after optTree() see idmapHandler::file
/// prints   "Unable to open NAME. No IDmap/Json File created."; getColor()'s line on a switch
///          material without a choice, once per side
/// cost     linear; the text of the tree is copied once
MORVA_API bool writeJsonFile(const std::string& name, const JsonFileContent& content,
                             ::osg::NodePtr node);

/// Ambient over diffuse in the first of red, green and blue whose diffuse is above 0.001; 0 if
/// none is.
MORVA_API float getAmbientIntensity(::osg::Color4f diffuse, ::osg::Color4f ambient);

/// Makes a folder if nothing stands at the path; the folder above must be there. Null does
/// nothing.
///
/// errors  boost::filesystem::filesystem_error
MORVA_API void createDir(char* path);

/// Splits a text at every character of a set.
///
/// tokens      emptied first. No token is ever empty: runs of delimiters count as one, those at
///             the ends of the text are dropped
/// delimiters  a set of characters, not a word; with none the whole text is one token
/// returns     the number of tokens
MORVA_API std::size_t splitStringByDelimiter(const std::string& text,
                                             std::vector<std::string>& tokens,
                                             const std::string& delimiters);

} // namespace morva
