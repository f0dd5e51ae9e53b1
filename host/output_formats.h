#pragma once

// The formats that are written, and what a file of each still holds when it is read again: one
// table for the command line, for the writers and for the test that reads all of them again.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

namespace morva::host {

/// All keep the triangles where they stand in the world.
struct output_format {
    const char* extension;
    bool lines, points;
    bool tree;      ///< nodes below nodes, with their transforms
    bool names;     ///< of geometry nodes; of several with one core the first one's, at least
    bool sharing;   ///< one core for several nodes
    bool materials; ///< which triangle has which colour, but for those with a texture
    bool textures;
};

const std::vector<output_format>& outputFormats();

/// By the extension of a path; null if there is none.
const output_format* outputFormatOf(const std::string& path);

/// The table as text, for people.
std::string formatTable();

/// What the scene has and the format does not keep, in one sentence; empty if nothing.
std::string lossesOf(const output_format& format, const ::osg::NodePtr& root);

} // namespace morva::host
