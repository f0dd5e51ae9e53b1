// Materials and chunks: types, chunk lists, counting, transparency, merging of equal ones.

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGMaterialMergeGraphOp.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>
#include <OpenSG/OSGTransformChunk.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>

namespace {

using namespace osg;

bool isAlive(UInt32 id) { return FieldContainerFactory::the()->getContainer(id) != NullFC; }

TEST(MaterialTypes, CastsFollowTheClassesAndPointersAreNull) {
    const RefPtr<SimpleTexturedMaterialPtr> simple(SimpleTexturedMaterial::create());
    EXPECT_EQ(simple->getImage(), NullFC);
    EXPECT_EQ(simple->getChunks().getSize(), 0u);
    EXPECT_EQ(RefPtr<TextureChunkPtr>(TextureChunk::create())->getImage(), NullFC);
    EXPECT_EQ(RefPtr<TransformChunkPtr>(TransformChunk::create())->getMatrix(), Matrix::identity());
    const MaterialRefPtr textured(simple.get());
    EXPECT_NE(SimpleMaterialPtr::dcast(textured.get()), NullFC);
    EXPECT_NE(ChunkMaterialPtr::dcast(textured.get()), NullFC);
    EXPECT_EQ(SwitchMaterialPtr::dcast(textured.get()), NullFC);
    const AttachmentRefPtr cube(CubeTextureChunk::create());
    EXPECT_NE(TextureChunkPtr::dcast(cube.get()), NullFC);
    EXPECT_EQ(BlendChunkPtr::dcast(cube.get()), NullFC);
    EXPECT_TRUE(Material::getClassType().isAbstract());
    EXPECT_TRUE(StateChunk::getClassType().isAbstract());
}

TEST(ChunkMaterialSlots, AreStoredFromTheFirstThatDiffers) {
    const ChunkMaterialRefPtr material(ChunkMaterial::create());
    const StateChunkPtr a = MaterialChunk::create(), b = BlendChunk::create(),
                        c = TextureChunk::create();
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
    material->addChunk(CubeTextureChunk::create());
    EXPECT_EQ(material->find(TextureChunk::getClassType()), NullFC) << "the very type is wanted";
    EXPECT_NE(material->find(CubeTextureChunk::getClassType()), NullFC);
    EXPECT_EQ(material->find(StateChunkPtr()), -1);
}

TEST(MaterialCounting, EachReferenceCountsAndDestructionDrops) {
    const ImagePtr image = Image::create();
    const TextureChunkPtr chunk = TextureChunk::create();
    const UInt32 ids[] = {image.getFieldContainerId(), chunk.getFieldContainerId()};
    chunk->setImage(image);
    chunk->setImage(image);
    EXPECT_EQ(image.getRefCount(), 1u);
    {
        const RefPtr<CubeTextureChunkPtr> cube(CubeTextureChunk::create());
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
        const SwitchMaterialRefPtr choice(SwitchMaterial::create());
        choice->addMaterial(material);
        choice->addMaterial(NullFC);
        EXPECT_EQ(material.get().getRefCount(), 2u);
        EXPECT_EQ(choice->getMaterials().getSize(), 1u);
    }
    EXPECT_FALSE(isAlive(ids[0]) || isAlive(ids[1]));
}

TEST(SwitchMaterialChoice, GivesTheChosenOrNull) {
    const SwitchMaterialRefPtr choice(SwitchMaterial::create());
    EXPECT_EQ(choice->getCurrentMaterial(), NullFC);
    const MaterialPtr first = SimpleMaterial::create(), second = ChunkMaterial::create();
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

MaterialPtr red(Real32 value = 1.f) {
    const SimpleMaterialPtr material = SimpleMaterial::create();
    material->setDiffuse(Color3f(value, 0.f, 0.f));
    return material;
}

ImagePtr picture(UInt8 last = 0, Image::PixelFormat format = Image::OSG_RGB_PF,
                 const char* file = "") {
    const ImagePtr image = Image::create();
    image->setName(file);
    image->set(format, 60, 50);
    image->clear(7);
    image->editData()[image->getSize() - 1] = last;
    return image;
}

MaterialPtr chunks(const std::vector<StateChunkPtr>& list, Int32 slot = State::AutoSlotReplace,
                   Int32 transparency_mode = 0) {
    const ChunkMaterialPtr material = ChunkMaterial::create();
    material->setTransparencyMode(transparency_mode);
    for (const StateChunkPtr& chunk : list)
        material->addChunk(chunk, slot);
    return material;
}

StateChunkPtr texture(const ImagePtr& image, GLenum wrap = GL_REPEAT) {
    const TextureChunkPtr chunk = TextureChunk::create();
    chunk->setImage(image);
    chunk->setWrapS(wrap);
    return chunk;
}

StateChunkPtr cube(const ImagePtr& negY) {
    const CubeTextureChunkPtr chunk = CubeTextureChunk::create();
    chunk->setNegYImage(negY);
    return chunk;
}

StateChunkPtr colour(Real32 alpha, Real32 back = 0.f) {
    const MaterialChunkPtr chunk = MaterialChunk::create();
    chunk->setDiffuse(Color4f(1.f, 1.f, 1.f, alpha));
    chunk->setBackShininess(back);
    return chunk;
}

MaterialPtr choice(const std::vector<MaterialPtr>& list, UInt32 chosen = 0) {
    const SwitchMaterialPtr material = SwitchMaterial::create();
    for (const MaterialPtr& entry : list)
        material->addMaterial(entry);
    material->setChoice(chosen);
    return material;
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

MaterialPtr simple(Real32 transparency) {
    const SimpleMaterialPtr material = SimpleMaterial::create();
    material->setTransparency(transparency);
    return material;
}

TEST(MaterialTransparency, FollowsItsRule) {
    const struct {
        const char* name;
        MaterialPtr material;
        bool transparent;
    } table[] = {
        {"opaque", simple(0.f), false},
        {"above Eps", simple(.01f), true},
        {"at Eps", simple(Eps), false},
        {"chunk alpha", chunks({colour(.5f)}), true},
        {"chunk full", chunks({colour(1.f)}), false},
        {"blend", chunks({blend(GL_ONE)}), true},
        {"blend zero", chunks({blend(GL_ZERO)}), false},
        {"texture chunk", chunks({texture(NullFC)}), false},
        {"forced opaque", chunks({colour(.5f)}, 0, 2), false},
        {"forced", chunks({colour(1.f)}, 0, 1), true},
        {"image alpha", textured(Image::OSG_RGBA_PF, GL_MODULATE), true},
        {"decal", textured(Image::OSG_RGBA_PF, GL_DECAL), false},
        {"image without", textured(Image::OSG_RGB_PF, GL_MODULATE), false},
        {"switch", choice({simple(.5f)}, 0), true},
        {"switch out of range", choice({simple(.5f)}, 1), false},
    };
    for (const auto& row : table) {
        const MaterialRefPtr material(row.material);
        EXPECT_EQ(material->isTransparent(), row.transparent) << row.name;
    }
}

template <class Ptr> Ptr named(const Ptr& container, const char* name) {
    setName(container, name);
    return container;
}

template <class Core> NodePtr userOf(const MaterialPtr& material) {
    typename Core::Ptr core;
    const NodePtr node = makeCoredNode<Core>(&core);
    core->setMaterial(material);
    return node;
}
const auto geometryWith = &userOf<Geometry>;
const auto groupWith = &userOf<MaterialGroup>;

MaterialPtr materialOf(const NodePtr& node) {
    const GeometryPtr geometry = GeometryPtr::dcast(node->getCore());
    return geometry != NullFC ? geometry->getMaterial()
                              : MaterialGroupPtr::dcast(node->getCore())->getMaterial();
}

NodeRefPtr rootOver(const std::vector<NodePtr>& children) {
    const NodeRefPtr root(makeCoredNode<Group>());
    for (const NodePtr& child : children)
        root->addChild(child);
    return root;
}

void merge(const NodeRefPtr& root) {
    MaterialMergeGraphOp operation;
    NodePtr node = root;
    EXPECT_TRUE(operation.traverse(node));
}

TEST(MaterialMerge, EqualFieldsDecideWhetherUsersShare) {
    const struct {
        const char* name;
        MaterialPtr first, second;
        bool equal;
    } table[] = {
        {"plain", red(), red(), true},
        {"names do not count", named(red(), "a"), named(red(), "b"), true},
        {"chunk names do not count", chunks({named(colour(1), "x")}), chunks({colour(1)}), true},
        {"last bit of a float", red(1.f), red(std::nextafter(1.f, 0.f)), false},
        {"types", red(0.f), SimpleTexturedMaterial::create(), false},
        {"back values", chunks({colour(1, 2)}), chunks({colour(1, 3)}), false},
        {"chunk order", chunks({colour(1), blend(GL_ZERO)}), chunks({blend(GL_ZERO), colour(1)}),
         false},
        {"chunk count", chunks({colour(1)}), chunks({colour(1), colour(1)}), false},
        {"slots", chunks({colour(1)}), chunks({colour(1)}, 0), false},
        {"equal images", chunks({texture(picture())}), chunks({texture(picture())}), true},
        {"last byte of the pixels", chunks({texture(picture(1))}), chunks({texture(picture(2))}),
         false},
        {"image format", chunks({texture(picture())}),
         chunks({texture(picture(0, Image::OSG_BGR_PF))}), false},
        {"image file names do not count", chunks({texture(picture(0, Image::OSG_RGB_PF, "a.png"))}),
         chunks({texture(picture(0, Image::OSG_RGB_PF, "b.png"))}), true},
        {"image and none", chunks({texture(picture())}), chunks({texture(NullFC)}), false},
        {"wrap mode", chunks({texture(NullFC)}), chunks({texture(NullFC, GL_CLAMP)}), false},
        {"sides of a cube", chunks({cube(picture(1))}), chunks({cube(picture(2))}), false},
        {"equal cubes", chunks({cube(picture(1))}), chunks({cube(picture(1))}), true},
        {"inner materials", choice({red(), red(.5f)}), choice({red(), red(.5f)}), true},
        {"inner materials differ", choice({red(), red(.5f)}), choice({red(), red(.4f)}), false},
        {"choices differ", choice({red(), red()}), choice({red(), red()}, 1), false},
        {"deep inside", choice({choice({choice({choice({choice({red(.1f)})})})})}),
         choice({choice({choice({choice({choice({red(.2f)})})})})}), false},
    };
    for (const auto& row : table) {
        const NodeRefPtr root = rootOver({geometryWith(row.first), groupWith(row.second)});
        merge(root);
        EXPECT_EQ(materialOf(root->getChild(0)) == materialOf(root->getChild(1)), row.equal)
            << row.name;
    }
}

TEST(MaterialMerge, FirstInTheWalkStaysAndTheOthersGo) {
    const MaterialPtr later = red(), second = red(), first = red(); // the first is created last
    const UInt32 gone[] = {later.getFieldContainerId(), second.getFieldContainerId()};
    const NodePtr deep = groupWith(first);
    deep->addChild(geometryWith(second));
    const NodeRefPtr root = rootOver({deep, geometryWith(later), geometryWith(NullFC)});
    merge(root);
    for (const NodePtr& user : {deep, deep->getChild(0), root->getChild(1)})
        EXPECT_EQ(materialOf(user), first);
    EXPECT_EQ(materialOf(root->getChild(2)), NullFC);
    EXPECT_EQ(first.getRefCount(), 3u);
    EXPECT_FALSE(isAlive(gone[0]) || isAlive(gone[1]));
}

TEST(MaterialMerge, ReachesHiddenNodesAndTheRootItself) {
    const NodeRefPtr root(groupWith(red()));
    const NodePtr off = makeCoredNode<Switch>();
    off->setTravMask(0);
    root->addChild(off);
    off->addChild(geometryWith(red()));
    off->addChild(makeNodeFor(off->getChild(0)->getCore()));
    merge(root);
    EXPECT_EQ(materialOf(off->getChild(0)), materialOf(root));
    EXPECT_EQ(materialOf(root).getRefCount(), 2u) << "two cores";
    NodePtr none;
    EXPECT_FALSE(MaterialMergeGraphOp().traverse(none));
}

TEST(MaterialMerge, PassesOverExcludedNodes) {
    const NodeRefPtr root =
        rootOver({geometryWith(red()), named(groupWith(red()), "keep"), geometryWith(red())});
    root->getChild(1)->addChild(geometryWith(red()));
    MaterialMergeGraphOp operation;
    operation.addToExcludeList(std::string("keep"));
    operation.addToExcludeList(root->getChild(2));
    NodePtr node = root;
    operation.traverse(node);
    const MaterialPtr first = materialOf(root->getChild(0));
    EXPECT_EQ(first.getRefCount(), 1u);
    operation.clearExcludeList();
    operation.traverse(node);
    EXPECT_EQ(first.getRefCount(), 4u);
}

TEST(MaterialMerge, CirclesOfMaterialsEnd) {
    const SwitchMaterialRefPtr selfish(SwitchMaterial::create()), a(SwitchMaterial::create()),
        b(SwitchMaterial::create()), other(SwitchMaterial::create());
    selfish->addMaterial(selfish);
    a->addMaterial(b);
    b->addMaterial(a);
    other->addMaterial(other);
    other->addMaterial(red());
    EXPECT_FALSE(a->isTransparent());
    const NodeRefPtr root =
        rootOver({geometryWith(selfish), geometryWith(a), geometryWith(b), geometryWith(other)});
    merge(root);
    // Unrolled, the first three are the same endless row of switches.
    EXPECT_EQ(materialOf(root->getChild(1)), selfish.get());
    EXPECT_EQ(materialOf(root->getChild(2)), selfish.get());
    EXPECT_EQ(materialOf(root->getChild(3)), other.get());
    for (const SwitchMaterialRefPtr& material : {selfish, a, b, other}) {
        while (material->getMaterials().getSize() > 0)
            material->subMaterial(material->getMaterials(0));
    }
}

TEST(MaterialMerge, AVeryLongChainIsCompared) {
    const auto chain = [](Real32 value) {
        std::vector<MaterialRefPtr> links{MaterialRefPtr(red(value))};
        for (int i = 0; i < 3000; ++i)
            links.emplace_back(choice({links.back()}));
        return links;
    };
    std::vector<MaterialRefPtr> a = chain(.5f), b = chain(.5f), c = chain(.6f);
    const NodeRefPtr root =
        rootOver({geometryWith(a.back()), geometryWith(b.back()), geometryWith(c.back())});
    merge(root);
    EXPECT_EQ(materialOf(root->getChild(1)), a.back().get());
    EXPECT_EQ(materialOf(root->getChild(2)), c.back().get());
}

TEST(MaterialMergeOracle, PartitionsByTheRecipe) {
    std::mt19937 rng(8128);
    const auto pick = [&rng](unsigned count) { return static_cast<unsigned>(rng() % count); };
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        std::vector<NodePtr> nodes;
        std::vector<std::array<unsigned, 3>> recipes;
        for (unsigned i = pick(60); i > 0; --i) {
            const unsigned kind = pick(3), x = pick(3), y = pick(2);
            recipes.push_back({kind, x, y});
            MaterialPtr material =
                kind == 0 ? red(Real32(x) + .5f * Real32(y))
                          : chunks({texture(picture(static_cast<UInt8>(x))), colour(Real32(y))});
            if (kind == 2)
                material = choice({material});
            nodes.push_back(pick(2) == 0 ? groupWith(material) : geometryWith(material));
        }
        const NodeRefPtr root = rootOver(nodes);
        std::map<std::array<unsigned, 3>, MaterialPtr> firsts;
        for (std::size_t i = 0; i < nodes.size(); ++i)
            firsts.emplace(recipes[i], materialOf(nodes[i]));
        merge(root);
        for (std::size_t i = 0; i < nodes.size(); ++i)
            EXPECT_EQ(materialOf(nodes[i]), firsts[recipes[i]]) << i;
    }
}

} // namespace
