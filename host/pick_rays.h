#pragma once

// The rays of `morva pick`, from the command line or from a file.

#include <string>
#include <vector>

#include <OpenSG/OSGVector.h>

namespace morva::host {

/// A ray in world units.
struct pick_ray {
    ::osg::Pnt3f origin;
    ::osg::Vec3f direction; ///< of length 1
};

/// The ray from a point along a direction, each a text of three numbers.
/// errors  host_error with exit_usage: no numbers, or a direction of length 0
pick_ray rayAlong(const std::string& from, const std::string& direction);

/// The ray from a point through another one, and beyond.
/// errors  host_error with exit_usage: no numbers, or equal points
pick_ray rayTo(const std::string& from, const std::string& to);

/// The rays of a file, six numbers a line: origin, direction of any length above 0.
/// errors  host_error: the file cannot be read; with exit_usage and the number of the line: that
///         line holds no ray
std::vector<pick_ray> readRays(const std::string& path);

} // namespace morva::host
