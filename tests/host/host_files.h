#pragma once

// Files, folders and runs of the command for the host's tests.

#include "tests/support/test.h"

#include "commands.h"
#include "model_export.h"
#include "tests/support/temporary_folder.h"

namespace morva_test {

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// A scene as a file of the format that the extension tells.
inline std::string modelFile(const std::string& path, const ::osg::NodePtr& root) {
    const node_ref held(root);
    morva::host::writeModel(root, morva::host::image_sources(), path);
    return path;
}

/// The words of a command line; the first "@" of each becomes the folder.
inline std::vector<std::string> wordsOf(const std::string& command,
                                        const temporary_folder& folder) {
    std::vector<std::string> words;
    std::istringstream text(command);
    for (std::string word; text >> word; words.push_back(word)) {
        const std::size_t at = word.find('@');
        if (at != std::string::npos)
            word.replace(at, 1, folder.path() + "/");
    }
    return words;
}

struct command_result {
    int code = 0;
    std::string out, err;
};

inline command_result runMorva(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv = {"morva"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    const stream_capture out(std::cout), err(std::cerr);
    command_result result;
    result.code = morva::host::run(int(argv.size()), argv.data());
    result.out = out.text();
    result.err = err.text();
    return result;
}

} // namespace morva_test
