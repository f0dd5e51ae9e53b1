#pragma once

// Which files a model file in place refers to, told from its text: a name counts where it stands
// between characters that no name goes on with. That holds for glTF, OBJ with its material file,
// COLLADA and the other texts, and errs for binary files only where a name happens to stand there.

#include <cstdint>
#include <set>
#include <string>

namespace morva::host {

/// Those of `names` that a model refers to, by itself or through another one of them. All stand in
/// the folder of the model. Empty if the model can't be read.
std::set<std::string> referredFiles(const std::string& model, const std::set<std::string>& names);

/// The name of a buffer file that belongs to "STEM.gltf": "STEM.0123456789abcdef.bin" with a print
/// of its content, so that a new buffer never takes the place of one that is in use.
std::string bufferName(const std::string& stem, std::uint64_t print);

/// The buffers named that way which a .gltf in place refers to, and no other .gltf or .glb of its
/// folder.
std::set<std::string> ownBuffers(const std::string& model);

} // namespace morva::host
