#pragma once

// Scenes for the benchmarks, in two kinds:
//
//     triangleGrid   a wavy sheet of n triangles, any n: sizes that a fit can be made over
//     engineGrid     the engine of the package assimp-testmodels, n times: parts, materials and
//                    transforms as they come out of construction programs
//
//     sorted_sheet   a sheet after extraction and tree building, for what comes behind them
//
// Same arguments, same scene, bit for bit. Build them off the clock.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/trees/kd_records.h>

namespace morva_bench {

constexpr std::int64_t triangles_per_engine = 121496;

/// Makes a geometry node of `triangles` triangles with positions, normals, coordinates and a
/// material.
///
/// indexed  one index for all properties, four to six triangles per vertex; otherwise every
///          corner has a vertex of its own
::osg::NodeRefPtr triangleGrid(unsigned triangles, bool indexed);

/// Places the engine `count` times, 800 units apart, in rows of `ceil(sqrt(count))`.
///
/// own_cores  every part gets a copy of its core; otherwise equal parts share one
/// returns    a new root; 115 drawn parts and 121,496 triangles per engine
/// errors     morva::host::host_error if the package is not installed
::osg::NodeRefPtr engineGrid(unsigned count, bool own_cores);

/// How the optimiser's own trees are set up, for cells of `cell` triangles.
morva::kd_build_setup treeSetup(unsigned cell, int straddle_mode);

/// A sheet extracted into a geoset, and its tree with whole triangles in cells of at most 5000.
struct sorted_sheet {
    explicit sorted_sheet(unsigned triangles);
    morva::osg::osg_geoset geoset;
    morva::kd_tree<float> tree;
};

/// The most memory that the process has held so far, in bytes; 0 if the kernel does not tell.
std::uint64_t peakBytes();

/// Swallows what the library says on standard output while it lives.
struct silence : morva::sink_scope {
    silence() : sink_scope({[](std::string_view) {}, nullptr, [](std::size_t, std::size_t) {}}) {}
};

} // namespace morva_bench
