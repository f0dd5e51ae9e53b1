// Vertex data: stored forms, conversion, sharing.

#include <gtest/gtest.h>

#include <OpenSG/OSGFieldContainerFactory.h>

#include <cmath>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

/// Holds a fresh property of some form under its role.
template <class RolePtr> struct form_case {
    RolePtr property;
    UInt32 format, bytes, dimension;
};

template <class RolePtr> void expectShape(const form_case<RolePtr>& form) {
    EXPECT_EQ(form.property->getFormat(), form.format);
    EXPECT_EQ(form.property->getFormatSize(), form.bytes);
    EXPECT_EQ(form.property->getDimension(), form.dimension);
    EXPECT_EQ(form.property->getStride(), 0u);
}

TEST(PropertyForms, PositionsConvertComponentsAndPadThem) {
    struct {
        form_case<GeoPositionsPtr> form;
        Pnt3f read;
    } const table[] = {
        {{GeoPositions2s::create(), GL_SHORT, 2, 2}, {1, -2, 0}},
        {{GeoPositions3s::create(), GL_SHORT, 2, 3}, {1, -2, 3}},
        {{GeoPositions4s::create(), GL_SHORT, 2, 4}, {1, -2, 3}},
        {{GeoPositions2f::create(), GL_FLOAT, 4, 2}, {1.5f, -2.5f, 0}},
        {{GeoPositions3f::create(), GL_FLOAT, 4, 3}, {1.5f, -2.5f, 3.25f}},
        {{GeoPositions4f::create(), GL_FLOAT, 4, 4}, {1.5f, -2.5f, 3.25f}},
        {{GeoPositions2d::create(), GL_DOUBLE, 8, 2}, {1.5f, -2.5f, 0}},
        {{GeoPositions3d::create(), GL_DOUBLE, 8, 3}, {1.5f, -2.5f, 3.25f}},
        {{GeoPositions4d::create(), GL_DOUBLE, 8, 4}, {1.5f, -2.5f, 3.25f}},
    };
    for (const auto& row : table) {
        const GeoPositionsRefPtr property(row.form.property);
        SCOPED_TRACE(property->getTypeName());
        expectShape(row.form);
        property->addValue(Pnt3f(1.5f, -2.5f, 3.25f));
        EXPECT_EQ(property->getValue(0), row.read);
    }
    const RefPtr<GeoPositions4fPtr> homogeneous(GeoPositions4f::create());
    homogeneous->editField().push_back(Pnt4f(2, 4, 6, 2));
    EXPECT_EQ(homogeneous->getValue(0), Pnt3f(2, 4, 6)) << "no division";
    homogeneous->setValue(Pnt3f(1, 2, 3), 0);
    EXPECT_EQ(homogeneous->getField()[0], Pnt4f(1, 2, 3, 1));
}

TEST(PropertyForms, IntegerNormalsSpreadOverTheirRange) {
    const RefPtr<GeoNormals3sPtr> shorts(GeoNormals3s::create());
    shorts->addValue(Vec3f(1, .5f, -1));
    EXPECT_EQ(shorts->getField()[0], Vec3s(32767, 16383, -32768));
    EXPECT_FLOAT_EQ(shorts->getValue(0)[0], 1.f);
    EXPECT_FLOAT_EQ(shorts->getValue(0)[1], 32767.f / 65535.f);
    EXPECT_FLOAT_EQ(shorts->getValue(0)[2], -1.f);
    const RefPtr<GeoNormals3bPtr> bytes(GeoNormals3b::create());
    bytes->addValue(Vec3f(1, .5f, -1));
    EXPECT_EQ(bytes->getField()[0], Vec3b(127, 63, -128));
    EXPECT_FLOAT_EQ(bytes->getValue(0)[1], 127.f / 255.f);
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

TEST(PropertyForms, IntegersHoldWhatIsBeyondThemWithinTheirRange) {
    const Real32 nan = std::nanf("");
    const RefPtr<GeoPositions3sPtr> positions(GeoPositions3s::create());
    positions->addValue(Pnt3f(1e9f, -1e9f, nan));
    EXPECT_EQ(positions->getField()[0], Pnt3s(32767, -32768, 0));
    const RefPtr<GeoNormals3bPtr> normals(GeoNormals3b::create());
    normals->addValue(Vec3f(5, -5, nan));
    EXPECT_EQ(normals->getField()[0], Vec3b(127, -128, 0));
    const RefPtr<GeoColors3ubPtr> colors(GeoColors3ub::create());
    colors->addValue(Color3f(1e30f, -1e30f, nan));
    EXPECT_EQ(colors->getField()[0], Color3ub(255, 0, 0));
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

TEST(PropertyForms, NumbersWidenAndTruncate) {
    const struct {
        GeoIndicesPtr property;
        UInt32 kept;
    } indices[] = {{GeoIndicesUI16::create(), 2}, {GeoIndicesUI32::create(), 65538}};
    for (const auto& row : indices) {
        const GeoIndicesRefPtr property(row.property);
        property->addValue(65538);
        EXPECT_EQ(property->getValue(0), row.kept);
    }
    const struct {
        GeoPLengthsPtr property;
        UInt32 kept;
    } lengths[] = {{GeoPLengthsUI8::create(), 3},
                   {GeoPLengthsUI16::create(), 259},
                   {GeoPLengthsUI32::create(), 65795}};
    for (const auto& row : lengths) {
        const GeoPLengthsRefPtr property(row.property);
        property->addValue(65795);
        EXPECT_EQ(property->getValue(0), row.kept);
    }
    for (const GeoPTypesPtr& made :
         {GeoPTypesPtr(GeoPTypesUI8::create()), GeoPTypesPtr(GeoPTypesUI16::create()),
          GeoPTypesPtr(GeoPTypesUI32::create())}) {
        const GeoPTypesRefPtr property(made);
        property->addValue(GL_POLYGON);
        EXPECT_EQ(property->getValue(0), UInt32(GL_POLYGON));
    }
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

} // namespace
