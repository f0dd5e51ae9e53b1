#pragma once

// What `morva collide` tells, as text and as JSON.

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGVector.h>

#include "part_names.h"

namespace morva::host {

/// One side of the question.
struct collide_side {
    std::string path;              ///< of its node, or "rest"
    std::vector<std::string> open; ///< paths of its parts whose surface is not closed
};

struct collide_question {
    collide_side a, b;
};

/// Two parts that touch. Both are looked up in a node_names that stays.
struct contact {
    const named_part *a, *b;
    ::osg::Pnt3f point; ///< in the world
};

/// The answer for one place of B.
struct collide_answer {
    std::size_t pose = 0, line = 0; ///< from 1, and where it stands in its file; 0: as in the model
    std::vector<contact> contacts;  ///< at most one unless all are asked for
    bool a_inside = false;          ///< no contact, and A lies inside B
    bool b_inside = false;          ///< no contact, and B lies inside A
    double seconds = 0.0;           ///< that the search for contacts took
};

/// The answer, a line each for what there is to say.
std::string textOf(const collide_answer& answer);
/// What holds for all answers: which parts are open. Empty if none is.
std::string openText(const collide_question& question);

/// One object with all of it.
nlohmann::ordered_json jsonOf(const collide_question& question, const collide_answer& answer);

} // namespace morva::host
