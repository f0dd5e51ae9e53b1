// Vertex data, its stored forms and sharing; the geometry core: ownership, copies, volumes.

#include <OpenSG/OSGPrimitiveIterator.h>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

/// A form stores a value as told, and gives back for it what it should.
template <class Form>
void expectForm(UInt32 format, UInt32 bytes, const typename Form::GenericType& value,
                const typename Form::StoredType& stored, const typename Form::GenericType& read) {
    const RefPtr<typename Form::PtrType> property(Form::create());
    SCOPED_TRACE(property->getTypeName());
    EXPECT_EQ(property->getFormat(), format);
    EXPECT_EQ(property->getFormatSize(), bytes);
    EXPECT_EQ(property->getDimension() * bytes, sizeof(stored));
    EXPECT_EQ(property->getStride(), 0u);
    property->addValue(value);
    EXPECT_EQ(property->getField()[0], stored);
    property->editField().push_back(stored);
    EXPECT_EQ(property->getValue(1), read);
}

TEST(PropertyForms, StoreAndGiveByTheTable) {
    const Real32 nan = std::nanf("");
    const Pnt3f p(1.5f, -2.5f, 3.25f);
    expectForm<GeoPositions2s>(GL_SHORT, 2, p, {1, -2}, {1, -2, 0});
    expectForm<GeoPositions3s>(GL_SHORT, 2, p, {1, -2, 3}, {1, -2, 3});
    expectForm<GeoPositions3s>(GL_SHORT, 2, {1e9f, -1e9f, nan}, {32767, -32768, 0},
                               {32767, -32768, 0});
    expectForm<GeoPositions4s>(GL_SHORT, 2, p, {1, -2, 3, 1}, {1, -2, 3});
    expectForm<GeoPositions2f>(GL_FLOAT, 4, p, {1.5f, -2.5f}, {1.5f, -2.5f, 0});
    expectForm<GeoPositions3f>(GL_FLOAT, 4, p, p, p);
    expectForm<GeoPositions4f>(GL_FLOAT, 4, p, {1.5f, -2.5f, 3.25f, 1}, p);
    expectForm<GeoPositions2d>(GL_DOUBLE, 8, p, {1.5, -2.5}, {1.5f, -2.5f, 0});
    expectForm<GeoPositions3d>(GL_DOUBLE, 8, p, {1.5, -2.5, 3.25}, p);
    expectForm<GeoPositions4d>(GL_DOUBLE, 8, p, {1.5, -2.5, 3.25, 1}, p);
    const RefPtr<GeoPositions4fPtr> divided(GeoPositions4f::create());
    divided->editField().push_back(Pnt4f(2, 4, 6, 2));
    EXPECT_EQ(divided->getValue(0), Pnt3f(2, 4, 6)) << "no division";

    const Vec3f n(1, .5f, -1);
    expectForm<GeoNormals3f>(GL_FLOAT, 4, n, n, n);
    expectForm<GeoNormals3s>(GL_SHORT, 2, n, {32767, 16383, -32768}, {1, 32767.f / 65535.f, -1});
    expectForm<GeoNormals3b>(GL_BYTE, 1, n, {127, 63, -128}, {1, 127.f / 255.f, -1});
    expectForm<GeoNormals3b>(GL_BYTE, 1, {5, -5, nan}, {127, -128, 0}, {1, -1, 1.f / 255.f});

    const Color3f c(0, .5f, 1), bytes(0, 127.f / 255.f, 1), beyond(1e30f, -1e30f, nan);
    expectForm<GeoColors3f>(GL_FLOAT, 4, c, c, c);
    expectForm<GeoColors4f>(GL_FLOAT, 4, c, {0, .5f, 1, 1}, c);
    expectForm<GeoColors3ub>(GL_UNSIGNED_BYTE, 1, c, {0, 127, 255}, bytes);
    expectForm<GeoColors4ub>(GL_UNSIGNED_BYTE, 1, c, {0, 127, 255, 255}, bytes);
    expectForm<GeoColors3ub>(GL_UNSIGNED_BYTE, 1, beyond, {255, 0, 0}, {1, 0, 0});
    expectForm<GeoColors4ub>(GL_UNSIGNED_BYTE, 1, beyond, {255, 0, 0, 255}, {1, 0, 0});

    const Vec2f t(.25f, .5f), s(.25f, 0);
    expectForm<GeoTexCoords1f>(GL_FLOAT, 4, t, .25f, s);
    expectForm<GeoTexCoords2f>(GL_FLOAT, 4, t, t, t);
    expectForm<GeoTexCoords3f>(GL_FLOAT, 4, t, {.25f, .5f, 0}, t);
    expectForm<GeoTexCoords4f>(GL_FLOAT, 4, t, {.25f, .5f, 0, 0}, t);
    expectForm<GeoTexCoords1d>(GL_DOUBLE, 8, t, .25, s);
    expectForm<GeoTexCoords2d>(GL_DOUBLE, 8, t, {.25, .5}, t);
    expectForm<GeoTexCoords3d>(GL_DOUBLE, 8, t, {.25, .5, 0}, t);
    expectForm<GeoTexCoords4d>(GL_DOUBLE, 8, t, {.25, .5, 0, 0}, t);

    expectForm<GeoIndicesUI16>(GL_UNSIGNED_SHORT, 2, 65538, 2, 2);
    expectForm<GeoIndicesUI32>(GL_UNSIGNED_INT, 4, 65538, 65538, 65538);
    expectForm<GeoPLengthsUI8>(GL_UNSIGNED_BYTE, 1, 65795, 3, 3);
    expectForm<GeoPLengthsUI16>(GL_UNSIGNED_SHORT, 2, 65795, 259, 259);
    expectForm<GeoPLengthsUI32>(GL_UNSIGNED_INT, 4, 65795, 65795, 65795);
    expectForm<GeoPTypesUI8>(GL_UNSIGNED_BYTE, 1, GL_POLYGON, 9, 9);
}

TEST(PropertyStorage, EditsThroughTheRole) {
    const RefPtr<GeoPositions3fPtr> form(GeoPositions3f::create());
    const GeoPositionsPtr role = form.get();
    role->addValue(Pnt3f(1, 1, 1));
    role->push_back(Pnt3f(3, 3, 3));
    EXPECT_TRUE(form->insertValue(Pnt3f(2, 2, 2), 1) && form->insertValue(Pnt3f(4, 4, 4), 3));
    EXPECT_FALSE(form->insertValue(Pnt3f(9, 9, 9), 5));
    role->setValue(Pnt3f(0, 0, 7), 0);
    const points expected{{0, 0, 7}, {2, 2, 2}, {3, 3, 3}, {4, 4, 4}};
    EXPECT_EQ(form->getField().getValues(), expected);
    role->resize(2);
    role->resize(4);
    Pnt3f read(9, 9, 9);
    role->getValue(read, 3);
    EXPECT_EQ(read, Pnt3f(0, 0, 0)) << "grown anew, not what stood there";
    role->clear();
    role->shrink();
    EXPECT_EQ(role->getSize() + form->getField().capacity(), 0u);
}

TEST(GeometryProperties, SettersCountAndKeepParents) {
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

TEST(GeometryProperties, AreTheClonesOwnAndSharedByShallowCopiesUntilUnshared) {
    const GeometryRefPtr core = makeCore(roofPoints(), {{GL_TRIANGLES, 6}}, {0, 0, 1}, {1, 2});
    core->setMaterial(ChunkMaterial::create());
    core->setTexCoords(propertyOf<GeoTexCoords2f>(std::vector<Vec2f>{{1, 2}}));
    core->setTexCoords1(core->getTexCoords());
    core->setDlistCache(false);
    setName(core.get(), "original");
    const GeoPositionsPtr positions = core->getPositions();
    const GeometryRefPtr clone(core->clone()), copy(GeometryPtr::dcast(core->shallowCopy()));
    EXPECT_EQ(clone->getMaterial(), core->getMaterial());
    EXPECT_EQ(getName(clone.get()), nullptr);
    EXPECT_EQ(mappingOf(clone), mappingOf(core));
    EXPECT_EQ(indicesOf(clone), indicesOf(core));
    EXPECT_FALSE(clone->getDlistCache());
    EXPECT_NE(clone->getTexCoords(), clone->getTexCoords1());
    EXPECT_EQ(clone->getTexCoords1()->getValue(0), Vec2f(1, 2));
    EXPECT_EQ(copy->getPositions(), positions);
    EXPECT_EQ(positions->getParents().size(), 2u);
    copy->unshareProperties();
    core->unshareProperties();
    EXPECT_EQ(core->getPositions(), positions) << "nobody else has it now";
    EXPECT_NE(copy->getTypes(), core->getTypes());
    for (const GeometryRefPtr& owner : {clone, copy, core}) {
        ASSERT_EQ(owner->getPositions()->getParents().size(), 1u);
        EXPECT_EQ(owner->getPositions()->getParents()[0], owner);
        EXPECT_EQ(trianglesOf(owner), trianglesOf(core));
    }
    copy->getPositions()->setValue(Pnt3f(9, 9, 9), 0);
    clone->getPositions()->setValue(Pnt3f(9, 9, 9), 0);
    EXPECT_EQ(positions->getValue(0), Pnt3f(0, 0, 0));
    const RefPtr<GeoPositionsPtr> alone(GeoPositionsPtr::dcast(positions->shallowCopy()));
    EXPECT_EQ(alone->getParents().size(), 0u);
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

TEST(GeometryVolumes, AreTheSameAsPointByPoint) {
    std::mt19937 random(seedOf(11));
    for (int round = 0; round < roundsOf(200); ++round) {
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
        if (round % 4 == 0)
            core->setPositions(inOtherForm<GeoPositions3d>(core->getPositions()));
        for (const auto type : {DynamicVolume::BOX_VOLUME, DynamicVolume::SPHERE_VOLUME}) {
            DynamicVolume naive(type), fast(type);
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
    core->setPositions(propertyOf<GeoPositions3f>(points{{2, 2, 2}, {3, 3, 3}}));
    EXPECT_EQ(boundsOf(second), bounds({2, 2, 2}, {3, 3, 3})) << "a new property tells by itself";
    core->getPositions()->setValue(Pnt3f(4, 4, 4), 1);
    endEditCP(core.get(), Geometry::PositionsFieldMask);
    EXPECT_EQ(boundsOf(second), bounds({2, 2, 2}, {4, 4, 4}));
    // Which positions count is told by other fields, too.
    core->getLengths()->setValue(1, 0);
    endEditCP(core->getLengths());
    EXPECT_EQ(boundsOf(second), bounds({2, 2, 2}, {2, 2, 2}));
    core->setIndices(propertyOf<GeoIndicesUI32>(numbers{1}));
    EXPECT_EQ(boundsOf(second), bounds({4, 4, 4}, {4, 4, 4}));
    first->addChild(nodeOf(makeCore({{7, -1, 8}}, {{GL_POINTS, 1}})));
    EXPECT_EQ(boundsOf(first), bounds({4, -1, 4}, {7, 4, 8})) << "with what the children have";
    EXPECT_EQ(boundsOf(nodeOf(makeCore({}, {{GL_TRIANGLES, 3}}))), nothing);
}

} // namespace
