#include <OpenSG/OSGBaseFunctions.h>

#include "commands.h"
#include "heap.h"

int main(int argc, char** argv) {
    morva::host::reserveHeap();
    ::osg::osgInit(argc, argv);
    const int code = morva::host::run(argc, argv);
    ::osg::osgExit();
    return code;
}
