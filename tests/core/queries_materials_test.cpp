// What materials say about colour, image, transparency and whether to leave a node alone.

#include <morva/core/morva_osg_tools.h>

#include <functional>
#include <limits>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGTextureChunk.h>
#include <gtest/gtest.h>

#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

using namespace morva_test;
using material_ref = ::osg::RefPtr<::osg::MaterialPtr>;

namespace {

const ::osg::Color4f untouched(9, 9, 9, 9);

/// The five outputs of a colour query, each with a value that no material has.
struct quintuple {
    ::osg::Color4f diffuse = untouched, specular = untouched, ambient = untouched,
                   emission = untouched;
    float shininess = 99;

    template <typename Of> bool read(const Of& from) {
        return morva::osg::getColor(from, diffuse, specular, ambient, emission, shininess);
    }
    template <typename Of> bool readBack(const Of& from) {
        return morva::osg::getBackColor(from, diffuse, specular, ambient, emission, shininess);
    }
    bool isUntouched() const {
        return diffuse == untouched && specular == untouched && ambient == untouched &&
               emission == untouched && shininess == 99;
    }
};

::osg::MaterialChunkPtr colors(float base) {
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(::osg::Color4f(base, 1, 0, 0.1F));
    chunk->setSpecular(::osg::Color4f(base, 2, 0, 0.2F));
    chunk->setAmbient(::osg::Color4f(base, 3, 0, 0.3F));
    chunk->setEmission(::osg::Color4f(base, 4, 0, 0.4F));
    chunk->setShininess(base + 5);
    chunk->setBackDiffuse(::osg::Color4f(base, 6, 0, 0.6F));
    chunk->setBackSpecular(::osg::Color4f(base, 7, 0, 0.7F));
    chunk->setBackAmbient(::osg::Color4f(base, 8, 0, 0.8F));
    chunk->setBackEmission(::osg::Color4f(base, 9, 0, 0.9F));
    chunk->setBackShininess(base + 10);
    return chunk;
}

::osg::TextureChunkPtr texture(const ::osg::ImagePtr& image, unsigned mode = 7681,
                               unsigned combine = 8448) {
    const ::osg::TextureChunkPtr chunk = ::osg::TextureChunk::create();
    ::osg::ImagePtr passed = image;
    chunk->setImage(passed);
    chunk->setEnvMode(mode);
    chunk->setEnvCombineRGB(combine);
    return chunk;
}

::osg::ChunkMaterialPtr ofChunks(const std::vector<::osg::StateChunkPtr>& chunks) {
    const ::osg::ChunkMaterialPtr material = bareMaterial();
    for (const ::osg::StateChunkPtr& chunk : chunks)
        material->addChunk(chunk);
    return material;
}

} // namespace

TEST(GetColor, TakesTheFirstMaterialChunkInTheOrderOfTheQuintuple) {
    const material_ref material(
        ofChunks({::osg::BlendChunk::create(), colors(0.5F), colors(0.75F)}));
    quintuple q;
    ASSERT_TRUE(q.read(material.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0.5F, 1, 0, 0.1F));
    EXPECT_EQ(q.specular, ::osg::Color4f(0.5F, 2, 0, 0.2F));
    EXPECT_EQ(q.ambient, ::osg::Color4f(0.5F, 3, 0, 0.3F));
    EXPECT_EQ(q.emission, ::osg::Color4f(0.5F, 4, 0, 0.4F));
    EXPECT_EQ(q.shininess, 5.5F);
    ASSERT_TRUE(q.readBack(material.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0.5F, 6, 0, 0.6F));
    EXPECT_EQ(q.specular, ::osg::Color4f(0.5F, 7, 0, 0.7F));
    EXPECT_EQ(q.ambient, ::osg::Color4f(0.5F, 8, 0, 0.8F));
    EXPECT_EQ(q.emission, ::osg::Color4f(0.5F, 9, 0, 0.9F));
    EXPECT_EQ(q.shininess, 10.5F);
}

TEST(GetColor, OfASimpleMaterialIsOpaqueAndHasNoBack) {
    const ::osg::SimpleMaterialPtr simple_material = simple({0.25F, 0.5F, 1});
    const material_ref material(simple_material);
    simple_material->setSpecular(::osg::Color3f(0, 1, 0));
    simple_material->setAmbient(::osg::Color3f(0, 0, 1));
    simple_material->setEmission(::osg::Color3f(1, 0, 1));
    simple_material->setShininess(3);
    simple_material->setTransparency(0.9F);
    quintuple q, back;
    EXPECT_FALSE(back.readBack(material.get()));
    EXPECT_TRUE(back.isUntouched());
    ASSERT_TRUE(q.read(material.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0.25F, 0.5F, 1, 1));
    EXPECT_EQ(q.specular, ::osg::Color4f(0, 1, 0, 1));
    EXPECT_EQ(q.ambient, ::osg::Color4f(0, 0, 1, 1));
    EXPECT_EQ(q.emission, ::osg::Color4f(1, 0, 1, 1));
    EXPECT_EQ(q.shininess, 3.0F);
    // A chunk that was added to it counts before its own colours.
    simple_material->addChunk(colors(0.75F));
    ASSERT_TRUE(q.read(material.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0.75F, 1, 0, 0.1F));
}

TEST(GetColor, FollowsTheChoiceOfASwitchMaterial) {
    const ::osg::SwitchMaterialPtr choice =
        choiceOf(1, {simple({1, 0, 0}), simple({0, 1, 0}), bareMaterial()});
    const material_ref material(choice);
    const node_ref node(meshNode(quads(1), choice));
    quintuple q;
    EXPECT_TRUE(q.read(material.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0, 1, 0, 1));
    q = quintuple();
    EXPECT_TRUE(q.read(node.get()));
    EXPECT_EQ(q.diffuse, ::osg::Color4f(0, 1, 0, 1));

    choice->setChoice(2);
    q = quintuple();
    EXPECT_FALSE(q.read(material.get()));

    choice->setChoice(static_cast<::osg::UInt32>(-1));
    stream_capture out(std::cout);
    EXPECT_FALSE(q.read(material.get()));
    EXPECT_FALSE(q.readBack(node.get()));
    EXPECT_EQ(out.text(), "False SwitchMatChoice\nFalse SwitchMatChoice\n");
    EXPECT_TRUE(q.isUntouched());
}

TEST(GetColor, IsFalseWithoutAColour) {
    const material_ref blend(ofChunks({::osg::BlendChunk::create()}));
    const node_ref plain(meshNode(quads(1))), holder(group());
    quintuple q;
    EXPECT_FALSE(q.read(blend.get()));
    EXPECT_FALSE(q.read(::osg::MaterialPtr(::osg::NullFC)));
    EXPECT_FALSE(q.readBack(::osg::MaterialPtr(::osg::NullFC)));
    for (const ::osg::NodePtr& node : {plain.get(), holder.get(), ::osg::NodePtr(::osg::NullFC)}) {
        EXPECT_FALSE(q.read(node));
        EXPECT_FALSE(q.readBack(node));
    }
    EXPECT_TRUE(q.isUntouched());
}

namespace {

struct image_case {
    const char* name;
    std::function<::osg::MaterialPtr(const ::osg::ImagePtr&)> material;
    ::osg::UInt32 format;
    std::uint8_t alpha; ///< of the last pixel; the others have 255
    bool found, transparent, blends;
};

class GetImage : public testing::TestWithParam<image_case> {};

constexpr ::osg::UInt32 rgba = ::osg::Image::OSG_RGBA_PF, rgb = ::osg::Image::OSG_RGB_PF,
                        la = ::osg::Image::OSG_LA_PF;

::osg::MaterialPtr textured(const ::osg::ImagePtr& image, unsigned mode) {
    const ::osg::SimpleTexturedMaterialPtr material = ::osg::SimpleTexturedMaterial::create();
    material->setImage(image);
    material->setEnvMode(mode);
    return material;
}

} // namespace

TEST_P(GetImage, FindsTheImageAndItsFlags) {
    const image_case& c = GetParam();
    const ::osg::RefPtr<::osg::ImagePtr> image(imageOf(c.format, 3, 2));
    const int bytes = image->getBpp();
    image->editData()[3 * 2 * bytes - 1] = c.alpha;
    const node_ref node(meshNode(quads(1), c.material(image.get())));
    const ::osg::ImagePtr expected = c.found ? image.get() : ::osg::ImagePtr(::osg::NullFC);

    bool transparent = true, blends = true; // cleared for a node ...
    EXPECT_EQ(morva::osg::getImage(node.get(), transparent, blends), expected);
    EXPECT_EQ(transparent, c.transparent);
    EXPECT_EQ(blends, c.blends);
    transparent = blends = true; // ... and kept for a material
    EXPECT_EQ(morva::osg::getImage(morva::osg::getMaterial(node.get()), transparent, blends),
              expected);
    EXPECT_TRUE(transparent && blends);
    EXPECT_EQ(morva::osg::getImage(node.get()), expected);
}

INSTANTIATE_TEST_SUITE_P(
    , GetImage,
    testing::Values(
        image_case{"simple_textured", [](const auto& i) { return textured(i, 8448); }, rgba, 255,
                   true, false, false},
        image_case{"simple_textured_blends", [](const auto& i) { return textured(i, 3042); }, rgba,
                   254, true, true, true},
        image_case{"last_texture_chunk_counts",
                   [](const auto& i) {
                       return ofChunks({texture(imageOf(rgba, 1, 1, 0)), texture(i)});
                   },
                   rgba, 255, true, false, false},
        image_case{"last_texture_chunk_without_image",
                   [](const auto& i) {
                       return ofChunks({texture(i), texture(::osg::NullFC, 3042)});
                   },
                   rgba, 0, false, false, true},
        image_case{"combine_and_modulate",
                   [](const auto& i) { return ofChunks({texture(i, 34160, 8448)}); }, rgba, 255,
                   true, false, true},
        image_case{"combine_otherwise",
                   [](const auto& i) { return ofChunks({texture(i, 34160, 260)}); }, rgba, 255,
                   true, false, false},
        image_case{"blend_whatever_combine",
                   [](const auto& i) { return ofChunks({texture(i, 3042, 260)}); }, rgba, 255, true,
                   false, true},
        image_case{"alpha_in_the_last_pixel", [](const auto& i) { return ofChunks({texture(i)}); },
                   rgba, 254, true, true, false},
        image_case{"luminance_alpha_is_opaque",
                   [](const auto& i) { return ofChunks({texture(i)}); }, la, 0, true, false, false},
        image_case{"no_alpha_channel", [](const auto& i) { return ofChunks({texture(i)}); }, rgb, 0,
                   true, false, false},
        image_case{"no_texture", [](const auto&) { return ofChunks({colors(1)}); }, rgba, 0, false,
                   false, false},
        image_case{"switch_material",
                   [](const auto& i) { return choiceOf(0, {ofChunks({texture(i)})}); }, rgba, 0,
                   false, false, false}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(GetImageOfANode, ClearsTheFlagsAlsoWithoutAMaterial) {
    bool transparent = true, blends = true;
    const node_ref node(meshNode(quads(1)));
    EXPECT_EQ(morva::osg::getImage(node.get(), transparent, blends), ::osg::NullFC);
    EXPECT_FALSE(transparent || blends);
    EXPECT_EQ(morva::osg::getImage(::osg::NodePtr(::osg::NullFC)), ::osg::NullFC);
}

TEST(HasMaterialAlpha, AsksTheLastMaterialChunk) {
    const auto of = [](const ::osg::MaterialPtr& material) {
        const node_ref node(meshNode(quads(1), material));
        return morva::osg::hasMaterialAlpha(node.get());
    };
    const auto alpha = [](float a) {
        const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
        chunk->setDiffuse(::osg::Color4f(1, 1, 1, a));
        return chunk;
    };
    EXPECT_FALSE(of(ofChunks({alpha(0.5F), alpha(1)})));
    EXPECT_TRUE(of(ofChunks({alpha(1), alpha(0.5F)})));
    EXPECT_TRUE(of(ofChunks({alpha(1.0000001F)}))); // exactly 1, without a tolerance
    EXPECT_TRUE(of(ofChunks({alpha(std::numeric_limits<float>::quiet_NaN())})));
    EXPECT_FALSE(of(ofChunks({})));
    EXPECT_FALSE(of(::osg::NullFC));
    const ::osg::SimpleMaterialPtr clear = simple({1, 1, 1});
    clear->setTransparency(0.5F);
    EXPECT_FALSE(of(clear));
    EXPECT_FALSE(morva::osg::hasMaterialAlpha(::osg::NullFC));
}

TEST(ShouldSkipNode, HoldsForMasksSwitchMaterialsAndCubeMaps) {
    const auto skipped = [](const ::osg::NodePtr& node) {
        const node_ref held(node);
        ::osg::NodePtr argument = node;
        return morva::osg::shouldSkipNode(argument);
    };
    EXPECT_TRUE(skipped(hidden(meshNode(quads(1)))));
    EXPECT_TRUE(skipped(meshNode(quads(1), choiceOf(0, {}))));
    EXPECT_TRUE(skipped(meshNode(quads(1), cubeTextured())));
    EXPECT_FALSE(skipped(meshNode(quads(1))));
    EXPECT_FALSE(skipped(meshNode(quads(1), simple({1, 0, 0}))));
    EXPECT_FALSE(skipped(meshNode(quads(1), chunked({1, 1, 1, 1}, imageOf(rgb, 1, 1)))));
    EXPECT_FALSE(skipped(hidden(group()))); // no geometry
    const node_ref below(materialGroup(cubeTextured(), {meshNode(quads(1))}));
    ::osg::NodePtr child = below->getChild(0), null;
    EXPECT_TRUE(morva::osg::shouldSkipNode(child));
    EXPECT_FALSE(morva::osg::shouldSkipNode(null));
}
