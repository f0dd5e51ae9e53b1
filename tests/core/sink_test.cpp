#include <morva/core/morva_osg_sink.h>

#include "tests/support/test.h"

namespace {

using morva::flush, morva::say, morva::say_error, morva::say_over_progress, morva::say_progress;

/// What is written, with "|" for each flush.
class noted_buffer : public std::stringbuf {
    int sync() override { return sputc('|') == '|' ? 0 : -1; }
};

/// What a stage says in one go, on both streams.
void speak() {
    say({"Found ", std::to_string(20), " Materials."});
    say({"first\nsecond\n"}, flush::no);
    say_progress(1, 9, {"\r", "11.1", "% "});
    say_progress(2, 9, {"\r22.2% "}, flush::no);
    say_over_progress({"Done.    "});
    say_error({"No ", "Geo."});
    say({""});
}

TEST(Sink, SpeaksToTheStandardStreamsUnlessAHostListens) {
    std::string heard;
    const auto hear = [&heard](const char* where) {
        return [&heard, where](std::string_view line) {
            heard.append(where).append(line).append("\n");
        };
    };
    const auto count = [&heard](std::size_t done, std::size_t total) {
        heard += "P" + std::to_string(done) + "/" + std::to_string(total) + "\n";
    };
    const std::string lines = "Found 20 Materials.\n|first\nsecond\n\n", end = "Done.    \n|\n|";
    const std::string heard_first = "OFound 20 Materials.\nOfirst\nOsecond\nO\n";
    const std::string numbers = "P1/9\nP2/9\n";
    const struct {
        const char* name;
        morva::output_sink sink;
        std::string out, error, heard;
    } cases[] = {{"none", {}, lines + "\r11.1% |\r22.2% \r" + end, "No Geo.\n|", ""},
                 {"progress alone", {nullptr, nullptr, count}, lines + end, "No Geo.\n|", numbers},
                 {"lines alone",
                  {hear("O"), nullptr, nullptr},
                  "\r11.1% |\r22.2% ",
                  "No Geo.\n|",
                  heard_first + "ODone.    \nO\n"},
                 {"all",
                  {hear("O"), hear("E"), count},
                  "",
                  "",
                  heard_first + numbers + "ODone.    \nENo Geo.\nO\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        heard.clear();
        noted_buffer out, error;
        const stream_capture of_out(std::cout), of_error(std::cerr);
        std::cout.rdbuf(&out);
        std::cerr.rdbuf(&error);
        (std::cerr << std::nounitbuf).tie(nullptr); // or there are flushes of its own
        std::cout << std::hex << std::showbase;     // as a caller may have left it
        {
            const morva::sink_scope scope(c.sink);
            speak();
            const std::string said[] = {out.str(), error.str(), heard};
            morva::held_texts texts;
            {
                const morva::held_texts::scope later(texts);
                speak();
            }
            EXPECT_TRUE(out.str() == said[0] && error.str() == said[1] && heard == said[2]);
            texts.give();
            texts.give(); // nothing more
        }
        EXPECT_EQ(out.str(), c.out + c.out);
        EXPECT_EQ(error.str(), c.error + c.error);
        EXPECT_EQ(heard, c.heard + c.heard);
    }
}

TEST(SinkThreads, WorkersSpeakInWholeLinesAndInTheirOrder) {
    const stream_capture out(std::cout); // a buffer that nobody locks
    inThreads(8, [](unsigned worker) {
        for (int i = 0; i < 300; ++i)
            say({std::to_string(worker), " said ", std::to_string(i)});
    });
    std::map<char, int> next;
    std::istringstream all(out.text());
    for (std::string line; std::getline(all, line);)
        ASSERT_EQ(line.substr(1), " said " + std::to_string(next[line[0]]++));
    EXPECT_EQ(next.size(), 8U);
    EXPECT_EQ(std::count_if(next.begin(), next.end(), [](auto& n) { return n.second == 300; }), 8);
}

/// What is said of an exception while it is handled.
template <typename Error> void stopped(const Error& error) {
    try {
        throw error;
    } catch (...) {
        morva::print_caught({"bad_alloc caught: ", "Standard exception: ", "Error occured."});
    }
}

TEST(Sink, SaysWhatWasCaughtAndOutlivesAHostThatThrows) {
    const stream_capture error(std::cerr);
    const auto all = [] {
        stopped(std::bad_alloc());
        stopped(std::runtime_error("broken"));
        stopped(7);
    };
    all();
    {
        const auto refuse = [](std::string_view) { throw std::runtime_error("full"); };
        const morva::sink_scope scope({refuse, refuse, nullptr});
        all();
        EXPECT_THROW(say({"line"}), std::runtime_error);
        EXPECT_THROW(say_error({"line"}), std::runtime_error);
    }
    say_error({"after"});
    EXPECT_EQ(error.text(), "bad_alloc caught: std::bad_alloc\nStandard exception: broken\n"
                            "Error occured.\nafter\n");
}

} // namespace
