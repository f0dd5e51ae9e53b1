// The main function of the test programs. A test that leaves containers behind has failed.

#include <gtest/gtest.h>

#include "tests/support/live_containers.h"

namespace {

class stray_listener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        morva_test::strays_expected = false;
        at_start = morva_test::liveContainers();
    }
    void OnTestEnd(const testing::TestInfo&) override {
        if (!morva_test::strays_expected) {
            EXPECT_LE(morva_test::liveContainers(), at_start) << "containers are left behind";
        }
    }

    unsigned int at_start = 0;
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new stray_listener);
    return RUN_ALL_TESTS();
}
