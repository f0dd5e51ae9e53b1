#pragma once

// Expected texts as files, in the folder golden beside this.

#include "tests/support/test.h"

#include <filesystem>

/// A stored text with the words of `fill` replaced, wherever they stand.
inline std::string golden(const char* name,
                          const std::vector<std::pair<std::string, std::string>>& fill = {}) {
    std::string text = bytesOf(std::filesystem::path(MORVA_GOLDEN_FOLDER) / name);
    for (const auto& [word, by] : fill) {
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size())
            text.replace(at, word.size(), by);
    }
    return text;
}
