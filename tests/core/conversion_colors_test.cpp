// Colour between materials and vertices, and the tools around fresh geometry.

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

#include <limits>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <gtest/gtest.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

using namespace morva_test;

namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

::osg::GeometryPtr withVertexColors(const std::vector<::osg::Color3f>& colors) {
    mesh_data mesh = quads(1);
    mesh.colors = colors;
    return geometryOf(mesh);
}

::osg::GeometryPtr withAlphaColors(const std::vector<::osg::Color4f>& colors) {
    const ::osg::GeometryPtr geometry = geometryOf(quads(1));
    const ::osg::GeoColors4fPtr property = ::osg::GeoColors4f::create();
    for (const ::osg::Color4f& color : colors)
        property->editField().push_back(color);
    geometry->setColors(property);
    return geometry;
}

struct uniform_case {
    const char* name;
    std::vector<::osg::Color3f> colors;
    bool uniform;
};

class UniformColors : public testing::TestWithParam<uniform_case> {};

} // namespace

TEST_P(UniformColors, BecomeAMaterial) {
    const geometry_ref geometry(withVertexColors(GetParam().colors));
    EXPECT_EQ(morva::osg::VertexColorIntoMaterial(geometry.get(), false), GetParam().uniform);
    const auto made = ::osg::SimpleMaterialPtr::dcast(geometry->getMaterial());
    EXPECT_EQ(made != ::osg::NullFC, GetParam().uniform);
    EXPECT_EQ(geometry->getColors() == ::osg::NullFC, GetParam().uniform);
    if (made != ::osg::NullFC) {
        EXPECT_EQ(made->getDiffuse(), GetParam().colors[0]);
        EXPECT_EQ(made->getTransparency(), 0.0F);
    }
}

INSTANTIATE_TEST_SUITE_P(
    , UniformColors,
    testing::Values(uniform_case{"one", {{0.1F, 0.2F, 0.3F}}, true},
                    uniform_case{"within_the_tolerance", {{1, 0, 0}, {1, 0, 0.0000005F}}, true},
                    uniform_case{"at_the_tolerance", {{1, 0, 0}, {1, 0, 1e-6F}}, true},
                    uniform_case{"beyond_it", {{1, 0, 0}, {1, 0, 0.00001F}}, false},
                    uniform_case{"beyond_it_downwards", {{1, 0, 0.00001F}, {1, 0, 0}}, false},
                    uniform_case{"last_one_differs", {{1, 0, 0}, {1, 0, 0}, {1, 1, 0}}, false},
                    // Each is compared with the first one, so that small steps add up.
                    uniform_case{"small_steps", {{0, 0, 0}, {9e-7F, 0, 0}, {18e-7F, 0, 0}}, false},
                    uniform_case{"nan", {{1, 0, 0}, {nan_value, 0, 0}}, false}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(VertexColorIntoMaterial, MakesABlendedMaterialOfUniformAlpha) {
    const geometry_ref geometry(withAlphaColors({{1, 0, 0, 0.5F}, {1, 0, 0, 0.5000005F}}));
    ASSERT_TRUE(morva::osg::VertexColorIntoMaterial(geometry.get(), true));
    EXPECT_EQ(geometry->getColors(), ::osg::NullFC);
    const auto material = ::osg::ChunkMaterialPtr::dcast(geometry->getMaterial());
    ASSERT_NE(material, ::osg::NullFC);
    ASSERT_EQ(material->getMFChunks()->size(), 2U);
    const auto blend = ::osg::BlendChunkPtr::dcast(material->getChunks(0));
    const auto colors = ::osg::MaterialChunkPtr::dcast(material->getChunks(1));
    ASSERT_TRUE(blend != ::osg::NullFC && colors != ::osg::NullFC);
    EXPECT_EQ(blend->getSrcFactor(), 770U);
    EXPECT_EQ(blend->getDestFactor(), 771U);
    EXPECT_EQ(colors->getDiffuse(), ::osg::Color4f(1, 0, 0, 0.5F));
}

TEST(VertexColorIntoMaterial, TellsWhetherThereIsMoreToTry) {
    const geometry_ref alpha_differs(withAlphaColors({{1, 0, 0, 0.5F}, {1, 0, 0, 0.6F}}));
    EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(alpha_differs.get(), true));
    EXPECT_NE(alpha_differs->getColors(), ::osg::NullFC);
    EXPECT_EQ(alpha_differs->getMaterial(), ::osg::NullFC);

    const geometry_ref without_alpha(withVertexColors({{1, 0, 0}}));
    {
        stream_capture out(std::cout);
        EXPECT_TRUE(morva::osg::VertexColorIntoMaterial(without_alpha.get(), true));
        EXPECT_EQ(out.text(), "Sorry No AlphaColor\n");
    }
    EXPECT_NE(without_alpha->getColors(), ::osg::NullFC);
    EXPECT_EQ(without_alpha->getMaterial(), ::osg::NullFC);

    stream_capture out(std::cout);
    without_alpha->setMaterial(simple({0, 1, 0}));
    const geometry_ref none(geometryOf(quads(1))), hollow(withAlphaColors({}));
    for (const bool with_alpha : {false, true}) {
        EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(::osg::NullFC, with_alpha));
        EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(without_alpha.get(), with_alpha));
        EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(none.get(), with_alpha));
        EXPECT_FALSE(morva::osg::VertexColorIntoMaterial(hollow.get(), with_alpha));
    }
    EXPECT_EQ(out.text(), "");
}

TEST(MaterialColorIntoVertex, MixesPresentColours) {
    mesh_data mesh = quads(1);
    mesh.colors = {{1, 1, 1}, {0, 0.5F, 0}};
    const node_ref node(meshNode(mesh, simple({1, 0, 0})));
    ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(node.get()));
    EXPECT_EQ(coreOf(node)->getMaterial(), ::osg::NullFC);
    EXPECT_EQ(coreOf(node)->getColors()->getValue(0), ::osg::Color3f(1, 0.5F, 0.5F));
    EXPECT_EQ(coreOf(node)->getColors()->getValue(1), ::osg::Color3f(0.5F, 0.25F, 0));

    const node_ref with_alpha(nodeOf(withAlphaColors({{1, 1, 1, 0.25F}})));
    coreOf(with_alpha)->setMaterial(chunked({0, 0, 0, 1}));
    ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(with_alpha.get()));
    const auto stored = ::osg::GeoColors4fPtr::dcast(coreOf(with_alpha)->getColors());
    ASSERT_NE(stored, ::osg::NullFC);
    EXPECT_EQ(stored->editField()[0], ::osg::Color4f(0.5F, 0.5F, 0.5F, 0.25F));
}

TEST(MaterialColorIntoVertex, MakesColoursForEveryCornerAndMore) {
    struct {
        mesh_data mesh;
        ::osg::UInt32 entries;
    } const cases[] = {{quads(1), 10}, {strip(6), 16}, {row(4, 1), 4}, {mesh_data(), 4}};
    for (const auto& c : cases) {
        const node_ref node(meshNode(c.mesh, chunked({0.5F, 0, 1, 0.75F})));
        ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(node.get()));
        const auto made = ::osg::GeoColors4fPtr::dcast(coreOf(node)->getColors());
        ASSERT_NE(made, ::osg::NullFC);
        ASSERT_EQ(made->size(), c.entries);
        for (::osg::UInt32 i = 0; i < c.entries; ++i)
            EXPECT_EQ(made->editField()[i], ::osg::Color4f(0.5F, 0, 1, 0.75F));
    }
    const node_ref opaque(meshNode(quads(1), simple({0.5F, 0, 1})));
    ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(opaque.get()));
    const auto made = ::osg::GeoColors4fPtr::dcast(coreOf(opaque)->getColors());
    EXPECT_EQ(made->editField()[0], ::osg::Color4f(0.5F, 0, 1, 1));
}

TEST(MaterialColorIntoVertex, LeavesOtherMaterialsAlone) {
    const auto with_chunk = [](const ::osg::ChunkMaterialPtr& material, float alpha) {
        const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
        chunk->setDiffuse(::osg::Color4f(1, 0, 0, alpha));
        material->addChunk(chunk);
        return material;
    };
    const ::osg::MaterialPtr stay[] = {
        chunked({1, 0, 0, 1}, imageOf(::osg::Image::OSG_RGB_PF, 1, 1)),
        chunked({1, 0, 0, 0}),                // nothing to see
        with_chunk(chunked({1, 0, 0, 1}), 0), // the last one counts
        with_chunk(cubeTextured(), 1),        // a cube map is a texture
        bareMaterial(),
        choiceOf(0, {simple({1, 0, 0})})};
    for (const ::osg::MaterialPtr& material : stay) {
        const node_ref node(meshNode(quads(1), material));
        EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(node.get()));
        EXPECT_EQ(coreOf(node)->getMaterial(), material);
        EXPECT_EQ(coreOf(node)->getColors(), ::osg::NullFC);
    }
    const node_ref last_is_seen(meshNode(quads(1), with_chunk(chunked({1, 0, 0, 0}), 1)));
    EXPECT_TRUE(morva::osg::MaterialColorIntoVertex(last_is_seen.get()));

    const node_ref holder(group({meshNode(quads(1))}));
    EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(holder.get()));
    EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(holder->getChild(0)));
    EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(::osg::NullFC));
}

TEST(MaterialColorIntoVertex, InheritsFromTheOutermostGroupAndLeavesIt) {
    const node_ref root(
        materialGroup(simple({1, 0, 0}), {materialGroup(simple({0, 1, 0}), {meshNode(quads(1))})}));
    const ::osg::NodePtr node = root->getChild(0)->getChild(0);
    ASSERT_TRUE(morva::osg::MaterialColorIntoVertex(node));
    EXPECT_EQ(coreOf(node)->getColors()->getValue(0), ::osg::Color3f(1, 0, 0));
    EXPECT_NE(::osg::MaterialGroupPtr::dcast(root->getCore())->getMaterial(), ::osg::NullFC);
    const node_ref hollow(materialGroup(::osg::NullFC, {meshNode(quads(1))}));
    EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(hollow->getChild(0)));
}

TEST(SetMaterialInGeometry, MakesGeometryIndependentOfTheGroupsAbove) {
    const ::osg::MaterialPtr outer = simple({1, 0, 0}), own = simple({0, 1, 0});
    const node_ref root(materialGroup(outer, {meshNode(quads(1)), meshNode(quads(1), own)}));
    ::osg::NodePtr first = root->getChild(0), second = root->getChild(1), top = root.get(), null;
    for (::osg::NodePtr* node : {&first, &second, &top, &null})
        morva::osg::setMaterialInGeometry(*node);
    EXPECT_EQ(coreOf(first)->getMaterial(), outer);
    EXPECT_EQ(coreOf(second)->getMaterial(), own);
    ::osg::MaterialGroupPtr::dcast(root->getCore())->setMaterial(::osg::NullFC);
    EXPECT_EQ(morva::osg::getMaterial(first), outer); // still there: it was referenced
}

TEST(CollectNonMaterialNodes, TakesThemOutInOrder) {
    const ::osg::MaterialPtr red = simple({1, 0, 0});
    const node_ref root(group({named("a", meshNode(quads(1))), named("b", meshNode(quads(1), red)),
                               group({named("c", meshNode(quads(1)))}),
                               materialGroup(::osg::NullFC, {named("d", meshNode(quads(1)))}),
                               switched(0, {named("e", meshNode(quads(1)))})}));
    const node_ref found(morva::osg::CollectNonMaterialNodes(root.get()));
    ASSERT_TRUE(found.get() != ::osg::NullFC);
    EXPECT_EQ(childNames(found.get()), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(root->getNChildren(), 4U);
    EXPECT_TRUE(morva::osg::CollectNonMaterialNodes(root.get()) == ::osg::NullFC);
    EXPECT_TRUE(morva::osg::CollectNonMaterialNodes(::osg::NullFC) == ::osg::NullFC);
}

TEST(CollectNonMaterialNodes, TakesAGeometryRootItself) {
    const node_ref bare(meshNode(quads(1))), colored(meshNode(quads(1), simple({1, 0, 0})));
    EXPECT_TRUE(morva::osg::CollectNonMaterialNodes(colored.get()) == ::osg::NullFC);
    const node_ref found(morva::osg::CollectNonMaterialNodes(bare.get()));
    ASSERT_TRUE(found.get() != ::osg::NullFC);
    EXPECT_EQ(bare->getParent(), found.get());
}

TEST(CreateGeo, GivesAnEmptyCoreOfOneType) {
    const geometry_ref triangles(morva::osg::createGeo()), lines(morva::osg::createLineGeo());
    for (const geometry_ref& geometry : {triangles, lines}) {
        ASSERT_EQ(geometry->getTypes()->size(), 1U);
        EXPECT_NE(::osg::GeoPTypesUI8Ptr::dcast(geometry->getTypes()), ::osg::NullFC);
        EXPECT_NE(::osg::GeoPLengthsUI32Ptr::dcast(geometry->getLengths()), ::osg::NullFC);
        EXPECT_NE(::osg::GeoPositions3fPtr::dcast(geometry->getPositions()), ::osg::NullFC);
        EXPECT_EQ(geometry->getLengths()->size() + geometry->getPositions()->size(), 0U);
        EXPECT_EQ(geometry->getIndices(), ::osg::NullFC);
    }
    EXPECT_EQ(triangles->getTypes()->getValue(0), 4);
    EXPECT_EQ(lines->getTypes()->getValue(0), 1);
}

TEST(CheckGeoProperties, DropsEmptyPropertiesOfADrawableCore) {
    std::mt19937 rng(5);
    const geometry_ref geometry(geometryOf(withNormals(quads(1), rng)));
    geometry->setColors(::osg::GeoColors3f::create());
    geometry->setSecondaryColors(::osg::GeoColors3f::create());
    geometry->setTexCoords(::osg::GeoTexCoords2f::create());
    geometry->setTexCoords1(::osg::GeoTexCoords2f::create());
    geometry->setTexCoords2(::osg::GeoTexCoords2f::create());
    geometry->setTexCoords3(::osg::GeoTexCoords2f::create());
    geometry->setTexCoords4(::osg::GeoTexCoords2f::create());
    geometry->setTexCoords7(::osg::GeoTexCoords1f::create());
    EXPECT_TRUE(morva::osg::checkGeoProperties(geometry.get()));
    EXPECT_NE(geometry->getNormals(), ::osg::NullFC);
    EXPECT_EQ(geometry->getColors(), ::osg::NullFC);
    EXPECT_EQ(geometry->getSecondaryColors(), ::osg::NullFC);
    EXPECT_EQ(geometry->getTexCoords(), ::osg::NullFC);
    EXPECT_EQ(geometry->getTexCoords1(), ::osg::NullFC);
    EXPECT_EQ(geometry->getTexCoords2(), ::osg::NullFC);
    EXPECT_EQ(geometry->getTexCoords3(), ::osg::NullFC);
    EXPECT_NE(geometry->getTexCoords4(), ::osg::NullFC); // these two are not looked at
    EXPECT_NE(geometry->getTexCoords7(), ::osg::NullFC);
}

TEST(CheckGeoProperties, RefusesWhatCannotBeDrawn) {
    EXPECT_FALSE(morva::osg::checkGeoProperties(::osg::NullFC));
    using change = void (*)(const ::osg::GeometryPtr&);
    const change spoil[] = {[](const auto& g) { g->setTypes(::osg::NullFC); },
                            [](const auto& g) { g->getTypes()->clear(); },
                            [](const auto& g) { g->setLengths(::osg::NullFC); },
                            [](const auto& g) { g->getLengths()->clear(); },
                            [](const auto& g) { g->setPositions(::osg::NullFC); },
                            [](const auto& g) { g->getPositions()->clear(); }};
    for (const change& apply : spoil) {
        const geometry_ref geometry(geometryOf(quads(1)));
        geometry->setNormals(::osg::GeoNormals3f::create());
        apply(geometry.get());
        EXPECT_FALSE(morva::osg::checkGeoProperties(geometry.get()));
        EXPECT_NE(geometry->getNormals(), ::osg::NullFC); // nothing is changed then
    }
}

TEST(ColorConversion, LeavesNoContainersBehind) {
    const unsigned int before = liveContainers();
    {
        const geometry_ref uniform(withVertexColors({{1, 0, 0}, {1, 0, 0}}));
        const geometry_ref mixed(withAlphaColors({{1, 0, 0, 1}, {0, 0, 0, 1}}));
        morva::osg::VertexColorIntoMaterial(uniform.get(), false);
        morva::osg::VertexColorIntoMaterial(mixed.get(), true);
        const node_ref node(meshNode(quads(2), simple({1, 0, 0})));
        morva::osg::MaterialColorIntoVertex(node.get());
        const node_ref root(group({meshNode(quads(1))}));
        const node_ref found(morva::osg::CollectNonMaterialNodes(root.get()));
        const geometry_ref made(morva::osg::createGeo());
    }
    EXPECT_EQ(liveContainers(), before);
}
