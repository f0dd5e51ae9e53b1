#include <morva/idmap/morva_filetools.h>

#include <boost/filesystem.hpp>

#include <morva/core/morva_osg_params.h>
#include <morva/idmap/morva_osg_idmap_file.h>

namespace morva {

bool writeJsonFile(const std::string& name, const JsonFileContent& content, ::osg::NodePtr) {
    const map_file written = osg::writeMapFile(name, content);
    return written == map_file::whole || written == map_file::cut_short;
}

float getAmbientIntensity(::osg::Color4f diffuse, ::osg::Color4f ambient) {
    for (unsigned int channel = 0; channel < 3; ++channel) {
        if (static_cast<double>(diffuse[channel]) > 0.001)
            return ambient[channel] / diffuse[channel];
    }
    return 0.0F;
}

void createDir(char* path) {
    if (path == nullptr)
        return;
    const boost::filesystem::file_type type = boost::filesystem::status(path).type();
    if (type == boost::filesystem::status_error || type == boost::filesystem::file_not_found)
        boost::filesystem::create_directory(path);
}

std::size_t splitStringByDelimiter(const std::string& text, std::vector<std::string>& tokens,
                                   const std::string& delimiters) {
    tokens = osg::tokensOf(text, delimiters);
    return tokens.size();
}

} // namespace morva
