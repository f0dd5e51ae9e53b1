// Materials and chunks: defaults, chunk lists, counting, transparency.

#include <gtest/gtest.h>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>
#include <OpenSG/OSGTransformChunk.h>

#include <functional>
#include <sstream>

namespace {

using namespace osg;

bool isAlive(UInt32 id) { return FieldContainerFactory::the()->getContainer(id) != NullFC; }

/// The field's numbers or words, whatever stands between them.
std::string valuesOf(const FieldContainerPtr& container, const char* field) {
    std::string text;
    container->getField(field)->getValueByStr(text);
    std::istringstream words(text);
    std::ostringstream out;
    for (std::string word; words >> word;) {
        if (word.back() == ',')
            word.pop_back();
        std::istringstream number(word);
        double value = 0;
        out << (out.tellp() > 0 ? " " : "");
        if (number >> value) {
            out << value;
        } else {
            out << word;
        }
    }
    return out.str();
}

struct default_case {
    const char* type;
    const char* field;
    UInt32 id;
    const char* values;
};

class ContainerDefaults : public testing::TestWithParam<default_case> {};

TEST_P(ContainerDefaults, FieldHasItsNumberAndValue) {
    const FieldContainerRefPtr made(
        FieldContainerFactory::the()->createFieldContainer(GetParam().type));
    ASSERT_NE(made, NullFC);
    EXPECT_EQ(valuesOf(made, GetParam().field), GetParam().values);
    EXPECT_EQ(made->getType().findFieldDescription(GetParam().field)->getFieldId(), GetParam().id);
}

INSTANTIATE_TEST_SUITE_P(
    , ContainerDefaults,
    testing::Values(default_case{"SimpleMaterial", "sortKey", 2, "0"},
                    default_case{"SimpleMaterial", "transparencyMode", 3, "0"},
                    default_case{"SimpleMaterial", "ambient", 6, "0 0 0"},
                    default_case{"SimpleMaterial", "diffuse", 7, "0 0 0"},
                    default_case{"SimpleMaterial", "specular", 8, "0 0 0"},
                    default_case{"SimpleMaterial", "shininess", 9, "1"},
                    default_case{"SimpleMaterial", "emission", 10, "0 0 0"},
                    default_case{"SimpleMaterial", "transparency", 11, "0"},
                    default_case{"SimpleMaterial", "lit", 12, "TRUE"},
                    default_case{"SimpleMaterial", "colorMaterial", 13, "4609"},
                    default_case{"SimpleTexturedMaterial", "minFilter", 15, "9987"},
                    default_case{"SimpleTexturedMaterial", "magFilter", 16, "9729"},
                    default_case{"SimpleTexturedMaterial", "envMode", 17, "7681"},
                    default_case{"SimpleTexturedMaterial", "envMap", 18, "FALSE"},
                    default_case{"SwitchMaterial", "choice", 5, "0"},
                    default_case{"MaterialChunk", "ignore", 3, "FALSE"},
                    default_case{"MaterialChunk", "diffuse", 4, "1 1 1 1"},
                    default_case{"MaterialChunk", "ambient", 5, "0.2 0.2 0.2 1"},
                    default_case{"MaterialChunk", "specular", 6, "0.5 0.5 0.5 1"},
                    default_case{"MaterialChunk", "emission", 7, "0 0 0 1"},
                    default_case{"MaterialChunk", "shininess", 8, "10"},
                    default_case{"MaterialChunk", "lit", 9, "TRUE"},
                    default_case{"MaterialChunk", "colorMaterial", 10, "4609"},
                    default_case{"MaterialChunk", "backMaterial", 11, "FALSE"},
                    default_case{"MaterialChunk", "backDiffuse", 12, "1 1 1 0"},
                    default_case{"MaterialChunk", "backAmbient", 13, "0.2 0.2 0.2 0"},
                    default_case{"MaterialChunk", "backSpecular", 14, "0.5 0.5 0.5 0"},
                    default_case{"MaterialChunk", "backEmission", 15, "0 0 0 0"},
                    default_case{"MaterialChunk", "backShininess", 16, "10"},
                    default_case{"BlendChunk", "srcFactor", 4, "1"},
                    default_case{"BlendChunk", "destFactor", 5, "0"},
                    default_case{"BlendChunk", "alphaFunc", 8, "0"},
                    default_case{"TextureChunk", "internalFormat", 5, "0"},
                    default_case{"TextureChunk", "scale", 7, "TRUE"},
                    default_case{"TextureChunk", "minFilter", 9, "9987"},
                    default_case{"TextureChunk", "magFilter", 10, "9729"},
                    default_case{"TextureChunk", "wrapS", 11, "10497"},
                    default_case{"TextureChunk", "wrapT", 12, "10497"},
                    default_case{"TextureChunk", "wrapR", 13, "10497"},
                    default_case{"TextureChunk", "envMode", 14, "7681"},
                    default_case{"TextureChunk", "envCombineRGB", 16, "8448"},
                    default_case{"TextureChunk", "envCombineAlpha", 17, "8448"},
                    default_case{"CubeTextureChunk", "isReflectionMap", 45, "TRUE"},
                    default_case{"Image", "width", 3, "0"}, default_case{"Image", "height", 4, "1"},
                    default_case{"Image", "bpp", 6, "1"},
                    default_case{"Image", "pixelFormat", 10, "0"},
                    default_case{"Image", "dataType", 11, "5121"}),
    [](const auto& instance) {
        return std::string(instance.param.type) + "_" + instance.param.field;
    });

TEST(MaterialDefaults, PointersAreNullAndTheMatrixIsIdentity) {
    const RefPtr<TextureChunkPtr> texture(TextureChunk::create());
    EXPECT_EQ(texture->getImage(), NullFC);
    const RefPtr<SimpleTexturedMaterialPtr> textured(SimpleTexturedMaterial::create());
    EXPECT_EQ(textured->getImage(), NullFC);
    EXPECT_EQ(textured->getChunks().getSize(), 0u);
    const RefPtr<TransformChunkPtr> transform(TransformChunk::create());
    EXPECT_EQ(transform->getMatrix(), Matrix::identity());
}

TEST(MaterialTypes, CastsFollowTheClasses) {
    const MaterialRefPtr textured(SimpleTexturedMaterial::create());
    EXPECT_NE(SimpleMaterialPtr::dcast(textured.get()), NullFC);
    EXPECT_NE(ChunkMaterialPtr::dcast(textured.get()), NullFC);
    EXPECT_EQ(SwitchMaterialPtr::dcast(textured.get()), NullFC);
    const StateChunkRefPtr cube(CubeTextureChunk::create());
    EXPECT_NE(TextureChunkPtr::dcast(cube.get()), NullFC);
    EXPECT_EQ(BlendChunkPtr::dcast(cube.get()), NullFC);
    EXPECT_NE(AttachmentPtr::dcast(cube.get()), NullFC);
    EXPECT_TRUE(Material::getClassType().isAbstract());
    EXPECT_TRUE(StateChunk::getClassType().isAbstract());

    setName(cube.get(), "sky"); // chunks can be named
    EXPECT_STREQ(getName(cube.get()), "sky");
}

TEST(ChunkMaterialSlots, AreStoredFromTheFirstThatDiffers) {
    const ChunkMaterialRefPtr material(ChunkMaterial::create());
    const StateChunkPtr a = MaterialChunk::create();
    const StateChunkPtr b = BlendChunk::create();
    const StateChunkPtr c = TextureChunk::create();
    EXPECT_TRUE(material->addChunk(a));
    EXPECT_TRUE(material->addChunk(b));
    EXPECT_EQ(material->getSlots().getSize(), 0u);
    EXPECT_TRUE(material->addChunk(c, 1));
    EXPECT_TRUE(material->addChunk(a));
    EXPECT_EQ(material->getSlots().getValues(),
              (std::vector<Int32>{State::AutoSlotReplace, State::AutoSlotReplace, 1}));
    EXPECT_EQ(material->getMFChunks()->getValues(), (std::vector<StateChunkPtr>{a, b, c, a}));
    EXPECT_EQ(a.getRefCount(), 2u);

    EXPECT_EQ(material->find(c), 2);
    EXPECT_EQ(material->find(BlendChunk::getClassType()), b);
    EXPECT_EQ(material->find(TextureChunk::getClassType()), NullFC) << "it sits in slot 1";
    EXPECT_EQ(material->find(TextureChunk::getClassType(), 1), c);

    EXPECT_TRUE(material->subChunk(c)) << "true is failure: not in this slot";
    EXPECT_FALSE(material->subChunk(b));
    EXPECT_EQ(material->getSlots().getValues(), (std::vector<Int32>{State::AutoSlotReplace, 1}));
    EXPECT_FALSE(material->subChunk(c, 1));
    EXPECT_FALSE(material->subChunk(a)); // the first of two
    EXPECT_EQ(a.getRefCount(), 1u);
    EXPECT_EQ(material->getChunks(0), a);
    EXPECT_FALSE(material->addChunk(NullFC));
    EXPECT_EQ(material->getChunks().getSize(), 1u);
    material->clearChunks();
    EXPECT_EQ(material->getChunks().getSize(), 0u);
}

TEST(ChunkMaterialSlots, FindWantsTheVeryType) {
    const ChunkMaterialRefPtr material(ChunkMaterial::create());
    material->addChunk(CubeTextureChunk::create());
    EXPECT_EQ(material->find(TextureChunk::getClassType()), NullFC);
    EXPECT_NE(material->find(CubeTextureChunk::getClassType()), NullFC);
    EXPECT_EQ(material->find(StateChunkPtr()), -1);
}

TEST(MaterialCounting, EachReferenceCountsAndDestructionDrops) {
    ImagePtr image = Image::create();
    const UInt32 imageId = image.getFieldContainerId();
    const TextureChunkPtr chunk = TextureChunk::create();
    const UInt32 chunkId = chunk.getFieldContainerId();
    chunk->setImage(image);
    chunk->setImage(image);
    EXPECT_EQ(image.getRefCount(), 1u);
    {
        const CubeTextureChunkPtr cube = CubeTextureChunk::create();
        const StateChunkRefPtr holdsCube(cube);
        cube->setNegYImage(image);
        cube->setImage(image);
        EXPECT_EQ(image.getRefCount(), 3u);
    }
    EXPECT_EQ(image.getRefCount(), 1u);
    {
        const ChunkMaterialRefPtr material(ChunkMaterial::create());
        material->addChunk(chunk);
        const ChunkMaterialRefPtr copy(ChunkMaterialPtr::dcast(material->shallowCopy()));
        EXPECT_EQ(chunk.getRefCount(), 2u);
        EXPECT_EQ(copy->getChunks(0), chunk);
        const SwitchMaterialPtr choice = SwitchMaterial::create();
        const MaterialRefPtr holdsChoice(choice);
        choice->addMaterial(material);
        choice->addMaterial(NullFC);
        EXPECT_EQ(material.get().getRefCount(), 2u);
        EXPECT_EQ(choice->getMaterials().getSize(), 1u);
    }
    EXPECT_FALSE(isAlive(chunkId));
    EXPECT_FALSE(isAlive(imageId));
}

TEST(SwitchMaterialChoice, GivesTheChosenOrNull) {
    const SwitchMaterialRefPtr choice(SwitchMaterial::create());
    EXPECT_EQ(choice->getCurrentMaterial(), NullFC);
    const MaterialPtr first = SimpleMaterial::create();
    const MaterialPtr second = ChunkMaterial::create();
    choice->addMaterial(first);
    choice->addMaterial(second);
    EXPECT_EQ(choice->getCurrentMaterial(), first);
    choice->setChoice(1);
    EXPECT_EQ(choice->getCurrentMaterial(), second);
    EXPECT_EQ(choice->getMaterial(0), first);
    EXPECT_EQ(choice->getMaterial(2), NullFC);
    choice->subMaterial(first);
    EXPECT_FALSE(choice->hasMaterial(first));
    EXPECT_EQ(choice->getMaterial(0), second);
}

MaterialPtr simple(Real32 transparency) {
    const SimpleMaterialPtr material = SimpleMaterial::create();
    material->setTransparency(transparency);
    return material;
}

MaterialPtr chunked(const StateChunkPtr& chunk, Int32 mode = 0) {
    const ChunkMaterialPtr material = ChunkMaterial::create();
    material->addChunk(chunk);
    material->setTransparencyMode(mode);
    return material;
}

StateChunkPtr diffuse(Real32 alpha) {
    const MaterialChunkPtr chunk = MaterialChunk::create();
    chunk->setDiffuse(Color4f(1.f, 0.f, 0.f, alpha));
    return chunk;
}

StateChunkPtr blend(GLenum destination) {
    const BlendChunkPtr chunk = BlendChunk::create();
    chunk->setDestFactor(destination);
    return chunk;
}

MaterialPtr textured(Image::PixelFormat format, GLenum mode) {
    const SimpleTexturedMaterialPtr material = SimpleTexturedMaterial::create();
    const ImagePtr image = Image::create();
    image->set(format, 1);
    material->setImage(image);
    material->setEnvMode(mode);
    return material;
}

MaterialPtr choosing(const MaterialPtr& material, UInt32 choice) {
    const SwitchMaterialPtr made = SwitchMaterial::create();
    made->addMaterial(material);
    made->setChoice(choice);
    return made;
}

struct transparency_case {
    const char* name;
    std::function<MaterialPtr()> make;
    bool transparent;
};

class MaterialTransparency : public testing::TestWithParam<transparency_case> {};

TEST_P(MaterialTransparency, FollowsItsRule) {
    const MaterialRefPtr material(GetParam().make());
    EXPECT_EQ(material->isTransparent(), GetParam().transparent);
}

INSTANTIATE_TEST_SUITE_P(
    , MaterialTransparency,
    testing::Values(
        transparency_case{"opaque_simple", [] { return simple(0.f); }, false},
        transparency_case{"simple_above_eps", [] { return simple(.01f); }, true},
        transparency_case{"simple_at_eps", [] { return simple(Eps); }, false},
        transparency_case{"chunk_alpha", [] { return chunked(diffuse(.5f)); }, true},
        transparency_case{"chunk_full", [] { return chunked(diffuse(1.f)); }, false},
        transparency_case{"blend", [] { return chunked(blend(GL_ONE)); }, true},
        transparency_case{"blend_zero", [] { return chunked(blend(GL_ZERO)); }, false},
        transparency_case{"texture_chunk", [] { return chunked(TextureChunk::create()); }, false},
        transparency_case{"forced_opaque", [] { return chunked(diffuse(.5f), 2); }, false},
        transparency_case{"forced", [] { return chunked(diffuse(1.f), 1); }, true},
        transparency_case{"image_alpha", [] { return textured(Image::OSG_RGBA_PF, GL_MODULATE); },
                          true},
        transparency_case{"decal", [] { return textured(Image::OSG_RGBA_PF, GL_DECAL); }, false},
        transparency_case{"image_rgb", [] { return textured(Image::OSG_RGB_PF, GL_MODULATE); },
                          false},
        transparency_case{"switch", [] { return choosing(simple(.5f), 0); }, true},
        transparency_case{"switch_out", [] { return choosing(simple(.5f), 1); }, false}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(SwitchMaterialChoice, ACircleOfSwitchesEnds) {
    const SwitchMaterialRefPtr a(SwitchMaterial::create());
    const SwitchMaterialRefPtr b(SwitchMaterial::create());
    a->addMaterial(b);
    b->addMaterial(a);
    EXPECT_FALSE(a->isTransparent());
    b->subMaterial(a);
}

} // namespace
