#pragma once

// What the fuzz entries share. An entry is a file with one function: any bytes in, and a process
// that ends if they do harm. libFuzzer calls it (`./do fuzz SECONDS`), or replay.cpp as a test.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <OpenSG/OSGBaseFunctions.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGLog.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" [[gnu::used]] inline int LLVMFuzzerInitialize(int* argc, char*** argv) {
    const bool good = ::osg::osgInit(*argc, *argv);
    ::osg::osgLog().setLogLevel(::osg::LOG_FATAL, true);
    return good ? 0 : 1;
}

namespace fuzz {

/// Ends the process if something does not hold.
inline void require(bool holds, const std::string& otherwise) {
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", otherwise.c_str());
    std::abort();
}

/// Requires that every container made while it lives is gone at its end. The first run of a process
/// makes some that stay, and is not judged.
class no_strays {
  public:
    no_strays() = default;
    no_strays(const no_strays&) = delete;
    no_strays& operator=(const no_strays&) = delete;
    ~no_strays() {
        static bool first = true;
        const ::osg::UInt32 end = nextNumber();
        for (::osg::UInt32 id = begin_ + 1; id < end && !first; ++id)
            require(::osg::FieldContainerFactory::the()->getContainer(id) == ::osg::NullFC,
                    "container " + std::to_string(id) + " is left behind");
        first = false;
    }

  private:
    /// Containers are numbered in the order in which they are made.
    static ::osg::UInt32 nextNumber() {
        const ::osg::NodeRefPtr probe(::osg::Node::create());
        return probe.get().getFieldContainerId();
    }
    ::osg::UInt32 begin_ = nextNumber();
};

} // namespace fuzz
