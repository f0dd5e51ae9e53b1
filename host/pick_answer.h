#pragma once

// What `morva pick` tells of a ray, as text and as JSON.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <morva/picking/morva_osg_ray_hits.h>

#include "part_lookup.h"

namespace morva::host {

/// A hit and the part behind it. Lengths are the world's.
struct pick_answer {
    part_label part;
    float distance = 0.f;
    ::osg::Pnt3f point;
    ::osg::Vec3f normal; ///< of the winding, length 1
    unsigned int triangle = 0;
    bool back_face = false;
};

/// The hits of one ray, nearest first.
using ray_answers = std::vector<pick_answer>;

/// The hits of one ray in the file and in the result of a run.
struct answer_pair {
    ray_answers file, result;

    /// Whether as many parts are hit, the same in the same order. A part that cannot be told is
    /// the same as none.
    bool samePart() const;
};

/// One block of lines, which ends with a line end; "no hit" for a miss.
std::string textOf(const ray_answers& answers);
/// The same in two columns, and whether they tell the same part.
std::string textOf(const answer_pair& answers);

/// A hit as an object; or of `all` the objects in "hits". Null for a miss.
nlohmann::ordered_json jsonOf(const ray_answers& answers, bool all);
/// An object with "file", "result" and "same_part"; null if both missed.
nlohmann::ordered_json jsonOf(const answer_pair& answers, bool all);

} // namespace morva::host
