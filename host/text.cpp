#include "text.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace morva::host {

namespace {

/// Length of the UTF-8 sequence at `at`, or 0 if there is none. Overlong forms of two bytes,
/// surrogates and values above U+10FFFF are none.
std::size_t sequenceLength(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned lead = byte(at);
    const std::size_t length = lead < 0x80                    ? 1
                               : lead >= 0xC2 && lead <= 0xDF ? 2
                               : lead >= 0xE0 && lead <= 0xEF ? 3
                               : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                              : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
    }
    const unsigned second = byte(at + 1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F))
        return 0;
    return length;
}

} // namespace

std::string extensionOf(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    const std::size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    std::string extension = path.substr(dot + 1);
    for (char& letter : extension) {
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    }
    return extension;
}

std::string validUtf8(const std::string& text) {
    bool valid = true;
    for (std::size_t at = 0; at < text.size() && valid;) {
        const std::size_t length = sequenceLength(text, at);
        valid = length != 0;
        at += length;
    }
    if (valid)
        return text;
    std::string plain = text;
    for (char& letter : plain) {
        if (static_cast<unsigned char>(letter) >= 0x80)
            letter = '_';
    }
    return plain;
}

std::string quotedNames(const std::vector<std::string>& names) {
    constexpr std::size_t most = 20;
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < most; ++i)
        text += (i == 0 ? "'" : ", '") + validUtf8(names[i]) + "'";
    return names.size() > most ? text + ", ..." : text;
}

std::string encodedUri(const std::string& name) {
    std::string uri;
    for (const char letter : name) {
        const bool plain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                           (letter >= '0' && letter <= '9') || std::strchr("-_.~", letter);
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(letter));
        uri += plain ? std::string(1, letter) : code;
    }
    return uri;
}

std::string withCommas(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string readableBytes(std::uint64_t bytes) {
    if (bytes < 1000)
        return std::to_string(bytes) + " bytes";
    static const std::array<const char*, 4> units = {"kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1000.0;
    std::size_t unit = 0;
    while (value >= 999.95 && unit + 1 < units.size()) {
        value /= 1000.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

} // namespace morva::host
