// Colour between materials and vertices, and the tools around fresh geometry.

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

#include <algorithm>
#include <limits>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

using namespace morva_test;

namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

template <typename Property, typename Color>
::osg::GeometryPtr squareOf(const std::vector<Color>& colors) {
    const ::osg::GeometryPtr geometry = geometryOf(quads(1));
    const typename Property::PtrType property = Property::create();
    for (const Color& color : colors)
        property->editField().push_back(color);
    geometry->setColors(property);
    return geometry;
}
constexpr auto withColors3 = &squareOf<::osg::GeoColors3f, ::osg::Color3f>;
constexpr auto withColors4 = &squareOf<::osg::GeoColors4f, ::osg::Color4f>;
constexpr auto withBytes4 = &squareOf<::osg::GeoColors4ub, ::osg::Color4ub>;

class ColorConversion : public no_strays {};

} // namespace

TEST_F(ColorConversion, UniformColoursBecomeAMaterial) {
    const struct {
        const char* rule;
        std::vector<::osg::Color3f> colors;
        bool uniform;
    } rows[] = {{"one", {{0.1F, 0.2F, 0.3F}}, true},
                {"within the tolerance", {{1, 0, 0}, {1, 0, 0.0000005F}}, true},
                {"at the tolerance", {{1, 0, 0}, {1, 0, 1e-6F}}, true},
                {"beyond it", {{1, 0, 0}, {1, 0, 0.00001F}}, false},
                {"beyond it downwards", {{1, 0, 0.00001F}, {1, 0, 0}}, false},
                {"last one differs", {{1, 0, 0}, {1, 0, 0}, {1, 1, 0}}, false},
                // Each is compared with the first one, so that small steps add up.
                {"small steps", {{0, 0, 0}, {9e-7F, 0, 0}, {18e-7F, 0, 0}}, false},
                {"nan", {{1, 0, 0}, {nan_value, 0, 0}}, false},
                {"none", {}, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        std::vector<::osg::Color4f> with_alpha;
        for (const ::osg::Color3f& color : row.colors)
            with_alpha.emplace_back(color[0], 0.5F, color[1], color[2]);
        const geometry_ref plain(withColors3(row.colors)), blended(withColors4(with_alpha));
        EXPECT_EQ(morva::osg::VertexColorIntoMaterial(plain.get(), false), row.uniform);
        EXPECT_EQ(morva::osg::VertexColorIntoMaterial(blended.get(), true), row.uniform);
        for (const geometry_ref& geometry : {plain, blended}) {
            EXPECT_EQ(geometry->getMaterial() != ::osg::NullFC, row.uniform);
            EXPECT_EQ(geometry->getColors() == ::osg::NullFC, row.uniform);
        }
        if (!row.uniform)
            continue;
        const auto simple_material = ::osg::SimpleMaterialPtr::dcast(plain->getMaterial());
        ASSERT_NE(simple_material, ::osg::NullFC);
        EXPECT_EQ(simple_material->getDiffuse(), row.colors[0]);
        const auto material = ::osg::ChunkMaterialPtr::dcast(blended->getMaterial());
        ASSERT_NE(material, ::osg::NullFC);
        ASSERT_EQ(material->getMFChunks()->size(), 2U);
        const auto blend = ::osg::BlendChunkPtr::dcast(material->getChunks(0));
        const auto colors = ::osg::MaterialChunkPtr::dcast(material->getChunks(1));
        ASSERT_TRUE(blend != ::osg::NullFC && colors != ::osg::NullFC);
        EXPECT_EQ(blend->getSrcFactor(), 770U);
        EXPECT_EQ(blend->getDestFactor(), 771U);
        EXPECT_EQ(colors->getDiffuse(), with_alpha[0]);
    }
}

TEST_F(ColorConversion, VertexColorsStayWhereNothingCanBeMade) {
    const geometry_ref three(withColors3({{1, 0, 0}})), bytes(withBytes4({{255, 0, 0, 255}}));
    const geometry_ref none(geometryOf(quads(1))), own(withColors4({{1, 0, 0, 1}}));
    const stream_capture out(std::cout);
    for (const geometry_ref& geometry : {three, bytes}) {
        EXPECT_TRUE(morva::osg::VertexColorIntoMaterial(geometry.get(), true));
        EXPECT_NE(geometry->getColors(), ::osg::NullFC);
        EXPECT_EQ(geometry->getMaterial(), ::osg::NullFC);
    }
    EXPECT_EQ(out.text(), "Sorry No AlphaColor\nSorry No AlphaColor\n");
    three->setMaterial(simple({0, 1, 0}));
    own->setMaterial(three->getMaterial());
    for (const bool with_alpha : {false, true}) {
        for (const ::osg::GeometryPtr& geometry :
             {three.get(), own.get(), none.get(), ::osg::GeometryPtr()})
            EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(geometry, with_alpha));
    }
    EXPECT_EQ(out.text(), "Sorry No AlphaColor\nSorry No AlphaColor\n");
    EXPECT_NE(own->getColors(), ::osg::NullFC);
}

TEST_F(ColorConversion, MaterialIsMixedIntoPresentColours) {
    const node_ref node(nodeOf(withColors3({{1, 1, 1}, {0, 0.5F, 0}})));
    coreOf(node)->setMaterial(simple({1, 0, 0}));
    ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(node.get()));
    EXPECT_EQ(coreOf(node)->getMaterial(), ::osg::NullFC);
    EXPECT_EQ(coreOf(node)->getColors()->getValue(0), ::osg::Color3f(1, 0.5F, 0.5F));
    EXPECT_EQ(coreOf(node)->getColors()->getValue(1), ::osg::Color3f(0.5F, 0.25F, 0));

    // The alpha stays in every form that has one.
    const node_ref floats(nodeOf(withColors4({{1, 1, 1, 0.25F}})));
    const node_ref bytes(nodeOf(withBytes4({{255, 255, 255, 60}})));
    for (const node_ref& with_alpha : {floats, bytes}) {
        coreOf(with_alpha)->setMaterial(chunked({0, 0, 0, 1}));
        ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(with_alpha.get()));
    }
    EXPECT_EQ(::osg::GeoColors4fPtr::dcast(coreOf(floats)->getColors())->editField()[0],
              ::osg::Color4f(0.5F, 0.5F, 0.5F, 0.25F));
    EXPECT_EQ(::osg::GeoColors4ubPtr::dcast(coreOf(bytes)->getColors())->editField()[0],
              ::osg::Color4ub(127, 127, 127, 60));
}

TEST_F(ColorConversion, MaterialMakesColoursForEveryCornerAndMore) {
    const std::pair<mesh_data, ::osg::UInt32> rows[] = {
        {quads(1), 10}, {strip(6), 16}, {row(4, 1), 4}, {mesh_data(), 4}};
    for (const auto& [mesh, entries] : rows) {
        const node_ref seen(meshNode(mesh, chunked({0.5F, 0, 1, 0.75F})));
        const node_ref opaque(meshNode(mesh, simple({0.5F, 0, 1})));
        for (const node_ref& node : {seen, opaque}) {
            ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(node.get()));
            const auto made = ::osg::GeoColors4fPtr::dcast(coreOf(node)->getColors());
            ASSERT_NE(made, ::osg::NullFC);
            const ::osg::Color4f color(0.5F, 0, 1, node == seen ? 0.75F : 1);
            const std::vector<::osg::Color4f> colors(made->editField().begin(),
                                                     made->editField().end());
            EXPECT_EQ(colors, std::vector<::osg::Color4f>(entries, color));
        }
    }
}

TEST_F(ColorConversion, OtherMaterialsStay) {
    const auto with_chunk = [](const ::osg::ChunkMaterialPtr& material, float alpha) {
        const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
        chunk->setDiffuse(::osg::Color4f(1, 0, 0, alpha));
        material->addChunk(chunk);
        return material;
    };
    const struct {
        const char* rule;
        ::osg::MaterialPtr material;
        bool baked;
    } rows[] = {
        {"texture", chunked({1, 0, 0, 1}, imageOf(::osg::Image::OSG_RGB_PF, 1, 1)), false},
        {"nothing to see", chunked({1, 0, 0, 0}), false},
        {"last of two, unseen", with_chunk(chunked({1, 0, 0, 1}), 0), false},
        {"last of two, seen", with_chunk(chunked({1, 0, 0, 0}), 1), true},
        {"alpha that is no number", chunked({1, 0, 0, nan_value}), true},
        {"cube map is a texture", with_chunk(cubeTextured(), 1), false},
        {"no chunk", bareMaterial(), false},
        {"choice", choiceOf(0, {simple({1, 0, 0})}), false},
        {"simple with a texture", ::osg::SimpleTexturedMaterial::create(), true},
        {"none", ::osg::NullFC, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref own(sceneOf("m", {{"m", row.material}}));
        const node_ref above(sceneOf("$m(a)", {{"m", row.material}}));
        EXPECT_EQ(morva::osg::MaterialColorIntoVertex(own.get()), row.baked);
        EXPECT_EQ(morva::osg::MaterialColorIntoVertex(above->getChild(0)), row.baked);
        for (const ::osg::NodePtr& node : {own.get(), above->getChild(0)})
            EXPECT_EQ(coreOf(node)->getColors() != ::osg::NullFC, row.baked);
        EXPECT_EQ(coreOf(own)->getMaterial(), row.baked ? ::osg::NullFC : row.material);
        EXPECT_EQ(::osg::MaterialGroupPtr::dcast(above->getCore())->getMaterial(), row.material);
    }
    const node_ref holder(sceneOf("r(m)"));
    for (const ::osg::NodePtr& node : {holder.get(), holder->getChild(0), ::osg::NodePtr()})
        EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(node));
}

TEST_F(ColorConversion, GeometryBecomesIndependentOfTheGroupsAbove) {
    const ::osg::MaterialPtr outer = simple({1, 0, 0}), own = simple({0, 1, 0});
    const node_ref root(sceneOf("$outer(a own)", {{"outer", outer}, {"own", own}}));
    ::osg::NodePtr first = root->getChild(0), second = root->getChild(1), top = root.get(), null;
    for (::osg::NodePtr* node : {&first, &second, &top, &null})
        morva::osg::setMaterialInGeometry(*node);
    EXPECT_EQ(coreOf(first)->getMaterial(), outer);
    EXPECT_EQ(coreOf(second)->getMaterial(), own);
    ::osg::MaterialGroupPtr::dcast(root->getCore())->setMaterial(::osg::NullFC);
    EXPECT_EQ(morva::osg::getMaterial(first), outer); // still there: it was referenced
}

TEST_F(ColorConversion, NonMaterialNodesAreTakenOutInOrder) {
    const struct {
        const char *scene, *found, *left;
    } rows[] = {{"r(a red g(c) $none(d) ?0s(e))", "-(a c)", "r(red g none(d) s(e))"},
                {"red", "", "red"},
                {"a", "-(a)", "a"},
                {"r(red)", "", "r(red)"}};
    for (const auto& row : rows) {
        const ::osg::RefPtr<::osg::MaterialPtr> red(simple({1, 0, 0}));
        const node_ref root(sceneOf(row.scene, {{"red", red.get()}}));
        const node_ref found(morva::osg::CollectNonMaterialNodes(root.get()));
        EXPECT_EQ(found.get() == ::osg::NullFC ? "" : textOf(found.get()), row.found);
        EXPECT_EQ(textOf(root.get()), row.left);
    }
    EXPECT_TRUE(morva::osg::CollectNonMaterialNodes(::osg::NullFC) == ::osg::NullFC);
}

TEST_F(ColorConversion, CreatedGeometryIsAnEmptyCoreOfOneType) {
    const geometry_ref triangles(morva::osg::createGeo()), lines(morva::osg::createLineGeo());
    for (const geometry_ref& geometry : {triangles, lines}) {
        const auto types = ::osg::GeoPTypesUI8Ptr::dcast(geometry->getTypes());
        ASSERT_TRUE(types != ::osg::NullFC && types->size() == 1);
        EXPECT_EQ(types->getValue(0), geometry == triangles ? 4U : 1U);
        EXPECT_NE(::osg::GeoPLengthsUI32Ptr::dcast(geometry->getLengths()), ::osg::NullFC);
        EXPECT_NE(::osg::GeoPositions3fPtr::dcast(geometry->getPositions()), ::osg::NullFC);
        EXPECT_EQ(geometry->getLengths()->size() + geometry->getPositions()->size(), 0U);
        EXPECT_EQ(geometry->getIndices(), ::osg::NullFC);
    }
}

TEST_F(ColorConversion, EmptyPropertiesGoOffADrawableCoreAlone) {
    using geometry = ::osg::Geometry;
    for (unsigned bit = 1; bit < geometry::MapEmpty; bit *= 2) {
        const geometry_ref checked(everyProperty(3, bit, 0));
        EXPECT_EQ(morva::osg::checkGeoProperties(checked.get()), bit != geometry::MapPosition);
        const bool goes = bit != geometry::MapPosition && bit <= geometry::MapTexCoords3;
        for (unsigned one = 1; one < geometry::MapEmpty; one *= 2) {
            EXPECT_EQ(checked->getProperty(static_cast<::osg::UInt16>(one)) == nullptr,
                      goes && one == bit)
                << one << " of " << bit;
        }
    }
    using change = void (*)(const ::osg::GeometryPtr&);
    const change spoil[] = {[](const auto& g) { g->setTypes(::osg::NullFC); },
                            [](const auto& g) { g->getTypes()->clear(); },
                            [](const auto& g) { g->setLengths(::osg::NullFC); },
                            [](const auto& g) { g->getLengths()->clear(); },
                            [](const auto& g) { g->setPositions(::osg::NullFC); }};
    for (const change& apply : spoil) {
        const geometry_ref checked(everyProperty(3, geometry::MapNormal, 0));
        apply(checked.get());
        EXPECT_FALSE(morva::osg::checkGeoProperties(checked.get()));
        EXPECT_NE(checked->getNormals(), ::osg::NullFC); // nothing is changed then
    }
    EXPECT_FALSE(morva::osg::checkGeoProperties(::osg::NullFC));
}
