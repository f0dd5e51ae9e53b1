// Vertex data, its stored forms and sharing; the geometry core: ownership, copies, volumes.

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGPrimitiveIterator.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "../support/live_containers.h"
#include "geometry_support.h"

namespace {

using namespace geometry_test;

/// What a form makes of a value, what it gives for something stored, and both in turn.
template <class Form> typename Form::StoredType stored(const typename Form::GenericType& value) {
    const RefPtr<typename Form::FormPtr> property(Form::create());
    property->addValue(value);
    return property->getField()[0];
}
template <class Form> typename Form::GenericType given(const typename Form::StoredType& value) {
    const RefPtr<typename Form::FormPtr> property(Form::create());
    property->editField().push_back(value);
    return property->getValue(0);
}
template <class Form> typename Form::GenericType kept(const typename Form::GenericType& value) {
    return given<Form>(stored<Form>(value));
}

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
    EXPECT_EQ(given<GeoPositions4f>(Pnt4f(2, 4, 6, 2)), Pnt3f(2, 4, 6)) << "no division";
    EXPECT_EQ(stored<GeoPositions4f>(Pnt3f(1, 2, 3)), Pnt4f(1, 2, 3, 1));
}

TEST(PropertyForms, IntegersSpreadOverTheirRangeAndStayInIt) {
    const Real32 nan = std::nanf("");
    const struct {
        Vec3f value;
        Vec3s shorts;
        Vec3b bytes;
    } table[] = {{{1, .5f, -1}, {32767, 16383, -32768}, {127, 63, -128}},
                 {{5, -5, nan}, {32767, -32768, 0}, {127, -128, 0}}};
    for (const auto& row : table) {
        EXPECT_EQ(stored<GeoNormals3s>(row.value), row.shorts);
        EXPECT_EQ(stored<GeoNormals3b>(row.value), row.bytes);
    }
    EXPECT_EQ(given<GeoNormals3s>(table[0].shorts), Vec3f(1, 32767.f / 65535.f, -1));
    EXPECT_EQ(given<GeoNormals3b>(table[0].bytes), Vec3f(1, 127.f / 255.f, -1));
    EXPECT_EQ(stored<GeoPositions3s>(Pnt3f(1e9f, -1e9f, nan)), Pnt3s(32767, -32768, 0));
    EXPECT_EQ(stored<GeoColors3ub>(Color3f(1e30f, -1e30f, nan)), Color3ub(255, 0, 0));
}

TEST(PropertyForms, ColoursScaleAndWriteOpaque) {
    EXPECT_EQ(given<GeoColors4f>(Color4f(.1f, .2f, .3f, .4f)), Color3f(.1f, .2f, .3f));
    EXPECT_EQ(stored<GeoColors4f>(Color3f(.5f, .6f, .7f)), Color4f(.5f, .6f, .7f, 1.f));
    EXPECT_EQ(stored<GeoColors3ub>(Color3f(0, .5f, 1)), Color3ub(0, 127, 255));
    EXPECT_EQ(stored<GeoColors3ub>(Color3f(-1, .999f, 7)), Color3ub(0, 254, 255));
    EXPECT_EQ(stored<GeoColors4ub>(Color3f(0, .5f, 1)), Color4ub(0, 127, 255, 255));
    EXPECT_EQ(stored<GeoColors4ub>(Color3f(-1, .999f, 7)), Color4ub(0, 254, 255, 255));
    EXPECT_EQ(given<GeoColors3ub>(Color3ub(0, 127, 255)), Color3f(0, 127.f / 255.f, 1));
    EXPECT_EQ(given<GeoColors4ub>(Color4ub(0, 127, 255, 9)), Color3f(0, 127.f / 255.f, 1));
}

TEST(PropertyForms, CoordinatesKeepTheFirstTwo) {
    const Vec2f value(.25f, .5f), first(.25f, 0);
    EXPECT_EQ(kept<GeoTexCoords1f>(value), first);
    EXPECT_EQ(kept<GeoTexCoords1d>(value), first);
    EXPECT_EQ(kept<GeoTexCoords2f>(value), value);
    EXPECT_EQ(kept<GeoTexCoords2d>(value), value);
    EXPECT_EQ(kept<GeoTexCoords3f>(value), value);
    EXPECT_EQ(kept<GeoTexCoords3d>(value), value);
    EXPECT_EQ(kept<GeoTexCoords4f>(value), value);
    EXPECT_EQ(kept<GeoTexCoords4d>(value), value);
    EXPECT_EQ(stored<GeoTexCoords4f>(Vec2f(5, 6)), Vec4f(5, 6, 0, 0));
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
    Pnt3f read(9, 9, 9);
    role->getValue(read, 3);
    EXPECT_EQ(read, Pnt3f(0, 0, 0)) << "grown anew, not what stood there";
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
}

TEST(PropertySharing, ShallowCopiesHaveValuesOfTheirOwnAndNoParents) {
    const GeometryRefPtr core = makeTriangles(roofPoints());
    const RefPtr<GeoPositions3fPtr> copy(
        GeoPositions3fPtr::dcast(core->getPositions()->shallowCopy()));
    EXPECT_EQ(core->getPositions()->getParents().size(), 1u);
    EXPECT_EQ(copy->getParents().size(), 0u);
    copy->setValue(Pnt3f(6, 6, 6), 0);
    EXPECT_EQ(core->getPositions()->getValue(0), Pnt3f(0, 0, 0));
    EXPECT_EQ(copy->getValue(1), core->getPositions()->getValue(1));
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
    core->setMaterial(ChunkMaterial::create());
    core->setTexCoords(makeProperty<GeoTexCoords2f>(std::vector<Vec2f>{{1, 2}}));
    core->setTexCoords1(core->getTexCoords());
    core->setDlistCache(false);
    setName(core.get(), "original");
    const GeometryRefPtr copy(core->clone());
    EXPECT_EQ(copy->getMaterial(), core->getMaterial());
    EXPECT_EQ(getName(copy.get()), nullptr);
    EXPECT_EQ(mappingOf(copy), mappingOf(core));
    EXPECT_FALSE(copy->getDlistCache());
    EXPECT_EQ(indicesOf(copy), indicesOf(core));
    EXPECT_NE(copy->getTexCoords(), copy->getTexCoords1());
    EXPECT_EQ(copy->getTexCoords1()->getValue(0), Vec2f(1, 2));
    ASSERT_EQ(copy->getPositions()->getParents().size(), 1u);
    EXPECT_EQ(copy->getPositions()->getParents()[0], copy);
    EXPECT_EQ(copy->getPositions()->getSize(), 6u);
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

using bounds = std::pair<Pnt3f, Pnt3f>;
const bounds nothing({1, 1, 1}, {-1, -1, -1});

/// The box of a volume, `nothing` if it is empty; of a node after an update.
bounds boundsOf(const DynamicVolume& volume) {
    bounds box = nothing;
    if (!volume.isEmpty())
        volume.getBounds(box.first, box.second);
    return box;
}
bounds boundsOf(const NodeRefPtr& node) {
    node->updateVolume();
    return boundsOf(node->getVolume());
}
NodeRefPtr nodeOf(const GeometryRefPtr& core) { return NodeRefPtr(makeNodeFor(core.get())); }

TEST(GeometryVolumes, CountWhatPrimitivesUse) {
    const points all{{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {9, 9, 9}};
    const auto box = [&](const primitives& used, const numbers& indices = {}) {
        return boundsOf(nodeOf(makeCore(all, used, indices)));
    };
    EXPECT_EQ(box({{GL_TRIANGLES, 3}}), bounds({0, 0, 0}, {1, 2, 0}));
    EXPECT_EQ(box({{GL_POINTS, 1}, {GL_LINES, 2}}, {3, 1, 2}), bounds({0, 0, 0}, {9, 9, 9}));
    EXPECT_EQ(box({}), nothing);
    EXPECT_EQ(box({{GL_POINTS, 2}}, {4, 0xFFFFFFFFu}), nothing) << "beyond the positions";
    EXPECT_EQ(boundsOf(nodeOf(makeCore({}, {{GL_TRIANGLES, 3}}))), nothing);
    EXPECT_EQ(boundsOf(nodeOf(GeometryRefPtr(Geometry::create()))), nothing);
    const GeometryRefPtr core = makeCore(all, {{GL_POINTS, 2}});
    const NodeRefPtr above = nodeOf(core);
    above->addChild(nodeOf(makeCore(all, {{GL_POINTS, 4}})));
    EXPECT_EQ(boundsOf(above), bounds({0, 0, 0}, {1, 0, 0})) << "what children have is not added";
    core->setPositions(makeProperty<GeoPositions2d>(std::vector<Pnt2d>{{1, 2}, {3, 4}}));
    EXPECT_EQ(boundsOf(above), bounds({1, 2, 0}, {3, 4, 0}));
}

TEST(GeometryVolumes, AreTheSameAsPointByPoint) {
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        const Real32 values[] = {0.f, -0.f, 1.f, -2.5f, 1e30f, std::nanf(""), INFINITY};
        points all(12);
        numbers indices;
        for (Pnt3f& p : all) {
            for (UInt32 axis = 0; axis < 3; ++axis)
                p[axis] = values[random() % 7];
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
            const bounds expected = boundsOf(naive), made = boundsOf(fast);
            ASSERT_EQ(std::memcmp(&expected, &made, sizeof(bounds)), 0) << round;
        }
    }
}

TEST(GeometryVolumes, FollowChangesThatAreTold) {
    const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 1, 1}}, {{GL_POINTS, 2}});
    const NodeRefPtr first = nodeOf(core), second = nodeOf(core);
    const NodeRefPtr parent(makeCoredNode<Group>());
    parent->addChild(first);
    EXPECT_EQ(boundsOf(first), bounds({0, 0, 0}, {1, 1, 1}));
    EXPECT_EQ(boundsOf(second), boundsOf(first));
    parent->updateVolume();
    core->getPositions()->setValue(Pnt3f(5, 5, 5), 1);
    EXPECT_EQ(boundsOf(first), bounds({0, 0, 0}, {1, 1, 1})) << "nobody was told";
    endEditCP(core->getPositions());
    EXPECT_FALSE(parent->getVolume().isValid());
    EXPECT_EQ(boundsOf(first), bounds({0, 0, 0}, {5, 5, 5}));
    EXPECT_EQ(boundsOf(second), boundsOf(first));
    core->setPositions(makeProperty<GeoPositions3f>(points{{2, 2, 2}, {3, 3, 3}}));
    EXPECT_EQ(boundsOf(second), bounds({2, 2, 2}, {3, 3, 3})) << "a new property tells by itself";
    core->getPositions()->setValue(Pnt3f(4, 4, 4), 1);
    endEditCP(core.get(), Geometry::PositionsFieldMask);
    EXPECT_EQ(boundsOf(second), bounds({2, 2, 2}, {4, 4, 4}));
}

} // namespace
