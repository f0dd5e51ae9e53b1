// Vertex data, its stored forms and sharing; the geometry core: ownership, copies, volumes.

#include <gtest/gtest.h>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGPrimitiveIterator.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <cmath>
#include <cstring>
#include <random>

#include "../support/live_containers.h"
#include "geometry_support.h"

namespace {

using namespace geometry_test;

TEST(PropertyForms, PositionsConvertComponentsAndPadThem) {
    const struct {
        GeoPositionsPtr property;
        UInt32 format, bytes, dimension;
        Pnt3f read;
    } table[] = {
        {GeoPositions2s::create(), GL_SHORT, 2, 2, {1, -2, 0}},
        {GeoPositions3s::create(), GL_SHORT, 2, 3, {1, -2, 3}},
        {GeoPositions4s::create(), GL_SHORT, 2, 4, {1, -2, 3}},
        {GeoPositions2f::create(), GL_FLOAT, 4, 2, {1.5f, -2.5f, 0}},
        {GeoPositions3f::create(), GL_FLOAT, 4, 3, {1.5f, -2.5f, 3.25f}},
        {GeoPositions4f::create(), GL_FLOAT, 4, 4, {1.5f, -2.5f, 3.25f}},
        {GeoPositions2d::create(), GL_DOUBLE, 8, 2, {1.5f, -2.5f, 0}},
        {GeoPositions3d::create(), GL_DOUBLE, 8, 3, {1.5f, -2.5f, 3.25f}},
        {GeoPositions4d::create(), GL_DOUBLE, 8, 4, {1.5f, -2.5f, 3.25f}},
    };
    for (const auto& row : table) {
        const GeoPositionsRefPtr property(row.property);
        SCOPED_TRACE(property->getTypeName());
        EXPECT_EQ(property->getFormat(), row.format);
        EXPECT_EQ(property->getFormatSize(), row.bytes);
        EXPECT_EQ(property->getDimension(), row.dimension);
        EXPECT_EQ(property->getStride(), 0u);
        property->addValue(Pnt3f(1.5f, -2.5f, 3.25f));
        EXPECT_EQ(property->getValue(0), row.read);
    }
    const RefPtr<GeoPositions4fPtr> homogeneous(GeoPositions4f::create());
    homogeneous->editField().push_back(Pnt4f(2, 4, 6, 2));
    EXPECT_EQ(homogeneous->getValue(0), Pnt3f(2, 4, 6)) << "no division";
    homogeneous->setValue(Pnt3f(1, 2, 3), 0);
    EXPECT_EQ(homogeneous->getField()[0], Pnt4f(1, 2, 3, 1));
}

TEST(PropertyForms, IntegersSpreadOverTheirRangeAndStayInIt) {
    const RefPtr<GeoNormals3sPtr> shorts(GeoNormals3s::create());
    shorts->addValue(Vec3f(1, .5f, -1));
    EXPECT_EQ(shorts->getField()[0], Vec3s(32767, 16383, -32768));
    EXPECT_FLOAT_EQ(shorts->getValue(0)[0], 1.f);
    EXPECT_FLOAT_EQ(shorts->getValue(0)[1], 32767.f / 65535.f);
    EXPECT_FLOAT_EQ(shorts->getValue(0)[2], -1.f);
    const Real32 nan = std::nanf("");
    const RefPtr<GeoNormals3bPtr> bytes(GeoNormals3b::create());
    bytes->addValue(Vec3f(1, .5f, -1));
    bytes->addValue(Vec3f(5, -5, nan));
    EXPECT_EQ(bytes->getField().getValues(), (std::vector<Vec3b>{{127, 63, -128}, {127, -128, 0}}));
    EXPECT_FLOAT_EQ(bytes->getValue(0)[1], 127.f / 255.f);
    const RefPtr<GeoPositions3sPtr> positions(GeoPositions3s::create());
    positions->addValue(Pnt3f(1e9f, -1e9f, nan));
    EXPECT_EQ(positions->getField()[0], Pnt3s(32767, -32768, 0));
    const RefPtr<GeoColors3ubPtr> colors(GeoColors3ub::create());
    colors->addValue(Color3f(1e30f, -1e30f, nan));
    EXPECT_EQ(colors->getField()[0], Color3ub(255, 0, 0));
}

TEST(PropertyForms, ColoursScaleAndWriteOpaque) {
    const RefPtr<GeoColors4fPtr> four(GeoColors4f::create());
    four->editField().push_back(Color4f(.1f, .2f, .3f, .4f));
    EXPECT_EQ(four->getValue(0), Color3f(.1f, .2f, .3f));
    four->setValue(Color3f(.5f, .6f, .7f), 0);
    EXPECT_EQ(four->getField()[0], Color4f(.5f, .6f, .7f, 1.f));

    const RefPtr<GeoColors3ubPtr> three_bytes(GeoColors3ub::create());
    const RefPtr<GeoColors4ubPtr> four_bytes(GeoColors4ub::create());
    for (const Color3f& c : {Color3f(0, .5f, 1), Color3f(-1, .999f, 7)}) {
        three_bytes->addValue(c);
        four_bytes->addValue(c);
    }
    const UInt8 stored[2][3] = {{0, 127, 255}, {0, 254, 255}};
    for (UInt32 i = 0; i < 2; ++i) {
        for (UInt32 k = 0; k < 3; ++k) {
            EXPECT_EQ(three_bytes->getField()[i][k], stored[i][k]);
            EXPECT_EQ(four_bytes->getField()[i][k], stored[i][k]);
            EXPECT_FLOAT_EQ(four_bytes->getValue(i)[k], static_cast<Real32>(stored[i][k]) / 255.f);
        }
        EXPECT_EQ(four_bytes->getField()[i][3], 255);
    }
}

TEST(PropertyForms, CoordinatesKeepTheFirstTwo) {
    const struct {
        GeoTexCoordsPtr property;
        Vec2f read;
    } table[] = {{GeoTexCoords1f::create(), {.25f, 0}},   {GeoTexCoords1d::create(), {.25f, 0}},
                 {GeoTexCoords2f::create(), {.25f, .5f}}, {GeoTexCoords2d::create(), {.25f, .5f}},
                 {GeoTexCoords3f::create(), {.25f, .5f}}, {GeoTexCoords3d::create(), {.25f, .5f}},
                 {GeoTexCoords4f::create(), {.25f, .5f}}, {GeoTexCoords4d::create(), {.25f, .5f}}};
    for (const auto& row : table) {
        const GeoTexCoordsRefPtr property(row.property);
        SCOPED_TRACE(property->getTypeName());
        property->push_back(Vec2f(.25f, .5f));
        Vec2f read;
        property->getValue(read, 0);
        EXPECT_EQ(read, row.read);
    }
    const RefPtr<GeoTexCoords4fPtr> four(GeoTexCoords4f::create());
    four->editField().push_back(Vec4f(1, 2, 3, 4));
    four->setValue(Vec2f(5, 6), 0);
    EXPECT_EQ(four->getField()[0], Vec4f(5, 6, 0, 0));
}

template <class Form> UInt32 kept(UInt32 number) {
    const RefPtr<typename Form::FormPtr> property(Form::create());
    property->addValue(number);
    return property->getValue(0);
}

TEST(PropertyForms, NumbersWidenAndTruncate) {
    EXPECT_EQ(kept<GeoIndicesUI16>(65538), 2u);
    EXPECT_EQ(kept<GeoIndicesUI32>(65538), 65538u);
    EXPECT_EQ(kept<GeoPLengthsUI8>(65795), 3u);
    EXPECT_EQ(kept<GeoPLengthsUI16>(65795), 259u);
    EXPECT_EQ(kept<GeoPLengthsUI32>(65795), 65795u);
    EXPECT_EQ(kept<GeoPTypesUI8>(GL_POLYGON), 9u);
    EXPECT_EQ(kept<GeoPTypesUI16>(GL_POLYGON), 9u);
    EXPECT_EQ(kept<GeoPTypesUI32>(GL_POLYGON), 9u);
}

TEST(PropertyStorage, EditsThroughTheRole) {
    const RefPtr<GeoPositions3fPtr> form(GeoPositions3f::create());
    const GeoPositionsPtr role = form.get();
    EXPECT_EQ(role->getData(), nullptr);
    role->addValue(Pnt3f(1, 1, 1));
    role->push_back(Pnt3f(3, 3, 3));
    EXPECT_TRUE(role->insertValue(Pnt3f(2, 2, 2), 1));
    EXPECT_TRUE(role->insertValue(Pnt3f(4, 4, 4), 3));
    EXPECT_FALSE(role->insertValue(Pnt3f(9, 9, 9), 5));
    role->setValue(Pnt3f(0, 0, 7), 0);
    const points expected{{0, 0, 7}, {2, 2, 2}, {3, 3, 3}, {4, 4, 4}};
    EXPECT_EQ(form->getField().getValues(), expected);
    EXPECT_EQ(form->getFieldPtr(), &form->editField());
    // Plain memory, element by element.
    EXPECT_EQ(role->editData(), reinterpret_cast<UInt8*>(&form->editField()[0]));
    EXPECT_EQ(reinterpret_cast<const Real32*>(role->getData())[3 * 3 + 2], 4.f);

    role->resize(2);
    role->resize(4);
    EXPECT_EQ(role->size(), 4u);
    EXPECT_EQ(role->getValue(3), Pnt3f(0, 0, 0)) << "grown anew, not what stood there";
    role->clear();
    role->shrink();
    EXPECT_EQ(role->getSize(), 0u);
    EXPECT_EQ(form->getField().capacity(), 0u);
}

TEST(PropertyTypes, FormsAreToldApartAndShareTheirRolesGroup) {
    const GeoColorsRefPtr colors(GeoColors4f::create());
    EXPECT_NE(GeoColors4fPtr::dcast(colors.get()), NullFC);
    EXPECT_EQ(GeoColors3fPtr::dcast(colors.get()), NullFC);
    EXPECT_EQ(GeoNormalsPtr::dcast(AttachmentPtr(colors.get())), NullFC);
    EXPECT_TRUE(colors->getType().isDerivedFrom(GeoColors::getClassType()));
    EXPECT_TRUE(GeoColors::getClassType().isAbstract());
    EXPECT_EQ(GeoColors3ub::getClassType().getGroupId(), GeoColors::getClassType().getGroupId());
    EXPECT_NE(GeoColors::getClassType().getGroupId(), GeoNormals::getClassType().getGroupId());
    EXPECT_STREQ(colors->getTypeName(), "GeoColors4f");
    EXPECT_EQ(GeoColors4f::GeoPropDataFieldMask, BitVector(8));

    const FieldContainerRefPtr made(
        FieldContainerFactory::the()->createFieldContainer("GeoPLengthsUI16"));
    EXPECT_NE(GeoPLengthsUI16Ptr::dcast(made.get()), NullFC);
}

TEST(PropertySharing, CopiesAreDeepAndWithoutParents) {
    const GeometryRefPtr core = makeTriangles(roofPoints());
    const GeoPositionsRefPtr copy(core->getPositions()->clone());
    const RefPtr<GeoPositions3fPtr> shallow(
        GeoPositions3fPtr::dcast(core->getPositions()->shallowCopy()));
    EXPECT_EQ(core->getPositions()->getParents().size(), 1u);
    EXPECT_EQ(copy->getParents().size(), 0u);
    EXPECT_EQ(shallow->getParents().size(), 0u);
    copy->setValue(Pnt3f(5, 5, 5), 0);
    shallow->setValue(Pnt3f(6, 6, 6), 0);
    EXPECT_EQ(core->getPositions()->getValue(0), Pnt3f(0, 0, 0));
    EXPECT_EQ(copy->getValue(1), core->getPositions()->getValue(1));
    EXPECT_EQ(shallow->getSize(), core->getPositions()->getSize());
}

class GeometryProperties : public morva_test::no_strays {};

TEST_F(GeometryProperties, SettersCountAndKeepParents) {
    const GeometryRefPtr a(Geometry::create()), b(Geometry::create());
    const RefPtr<GeoTexCoords2fPtr> shared(GeoTexCoords2f::create());
    GeometryRefPtr(Geometry::create())->setTexCoords(shared); // dies, and leaves the parents
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

TEST_F(GeometryProperties, MappingIsSearchedFromItsEnd) {
    const GeometryRefPtr core = makeCore({}, {}, {}, {1 | 2, 16, 2 | 2048});
    const std::pair<UInt16, Int16> table[] = {{1, 0}, {2, 2}, {16, 1}, {2048, 2}, {4, -1}};
    for (const auto& row : table)
        EXPECT_EQ(core->calcMappingIndex(row.first), row.second) << row.first;
    EXPECT_EQ(core->getIndexMapping(1), 16);
    EXPECT_EQ(&core->getIndexMapping(), core->editMFIndexMapping());
    const GeometryRefPtr other(Geometry::create());
    EXPECT_EQ(other->calcMappingIndex(1), -1);
    other->getIndexMapping() = core->getIndexMapping();
    EXPECT_EQ(mappingOf(other), mappingOf(core));
    for (int bit = 0; bit < 13; ++bit)
        EXPECT_EQ(other->getProperty(1 << bit), nullptr);
}

TEST_F(GeometryProperties, AreTheClonesOwn) {
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

TEST_F(GeometryProperties, AreSharedByShallowCopiesUntilUnshared) {
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
                const Real32 values[] = {0.f, -0.f, 1.f, -2.5f, 1e30f, std::nanf(""), INFINITY};
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
