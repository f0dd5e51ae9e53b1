// The geometry core: fields, property ownership, copies, volumes.

#include <gtest/gtest.h>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGPrimitiveIterator.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <cstring>
#include <limits>
#include <random>

#include "../support/live_containers.h"
#include "geometry_support.h"

namespace {

using namespace geometry_test;
using morva_test::liveContainers;

TEST(GeometryFields, NumbersMasksAndDefaults) {
    const struct {
        const Char8* name;
        UInt32 id;
        BitVector mask;
    } table[] = {{"material", 3, Geometry::MaterialFieldMask},
                 {"types", 4, Geometry::TypesFieldMask},
                 {"lengths", 5, Geometry::LengthsFieldMask},
                 {"positions", 6, Geometry::PositionsFieldMask},
                 {"normals", 7, Geometry::NormalsFieldMask},
                 {"colors", 8, Geometry::ColorsFieldMask},
                 {"secondaryColors", 9, Geometry::SecondaryColorsFieldMask},
                 {"texCoords", 10, Geometry::TexCoordsFieldMask},
                 {"texCoords7", 17, Geometry::TexCoords7FieldMask},
                 {"indices", 18, Geometry::IndicesFieldMask},
                 {"indexMapping", 19, Geometry::IndexMappingFieldMask},
                 {"dlistCache", 20, Geometry::DlistCacheFieldMask}};
    const GeometryRefPtr core(Geometry::create());
    for (const auto& row : table) {
        EXPECT_EQ(row.mask, BitVector(1) << row.id);
        ASSERT_NE(core->getField(row.name), nullptr) << row.name;
        EXPECT_EQ(core->getField(row.id), core->getField(row.name)) << row.name;
    }
    for (int bit = 0; bit < 13; ++bit)
        EXPECT_EQ(core->getProperty(1 << bit), nullptr);
    EXPECT_EQ(core->getMFIndexMapping()->size(), 0u);
    EXPECT_TRUE(core->getDlistCache());
    EXPECT_EQ(core->getTypes(), NullFC);
    EXPECT_EQ(core->getMaterial(), NullFC);
}

TEST(GeometryProperties, SettersCountAndKeepParents) {
    const unsigned int before = liveContainers();
    {
        const GeometryRefPtr a(Geometry::create()), b(Geometry::create());
        const RefPtr<GeoTexCoords2fPtr> shared(GeoTexCoords2f::create());
        a->setTexCoords(shared);
        a->setTexCoords7(shared); // twice in one geometry
        b->setTexCoords(shared);
        EXPECT_EQ(shared.get().getRefCount(), 4u);
        ASSERT_EQ(shared->getParents().size(), 3u);
        EXPECT_EQ(shared->getParents()[1], a);
        EXPECT_EQ(shared->getParents()[1].getParentFieldPos(), Geometry::TexCoords7FieldId);

        a->setTexCoords7(a->getTexCoords7()); // its own value, by reference
        EXPECT_EQ(shared.get().getRefCount(), 4u);
        EXPECT_EQ(shared->getParents().size(), 3u);

        a->setTexCoords7(GeoTexCoords1f::create());
        EXPECT_EQ(shared->getParents().size(), 2u);
        EXPECT_EQ(shared->findParent(b.get()), 1);
        a->setTexCoords(NullFC);
        EXPECT_EQ(shared.get().getRefCount(), 2u);
        EXPECT_EQ(a->getProperty(Geometry::MapTexCoords), nullptr);
        EXPECT_EQ(b->getProperty(Geometry::MapTexCoords), shared.getCPtr());
        EXPECT_NE(a->getProperty(Geometry::MapTexCoords7), nullptr);
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(GeometryProperties, ADeadGeometryLeavesTheParentsList) {
    const RefPtr<GeoNormals3fPtr> shared(GeoNormals3f::create());
    {
        const GeometryRefPtr core(Geometry::create());
        core->setNormals(shared);
    }
    EXPECT_EQ(shared->getParents().size(), 0u);
    EXPECT_EQ(shared.get().getRefCount(), 1u);
}

TEST(GeometryProperties, MappingIsSearchedFromItsEnd) {
    const GeometryRefPtr core = makeCore({}, {}, {}, {1 | 2, 16, 2 | 2048});
    const std::pair<UInt16, Int16> table[] = {{1, 0}, {2, 2}, {16, 1}, {2048, 2}, {4, -1}};
    for (const auto& row : table)
        EXPECT_EQ(core->calcMappingIndex(row.first), row.second) << row.first;
    EXPECT_EQ(core->getIndexMapping(1), 16);
    EXPECT_EQ(&core->getIndexMapping(), core->editMFIndexMapping());
    const GeometryRefPtr other(Geometry::create());
    other->getIndexMapping() = core->getIndexMapping();
    EXPECT_EQ(mappingOf(other), mappingOf(core));
    EXPECT_EQ(Geometry::create()->calcMappingIndex(1), -1);
}

TEST(GeometryCopies, CloneOwnsItsProperties) {
    const unsigned int before = liveContainers();
    {
        const GeometryRefPtr core = makeCore(roofPoints(), {{GL_TRIANGLES, 6}}, {0, 0, 1}, {1, 2});
        const MaterialRefPtr material(ChunkMaterial::create());
        core->setMaterial(material);
        core->setTexCoords(makeProperty<GeoTexCoords2f>(std::vector<Vec2f>{{1, 2}}));
        core->setTexCoords1(core->getTexCoords());
        core->setDlistCache(false);
        setName(core.get(), "original");

        const GeometryRefPtr copy(core->clone());
        EXPECT_EQ(copy->getMaterial(), material);
        EXPECT_EQ(getName(copy.get()), nullptr);
        EXPECT_EQ(mappingOf(copy), mappingOf(core));
        EXPECT_FALSE(copy->getDlistCache());
        EXPECT_EQ(indicesOf(copy), indicesOf(core));
        EXPECT_NE(copy->getTexCoords(), copy->getTexCoords1());
        EXPECT_EQ(copy->getTexCoords1()->getValue(0), Vec2f(1, 2));
        EXPECT_EQ(copy->getPositions()->findParent(copy.get()), 0);
        copy->getPositions()->setValue(Pnt3f(9, 9, 9), 0);
        EXPECT_EQ(core->getPositions()->getValue(0), Pnt3f(0, 0, 0));
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(GeometryCopies, ShallowCopiesShareUntilUnshared) {
    const unsigned int before = liveContainers();
    {
        const GeometryRefPtr core = makeCore(roofPoints(), {{GL_TRIANGLES, 6}});
        const GeometryRefPtr copy(GeometryPtr::dcast(core->shallowCopy()));
        EXPECT_EQ(copy->getPositions(), core->getPositions());
        EXPECT_EQ(core->getPositions()->getParents().size(), 2u);
        copy->unshareProperties();
        EXPECT_NE(copy->getPositions(), core->getPositions());
        EXPECT_NE(copy->getTypes(), core->getTypes());
        EXPECT_EQ(core->getPositions()->getParents().size(), 1u);
        EXPECT_EQ(trianglesOf(copy), trianglesOf(core));
        const GeoPositionsPtr alone = core->getPositions();
        core->unshareProperties();
        EXPECT_EQ(core->getPositions(), alone) << "nobody else has it";
    }
    EXPECT_EQ(liveContainers(), before);
}

/// A node with this core, and its box after an update.
struct boxed_node {
    explicit boxed_node(const GeometryRefPtr& core) : node(Node::create()) {
        node->setCore(core.get());
    }
    bool isEmpty() const {
        node->updateVolume();
        return node->getVolume().isEmpty();
    }
    std::pair<Pnt3f, Pnt3f> bounds() const {
        node->updateVolume();
        std::pair<Pnt3f, Pnt3f> corner;
        node->getVolume().getBounds(corner.first, corner.second);
        return corner;
    }
    NodeRefPtr node;
};
using bounds = std::pair<Pnt3f, Pnt3f>;

TEST(GeometryVolumes, CountWhatPrimitivesUse) {
    const points all{{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {9, 9, 9}};
    EXPECT_EQ(boxed_node(makeCore(all, {{GL_TRIANGLES, 3}})).bounds(),
              bounds({0, 0, 0}, {1, 2, 0}));
    EXPECT_EQ(boxed_node(makeCore(all, {{GL_POINTS, 1}, {GL_LINES, 2}}, {3, 1, 2})).bounds(),
              bounds({0, 0, 0}, {9, 9, 9}));
    EXPECT_TRUE(boxed_node(makeCore(all, {})).isEmpty());
    EXPECT_TRUE(boxed_node(makeCore({}, {{GL_TRIANGLES, 3}})).isEmpty());
    EXPECT_TRUE(boxed_node(GeometryRefPtr(Geometry::create())).isEmpty());
    EXPECT_TRUE(boxed_node(makeCore(all, {{GL_POINTS, 2}}, {4, 0xFFFFFFFFu})).isEmpty())
        << "indices beyond the positions";
    const boxed_node above(makeCore(all, {{GL_POINTS, 2}}));
    above.node->addChild(boxed_node(makeCore(all, {{GL_POINTS, 4}})).node);
    EXPECT_EQ(above.bounds(), bounds({0, 0, 0}, {1, 0, 0})) << "what children have is not added";
    const GeometryRefPtr flat = makeCore(all, {{GL_POINTS, 2}});
    flat->setPositions(makeProperty<GeoPositions2d>(std::vector<Pnt2d>{{1, 2}, {3, 4}}));
    EXPECT_EQ(boxed_node(flat).bounds(), bounds({1, 2, 0}, {3, 4, 0}));
}

TEST(GeometryVolumes, AreTheSameAsPointByPoint) {
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        points all;
        numbers indices;
        for (int i = 0; i < 12; ++i) {
            const auto coordinate = [&] {
                const Real32 values[] = {0.f,
                                         -0.f,
                                         1.f,
                                         -2.5f,
                                         1e30f,
                                         std::numeric_limits<Real32>::quiet_NaN(),
                                         std::numeric_limits<Real32>::infinity()};
                return values[random() % 7];
            };
            const Real32 x = coordinate(), y = coordinate();
            all.emplace_back(x, y, coordinate());
            indices.push_back(random() % 14);
        }
        const GeometryRefPtr core =
            makeCore(all, {{GL_TRIANGLE_STRIP, 7}, {GL_POINTS, 4}}, indices);
        for (const auto type : {DynamicVolume::BOX_VOLUME, DynamicVolume::SPHERE_VOLUME}) {
            DynamicVolume naive(type), fast(type);
            fast.extendBy(Pnt3f(7, 7, 7)); // forgotten
            for (UInt32 i = 0; i < 11; ++i) {
                if (indices[i] < all.size())
                    naive.extendBy(all[indices[i]]);
            }
            core->adjustVolume(fast);
            Pnt3f corner[4];
            naive.getBounds(corner[0], corner[1]);
            fast.getBounds(corner[2], corner[3]);
            ASSERT_EQ(naive.isEmpty(), fast.isEmpty());
            if (!naive.isEmpty()) {
                ASSERT_EQ(std::memcmp(&corner[0], &corner[2], 2 * sizeof(Pnt3f)), 0) << round;
            }
        }
    }
}

TEST(GeometryVolumes, FollowChangesThatAreTold) {
    const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 1, 1}}, {{GL_POINTS, 2}});
    const boxed_node first(core), second(core); // one core, two nodes
    const NodeRefPtr parent(makeCoredNode<Group>());
    parent->addChild(first.node);
    EXPECT_EQ(first.bounds(), bounds({0, 0, 0}, {1, 1, 1}));
    EXPECT_EQ(second.bounds(), first.bounds());
    parent->updateVolume();

    core->getPositions()->setValue(Pnt3f(5, 5, 5), 1);
    EXPECT_EQ(first.bounds(), bounds({0, 0, 0}, {1, 1, 1})) << "nobody was told";
    endEditCP(core->getPositions());
    EXPECT_FALSE(parent->getVolume().isValid());
    EXPECT_EQ(first.bounds(), bounds({0, 0, 0}, {5, 5, 5}));
    EXPECT_EQ(second.bounds(), first.bounds());

    core->setPositions(makeProperty<GeoPositions3f>(points{{2, 2, 2}, {3, 3, 3}}));
    EXPECT_EQ(second.bounds(), bounds({2, 2, 2}, {3, 3, 3})) << "a new property tells by itself";
    core->getPositions()->setValue(Pnt3f(4, 4, 4), 1);
    endEditCP(core.get(), Geometry::PositionsFieldMask);
    EXPECT_EQ(second.bounds(), bounds({2, 2, 2}, {4, 4, 4}));
}

} // namespace
