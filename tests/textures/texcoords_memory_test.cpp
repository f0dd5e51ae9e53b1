// What becomes of texture coordinates when memory runs out: one large allocation fails, every one
// in turn.

#include "texcoord_scenes.h"

#include "../support/live_containers.h"
#include "../support/scene_builders.h"
#include "../support/stream_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

#include <morva/textures/morva_osg_texcoords.h>

namespace {

/// Allocations of at least this many bytes are counted down; the one that meets 0 fails.
std::atomic<std::size_t> watched_bytes{std::numeric_limits<std::size_t>::max()};
std::atomic<long> until_failure{-1};

void* allocate(std::size_t bytes) {
    if (bytes >= watched_bytes && until_failure.fetch_sub(1) == 0)
        throw std::bad_alloc();
    void* memory = std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void* operator new(std::size_t bytes) { return allocate(bytes); }
void* operator new[](std::size_t bytes) { return allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace morva_test;
using uv::osg_geoset;

/// Runs `act` with one allocation failing, and returns whether it came to that. What is printed is
/// lost; std::bad_alloc may come out.
template <typename Act> bool fails(long index, std::size_t bytes, const Act& act) {
    const stream_capture out(std::cout), err(std::cerr);
    until_failure = index;
    watched_bytes = bytes;
    try {
        act();
    } catch (const std::bad_alloc&) {
        EXPECT_LT(until_failure, 0) << "thrown without need";
    }
    watched_bytes = std::numeric_limits<std::size_t>::max();
    return until_failure < 0;
}

/// Squares with coordinates from 0 to 8, in a row, some of them slivers.
mesh_data tiles() {
    mesh_data mesh = quads(30);
    for (std::size_t i = 0; i < 30; ++i) {
        mesh.coordinates.insert(mesh.coordinates.end(), {{0, 0}, {8, 0}, {8, 8}, {0, 8}});
        for (std::size_t k = 0; i % 7 == 0 && k < 4; ++k)
            mesh.positions[4 * i + k][1] *= 0.05F;
    }
    return mesh;
}

TEST(TexCoordsMemory, AGeosetStaysSound) {
    const unsigned int live = liveContainers();
    for (const bool smart : {false, true}) {
        bool failed = true;
        for (long index = 0; failed; ++index) {
            ASSERT_LT(index, 1000);
            SCOPED_TRACE(testing::Message() << "allocation " << index << " smart " << smart);
            const node_ref node(meshNode(tiles()));
            osg_geoset geoset;
            morva::osg::extract(node.get(), geoset, false, false, false, true, false);
            int added = -1;
            failed = fails(index, 256, [&] {
                added = smart ? morva::osg::optimizeTexCoordsSmart(geoset, 2, 50)
                              : morva::osg::optimizeTexCoords(geoset, 2, 50);
            });
            EXPECT_EQ(tri::broken_rule_of(geoset), "");
            if (!failed) {
                EXPECT_GE(index, 7) << "arrays grow";
                EXPECT_EQ(geoset.size, 60U + static_cast<unsigned>(added));
            }
        }
    }
    EXPECT_EQ(liveContainers(), live);
}

TEST(TexCoordsMemory, ANodeHasACoreThatCanBeDrawn) {
    const unsigned int live = liveContainers();
    bool failed = true;
    int kept = 0;
    for (long index = 0; failed; ++index) {
        ASSERT_LT(index, 1000);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        const node_ref node(meshNode(tiles(), chunked({1, 1, 1, 1}, imageOf(6407, 4, 4))));
        const ::osg::GeometryPtr old = coreOf(node.get());
        ::osg::NodePtr given = node.get();
        failed = fails(index, 256, [&] { morva::osg::optimizeTexCoords(given, 2, 50); });
        const ::osg::GeometryPtr core = coreOf(given);
        ASSERT_TRUE(core != ::osg::NullFC);
        kept += core == old ? 1 : 0;
        if (core == old)
            continue;
        ASSERT_TRUE(core->getPositions() != ::osg::NullFC);
        const ::osg::UInt32 rows = core->getPositions()->size();
        EXPECT_GE(rows, 180U);
        EXPECT_LE(core->getLengths()->getValue(0), rows);
        EXPECT_EQ(core->getTexCoords()->size(), rows);
    }
    EXPECT_GE(kept, 2) << "extraction found no memory";
    EXPECT_EQ(liveContainers(), live);
}

TEST(TexCoordsMemory, CollectingLeavesNothingBehind) {
    const unsigned int live = liveContainers();
    bool failed = true;
    for (long index = 0; failed; ++index) {
        ASSERT_LT(index, 1000);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        const auto material = chunked({1, 1, 1, 1}, imageOf(6407, 4, 4));
        const node_ref root(
            group({materialGroup(material, {meshNode(tiles())}), meshNode(tiles())}));
        node_ref found;
        failed = fails(index, 256, [&] {
            found = morva::osg::CollectNodesWithTexCoordsGreater(root.get(), 2);
            morva::osg::hasTCabove(root->getChild(0)->getChild(0), 9, true);
        });
        if (!failed) {
            EXPECT_EQ(found->getNChildren(), 1U) << "the other has no image";
        }
    }
    EXPECT_EQ(liveContainers(), live);
}

} // namespace
