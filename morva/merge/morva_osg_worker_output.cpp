#include <morva/merge/morva_osg_worker_output.h>

#include <cstddef>

#include <ext/stdio_sync_filebuf.h>

namespace morva::osg {

namespace {

/// Whether a buffer writes through to the C streams, which lock for themselves.
bool isSafeToShare(std::streambuf* buffer) {
    return dynamic_cast<__gnu_cxx::stdio_sync_filebuf<char>*>(buffer) != nullptr;
}

} // namespace

line_gate::~line_gate() {
    for (const auto& [thread, text] : unfinished)
        target->sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

line_gate::int_type line_gate::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return traits_type::not_eof(character);
    const char one = traits_type::to_char_type(character);
    return xsputn(&one, 1) == 1 ? character : traits_type::eof();
}

std::streamsize line_gate::xsputn(const char* text, std::streamsize count) {
    const std::lock_guard<std::mutex> guard(mutex);
    std::string& line = unfinished[std::this_thread::get_id()];
    line.append(text, static_cast<std::size_t>(count));
    const std::size_t end = line.rfind('\n');
    if (end != std::string::npos) {
        target->sputn(line.data(), static_cast<std::streamsize>(end + 1));
        line.erase(0, end + 1);
    }
    return count;
}

int line_gate::sync() {
    const std::lock_guard<std::mutex> guard(mutex);
    return target->pubsync();
}

worker_output::gated_stream::gated_stream(std::ostream& stream_)
    : stream(stream_), own(stream.rdbuf()), gate(own), gated(stream.good() && !isSafeToShare(own)) {
    if (gated)
        stream.rdbuf(&gate);
}

worker_output::gated_stream::~gated_stream() {
    if (gated)
        stream.rdbuf(own);
}

} // namespace morva::osg
