// What the cache optimisers do when memory runs out: each larger allocation fails, one a run.

#include "tests/support/shortage.h"

#include <gtest/gtest.h>

#include <random>

#include <morva/draworder/morva_osg_cacheopt.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

namespace {

using namespace morva_test;

TEST(DrawOrderMemory, GivesWhatWasFinishedAndLeavesNothingBehind) {
    std::mt19937 rng(64);
    for (const unsigned mode : {4U, 1U}) {
        mesh_data mesh = withAttributes(soup(rng, 700), rng);
        mesh.primitives[0].first = mode;
        const node_ref source(meshNode(withIndexPerProperty(std::move(mesh), rng)));
        bool aboveLimit = false;
        node_ref made(morva::osg::optimizeCache(source.get(), aboveLimit, 300, false));
        const ::osg::UInt32 pieces = made->getNChildren();
        made = ::osg::NullFC;
        const unsigned int live = liveContainers();
        unsigned int caught = 0;
        bool failed = true;
        for (long index = 0; failed; ++index) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << ", allocation " << index);
            ASSERT_LT(index, 5000);
            const stream_capture out(std::cout);
            ::osg::NodePtr result;
            try {
                const shortage one(index, 1, 1024);
                result = morva::osg::optimizeCache(source.get(), aboveLimit, 300, false);
                failed = shortage::happened();
            } catch (const std::bad_alloc&) {
                continue; // while the source was given its index
            }
            made = result;
            const std::string told = out.text();
            caught += told.empty() ? 0 : 1;
            if (failed) {
                EXPECT_TRUE(told.empty() || told == "Error occured in morva_osg_cacheopt.\n");
                EXPECT_LE(made->getNChildren(), pieces);
            } else {
                EXPECT_EQ(made->getNChildren(), pieces);
            }
            made = ::osg::NullFC;
        }
        EXPECT_GT(caught, 20U);
        EXPECT_EQ(liveContainers(), live);
    }
}

} // namespace
