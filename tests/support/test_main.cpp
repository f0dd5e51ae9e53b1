// The main function of the test programs. Containers can't be made before the scene graph runs, and
// a test that leaves some behind has failed.

#include <gtest/gtest.h>

#include <OpenSG/OSGBaseFunctions.h>
#include <OpenSG/OSGConfig.h>

#include "tests/support/live_containers.h"

namespace {

class stray_listener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        morva_test::strays_expected = false;
        at_start_ = morva_test::liveContainers();
    }
    void OnTestEnd(const testing::TestInfo&) override {
        if (!morva_test::strays_expected) {
            EXPECT_LE(morva_test::liveContainers(), at_start_) << "containers are left behind";
        }
    }

    unsigned int at_start_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new stray_listener);
    return ::osg::osgInit(argc, argv) ? RUN_ALL_TESTS() : 1;
}
