// Scenes in files: what comes back.

#include "files_support.h"

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGThread.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>

namespace {

using namespace scene_files;

TEST(SceneFiles, AWholeTreeComesBack) {
    const NodeRefPtr root = sampleScene();
    const std::string before = canonical_text::of(root);
    const std::string bytes = written(root);
    EXPECT_EQ(canonical_text::of(root), before) << "writing changes nothing";
    const std::size_t alive = liveContainers();
    {
        const NodePtr again = readBack(bytes);
        ASSERT_NE(again, NullFC);
        EXPECT_EQ(again.getRefCount(), 0u);
        const NodeRefPtr holds(again);
        EXPECT_EQ(canonical_text::of(again), before);
        EXPECT_EQ(written(again), bytes) << "the same scene gives the same file";

        const NodePtr part = again->getChild(0);
        EXPECT_EQ(part.getRefCount(), 1u);
        EXPECT_EQ(part->getCore(), again->getChild(1)->getCore());
        EXPECT_EQ(part->getCore().getRefCount(), 2u);
        EXPECT_EQ(part->getCore()->getParents().getSize(), 2u);
        const GeometryPtr geometry = GeometryPtr::dcast(part->getCore());
        EXPECT_EQ(geometry->getPositions().getRefCount(), 2u);
        EXPECT_EQ(geometry->getMaterial().getRefCount(), 3u);
        const ChunkMaterialPtr material = ChunkMaterialPtr::dcast(geometry->getMaterial());
        EXPECT_STREQ(getName(material->getChunks(0)), "colours");
        const auto texts = part->findAttachment(StringAttributeMap::getClassType(), 7);
        ASSERT_NE(texts, NullFC);
        EXPECT_EQ(texts.getRefCount(), 2u);
        EXPECT_EQ(StringAttributeMapPtr::dcast(texts)->getAttribute("zeta"), "1");
        EXPECT_STREQ(getName(again), "root \"quoted\" \n");
        EXPECT_EQ(again->getChild(3)->getChild(0)->getToWorld()[3][0], 5.f);
    }
    EXPECT_EQ(liveContainers(), alive);
}

TEST(SceneFiles, TheReadVolumeIsThatOfTheScene) {
    const NodeRefPtr root = sampleScene();
    const NodeRefPtr again(readBack(written(root)));
    ASSERT_NE(again, NullFC);
    root->updateVolume();
    again->updateVolume();
    Pnt3f low[2], high[2];
    root->getVolume().getBounds(low[0], high[0]);
    again->getVolume().getBounds(low[1], high[1]);
    EXPECT_EQ(low[0], low[1]);
    EXPECT_EQ(high[0], high[1]);
    EXPECT_FALSE(again->getVolume().isEmpty());
}

template <class Desc> void expectPropertyRoundTrip(const char* name) {
    SCOPED_TRACE(name);
    const auto property = GeoProperty<Desc>::create();
    property->resize(3);
    // Any bytes do: the file stores values as they are.
    UInt8* bytes = property->editData();
    const UInt32 count = 3 * property->getFormatSize() * property->getDimension();
    for (UInt32 i = 0; i < count; ++i)
        bytes[i] = static_cast<UInt8>(i + 1);

    const NodeRefPtr root(nodeOf(Group::create()));
    root->addAttachment(property);
    const NodeRefPtr again(readBack(written(root)));
    ASSERT_NE(again, NullFC);
    const auto back = GeoProperty<Desc>::PtrType::dcast(again->findAttachment(property->getType()));
    ASSERT_NE(back, NullFC);
    ASSERT_EQ(back->getSize(), 3u);
    EXPECT_EQ(std::memcmp(back->getData(), bytes, count), 0);
}

TEST(SceneFiles, EveryPropertyFormComesBack) {
    expectPropertyRoundTrip<GeoPTypesUI8PropertyDesc>("types 8");
    expectPropertyRoundTrip<GeoPTypesUI16PropertyDesc>("types 16");
    expectPropertyRoundTrip<GeoPTypesUI32PropertyDesc>("types 32");
    expectPropertyRoundTrip<GeoPLengthsUI8PropertyDesc>("lengths 8");
    expectPropertyRoundTrip<GeoPLengthsUI16PropertyDesc>("lengths 16");
    expectPropertyRoundTrip<GeoPLengthsUI32PropertyDesc>("lengths 32");
    expectPropertyRoundTrip<GeoIndicesUI16PropertyDesc>("indices 16");
    expectPropertyRoundTrip<GeoIndicesUI32PropertyDesc>("indices 32");
    expectPropertyRoundTrip<GeoPositions2fPropertyDesc>("positions 2f");
    expectPropertyRoundTrip<GeoPositions3fPropertyDesc>("positions 3f");
    expectPropertyRoundTrip<GeoPositions4fPropertyDesc>("positions 4f");
    expectPropertyRoundTrip<GeoPositions3dPropertyDesc>("positions 3d");
    expectPropertyRoundTrip<GeoNormals3fPropertyDesc>("normals 3f");
    expectPropertyRoundTrip<GeoNormals3bPropertyDesc>("normals 3b");
    expectPropertyRoundTrip<GeoNormals3sPropertyDesc>("normals 3s");
    expectPropertyRoundTrip<GeoColors3fPropertyDesc>("colors 3f");
    expectPropertyRoundTrip<GeoColors4fPropertyDesc>("colors 4f");
    expectPropertyRoundTrip<GeoColors3ubPropertyDesc>("colors 3ub");
    expectPropertyRoundTrip<GeoColors4ubPropertyDesc>("colors 4ub");
    expectPropertyRoundTrip<GeoTexCoords1fPropertyDesc>("texture 1f");
    expectPropertyRoundTrip<GeoTexCoords2fPropertyDesc>("texture 2f");
    expectPropertyRoundTrip<GeoTexCoords3fPropertyDesc>("texture 3f");
    expectPropertyRoundTrip<GeoTexCoords4fPropertyDesc>("texture 4f");
}

TEST(SceneFiles, AMatrixSetByItselfSurvivesComponents) {
    const ComponentTransformPtr parts = ComponentTransform::create();
    Matrix matrix;
    matrix.setTranslate(9.f, 0.f, 0.f);
    TransformPtr(parts)->setMatrix(matrix);
    const NodeRefPtr root(nodeOf(parts));
    const NodeRefPtr again(readBack(written(root)));
    ASSERT_NE(again, NullFC);
    EXPECT_EQ(again->getToWorld()[3][0], 9.f);
}

TEST(SceneFiles, ReadingIsAChangeLikeAnyOther) {
    const std::string bytes = written(sampleScene());
    ChangeList* changes = Thread::getCurrentChangeList();
    changes->setReadOnly(false);
    const NodeRefPtr again(readBack(bytes));
    std::set<UInt32> changed;
    for (auto entry = changes->beginChanged(); entry != changes->endChanged(); ++entry) {
        changed.insert(entry->first);
    }
    const std::size_t created = changes->sizeCreated();
    changes->clearAll();
    changes->setReadOnly(true);
    EXPECT_GT(created, 20u);
    EXPECT_EQ(changed.size(), created);
}

TEST(SceneFiles, GoByExtension) {
    const NodeRefPtr root = sampleScene();
    const std::string file = testing::TempDir() + "scene_by_extension.OSB";
    ASSERT_TRUE(SceneFileHandler::the().write(root, file.c_str(), true));
    {
        const NodeRefPtr again(SceneFileHandler::the().read(file.c_str(), nullptr));
        ASSERT_NE(again, NullFC);
        EXPECT_EQ(canonical_text::of(again), canonical_text::of(root));
    }
    std::remove(file.c_str());

    std::ostringstream out;
    std::istringstream in("solid");
    const std::string unknown = testing::TempDir() + "scene.unknown";
    EXPECT_FALSE(SceneFileHandler::the().write(root, unknown.c_str()));
    EXPECT_FALSE(std::ifstream(unknown)) << "nothing is made";
    EXPECT_FALSE(SceneFileHandler::the().write(root, out, "unknown"));
    EXPECT_FALSE(SceneFileHandler::the().write(NullFC, out, "osb"));
    EXPECT_FALSE(SceneFileHandler::the().write(root, "no_such_folder/scene.osb"));
    EXPECT_EQ(SceneFileHandler::the().read("scene.unknown", nullptr), NullFC);
    EXPECT_EQ(SceneFileHandler::the().read("no_such_folder/scene.osb", nullptr), NullFC);
    EXPECT_EQ(SceneFileHandler::the().read(in, "unknown", nullptr), NullFC);
    EXPECT_EQ(SceneFileHandler::the().read(in, "osb", nullptr), NullFC);
    EXPECT_EQ(out.str(), "");
    out.setstate(std::ios::badbit);
    EXPECT_FALSE(SceneFileHandler::the().write(root, out, "osb"));
}

/// A type of our own beside the built-in one.
class one_node_type : public SceneFileType {
  public:
    one_node_type()
        : SceneFileType(suffixes(), sizeof(const Char8*), false, 0, OSG_READ_SUPPORTED) {}
    const Char8* getName() const override { return "one node"; }
    NodePtr read(std::istream&, const Char8*) const override { return Node::create(); }

  private:
    static const Char8** suffixes() {
        static const Char8* list[] = {"One"};
        return list;
    }
};

TEST(SceneFiles, TypesRegisterThemselves) {
    std::istringstream in;
    {
        const one_node_type type;
        const NodeRefPtr made(SceneFileHandler::the().read(in, "one", nullptr));
        EXPECT_NE(made, NullFC);
        std::ostringstream out;
        EXPECT_FALSE(SceneFileHandler::the().write(made, out, "one")) << "it only reads";
    }
    EXPECT_EQ(SceneFileHandler::the().read(in, "one", nullptr), NullFC);
}

TEST(SceneFiles, UnknownTypesAndFieldsAreLeftOut) {
    const NodeRefPtr root = sampleScene();
    std::string bytes = written(root);
    const auto rename = [&bytes](const std::string& from, const std::string& to) {
        const std::size_t at = bytes.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        bytes.replace(at, from.size(), to);
    };
    rename("CubeTextureChunk", "CubeTextureChunX");
    rename("diffuse", "diffusX");
    const NodeRefPtr again(readBack(bytes));
    ASSERT_NE(again, NullFC);
    const GeometryPtr geometry = GeometryPtr::dcast(again->getChild(0)->getCore());
    const ChunkMaterialPtr material = ChunkMaterialPtr::dcast(geometry->getMaterial());
    EXPECT_EQ(material->getChunks().getSize(), 3u);
    const MaterialChunkPtr colours = MaterialChunkPtr::dcast(material->getChunks(0));
    ASSERT_NE(colours, NullFC);
    EXPECT_EQ(colours->getDiffuse(), Color4f(1, 1, 1, 1));
}

} // namespace
