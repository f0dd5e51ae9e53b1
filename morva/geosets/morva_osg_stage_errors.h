#pragma once

// What stages of several geosets say of an exception, one line on standard error.
//
//     try { ... return; } catch (...) { printSetupError(); }
//     size = 0;                                   // and go on with what is there
//
// Call them inside a handler only: they look at the exception that is being handled.

#include <morva/core/morva_osg_sink.h>

namespace morva::osg {

inline void printSetupError() {
    print_caught({"bad_alloc caught in Geoset.setup(): ", "Standard exception in Geoset.setup(): ",
                  "Error occured in Geoset.setup()."});
}

inline void printAddObjectError() {
    print_caught({"bad_alloc caught in Extract geometry in Geoset.AddObject(): t: ",
                  "Exception in Geoset.AddObject(): ", "Error occured in Geoset.AddObject()."});
}

} // namespace morva::osg
