// What materials say about colour, image, transparency and whether to leave a node alone.

#include <morva/core/morva_osg_tools.h>

#include <algorithm>
#include <limits>
#include <sstream>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

using namespace morva_test;

namespace {

/// The five outputs of a colour query in their order, as text; "none" if it writes nothing.
template <typename Of> std::string colorsOf(const Of& of, bool back = false) {
    const ::osg::Color4f untouched(9, 9, 9, 9);
    ::osg::Color4f out[4] = {untouched, untouched, untouched, untouched};
    float shininess = 9;
    const auto query = [&](auto get) { return get(of, out[0], out[1], out[2], out[3], shininess); };
    const bool found = back ? query([](auto&&... all) { return morva::osg::getBackColor(all...); })
                            : query([](auto&&... all) { return morva::osg::getColor(all...); });
    if (!found && std::count(out, out + 4, untouched) == 4 && shininess == 9)
        return "none";
    std::ostringstream text;
    for (const ::osg::Color4f& color : out)
        text << color << " | ";
    text << shininess;
    return (found ? "" : "spoiled ") + text.str();
}

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

class MaterialQueries : public no_strays {};

} // namespace

TEST_F(MaterialQueries, ColoursComeInTheOrderOfTheQuintuple) {
    const ::osg::SimpleMaterialPtr plain = simple({0.25F, 0.5F, 1});
    plain->setSpecular(::osg::Color3f(0, 1, 0));
    plain->setAmbient(::osg::Color3f(0, 0, 1));
    plain->setEmission(::osg::Color3f(1, 0, 1));
    plain->setShininess(3);
    plain->setTransparency(0.9F);
    const ::osg::SimpleMaterialPtr with_chunk = simple({0.25F, 0.5F, 1});
    with_chunk->addChunk(colors(0.5F));
    const auto first_of_two = [] {
        return ofChunks({::osg::BlendChunk::create(), colors(0.5F), colors(0.75F)});
    };
    const char* const front = "0.5, 1, 0, 0.1 | 0.5, 2, 0, 0.2 | 0.5, 3, 0, 0.3 | "
                              "0.5, 4, 0, 0.4 | 5.5";
    const char* const behind = "0.5, 6, 0, 0.6 | 0.5, 7, 0, 0.7 | 0.5, 8, 0, 0.8 | "
                               "0.5, 9, 0, 0.9 | 10.5";
    const struct {
        const char* rule;
        ::osg::MaterialPtr material;
        std::string front, back, message;
    } rows[] = {
        {"first material chunk", first_of_two(), front, behind, ""},
        {"simple material is opaque", plain,
         "0.25, 0.5, 1, 1 | 0, 1, 0, 1 | 0, 0, 1, 1 | 1, 0, 1, 1 | 3", "none", ""},
        {"chunk before own colours", with_chunk, front, behind, ""},
        {"choice", choiceOf(1, {simple({1, 0, 0}), first_of_two()}), front, behind, ""},
        {"choice without colour", choiceOf(0, {bareMaterial()}), "none", "none", ""},
        {"choice in a choice", choiceOf(0, {choiceOf(0, {first_of_two()})}), "none", "none", ""},
        {"choice beyond", choiceOf(3, {first_of_two()}), "none", "none", ""},
        {"choice of none", choiceOf(~0U, {first_of_two()}), "none", "none",
         "False SwitchMatChoice\n"},
        {"no colour", ofChunks({::osg::BlendChunk::create()}), "none", "none", ""},
        {"null", ::osg::NullFC, "none", "none", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref node(meshNode(quads(1), row.material));
        const stream_capture out(std::cout);
        EXPECT_EQ(colorsOf(row.material), row.front);
        EXPECT_EQ(colorsOf(row.material, true), row.back);
        EXPECT_EQ(out.text(), row.message + row.message);
        EXPECT_EQ(colorsOf(node.get()), row.front);
        EXPECT_EQ(colorsOf(node.get(), true), row.back);
    }
    EXPECT_EQ(colorsOf(::osg::NodePtr(::osg::NullFC)), "none");
}

namespace {

constexpr ::osg::UInt32 rgba = ::osg::Image::OSG_RGBA_PF, rgb = ::osg::Image::OSG_RGB_PF,
                        la = ::osg::Image::OSG_LA_PF;

/// How an image is shown: by itself, in a chunk, behind or in front of another, or not at all.
enum shown { textured, chunk, last, first, chosen, unused, bare };

::osg::MaterialPtr showing(const ::osg::ImagePtr& image, shown how, unsigned mode,
                           unsigned combine) {
    if (how == textured) {
        const ::osg::SimpleTexturedMaterialPtr material = ::osg::SimpleTexturedMaterial::create();
        material->setImage(image);
        material->setEnvMode(mode);
        return material;
    }
    if (how == last)
        return ofChunks({texture(imageOf(rgba, 1, 1, 0)), texture(image, mode, combine)});
    if (how == first)
        return ofChunks({texture(image), texture(::osg::NullFC, mode, combine)});
    if (how == unused)
        return ofChunks({colors(1)});
    if (how == bare)
        return ::osg::NullFC;
    const ::osg::MaterialPtr material = ofChunks({texture(image, mode, combine)});
    return how == chosen ? choiceOf(0, {material}) : material;
}

constexpr unsigned replace = 7681, blend = 3042, combined = 34160, modulate = 8448, add = 260;

} // namespace

TEST_F(MaterialQueries, ImageAndItsFlags) {
    const struct {
        const char* rule;
        shown how;
        unsigned mode, combine;
        ::osg::UInt32 format;
        std::uint8_t alpha; ///< of the last pixel; the others have 255
        bool found, transparent, blends;
    } rows[] = {
        {"simple textured", textured, modulate, 0, rgba, 255, true, false, false},
        {"simple textured blends", textured, blend, 0, rgba, 254, true, true, true},
        {"last texture chunk counts", last, replace, modulate, rgba, 255, true, false, false},
        {"last one without image", first, blend, modulate, rgba, 0, false, false, true},
        {"combine and modulate", chunk, combined, modulate, rgba, 255, true, false, true},
        {"combine otherwise", chunk, combined, add, rgba, 255, true, false, false},
        {"blend whatever combine", chunk, blend, add, rgba, 255, true, false, true},
        {"alpha in the last pixel", chunk, replace, modulate, rgba, 254, true, true, false},
        {"luminance alpha is opaque", chunk, replace, modulate, la, 0, true, false, false},
        {"no alpha channel", chunk, replace, modulate, rgb, 0, true, false, false},
        {"no texture", unused, blend, modulate, rgba, 0, false, false, false},
        {"no material", bare, blend, modulate, rgba, 0, false, false, false},
        {"switch material", chosen, blend, modulate, rgba, 0, false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const ::osg::RefPtr<::osg::ImagePtr> image(imageOf(row.format, 3, 2));
        image->editData()[3 * 2 * image->getBpp() - 1] = row.alpha;
        const node_ref node(
            meshNode(quads(1), showing(image.get(), row.how, row.mode, row.combine)));
        const ::osg::ImagePtr expected = row.found ? image.get() : ::osg::ImagePtr(::osg::NullFC);

        bool transparent = true, blends = true; // cleared for a node ...
        EXPECT_EQ(morva::osg::getImage(node.get(), transparent, blends), expected);
        EXPECT_EQ(transparent, row.transparent);
        EXPECT_EQ(blends, row.blends);
        transparent = blends = true; // ... and kept for a material
        const ::osg::MaterialPtr material = coreOf(node)->getMaterial();
        EXPECT_EQ(morva::osg::getImage(material, transparent, blends), expected);
        EXPECT_TRUE(transparent && blends);
        EXPECT_EQ(morva::osg::getImage(node.get()), expected);
    }
    EXPECT_EQ(morva::osg::getImage(::osg::NodePtr(::osg::NullFC)), ::osg::NullFC);
}

TEST_F(MaterialQueries, AlphaAndWhetherToSkip) {
    const auto alpha = [](float a) {
        const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
        chunk->setDiffuse(::osg::Color4f(1, 1, 1, a));
        return chunk;
    };
    const ::osg::SimpleMaterialPtr clear = simple({1, 1, 1});
    clear->setTransparency(0.5F);
    const ::osg::ChunkMaterialPtr cube_behind = chunked({1, 1, 1, 1}, imageOf(rgb, 1, 1));
    cube_behind->addChunk(::osg::CubeTextureChunk::create());
    const float nan_value = std::numeric_limits<float>::quiet_NaN();
    const struct {
        ::osg::MaterialPtr material;
        bool alpha, skipped;
    } rows[] = {{ofChunks({alpha(0.5F), alpha(1)}), false, false}, // the last one counts
                {ofChunks({alpha(1), alpha(0.5F)}), true, false},
                {ofChunks({alpha(1.0000001F)}), true, false}, // exactly 1, without a tolerance
                {ofChunks({alpha(nan_value)}), true, false},
                {ofChunks({}), false, false},
                {clear, false, false},
                {::osg::NullFC, false, false},
                {chunked({1, 1, 1, 1}, imageOf(rgb, 1, 1)), false, false},
                {cube_behind, false, true},
                {choiceOf(0, {}), false, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const node_ref own(sceneOf("m", {{"m", row.material}}));
        const node_ref above(sceneOf("$m(b !c !d())", {{"m", row.material}}));
        ::osg::NodePtr self = own.get(), inheriting = above->getChild(0);
        ::osg::NodePtr masked = above->getChild(1), no_geometry = above->getChild(2);
        EXPECT_EQ(morva::osg::hasMaterialAlpha(self), row.alpha);
        EXPECT_EQ(morva::osg::hasMaterialAlpha(inheriting), row.alpha);
        EXPECT_EQ(morva::osg::shouldSkipNode(self), row.skipped);
        EXPECT_EQ(morva::osg::shouldSkipNode(inheriting), row.skipped);
        EXPECT_TRUE(morva::osg::shouldSkipNode(masked));
        EXPECT_FALSE(morva::osg::shouldSkipNode(no_geometry));
    }
    ::osg::NodePtr null;
    EXPECT_FALSE(morva::osg::hasMaterialAlpha(null));
    EXPECT_FALSE(morva::osg::shouldSkipNode(null));
}
