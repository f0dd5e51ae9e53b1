#pragma once

// The poses of `morva collide`: matrices that stand in for the to-world matrix of B.

#include <cstddef>
#include <string>
#include <vector>

#include <OpenSG/OSGMatrix.h>

namespace morva::host {

struct collide_pose {
    ::osg::Matrix to_world;
    std::size_t line = 0; ///< of the file, from 1
};

/// Reads a file with 16 numbers a line: a matrix row by row, so that the translation stands at the
/// 4th, 8th and 12th place and "0 0 0 1" at the end.
/// errors  host_error: the file cannot be read; with exit_usage and the number of the line: that
///         line holds no matrix
std::vector<collide_pose> readPoses(const std::string& path);

} // namespace morva::host
