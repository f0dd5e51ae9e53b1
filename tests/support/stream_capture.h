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
        : stream_(captured), saved_(stream_.rdbuf(buffer_.rdbuf())) {
        format_.copyfmt(stream_);
    }
    ~stream_capture() {
        stream_.rdbuf(saved_);
        stream_.copyfmt(format_);
    }
    stream_capture(const stream_capture&) = delete;
    stream_capture& operator=(const stream_capture&) = delete;

    /// Everything printed so far.
    std::string text() const { return buffer_.str(); }

  private:
    std::ostream& stream_;
    std::ostringstream buffer_;
    std::streambuf* saved_;
    std::ios format_{nullptr};
};

} // namespace morva_test
