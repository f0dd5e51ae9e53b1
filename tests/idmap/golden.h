#pragma once

// What the tests of the ID map share. Expected texts are files in the folder golden beside this.

#include "tests/support/test.h"

#include <morva/idmap/morva_osg_idmaphandler.h>

/// Each test starts with an empty handler, and leaves one and a free lock behind.
class IdMap : public testing::Test {
  protected:
    IdMap() { handler.reset(); }
    ~IdMap() override { handler.reset(); }

    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
};

/// A stored text with the words of `fill` replaced, wherever they stand.
inline std::string golden(const char* name,
                          const std::vector<std::pair<std::string, std::string>>& fill = {}) {
    std::string text = bytesOf(std::string(MORVA_GOLDEN_FOLDER "/") + name);
    for (const auto& [word, by] : fill) {
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size())
            text.replace(at, word.size(), by);
    }
    return text;
}
