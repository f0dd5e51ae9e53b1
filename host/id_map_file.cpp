#include "id_map_file.h"

#include <fstream>
#include <string>

#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::host {

namespace {

/// Whether a file ends with a text.
bool endsWith(std::ifstream& file, const std::string& end) {
    std::string read(end.size(), ' ');
    file.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
    return file.read(read.data(), static_cast<std::streamsize>(read.size())) && read == end;
}

/// How many nodes the tree of a map tells of. Names may hold any text, and can but add to them.
std::uint64_t nodesIn(std::ifstream& file) {
    const std::string key = "\"render\":\"";
    std::uint64_t nodes = 0;
    bool in_tree = false;
    file.seekg(0);
    for (std::string line; std::getline(file, line);) {
        in_tree = in_tree || line == "\"tree\":";
        const std::size_t start = line.find_first_not_of('\t');
        if (in_tree && start != std::string::npos && line.compare(start, key.size(), key) == 0)
            ++nodes;
    }
    return nodes;
}

} // namespace

std::string faultOfIdMap(const std::string& path, std::uint64_t nodes) {
    std::ifstream file(path, std::ios::binary);
    if (!endsWith(file, "}\n}\n\n"))
        return "the file is cut short";
    if (!morva::osg::getIDmapHandler().tree || nodesIn(file) < nodes)
        return "the tree in it is not whole";
    return std::string();
}

} // namespace morva::host
