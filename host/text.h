#pragma once

// Small things about texts: names of files, numbers for people.

#include <cstdint>
#include <string>
#include <vector>

namespace morva::host {

/// The extension in lower case without its dot; empty if there is none.
std::string extensionOf(const std::string& path);

/// The text if it is valid UTF-8; otherwise each byte above 127 becomes "_".
std::string validUtf8(const std::string& text);

/// "'bolt', 'nut'": the first 20, and ", ..." where there are more.
std::string quotedNames(const std::vector<std::string>& names);

/// A file name as a reference inside a file: all but letters, digits and "-_.~" as %XX.
std::string encodedUri(const std::string& name);

/// "1,943,936"
std::string withCommas(std::uint64_t number);

/// "44.2 MB", "812 bytes"
std::string readableBytes(std::uint64_t bytes);

} // namespace morva::host
