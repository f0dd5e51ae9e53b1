#include <OpenSG/OSGBaseFunctions.h>

#include "commands.h"

int main(int argc, char** argv) {
    ::osg::osgInit(argc, argv);
    const int code = morva::host::run(argc, argv);
    ::osg::osgExit();
    return code;
}
