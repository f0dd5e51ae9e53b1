// The main function of every test program: containers can't be made before the scene graph runs.

#include <gtest/gtest.h>

#include <OpenSG/OSGBaseFunctions.h>
#include <OpenSG/OSGConfig.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return ::osg::osgInit(argc, argv) ? RUN_ALL_TESTS() : 1;
}
