#pragma once

// What the optimiser prints while it runs: whole lines, and progress that the next text writes
// over.
//
//     "Run Cacheopt...(9) Nodes.\n"   a line
//     "\r11.1% \r22.2% done.\n"       progress "11.1% ", progress "22.2% ", the line "done."
//
//     optimiser_output filter(lines ? std::cout.rdbuf() : nullptr, [](const std::string& text) {});
//     std::ostream stream(&filter);
//
// Several threads may print; pieces of their texts may mix as on any stream.

#include <functional>
#include <mutex>
#include <streambuf>
#include <string>

namespace morva::host {

/// Takes texts apart. What stands between carriage returns, or behind one and begins with a
/// number and "% ", is progress; carriage returns themselves go.
class optimiser_output : public std::streambuf {
  public:
    /// lines     gets the whole lines, null: nobody does
    /// progress  gets each piece of progress, without its carriage return
    optimiser_output(std::streambuf* lines, std::function<void(const std::string&)> progress);
    /// Hands on what has no line end yet.
    ~optimiser_output() override;
    optimiser_output(const optimiser_output&) = delete;
    optimiser_output& operator=(const optimiser_output&) = delete;

  protected:
    int_type overflow(int_type letter) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

  private:
    void take(char letter);
    void endOfProgress();
    void cutProgressOff();

    std::mutex mutex_;
    std::streambuf* lines_;
    std::function<void(const std::string&)> progress_;
    std::string piece_;         ///< text since the last line end or carriage return
    bool after_return_ = false; ///< a carriage return stands before `piece_`
};

} // namespace morva::host
