// What the way from scene to cores does when memory runs out: one allocation of some size fails,
// every one in turn.

#include "merge_scenes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

#include <morva/geosets/morva_osg_splitmodel.h>

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

/// Lets one allocation fail within its scope.
struct failure {
    explicit failure(long index, std::size_t bytes = 512) {
        until_failure = index;
        watched_bytes = bytes;
    }
    failure(const failure&) = delete;
    failure& operator=(const failure&) = delete;
    ~failure() { watched_bytes = std::numeric_limits<std::size_t>::max(); }

    /// True if there were that many allocations.
    static bool happened() { return until_failure < 0; }
};

} // namespace

void* operator new(std::size_t bytes) { return allocate(bytes); }
void* operator new[](std::size_t bytes) { return allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

TEST(MemoryRunsOut, MakeGeoCoreGivesAnEmptyGeometry) {
    std::mt19937 rng(9001);
    const ::osg::NodeRefPtr source(flat::nodeOf(split::randomSoup(rng, 200), "soup"));
    morva::osg::osg_geoset geoset;
    morva::osg::extract(source.get(), geoset, false, false, false, true, false);
    morva::kd_tree<float> tree;
    morva::compile(geoset, tree, scene::cells(1000), morva::kd_strategy_ObjMedian());

    const unsigned int live = split::liveContainers();
    for (int opt = 0; opt <= 3; ++opt) {
        bool failed = true;
        long index = 0;
        for (; failed; ++index) {
            ASSERT_LT(index, 2000);
            SCOPED_TRACE(testing::Message() << "opt " << opt << " allocation " << index);
            testing::internal::CaptureStderr();
            ::osg::NodePtr made;
            {
                const failure one(index);
                made = morva::osg::MakeGeoCore(tree, geoset, 0, 200, opt, false);
                failed = failure::happened();
            }
            const ::osg::NodeRefPtr node(made);
            const std::string told = testing::internal::GetCapturedStderr();
            const ::osg::GeometryPtr core = scene::coreOf(node.get());
            ASSERT_TRUE(core != ::osg::NullFC);
            if (!told.empty()) {
                EXPECT_EQ(told, "Bad_Alloc caught in MakeGeoCore: std::bad_alloc\n");
                EXPECT_EQ(core->getPositions()->size(), 0U);
            } else if (!failed) {
                EXPECT_GT(core->getPositions()->size(), 0U);
            }
        }
        EXPECT_GT(index, 3);
        // Above level 0 the index functions make containers of their own.
        if (opt == 0) {
            EXPECT_EQ(split::liveContainers(), live);
        }
    }
}

TEST(MemoryRunsOut, MergeGeoGivesWhatWasFinishedAndLeavesNothingBehind) {
    std::mt19937 rng(9002);
    const ::osg::MaterialRefPtr red(scene::plain(0));
    const ::osg::MaterialRefPtr blue(scene::plain(1));
    const ::osg::NodeRefPtr root(scene::group({}));
    for (int i = 0; i < 6; ++i) {
        const ::osg::GeometryPtr soup = split::randomSoup(rng, 40);
        soup->setMaterial(i % 2 == 0 ? red.get() : blue.get());
        root->addChild(flat::nodeOf(soup, "soup"));
    }
    root->addChild(flat::nodeOf(flat::geometryOf({{1, 300}}, flat::gridPoints(rng, 300))));

    morva::osg::mergeGeo_setup setup = scene::quiet();
    setup.opt = 0;
    setup.deleteunusedtc = false; // or the sources lose containers
    const unsigned int live = split::liveContainers();
    bool failed = true;
    unsigned int caught = 0;
    for (long index = 0; failed; ++index) {
        ASSERT_LT(index, 20000);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        ::osg::NodePtr made;
        {
            const failure one(index, 1024);
            made = morva::osg::mergeGeo(root.get(), scene::cells(20), setup);
            failed = failure::happened();
        }
        testing::internal::GetCapturedStdout();
        const std::string told = testing::internal::GetCapturedStderr();
        ASSERT_TRUE(made != ::osg::NullFC);
        const ::osg::NodeRefPtr result(made);
        if (told == "bad_alloc caught in geomerge: std::bad_alloc\n")
            ++caught;
        if (!failed) {
            EXPECT_EQ(scene::worldTriangles(result.get()).size(), 240U);
        }
    }
    EXPECT_GT(caught, 0U);
    EXPECT_EQ(split::liveContainers(), live);
}

} // namespace
