#pragma once

// The source parts that a file tells of, one row each: a vertex names its part by the row.
//
//     row        0                 1                     2
//     name       "bolt"            "bolt"                "hood"
//     path       "engine/bolt"     "engine/bolt~2"       "engine/#1/hood"

#include <string>

#include <OpenSG/OSGVector.h>

namespace morva::host {

struct part_row {
    std::string name;       ///< as in the source file; empty if it has none
    std::string path;       ///< unique; empty where several parts share the row
    ::osg::Pnt3f low, high; ///< box in the space of the file's scene; low above high: none known
};

} // namespace morva::host
