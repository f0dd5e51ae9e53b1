#include <exception>
#include <iostream>

#include <OpenSG/OSGBaseFunctions.h>

#include "commands.h"
#include "heap.h"
#include "host_error.h"

int main(int argc, char** argv) try {
    morva::host::reserveHeap();
    ::osg::osgInit(argc, argv);
    const int code = morva::host::run(argc, argv);
    ::osg::osgExit();
    return code;
} catch (const std::exception& error) { // before or after the run
    std::cerr << "morva: " << error.what() << "\n";
    return morva::host::exit_failed;
}
