#pragma once

// How deep trees may be. Passes walk by plain recursion over the children, so that the stack
// bounds the depth; trees that are deeper are refused before anything walks them.
//
// Measured with `ulimit -s` 256 and 512 on chains of groups and transforms: the deepest that comes
// through every stage grows by one level for 345 bytes (the optimiser), 504 to 819 (glTF writer),
// and up to 1,311 (exporters of the import library); the rest of a run takes 100 KB.

#include <cstddef>
#include <functional>
#include <string>

namespace morva::host {

/// Levels that a tree may have, its root included: what the stack limit of the process has room
/// for, and at most 2000.
std::size_t mostLevels();

/// errors  host_error if the stack limit leaves no room for any tree
void checkStack();

/// What is said of a tree that is too deep, in words for the user.
std::string tooDeep();

/// Runs `work` to its end on a stack of its own of `bytes`, or of less where the system has no room
/// for it, but not below 1 MiB. Address space alone, but for what is used.
/// errors  what `work` throws; std::bad_alloc if there is no thread for it
void runOnStack(std::size_t bytes, const std::function<void()>& work);

} // namespace morva::host
