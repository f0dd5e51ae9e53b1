// Materials and chunks: types, chunk lists, counting, transparency, merging of equal ones.

#include "tests/support/test.h"

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGMaterialMergeGraphOp.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

namespace {

using namespace osg;

TEST(ChunkMaterialSlots, AreStoredFromTheFirstThatDiffersAndStay) {
    const ChunkMaterialRefPtr material(ChunkMaterial::create());
    const StateChunkPtr a = TextureChunk::create(), b = BlendChunk::create(),
                        c = TextureChunk::create();
    using slots = std::vector<Int32>;
    const Int32 none = State::AutoSlotReplace;
    const FieldContainerType& type = TextureChunk::getClassType();
    EXPECT_TRUE(material->addChunk(a) && material->addChunk(b));
    EXPECT_EQ(material->getSlots().getSize(), 0u);
    EXPECT_TRUE(material->addChunk(c, 7) && material->addChunk(a));
    EXPECT_FALSE(material->addChunk(NullFC));
    EXPECT_EQ(material->getSlots().getValues(), (slots{none, none, 7}));
    EXPECT_EQ(material->getMFChunks()->getValues(), (std::vector<StateChunkPtr>{a, b, c, a}));
    EXPECT_EQ(a.getRefCount(), 2u);
    EXPECT_EQ(material->find(c), 2);
    EXPECT_EQ(material->find(StateChunkPtr()), -1);
    EXPECT_EQ(material->find(CubeTextureChunk::getClassType()), NullFC) << "the very type";
    // Without a slot of its own a chunk answers to its number among its type.
    const std::pair<Int32, StateChunkPtr> found[] = {
        {none, a}, {0, a}, {1, NullFC}, {2, a}, {7, c}};
    for (const auto& [slot, chunk] : found)
        EXPECT_EQ(material->find(type, slot), chunk) << slot;
    EXPECT_TRUE(material->subChunk(c)) << "true is failure: not in this slot";
    EXPECT_FALSE(material->subChunk(b));
    EXPECT_EQ(material->getSlots().getValues(), (slots{none, 7}));
    EXPECT_FALSE(material->subChunk(a)); // the first of two
    EXPECT_EQ(a.getRefCount(), 1u);
    EXPECT_EQ(material->getChunks(0), c);
    material->clearChunks();
    EXPECT_EQ(material->getChunks().getSize(), 0u);
    EXPECT_EQ(material->getSlots().getValues(), slots{7}) << "later chunks fall into them";
    material->addChunk(BlendChunk::create());
    material->addChunk(BlendChunk::create(), 3);
    EXPECT_EQ(material->find(BlendChunk::getClassType(), 7), material->getChunks(0));
    EXPECT_EQ(material->getSlots().getValues(), (slots{7, 3}));
}

/// A new container after some settings.
template <class C, class Set> typename C::Ptr with(Set set) {
    const typename C::Ptr made = C::create();
    set(*made);
    return made;
}

MaterialPtr red(Real32 value = 1.f) { return simple(Color3f(value, 0.f, 0.f)); }

ImagePtr picture(UInt8 last = 0, Image::PixelFormat format = Image::OSG_RGB_PF,
                 const char* file = "") {
    return with<Image>([&](auto& image) {
        image.setName(file);
        image.set(format, 60, 50);
        image.clear(7);
        image.editData()[image.getSize() - 1] = last;
    });
}

MaterialPtr chunks(const std::vector<StateChunkPtr>& list, Int32 slot = State::AutoSlotReplace,
                   Int32 transparency_mode = 0) {
    return with<ChunkMaterial>([&](auto& material) {
        material.setTransparencyMode(transparency_mode);
        for (const StateChunkPtr& chunk : list)
            material.addChunk(chunk, slot);
    });
}

StateChunkPtr texture(const ImagePtr& image, GLenum wrap = GL_REPEAT) {
    return with<TextureChunk>([&](auto& chunk) {
        chunk.setImage(image);
        chunk.setWrapS(wrap);
    });
}

StateChunkPtr cube(ImagePtr negY) {
    return with<CubeTextureChunk>([&](auto& chunk) { chunk.setNegYImage(negY); });
}

StateChunkPtr colour(Real32 alpha, Real32 back = 0.f) {
    return with<MaterialChunk>([&](auto& chunk) {
        chunk.setDiffuse(Color4f(1.f, 1.f, 1.f, alpha));
        chunk.setBackShininess(back);
    });
}

MaterialPtr choice(const std::vector<MaterialPtr>& list, UInt32 chosen = 0) {
    return choiceOf(chosen, list);
}

StateChunkPtr blend(GLenum destination) {
    return with<BlendChunk>([&](auto& chunk) { chunk.setDestFactor(destination); });
}

MaterialPtr textured(Image::PixelFormat format, GLenum mode) {
    return with<SimpleTexturedMaterial>([&](auto& material) {
        material.setImage(picture(0, format));
        material.setEnvMode(mode);
    });
}

MaterialPtr clear(Real32 transparency) {
    return with<SimpleMaterial>([&](auto& m) { m.setTransparency(transparency); });
}

TEST(MaterialTransparency, FollowsItsRule) {
    const struct {
        const char* name;
        MaterialPtr material;
        bool transparent;
    } table[] = {{"opaque", clear(0.f), false},
                 {"above Eps", clear(.01f), true},
                 {"at Eps", clear(Eps), false},
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
                 {"switch", choice({clear(0.f), clear(.5f)}, 1), true},
                 {"switch out of range", choice({clear(.5f)}, 1), false}};
    for (const auto& row : table) {
        const MaterialRefPtr material(row.material);
        EXPECT_EQ(material->isTransparent(), row.transparent) << row.name;
    }
}

NodePtr geometryWith(const MaterialPtr& material) { return meshNode({}, material); }
NodePtr groupWith(const MaterialPtr& material) { return materialGroup(material, {}); }

MaterialPtr materialOf(const NodePtr& node) {
    const GeometryPtr geometry = GeometryPtr::dcast(node->getCore());
    return geometry != NullFC ? geometry->getMaterial()
                              : MaterialGroupPtr::dcast(node->getCore())->getMaterial();
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
        {"last bit of a float", red(1.f), red(std::nextafter(1.f, 0.f)), false},
        {"types", red(0.f), SimpleTexturedMaterial::create(), false},
        {"back values", chunks({colour(1, 2)}), chunks({colour(1, 3)}), false},
        {"chunk order", chunks({colour(1), blend(GL_ZERO)}), chunks({blend(GL_ZERO), colour(1)}),
         false},
        {"chunk count", chunks({colour(1)}), chunks({colour(1), colour(1)}), false},
        {"slots", chunks({colour(1)}), chunks({colour(1)}, 0), false},
        {"equal images", chunks({texture(picture())}), chunks({texture(picture())}), true},
        {"last pixel byte", chunks({texture(picture(1))}), chunks({texture(picture(2))}), false},
        {"image format", chunks({texture(picture())}),
         chunks({texture(picture(0, Image::OSG_BGR_PF))}), false},
        {"image names", chunks({texture(picture(0, Image::OSG_RGB_PF, "a.png"))}),
         chunks({texture(picture(0, Image::OSG_RGB_PF, "b.png"))}), true},
        {"image and none", chunks({texture(picture())}), chunks({texture(NullFC)}), false},
        {"wrap mode", chunks({texture(NullFC)}), chunks({texture(NullFC, GL_CLAMP)}), false},
        {"sides of a cube", chunks({cube(picture(1))}), chunks({cube(picture(2))}), false},
        {"equal cubes", chunks({cube(picture(1))}), chunks({cube(picture(1))}), true},
        {"inner materials", choice({red(), red(.5f)}), choice({red(), red(.5f)}), true},
        {"inner materials differ", choice({red(), red(.5f)}), choice({red(), red(.4f)}), false},
        {"choices differ", choice({red(), red()}), choice({red(), red()}, 1), false},
        {"deep inside", choice({choice({choice({choice({choice({red(.1f)})})})})}),
         choice({choice({choice({choice({choice({red(.2f)})})})})}), false}};
    // All in one scene: what is equal is found among many.
    const NodeRefPtr root(group());
    for (const auto& row : table) {
        setName(row.first, row.name); // names do not count
        root->addChild(geometryWith(row.first));
        root->addChild(groupWith(row.second));
    }
    merge(root);
    UInt32 child = 0;
    for (const auto& row : table) {
        const MaterialPtr first = materialOf(root->getChild(child++));
        EXPECT_EQ(first == materialOf(root->getChild(child++)), row.equal) << row.name;
    }
}

TEST(MaterialMerge, FirstInTheWalkStaysAndTheOthersGo) {
    const MaterialPtr later = red(), second = red(), first = red(); // the first is created last
    const UInt32 gone[] = {later.getFieldContainerId(), second.getFieldContainerId()};
    const NodeRefPtr root(groupWith(first)); // the root counts, and so do hidden nodes
    const NodePtr off = makeCoredNode<Switch>();
    off->setTravMask(0);
    root->addChild(off);
    off->addChild(geometryWith(second));
    off->addChild(makeNodeFor(off->getChild(0)->getCore()));
    root->addChild(geometryWith(later));
    root->addChild(geometryWith(NullFC));
    merge(root);
    for (const NodePtr& user : {off->getChild(0), off->getChild(1), root->getChild(1)})
        EXPECT_EQ(materialOf(user), first);
    EXPECT_EQ(materialOf(root->getChild(2)), NullFC);
    EXPECT_EQ(first.getRefCount(), 3u) << "three cores";
    EXPECT_FALSE(isAlive(gone[0]) || isAlive(gone[1]));
    NodePtr none;
    EXPECT_FALSE(MaterialMergeGraphOp().traverse(none));
}

TEST(MaterialMerge, PassesOverExcludedNodes) {
    const NodeRefPtr root(group({geometryWith(red()), groupWith(red()), geometryWith(red())}));
    setName(root->getChild(1), "keep");
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

TEST(MaterialMerge, CirclesAndLongChainsOfMaterialsEnd) {
    std::vector<SwitchMaterialRefPtr> m(4); // itself, each other, and itself with one more
    for (SwitchMaterialRefPtr& material : m)
        material = SwitchMaterial::create();
    for (const std::size_t pair : {0, 12, 21, 33})
        m[pair / 10]->addMaterial(m[pair % 10]);
    m[3]->addMaterial(red());
    EXPECT_FALSE(m[1]->isTransparent());
    for (const UInt32 choice : {1u, 2u}) { // the last, none
        m[3]->setChoice(choice);
        EXPECT_EQ(m[3]->getCurrentMaterial(), m[3]->getMaterial(choice));
        EXPECT_EQ(m[3]->hasMaterial(m[3]->getCurrentMaterial()), choice == 1);
    }
    const auto chain = [](Real32 value) {
        MaterialPtr last = red(value);
        for (int i = 0; i < 3000; ++i)
            last = choice({last});
        return last;
    };
    const NodeRefPtr root(
        group({geometryWith(m[0]), geometryWith(m[1]), geometryWith(m[2]), geometryWith(m[3]),
               geometryWith(chain(.5f)), geometryWith(chain(.5f)), geometryWith(chain(.6f))}));
    const MaterialPtr last = materialOf(root->getChild(6));
    merge(root);
    // Unrolled, the first three are the same endless row of switches.
    const MaterialPtr merged[] = {
        m[0], m[0], m[0], m[3], materialOf(root->getChild(4)), materialOf(root->getChild(4)), last};
    for (UInt32 i = 0; i < 7; ++i)
        EXPECT_EQ(materialOf(root->getChild(i)), merged[i]) << i;
    for (const SwitchMaterialRefPtr& material : m) {
        while (material->getMaterials().getSize() > 0)
            material->subMaterial(material->getMaterials(0));
    }
}

} // namespace
