#pragma once

// What stages of several geosets say of an exception, one line on standard error.
//
//     try { ... return; } catch (...) { printSetupError(); }
//     size = 0;                                   // and go on with what is there
//
// Call them inside a handler only: they look at the exception that is being handled.

#include <exception>
#include <iostream>
#include <new>

namespace morva::osg {

inline void printSetupError() {
    try {
        throw;
    } catch (const std::bad_alloc& error) {
        std::cerr << "bad_alloc caught in Geoset.setup(): " << error.what() << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "Standard exception in Geoset.setup(): " << error.what() << std::endl;
    } catch (...) {
        std::cerr << "Error occured in Geoset.setup()." << std::endl;
    }
}

inline void printAddObjectError() {
    try {
        throw;
    } catch (const std::bad_alloc& error) {
        std::cerr << "bad_alloc caught in Extract geometry in Geoset.AddObject(): t: "
                  << error.what() << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "Exception in Geoset.AddObject(): " << error.what() << std::endl;
    } catch (...) {
        std::cerr << "Error occured in Geoset.AddObject()." << std::endl;
    }
}

} // namespace morva::osg
