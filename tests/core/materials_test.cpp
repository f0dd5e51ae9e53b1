// What materials say about colour, image, transparency and whether to leave a node alone; colour
// between materials and vertices, and the tools around fresh geometry.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

::osg::ChunkMaterialPtr ofChunks(const std::vector<::osg::StateChunkPtr>& chunks) {
    const ::osg::ChunkMaterialPtr material = bareMaterial();
    for (const ::osg::StateChunkPtr& chunk : chunks)
        material->addChunk(chunk);
    return material;
}

::osg::MaterialChunkPtr withAlpha(float alpha) {
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(::osg::Color4f(1, 0, 0, alpha));
    return chunk;
}

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

} // namespace

TEST(MaterialQueries, ColoursComeInTheOrderOfTheQuintuple) {
    const ::osg::SimpleMaterialPtr plain = simple({0.25F, 0.5F, 1});
    const ::osg::SimpleMaterialPtr with_chunk = simple({0.25F, 0.5F, 1});
    plain->setSpecular(::osg::Color3f(0, 1, 0));
    plain->setAmbient(::osg::Color3f(0, 0, 1));
    plain->setEmission(::osg::Color3f(1, 0, 1));
    plain->setShininess(3);
    plain->setTransparency(0.9F);
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
        {"null", ::osg::NullFC, "none", "none", ""}};
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

/// 3 by 2 pixels, the last one with this alpha, the others with 255.
::osg::ImagePtr fading(::osg::UInt32 format, std::uint8_t alpha) {
    const ::osg::ImagePtr image = imageOf(format, 3, 2);
    image->editData()[3 * 2 * image->getBpp() - 1] = alpha;
    return image;
}

::osg::SimpleTexturedMaterialPtr textured(const ::osg::ImagePtr& image, unsigned mode) {
    const ::osg::SimpleTexturedMaterialPtr material = ::osg::SimpleTexturedMaterial::create();
    material->setImage(image);
    material->setEnvMode(mode);
    return material;
}

constexpr unsigned replace = 7681, blend = 3042, combined = 34160, modulate = 8448, add = 260;

} // namespace

TEST(MaterialQueries, ImageAndItsFlags) {
    using Image = ::osg::Image;
    const ::osg::RefPtr<::osg::ImagePtr> opaque(fading(Image::OSG_RGBA_PF, 255)),
        faint(fading(Image::OSG_RGBA_PF, 254)), grey(fading(Image::OSG_LA_PF, 0)),
        plain(fading(Image::OSG_RGB_PF, 0));
    const ::osg::ImagePtr none;
    const struct {
        const char* rule;
        ::osg::MaterialPtr material;
        ::osg::ImagePtr image;
        bool transparent, blends;
    } rows[] = {
        {"simple textured", textured(opaque, modulate), opaque, false, false},
        {"simple textured blends", textured(faint, blend), faint, true, true},
        {"last texture chunk counts", ofChunks({texture(faint), texture(opaque)}), opaque, false,
         false},
        {"last one without image", ofChunks({texture(faint), texture(none, blend)}), none, false,
         true},
        {"combine and modulate", ofChunks({texture(opaque, combined, modulate)}), opaque, false,
         true},
        {"combine otherwise", ofChunks({texture(opaque, combined, add)}), opaque, false, false},
        {"blend whatever combine", ofChunks({texture(opaque, blend, add)}), opaque, false, true},
        {"alpha in the last pixel", ofChunks({texture(faint)}), faint, true, false},
        {"luminance alpha is opaque", ofChunks({texture(grey)}), grey, false, false},
        {"no alpha channel", ofChunks({texture(plain)}), plain, false, false},
        {"no texture", ofChunks({colors(1)}), none, false, false},
        {"no material", ::osg::NullFC, none, false, false},
        {"switch material", choiceOf(0, {ofChunks({texture(faint, blend)})}), none, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref node(meshNode(quads(1), row.material));
        bool transparent = true, blends = true; // cleared for a node ...
        EXPECT_EQ(morva::osg::getImage(node.get(), transparent, blends), row.image);
        EXPECT_EQ(transparent, row.transparent);
        EXPECT_EQ(blends, row.blends);
        transparent = blends = true; // ... and kept for a material
        EXPECT_EQ(morva::osg::getImage(row.material, transparent, blends), row.image);
        EXPECT_TRUE(transparent && blends);
        EXPECT_EQ(morva::osg::getImage(node.get()), row.image);
    }
    EXPECT_EQ(morva::osg::getImage(::osg::NodePtr(::osg::NullFC)), ::osg::NullFC);
}

TEST(MaterialQueries, AlphaWhetherToSkipAndWhetherToBakeTheOwnOneOrTheOneAbove) {
    const ::osg::SimpleMaterialPtr clear = simple({1, 1, 1});
    clear->setTransparency(0.5F);
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 1, 1);
    const struct {
        const char* rule;
        ::osg::MaterialPtr material;
        bool alpha, skipped, baked;
    } rows[] = {
        {"last of two, opaque", ofChunks({withAlpha(0), withAlpha(1)}), false, false, true},
        {"last of two, clear", ofChunks({withAlpha(1), withAlpha(0.5F)}), true, false, true},
        {"last of two, unseen", ofChunks({withAlpha(1), withAlpha(0)}), true, false, false},
        {"no tolerance", ofChunks({withAlpha(1.0000001F)}), true, false, true},
        {"alpha that is no number", chunked({1, 0, 0, nan_value}), true, false, true},
        {"no chunk", bareMaterial(), false, false, false},
        {"simple", clear, false, false, true},
        {"simple with a texture", textured(image, modulate), false, false, true},
        {"texture", chunked({1, 0, 0, 1}, image), false, false, false},
        {"cube map is a texture", ofChunks({::osg::CubeTextureChunk::create(), withAlpha(1)}),
         false, true, false},
        {"cube map behind", ofChunks({texture(image), ::osg::CubeTextureChunk::create()}), false,
         true, false},
        {"choice", choiceOf(0, {simple({1, 0, 0})}), false, true, false},
        {"choice of nothing", choiceOf(0, {}), false, true, false},
        {"none", ::osg::NullFC, false, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref own(sceneOf("m", {{"m", row.material}}));
        const node_ref above(sceneOf("$m(b !c !d())", {{"m", row.material}}));
        for (::osg::NodePtr node : {own.get(), above->getChild(0)}) {
            EXPECT_EQ(morva::osg::hasMaterialAlpha(node), row.alpha);
            EXPECT_EQ(morva::osg::shouldSkipNode(node), row.skipped);
            EXPECT_EQ(morva::osg::MaterialColorIntoVertex(node), row.baked);
            EXPECT_EQ(coreOf(node)->getColors() != ::osg::NullFC, row.baked);
        }
        ::osg::NodePtr masked = above->getChild(1), no_geometry = above->getChild(2);
        EXPECT_TRUE(morva::osg::shouldSkipNode(masked));
        EXPECT_FALSE(morva::osg::shouldSkipNode(no_geometry));
        EXPECT_EQ(coreOf(own)->getMaterial(), row.baked ? ::osg::NullFC : row.material);
        EXPECT_EQ(::osg::MaterialGroupPtr::dcast(above->getCore())->getMaterial(), row.material);
    }
    const node_ref holder(sceneOf("r(m)"));
    for (::osg::NodePtr node : {holder.get(), holder->getChild(0), ::osg::NodePtr()}) {
        EXPECT_FALSE(morva::osg::hasMaterialAlpha(node));
        EXPECT_FALSE(morva::osg::shouldSkipNode(node));
        EXPECT_FALSE(morva::osg::MaterialColorIntoVertex(node));
        morva::osg::setMaterialInGeometry(node);
    }
}

// ---- between materials and vertices

namespace {

template <typename Property, typename Color>
::osg::GeometryPtr squareOf(const std::vector<Color>& colors) {
    const ::osg::GeometryPtr geometry = geometryOf(quads(1));
    geometry->setColors(propertyOf<Property>(colors));
    return geometry;
}
constexpr auto withColors3 = &squareOf<::osg::GeoColors3f, ::osg::Color3f>;
constexpr auto withColors4 = &squareOf<::osg::GeoColors4f, ::osg::Color4f>;
constexpr auto withBytes4 = &squareOf<::osg::GeoColors4ub, ::osg::Color4ub>;

} // namespace

TEST(ColorConversion, UniformColoursBecomeAMaterial) {
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

TEST(ColorConversion, VertexColorsStayWhereNothingCanBeMade) {
    const geometry_ref three(withColors3({{1, 0, 0}})), bytes(withBytes4({{255, 0, 0, 255}}));
    const geometry_ref none(geometryOf(quads(1))), own(withColors4({{1, 0, 0, 1}}));
    const stream_capture out(std::cout);
    for (const geometry_ref& geometry : {three, bytes}) {
        EXPECT_TRUE(morva::osg::VertexColorIntoMaterial(geometry.get(), true));
        EXPECT_NE(geometry->getColors(), ::osg::NullFC);
        EXPECT_EQ(geometry->getMaterial(), ::osg::NullFC);
    }
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

TEST(ColorConversion, MaterialIsMixedIntoPresentColours) {
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

TEST(ColorConversion, MaterialMakesColoursForEveryCornerAndMore) {
    // Under a mapping colours share the index of the positions; one that leads nowhere, as the
    // last one here, asks for nothing, and an entry that named colours before has no say.
    mesh_data spread = row(60, 1);
    spread.primitives = {{1, 2}};
    spread.mapping = {::osg::Geometry::MapPosition, ::osg::Geometry::MapColor};
    spread.indices = {50, 0, 900, 0};
    const std::pair<mesh_data, ::osg::UInt32> rows[] = {{quads(1), 10}, {strip(6), 16},
                                                        {row(4, 1), 4}, {mesh_data(), 4},
                                                        {cube(), 40},   {spread, 51}};
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
            EXPECT_EQ(coreOf(node)->calcMappingIndex(::osg::Geometry::MapColor),
                      mesh.mapping.empty() ? -1 : 0);
        }
    }
}

TEST(ColorConversion, NonMaterialNodesAreTakenOutInOrder) {
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

TEST(ColorConversion, EmptyPropertiesGoOffADrawableCoreAlone) {
    using geometry = ::osg::Geometry;
    for (unsigned bit = 1; bit < geometry::MapEmpty; bit *= 2) {
        const geometry_ref checked(everyProperty(3, bit, 0));
        EXPECT_EQ(morva::osg::checkGeoProperties(checked.get()), bit != geometry::MapPosition);
        const bool goes = bit != geometry::MapPosition && bit <= geometry::MapTexCoords3;
        for (unsigned one = 1; one < geometry::MapEmpty; one *= 2) {
            EXPECT_EQ(checked->getProperty(::osg::UInt16(one)) == nullptr, goes && one == bit)
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
        apply(checked);
        EXPECT_FALSE(morva::osg::checkGeoProperties(checked.get()));
        EXPECT_NE(checked->getNormals(), ::osg::NullFC); // nothing is changed then
    }
    EXPECT_FALSE(morva::osg::checkGeoProperties(::osg::NullFC));
}
