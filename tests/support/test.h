#pragma once

// What almost every test file takes in: the test framework, the standard containers, the scene
// graph's nodes, cores, materials and attachments, and the scene tools of the tests with theirs.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGLineIterator.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGTextureChunk.h>
#include <OpenSG/OSGTransform.h>
#include <OpenSG/OSGTriangleIterator.h>

#include "tests/support/live_containers.h"
#include "tests/support/mesh_multiset.h"
#include "tests/support/random_rounds.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

namespace morva_test {

/// Runs a function in several threads, which it tells their numbers.
template <class Function> void inThreads(unsigned count, const Function& function) {
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < count; ++t)
        threads.emplace_back([&function, t] { function(t); });
    for (std::thread& thread : threads)
        thread.join();
}

inline std::uint32_t bits_of(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// What a file holds; empty if it can't be read.
inline std::string bytesOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace morva_test

using namespace morva_test;
