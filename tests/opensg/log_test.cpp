// The log: what shows, and that lines stay whole.

#include <gtest/gtest.h>

#include <OpenSG/OSGLog.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../support/stream_capture.h"

namespace {

TEST(Log, ShowsNoticesAndWhatIsGraverByDefault) {
    const morva_test::stream_capture out(std::cerr);
    SWARNING << "w " << 1 << ::osg::endLog;
    PNOTICE << "n" << ::osg::endLog;
    SINFO << "i" << ::osg::endLog;
    FNOTICE(("%s %d\n", "n", 2));
    FINFO(("i\n"));
    EXPECT_EQ(out.text(), "WARNING:  w 1\nn\nNOTICE:  n 2\n");
    EXPECT_TRUE(::osg::osgLog().checkModule("any"));
}

TEST(Log, LinesOfSeveralThreadsStayWhole) {
    const morva_test::stream_capture out(std::cerr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                FWARNING(("thread %d\n", t));
                SWARNING << "thread " << t << ::osg::endLog;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::istringstream lines(out.text());
    std::vector<int> seen(4, 0);
    for (std::string line; std::getline(lines, line);) {
        ASSERT_EQ(line.size(), 18u) << line;
        ASSERT_EQ(line.substr(0, 17), "WARNING:  thread ");
        ++seen.at(static_cast<std::size_t>(line.back() - '0'));
    }
    EXPECT_EQ(seen, std::vector<int>(4, 400));
}

} // namespace
