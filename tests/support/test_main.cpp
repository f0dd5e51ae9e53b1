// The main function of the test programs. Containers can't be made before the scene graph runs, and
// a test that leaves some behind has failed. A random test that fails tells its seed.

#include <cstdlib>
#include <iostream>

#include <gtest/gtest.h>

#include <OpenSG/OSGBaseFunctions.h>
#include <OpenSG/OSGConfig.h>

#include "tests/support/live_containers.h"
#include "tests/support/random_rounds.h"

namespace {

class test_watch : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        morva_test::strays_expected = false;
        morva_test::seed_asked = false;
        at_start_ = morva_test::liveContainers();
    }
    void OnTestEnd(const testing::TestInfo& test) override {
        if (!morva_test::strays_expected) {
            EXPECT_LE(morva_test::liveContainers(), at_start_) << "containers are left behind";
        }
        if (test.result()->Failed() && morva_test::seed_asked) {
            const char* const seed = std::getenv("MORVA_SEED");
            const bool given = seed != nullptr && *seed != '\0';
            std::cout << (given ? "seed: MORVA_SEED=" : "seed: MORVA_SEED is not set")
                      << (given ? seed : "") << std::endl;
        }
    }

    unsigned int at_start_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new test_watch);
    return ::osg::osgInit(argc, argv) ? RUN_ALL_TESTS() : 1;
}
