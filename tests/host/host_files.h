#pragma once

// Files, folders and runs of the command for the host's tests.

#include "tests/support/test.h"

#include <filesystem>
#include <stdexcept>

#include "commands.h"
#include "model_export.h"

namespace morva_test {

/// A folder that goes with what is in it.
class temporary_folder {
  public:
    temporary_folder() {
        std::string name = (std::filesystem::temp_directory_path() / "morva-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    std::string path() const { return path_.string(); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    /// Names of what is in it, hidden ones too.
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            names.push_back(entry.path().filename().string());
        return names;
    }

  private:
    std::filesystem::path path_;
};

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

/// What a run of the command gave.
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
    result.code = morva::host::run(static_cast<int>(argv.size()), argv.data());
    result.out = out.text();
    result.err = err.text();
    return result;
}

} // namespace morva_test
