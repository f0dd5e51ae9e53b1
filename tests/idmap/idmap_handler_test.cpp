#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include <OpenSG/OSGBarrier.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGThreadManager.h>

#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::getIDmapHandler;
using morva::osg::idmapHandler;

/// Each test starts with an empty handler and leaves the lock free.
class IdMapHandler : public testing::Test {
  protected:
    IdMapHandler() { handler.reset(); }
    ~IdMapHandler() override { handler.reset(); }

    int insert(const std::string& name, const ::osg::Pnt3f& low, const ::osg::Pnt3f& high,
               const ::osg::MaterialPtr& material = ::osg::NullFC) {
        std::string text = name;
        ::osg::Pnt3f min = low;
        ::osg::Pnt3f max = high;
        return handler.insertNodeName(text, min, max, material, "");
    }
    int insert(const std::string& name, const ::osg::MaterialPtr& material = ::osg::NullFC) {
        return insert(name, ::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(1, 1, 1), material);
    }

    idmapHandler& handler = getIDmapHandler();
};

TEST_F(IdMapHandler, NodesOfOneNameShareAnIdAndTheirBoxCoversThemAll) {
    EXPECT_EQ(insert("A", ::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(1, 1, 1)), 0);
    EXPECT_EQ(insert("B", ::osg::Pnt3f(5, 5, 5), ::osg::Pnt3f(6, 6, 6)), 1);
    EXPECT_EQ(insert("A", ::osg::Pnt3f(-2, 0.5F, 0), ::osg::Pnt3f(0, 3, 1)), 0);

    ASSERT_EQ(handler.names, (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(handler.mins[0], ::osg::Pnt3f(-2, 0, 0));
    EXPECT_EQ(handler.maxs[0], ::osg::Pnt3f(1, 3, 1));
    EXPECT_EQ(handler.mins[1], ::osg::Pnt3f(5, 5, 5));
    EXPECT_EQ(handler.appearanceNames.size(), handler.names.size());
}

TEST_F(IdMapHandler, AppearancesAreNumberedByTheFirstNameOfTheirMaterial) {
    const ::osg::ChunkMaterialRefPtr red(::osg::ChunkMaterial::create());
    const ::osg::ChunkMaterialRefPtr blue(::osg::ChunkMaterial::create());
    insert("a", red.get());
    insert("b", blue.get());
    insert("c"); // no material is one, too
    insert("d", red.get());
    insert("a", blue.get()); // known: keeps the appearance that it came with
    EXPECT_EQ(handler.appearanceNames,
              (std::vector<std::string>{"__App_0", "__App_1", "__App_2", "__App_0"}));
}

TEST_F(IdMapHandler, FindsWhatALinearSearchWouldFind) {
    std::vector<std::string> names;
    for (int i = 0; i < 500; ++i) {
        const std::string name = "part" + std::to_string(i * 7 % 101);
        std::size_t expected = 0;
        while (expected < names.size() && names[expected] != name)
            ++expected;
        if (expected == names.size())
            names.push_back(name);
        ASSERT_EQ(insert(name), static_cast<int>(expected));
    }
    EXPECT_EQ(handler.names, names);
    handler.releaseHeldLock();

    // A caller that empties the list itself starts from 0 as well.
    handler.names.clear();
    handler.mins.clear();
    handler.maxs.clear();
    handler.appearanceNames.clear();
    EXPECT_EQ(insert("part3"), 0);
}

TEST_F(IdMapHandler, NamesOfResultsGoOnOverTheRunsOfAProcess) {
    const unsigned int given = handler.maxGeoCount;
    const unsigned int merged = handler.mergedCount;
    EXPECT_EQ(handler.getNextGeometryName(), "_G_" + std::to_string(given + 1));
    EXPECT_EQ(handler.getNextMergedGeometryName(), "MG_" + std::to_string(merged));
    handler.prefix = "part";
    EXPECT_EQ(handler.getNextGeometryName(), "part_G_" + std::to_string(given + 2));
    EXPECT_EQ(handler.getNextMergedGeometryName(), "MG_" + std::to_string(merged + 1));

    handler.merged = true;
    handler.reset();
    EXPECT_EQ(handler.prefix, "");
    EXPECT_FALSE(handler.merged);
    EXPECT_EQ(handler.getNextGeometryName(), "_G_" + std::to_string(given + 3));
}

TEST_F(IdMapHandler, ResetForgetsTheRunButNotTheTreeText) {
    handler.tree << "first run";
    handler.tree.setstate(std::ios::failbit);
    insert("A");
    handler.usage[0].insert("MG_0");
    handler.texCoordMapping["MG_0"] = "TC0";
    handler.reset();
    EXPECT_TRUE(handler.names.empty() && handler.mins.empty() && handler.maxs.empty() &&
                handler.appearanceNames.empty() && handler.appearances.empty() &&
                handler.usage.empty() && handler.texCoordMapping.empty());
    EXPECT_TRUE(handler.tree.good());
    EXPECT_NE(handler.tree.str().find("first run"), std::string::npos);
}

TEST_F(IdMapHandler, OnlyAKnownNameKeepsTheLock) {
    insert("A");
    EXPECT_EQ(handler.releaseHeldLock(), 0U);
    insert("A");
    insert("B");
    insert("A");
    EXPECT_EQ(handler.releaseHeldLock(), 2U);
    EXPECT_EQ(handler.releaseHeldLock(), 0U);
}

/// A second thread that asks for a known name while the first one holds the lock.
struct contender {
    idmapHandler* handler;
    bool could_take_lock;
    int id;
    static void run(void* argument) {
        auto& self = *static_cast<contender*>(argument);
        self.could_take_lock = self.handler->lock->request();
        if (self.could_take_lock)
            self.handler->lock->release();
        std::string name = "A";
        ::osg::Pnt3f min(0, 0, 0), max(1, 1, 1);
        self.id = self.handler->insertNodeName(name, min, max, ::osg::NullFC, "");
        self.handler->releaseHeldLock();
    }
};

::osg::Thread* threadNamed(const char* name) {
    return dynamic_cast<::osg::Thread*>(::osg::ThreadManager::the()->getThread(name, "OSGThread"));
}

TEST_F(IdMapHandler, AnotherThreadWaitsUntilTheHolderIsDone) {
    insert("A");
    insert("A"); // held from here on
    contender other{&handler, true, -1};
    ::osg::Thread* thread = threadNamed("idmap_contender");
    thread->runFunction(contender::run, 0, &other);
    handler.releaseHeldLock();
    ::osg::BaseThread::join(thread);
    EXPECT_EQ(other.id, 0);

    // The second thread gave back what it held: nobody waits for it now.
    EXPECT_TRUE(handler.lock->request());
    handler.lock->release();
}

TEST_F(IdMapHandler, TheHeldLockKeepsOthersOut) {
    insert("A");
    insert("A");
    struct probe {
        idmapHandler* handler;
        bool taken;
        static void run(void* argument) {
            auto& self = *static_cast<probe*>(argument);
            self.taken = self.handler->lock->request();
            if (self.taken)
                self.handler->lock->release();
        }
    };
    ::osg::Thread* thread = threadNamed("idmap_probe");
    probe held{&handler, true};
    thread->runFunction(probe::run, 0, &held);
    ::osg::BaseThread::join(thread);
    EXPECT_FALSE(held.taken);

    handler.reset(); // gives it back
    probe freed{&handler, false};
    thread->runFunction(probe::run, 0, &freed);
    ::osg::BaseThread::join(thread);
    EXPECT_TRUE(freed.taken);
}

TEST_F(IdMapHandler, ThreadsThatInsertTheSameNamesAgreeOnTheIds) {
    struct worker {
        idmapHandler* handler;
        int ids[200];
        static void run(void* argument) {
            auto& self = *static_cast<worker*>(argument);
            for (int i = 0; i < 200; ++i) {
                std::string name = "n" + std::to_string(i % 50);
                ::osg::Pnt3f min(0, 0, 0), max(1, 1, 1);
                self.ids[i] = self.handler->insertNodeName(name, min, max, ::osg::NullFC, "");
                if (i % 20 == 19)
                    self.handler->releaseHeldLock();
            }
            self.handler->releaseHeldLock();
        }
    };
    worker first{&handler, {}};
    worker second{&handler, {}};
    ::osg::Thread* threads[] = {threadNamed("idmap_a"), threadNamed("idmap_b")};
    threads[0]->runFunction(worker::run, 0, &first);
    threads[1]->runFunction(worker::run, 0, &second);
    for (::osg::Thread* thread : threads)
        ::osg::BaseThread::join(thread);
    ASSERT_EQ(handler.names.size(), 50U);
    for (int i = 0; i < 200; ++i) {
        const std::string name = "n" + std::to_string(i % 50);
        EXPECT_EQ(handler.names[static_cast<std::size_t>(first.ids[i])], name);
        EXPECT_EQ(first.ids[i], second.ids[i]);
    }
}

/// A named geometry node whose TexCoords7 hold the given values.
::osg::NodePtr nodeWithIds(const char* name, const std::vector<float>& ids) {
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    const ::osg::GeoTexCoords1fPtr values = ::osg::GeoTexCoords1f::create();
    for (const float id : ids)
        values->editField().push_back(id);
    geometry->setTexCoords7(values);
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(geometry);
    if (name != nullptr)
        ::osg::setName(node, name);
    return node;
}

::osg::GeometryPtr coreOf(const ::osg::NodePtr& node) {
    return ::osg::GeometryPtr::dcast(node->getCore());
}

TEST_F(IdMapHandler, UsageListsEveryOutputOncePerId) {
    const ::osg::NodeRefPtr root(::osg::Node::create());
    root->setCore(::osg::Group::create());
    root->addChild(nodeWithIds("x", {0, 0, 1, 3.9F, 0}));
    root->addChild(nodeWithIds("y", {1, 1}));
    root->addChild(nodeWithIds(nullptr, {0, 1}));
    const ::osg::NodePtr inner = nodeWithIds("z", {3});
    inner->addChild(nodeWithIds("below a geometry", {0}));
    root->addChild(inner);

    handler.registerGeometryUsage(root.get());
    using names = std::set<std::string>;
    EXPECT_EQ(handler.usage, (std::map<int, names>{{0, {"x"}}, {1, {"x", "y"}}, {3, {"x", "z"}}}));
    EXPECT_EQ(handler.texCoordMapping,
              (std::map<std::string, std::string>{{"x", "TC0"}, {"y", "TC0"}, {"z", "TC0"}}));
}

TEST_F(IdMapHandler, ValuesThatAreNoIntegersNameNoPart) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const ::osg::NodeRefPtr node(nodeWithIds("x", {nan, inf, -inf, 3e9F, 2, nan, -0.5F}));
    handler.registerGeometryUsage(node.get());
    EXPECT_EQ(handler.usage, (std::map<int, std::set<std::string>>{{0, {"x"}}, {2, {"x"}}}));
    handler.registerGeometryUsage(::osg::NullFC);
    const ::osg::NodeRefPtr bare(::osg::Node::create());
    handler.registerGeometryUsage(bare.get());
    EXPECT_EQ(handler.usage.size(), 2U);
}

TEST_F(IdMapHandler, IdsMoveToTheFirstFreeCoordinateSet) {
    struct set_case {
        unsigned int taken; ///< sets 0 to taken - 1 are in use
        const char* expected;
    };
    for (const set_case& c : {set_case{0, "TC0"}, set_case{1, "TC1"}, set_case{2, "TC2"},
                              set_case{3, "TC3"}, set_case{4, nullptr}}) {
        SCOPED_TRACE(c.taken);
        handler.reset();
        const ::osg::NodeRefPtr node(nodeWithIds("x", {4}));
        const ::osg::GeometryPtr geometry = coreOf(node.get());
        const ::osg::GeoTexCoordsPtr ids = geometry->getTexCoords7();
        if (c.taken > 0)
            geometry->setTexCoords(::osg::GeoTexCoords2f::create());
        if (c.taken > 1)
            geometry->setTexCoords1(::osg::GeoTexCoords2f::create());
        if (c.taken > 2)
            geometry->setTexCoords2(::osg::GeoTexCoords2f::create());
        if (c.taken > 3)
            geometry->setTexCoords3(::osg::GeoTexCoords2f::create());
        ::osg::MFUInt16& mapping = *geometry->editMFIndexMapping();
        mapping.push_back(::osg::Geometry::MapPosition);
        mapping.push_back(::osg::Geometry::MapTexCoords7);
        mapping.push_back(::osg::Geometry::MapTexCoords7);

        handler.registerGeometryUsage(node.get());
        EXPECT_EQ(handler.usage.count(4), 1U);
        if (c.expected == nullptr) {
            EXPECT_EQ(geometry->getTexCoords7(), ids);
            EXPECT_TRUE(handler.texCoordMapping.empty());
            EXPECT_EQ(mapping[1], ::osg::UInt16(::osg::Geometry::MapTexCoords7));
            continue;
        }
        const ::osg::GeoTexCoordsPtr sets[] = {geometry->getTexCoords(), geometry->getTexCoords1(),
                                               geometry->getTexCoords2(),
                                               geometry->getTexCoords3()};
        const ::osg::UInt16 bits[] = {::osg::Geometry::MapTexCoords, ::osg::Geometry::MapTexCoords1,
                                      ::osg::Geometry::MapTexCoords2,
                                      ::osg::Geometry::MapTexCoords3};
        EXPECT_EQ(handler.texCoordMapping["x"], c.expected);
        EXPECT_EQ(sets[c.taken], ids);
        EXPECT_TRUE(geometry->getTexCoords7() == ::osg::NullFC);
        EXPECT_EQ(mapping[1], bits[c.taken]);
        EXPECT_EQ(mapping[2], ::osg::UInt16(::osg::Geometry::MapTexCoords7)); // the first alone
    }
}

} // namespace
