#include "console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "host_error.h"

namespace morva::host {

void tell(const std::string& text) {
    errno = 0;
    std::cout << text << std::flush;
    // The second remembers what went wrong with the optimiser's lines.
    if (!std::cout || std::ferror(stdout) != 0)
        throw host_error(std::string("cannot write to standard output") +
                         (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
}

void tellError(std::string_view text) {
    for (;;) {
        const std::size_t end = text.find('\n');
        std::cerr << "morva: " << text.substr(0, end) << "\n";
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

void tellNotes(const std::vector<std::string>& notes, bool quiet) {
    if (quiet)
        return;
    for (const std::string& note : notes)
        std::cerr << "morva: note: " << note << "\n";
}

} // namespace morva::host
