#pragma once

// The text that writeJsonFile() writes, see there, for those who want to know how it went.

#include <string>

#include <morva/idmap/morva_osg_idmap_content.h>

namespace morva::osg {

/// writeJsonFile() with what became of the file, the disk's errors included.
map_file writeMapFile(const std::string& name, const JsonFileContent& content);

} // namespace morva::osg
