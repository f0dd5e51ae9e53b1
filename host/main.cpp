#include <exception>
#include <iostream>

#include <fcntl.h>

#include <OpenSG/OSGBaseFunctions.h>

#include "commands.h"
#include "heap.h"
#include "host_error.h"
#include "signal_watch.h"

namespace {

/// Takes the numbers of standard streams that are closed: else a model being written could get one
/// and take in what is printed. Printing there still fails.
void occupyStandardStreams() {
    for (int number = 0; number < 3; ++number) {
        if (fcntl(number, F_GETFD) == -1 &&
            open("/dev/null", number == 0 ? O_WRONLY : O_RDONLY) == -1)
            return;
    }
}

} // namespace

int main(int argc, char** argv) try {
    occupyStandardStreams();
    morva::host::watchSignals();
    morva::host::reserveHeap();
    ::osg::osgInit(argc, argv);
    const int code = morva::host::run(argc, argv);
    ::osg::osgExit();
    return code;
} catch (const std::exception& error) { // before or after the run
    std::cerr << "morva: " << error.what() << "\n";
    return morva::host::exit_failed;
}
