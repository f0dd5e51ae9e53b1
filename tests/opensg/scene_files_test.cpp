// Scenes in files: what comes back.

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGImageFileHandler.h>
#include <OpenSG/OSGThread.h>

#include "scene_dump.h"

namespace {

using namespace osg;
using namespace scene_test;

UInt32 numberAt(const std::string& bytes, std::size_t place) {
    UInt32 number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes.at(place + i));
    return number;
}

/// Object, name and type of the fields in a file, taken apart without the layer's help.
std::set<lines> namesIn(const std::string& bytes) {
    std::size_t at = 41;
    const auto text = [&] {
        const std::size_t start = at + 4;
        at = start + numberAt(bytes, at);
        return bytes.substr(start, at - start - 1);
    };
    std::set<lines> names;
    for (std::string object; !(object = text()).empty();) {
        at += object == "Geometry" || object == "Image" ? 6 : 7;
        for (std::string name; !(name = text()).empty();) {
            const std::string type = text();
            at += 4 + numberAt(bytes, at) + (name == "pindices" ? 4 : 0);
            names.insert({object, name, type});
        }
    }
    return names;
}

TEST(SceneFiles, OfThePlatformReadAsItReadsThem) {
    EXPECT_EQ(sampleFiles().size(), 17u);
    for (const auto& file : sampleFiles()) {
        SCOPED_TRACE(file.filename());
        const NodeRefPtr root(readBack(bytesOf(file)));
        ASSERT_NE(root, NullFC);
        EXPECT_EQ(root.get().getRefCount(), 1u);
        for (UInt32 i = 0; i < root->getNChildren(); ++i) {
            const NodeCorePtr core = root->getChild(i)->getCore();
            EXPECT_EQ(root->getChild(i).getRefCount(), 1u);
            EXPECT_EQ(core.getRefCount(), core->getParents().getSize());
        }
        EXPECT_EQ(joined(dumpOf(root)),
                  bytesOf(std::filesystem::path(file).replace_extension(".txt")));
        const std::string bytes = written(root);
        const NodeRefPtr again(readBack(bytes));
        ASSERT_NE(again, NullFC);
        EXPECT_EQ(dumpOf(again), dumpOf(root));
        EXPECT_EQ(written(again), bytes);
    }
}

TEST(SceneFiles, HaveTheFormOfThePlatform) {
    // Its ids are of its own choice; ours count objects.
    std::string tiny = bytesOf(samples / "tiny.osb");
    const std::pair<char, char> ids[] = {{104, 1}, {105, 2}, {107, 3}, {103, 4}, {106, 5}};
    for (const auto& [its, ours] : ids) {
        const std::string from{0, 0, 1, its};
        for (std::size_t at = tiny.find(from); at != std::string::npos; at = tiny.find(from))
            tiny.replace(at, 4, std::string{0, 0, 0, ours});
    }
    EXPECT_EQ(written(NodeRefPtr(readBack(tiny))), tiny);

    std::set<lines> known;
    for (const auto& file : sampleFiles())
        known.merge(namesIn(bytesOf(file)));
    for (const auto& file : sampleFiles()) {
        for (const lines& names : namesIn(written(NodeRefPtr(readBack(bytesOf(file)))))) {
            EXPECT_TRUE(known.count(names) != 0 || names[1] == "isReflectionMap")
                << testing::PrintToString(names);
        }
    }
}

// What those files lack.

TEST(SceneFiles, KeepEveryPropertyFormAndNoPrivateThing) {
    const NodeRefPtr root(makeCoredNode<Group>());
    UInt16 binding = 0;
    for (UInt32 id = 1; id < 2000; ++id) {
        const FieldContainerType* type = FieldContainerFactory::the()->findType(id);
        if (type == nullptr || type->isAbstract() || !type->isAttachment())
            continue;
        const AttachmentPtr made = AttachmentPtr::dcast(type->createFieldContainer());
        if (auto* array = dynamic_cast<GeoPropertyArrayInterface*>(made.getCPtr())) {
            array->resize(3);
            for (UInt32 i = 0; i < 3; ++i) // values are stored as they are
                array->editData()[i * array->getFormatSize() * array->getDimension()] =
                    UInt8(i + 7);
        }
        root->addAttachment(made, ++binding);
    }
    EXPECT_GT(binding, 32u);
    const lines expected = dumpOf(root);
    const NamePtr inner = Name::create();
    inner->setInternal(true);
    root->addAttachment(inner, 99);
    const std::string bytes = written(root);
    EXPECT_EQ(dumpOf(NodeRefPtr(readBack(bytes))), expected);
    const std::set<lines> arrays = namesIn(bytes);
    for (const lines& names :
         {lines{"GeoColors3f", "colors", "MFColor3f"}, lines{"GeoColors4f", "Colors", "MFColor4f"},
          lines{"GeoNormals3s", "normals", "MFVec3s"}, lines{"GeoNormals3b", "normals", "MFVec3b"}})
        EXPECT_EQ(arrays.count(names), 1u) << names[0];

    setName(root, std::string("a\0b", 3)); // a text of a file can't hold that
    const lines cut = dumpOf(NodeRefPtr(readBack(written(root))));
    EXPECT_EQ(std::count(cut.begin(), cut.end(), "  name SFString 1: \"a\""), 1);
}

TEST(SceneFiles, ReadingIsAChangeLikeAnyOther) {
    const std::string bytes = bytesOf(samples / "shared.osb");
    ChangeList* changes = Thread::getCurrentChangeList();
    changes->setReadOnly(false);
    const NodeRefPtr again(readBack(bytes));
    std::set<UInt32> changed;
    for (auto entry = changes->beginChanged(); entry != changes->endChanged(); ++entry)
        changed.insert(entry->first);
    const std::size_t created = changes->sizeCreated();
    changes->clearAll();
    changes->setReadOnly(true);
    EXPECT_GT(created, 20u);
    EXPECT_EQ(changed.size(), created);
}

TEST(SceneFiles, GoByExtension) {
    const SceneFileHandler& handler = SceneFileHandler::the();
    const NodeRefPtr root(readBack(bytesOf(samples / "tiny.osb")));
    const std::string file = testing::TempDir() + "scene_by_extension.OSB";
    ASSERT_TRUE(handler.write(root, file.c_str(), true));
    EXPECT_EQ(dumpOf(NodeRefPtr(handler.read(file.c_str(), nullptr))), dumpOf(root));
    std::remove(file.c_str());
    std::ostringstream out;
    std::istringstream in("solid");
    const std::string unknown = testing::TempDir() + "scene.unknown";
    EXPECT_FALSE(handler.write(root, unknown.c_str()));
    EXPECT_FALSE(std::ifstream(unknown)) << "nothing is made";
    EXPECT_FALSE(handler.write(root, out, "unknown"));
    EXPECT_FALSE(handler.write(NullFC, out, "osb"));
    EXPECT_FALSE(handler.write(root, "no_such_folder/scene.osb"));
    EXPECT_EQ(handler.read("scene.unknown", nullptr), NullFC);
    EXPECT_EQ(handler.read("no_such_folder/scene.osb", nullptr), NullFC);
    EXPECT_EQ(handler.read(in, "unknown", nullptr), NullFC);
    EXPECT_EQ(out.str(), "");
    out.setstate(std::ios::badbit);
    EXPECT_FALSE(handler.write(root, out, "osb"));
}

TEST(SceneFiles, TakeThePicturesThatTheyNameFromTheirFolder) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(testing::TempDir()) / "morva_named_pictures";
    fs::create_directories(folder);
    fs::copy_file(samples / "image-by-name.osb", folder / "scene.osb",
                  fs::copy_options::overwrite_existing);
    const UInt8 pixels[] = {1, 2, 3, 4, 5, 6};
    const ImageRefPtr picture(Image::create());
    picture->set(Image::OSG_RGB_PF, 1, 2, 1, 1, 1, 0., pixels);
    ImageFileHandler::the().write(picture.get(), (folder / "missing.png").c_str());
    const NodeRefPtr root(SceneFileHandler::the().read((folder / "scene.osb").c_str(), nullptr));
    const lines dump = dumpOf(root);
    for (const char* line :
         {"  pixel MFUInt8 6: 1 2 3 4 5 6", "  name SFString 1: \"missing.png\""})
        EXPECT_EQ(std::count(dump.begin(), dump.end(), line), 1) << line;
    fs::remove_all(folder);
}

/// A type of our own beside the built-in one.
class one_node_type : public SceneFileType {
  public:
    one_node_type() : SceneFileType(suffixes, sizeof(const Char8*), false, 0, OSG_READ_SUPPORTED) {}
    const Char8* getName() const override { return "one node"; }
    NodePtr read(std::istream&, const Char8*) const override { return Node::create(); }

  private:
    inline static const Char8* suffixes[] = {"One"};
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

} // namespace
