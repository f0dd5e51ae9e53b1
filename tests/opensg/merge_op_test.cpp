// Merging of equal materials.

#include <gtest/gtest.h>

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

#include <cmath>
#include <functional>
#include <map>
#include <random>

namespace {

using namespace osg;

MaterialPtr red(Real32 value = 1.f) {
    const SimpleMaterialPtr material = SimpleMaterial::create();
    material->setDiffuse(Color3f(value, 0.f, 0.f));
    return material;
}

ImagePtr picture(UInt8 last = 0, Image::PixelFormat format = Image::OSG_RGB_PF) {
    const ImagePtr image = Image::create();
    image->set(format, 60, 50);
    image->clear(7);
    image->editData()[image->getSize() - 1] = last;
    return image;
}

MaterialPtr chunks(const std::vector<StateChunkPtr>& list, Int32 slot = State::AutoSlotReplace) {
    const ChunkMaterialPtr material = ChunkMaterial::create();
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

template <class Ptr> Ptr named(const Ptr& container, const char* name) {
    setName(container, name);
    return container;
}

ImagePtr withFileName(const ImagePtr& image, const char* name) {
    image->setName(name);
    return image;
}

NodePtr geometryWith(const MaterialPtr& material) {
    GeometryPtr geometry;
    const NodePtr node = makeCoredNode<Geometry>(&geometry);
    geometry->setMaterial(material);
    return node;
}

NodePtr groupWith(const MaterialPtr& material) {
    MaterialGroupPtr group;
    const NodePtr node = makeCoredNode<MaterialGroup>(&group);
    group->setMaterial(material);
    return node;
}

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

bool isAlive(UInt32 id) { return FieldContainerFactory::the()->getContainer(id) != NullFC; }

struct equality_case {
    const char* name;
    std::function<MaterialPtr()> first, second;
    bool equal;
};

class MaterialMergeEquality : public testing::TestWithParam<equality_case> {};

TEST_P(MaterialMergeEquality, DecidesWhetherUsersShare) {
    const NodeRefPtr root =
        rootOver({geometryWith(GetParam().first()), groupWith(GetParam().second())});
    merge(root);
    EXPECT_EQ(materialOf(root->getChild(0)) == materialOf(root->getChild(1)), GetParam().equal);
}

INSTANTIATE_TEST_SUITE_P(
    , MaterialMergeEquality,
    testing::Values(
        equality_case{"plain", [] { return red(); }, [] { return red(); }, true},
        equality_case{"names_do_not_count", [] { return named(red(), "a"); },
                      [] { return named(red(), "b"); }, true},
        equality_case{"chunk_names_do_not_count", [] { return chunks({named(colour(1), "x")}); },
                      [] { return chunks({colour(1)}); }, true},
        equality_case{"last_bit_of_a_float", [] { return red(1.f); },
                      [] { return red(std::nextafter(1.f, 0.f)); }, false},
        equality_case{"types_differ", [] { return red(0.f); },
                      []() -> MaterialPtr { return SimpleTexturedMaterial::create(); }, false},
        equality_case{"back_values_count", [] { return chunks({colour(1, 2)}); },
                      [] { return chunks({colour(1, 3)}); }, false},
        equality_case{"chunk_order_counts",
                      [] {
                          return chunks({colour(1), BlendChunk::create()});
                      },
                      [] {
                          return chunks({BlendChunk::create(), colour(1)});
                      },
                      false},
        equality_case{"chunk_count_counts", [] { return chunks({colour(1)}); },
                      [] {
                          return chunks({colour(1), colour(1)});
                      },
                      false},
        equality_case{"slots_count", [] { return chunks({colour(1)}); },
                      [] { return chunks({colour(1)}, 0); }, false},
        equality_case{"equal_images", [] { return chunks({texture(picture())}); },
                      [] { return chunks({texture(picture())}); }, true},
        equality_case{"last_byte_of_the_pixels", [] { return chunks({texture(picture(1))}); },
                      [] { return chunks({texture(picture(2))}); }, false},
        equality_case{"image_format", [] { return chunks({texture(picture())}); },
                      [] { return chunks({texture(picture(0, Image::OSG_BGR_PF))}); }, false},
        equality_case{"image_file_names_do_not_count",
                      [] { return chunks({texture(withFileName(picture(), "a.png"))}); },
                      [] { return chunks({texture(withFileName(picture(), "b.png"))}); }, true},
        equality_case{"image_and_none", [] { return chunks({texture(picture())}); },
                      [] { return chunks({texture(NullFC)}); }, false},
        equality_case{"wrap_mode", [] { return chunks({texture(NullFC)}); },
                      [] { return chunks({texture(NullFC, GL_CLAMP)}); }, false},
        equality_case{"sides_of_a_cube", [] { return chunks({cube(picture(1))}); },
                      [] { return chunks({cube(picture(2))}); }, false},
        equality_case{"equal_cubes", [] { return chunks({cube(picture(1))}); },
                      [] { return chunks({cube(picture(1))}); }, true},
        equality_case{"inner_materials",
                      [] {
                          return choice({red(), red(.5f)});
                      },
                      [] {
                          return choice({red(), red(.5f)});
                      },
                      true},
        equality_case{"inner_materials_differ",
                      [] {
                          return choice({red(), red(.5f)});
                      },
                      [] {
                          return choice({red(), red(.4f)});
                      },
                      false},
        equality_case{"choices_differ",
                      [] {
                          return choice({red(), red()});
                      },
                      [] {
                          return choice({red(), red()}, 1);
                      },
                      false},
        equality_case{"deep_inside",
                      [] { return choice({choice({choice({choice({choice({red(.1f)})})})})}); },
                      [] { return choice({choice({choice({choice({choice({red(.2f)})})})})}); },
                      false}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(MaterialMerge, FirstInTheWalkStaysAndTheOthersGo) {
    const MaterialPtr later = red(); // created first, met last
    const MaterialPtr second = red();
    const MaterialPtr first = red();
    const UInt32 gone[] = {later.getFieldContainerId(), second.getFieldContainerId()};
    const NodePtr deep = groupWith(first);
    deep->addChild(geometryWith(second));
    const NodeRefPtr root = rootOver({deep, geometryWith(later), geometryWith(NullFC)});
    merge(root);
    EXPECT_EQ(materialOf(deep), first);
    EXPECT_EQ(materialOf(deep->getChild(0)), first);
    EXPECT_EQ(materialOf(root->getChild(1)), first);
    EXPECT_EQ(materialOf(root->getChild(2)), NullFC);
    EXPECT_EQ(first.getRefCount(), 3u);
    EXPECT_FALSE(isAlive(gone[0]));
    EXPECT_FALSE(isAlive(gone[1]));
}

TEST(MaterialMerge, ReachesHiddenNodesAndTheRootItself) {
    const NodeRefPtr root(groupWith(red()));
    const NodePtr off = makeCoredNode<Switch>();
    off->setTravMask(0);
    root->addChild(off);
    off->addChild(geometryWith(red()));
    const NodePtr sharing = Node::create();
    sharing->setCore(off->getChild(0)->getCore());
    off->addChild(sharing);
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
    const SwitchMaterialRefPtr selfish(SwitchMaterial::create());
    selfish->addMaterial(selfish);
    const SwitchMaterialRefPtr a(SwitchMaterial::create());
    const SwitchMaterialRefPtr b(SwitchMaterial::create());
    a->addMaterial(b);
    b->addMaterial(a);
    const SwitchMaterialRefPtr other(SwitchMaterial::create());
    other->addMaterial(other);
    other->addMaterial(red());
    const NodeRefPtr root =
        rootOver({geometryWith(selfish), geometryWith(a), geometryWith(b), geometryWith(other)});
    merge(root);
    // Unrolled, the first three are the same endless row of switches.
    EXPECT_EQ(materialOf(root->getChild(1)), selfish.get());
    EXPECT_EQ(materialOf(root->getChild(2)), selfish.get());
    EXPECT_EQ(materialOf(root->getChild(3)), other.get());
    for (const SwitchMaterialRefPtr& material : {selfish, a, b, other}) {
        while (material->getMaterials().getSize() > 0) {
            material->subMaterial(material->getMaterials(0));
        }
    }
}

TEST(MaterialMerge, AVeryLongChainIsCompared) {
    const auto chain = [](Real32 value) {
        MaterialRefPtr last(red(value));
        std::vector<MaterialRefPtr> links{last};
        for (int i = 0; i < 3000; ++i) {
            last = choice({last});
            links.push_back(last);
        }
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
        std::vector<std::string> recipes;
        const unsigned count = pick(60);
        for (unsigned i = 0; i < count; ++i) {
            const unsigned kind = pick(3), x = pick(3), y = pick(2);
            recipes.push_back(std::to_string(kind) + ":" + std::to_string(x) + ":" +
                              std::to_string(y));
            MaterialPtr material;
            if (kind == 0) {
                material = red(Real32(x) + .5f * Real32(y));
            } else {
                const StateChunkPtr image = texture(picture(static_cast<UInt8>(x)));
                material = chunks({image, colour(Real32(y))});
                if (kind == 2)
                    material = choice({material});
            }
            nodes.push_back(pick(2) == 0 ? groupWith(material) : geometryWith(material));
        }
        const NodeRefPtr root = rootOver(nodes);
        std::map<std::string, MaterialPtr> firsts;
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            firsts.emplace(recipes[i], materialOf(nodes[i]));
        }
        merge(root);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            EXPECT_EQ(materialOf(nodes[i]), firsts[recipes[i]]) << recipes[i];
        }
    }
}

} // namespace
