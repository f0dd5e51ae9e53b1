#pragma once

// Takes in what is printed while it lives:
//
//     stream_capture out(std::cout);
//     speak();
//     EXPECT_EQ(out.text(), "hello\n");
//
// The stream gets its buffer and its format back at the end, so that no test depends on the one
// before. Two captures of one stream must end in reverse order.

#include <ios>
#include <iostream>
#include <sstream>
#include <string>

namespace morva_test {

class stream_capture {
  public:
    explicit stream_capture(std::ostream& captured)
        : stream(captured), saved(stream.rdbuf(buffer.rdbuf())) {
        format.copyfmt(stream);
    }
    ~stream_capture() {
        stream.rdbuf(saved);
        stream.copyfmt(format);
    }
    stream_capture(const stream_capture&) = delete;
    stream_capture& operator=(const stream_capture&) = delete;

    /// Everything printed so far.
    std::string text() const { return buffer.str(); }

  private:
    std::ostream& stream;
    std::ostringstream buffer;
    std::streambuf* saved;
    std::ios format{nullptr};
};

} // namespace morva_test
