// Scenes in files: what comes back, and damaged or hostile files.

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSceneFileHandler.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>
#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGTriangleIterator.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "../support/live_containers.h"

namespace {

using namespace osg;
using morva_test::liveContainers;

/// All that can be reached from a container, one field a line; containers by order of mention.
std::string canonicalText(const FieldContainerPtr& root) {
    std::vector<FieldContainerPtr> order{NullFC};
    const auto numberOf = [&order](const FieldContainerPtr& container) {
        const auto known = std::find(order.begin(), order.end(), container);
        const auto number = known - order.begin();
        if (known == order.end())
            order.push_back(container);
        return number;
    };
    numberOf(root);
    std::ostringstream out;
    for (std::size_t i = 1; i < order.size(); ++i) {
        const FieldContainerPtr container = order[i];
        out << "[" << i << "] " << container->getTypeName() << "\n";
        for (const FieldDescription* desc : container->getType().getFieldDescs()) {
            if (desc->isInternal())
                continue;
            const Field& field = *desc->getField(*container);
            std::string text;
            out << "  " << desc->getCName() << " =";
            if (const auto* map = dynamic_cast<const SFAttachmentMap*>(&field)) {
                for (const auto& entry : map->getValue())
                    out << " " << entry.first << ":" << numberOf(entry.second);
            } else if (field.holdsPointers()) {
                for (UInt32 k = 0; k < field.getSize(); ++k)
                    out << " #" << numberOf(field.pointerAt(k));
            } else {
                out << " " << field.getValueByStr(text);
            }
            out << "\n";
        }
    }
    return out.str();
}

template <class Property, class... Values>
typename Property::PtrType filled(const Values&... values) {
    const typename Property::PtrType property = Property::create();
    (property->addValue(values), ...);
    return property;
}

MaterialPtr texturedMaterial() {
    ImagePtr image = Image::create();
    const UInt8 pixels[] = {0, 1, 2, 253, 254, 255};
    image->set(Image::OSG_RGB_PF, 2, 1, 1, 1, 1, 0., pixels);
    image->setName("brick.png");
    image->setAttachmentField("source", "disk");
    const TextureChunkPtr texture = TextureChunk::create();
    texture->setImage(image);
    texture->setWrapT(GL_CLAMP_TO_EDGE);
    const CubeTextureChunkPtr cube = CubeTextureChunk::create();
    cube->setPosXImage(image);
    const MaterialChunkPtr colours = MaterialChunk::create();
    colours->setDiffuse(Color4f(.1f, .2f, .3f, .4f));
    const ChunkMaterialPtr material = ChunkMaterial::create();
    material->addChunk(colours);
    material->addChunk(texture, 1);
    material->addChunk(cube, 2);
    material->addChunk(BlendChunk::create());
    setName(material, "brick");
    return material;
}

GeometryPtr interleavedGeometry(const MaterialPtr& material) {
    const GeometryPtr geometry = Geometry::create();
    geometry->setTypes(filled<GeoPTypesUI8>(GLenum(GL_TRIANGLES)));
    geometry->setLengths(filled<GeoPLengthsUI32>(3u));
    geometry->setPositions(
        filled<GeoPositions3f>(Pnt3f(0, 0, 0), Pnt3f(1, 0, 0), Pnt3f(0, -1.5f, 1e-30f)));
    geometry->setNormals(filled<GeoNormals3f>(Vec3f(0, 0, 1)));
    geometry->setColors(filled<GeoColors4ub>(Color3f(1, 0, .5f)));
    geometry->setTexCoords(filled<GeoTexCoords2f>(Vec2f(0, 1), Vec2f(.25f, 3)));
    geometry->setTexCoords7(filled<GeoTexCoords1f>(Vec2f(42, 0)));
    geometry->setIndices(filled<GeoIndicesUI16>(0u, 0u, 1u, 0u, 2u, 0u));
    geometry->editMFIndexMapping()->push_back(Geometry::MapPosition | Geometry::MapTexCoords);
    geometry->editMFIndexMapping()->push_back(Geometry::MapNormal | Geometry::MapColor |
                                              Geometry::MapTexCoords7);
    geometry->setMaterial(material);
    return geometry;
}

NodePtr nodeOf(const NodeCorePtr& core, const char* name = nullptr) {
    const NodePtr node = Node::create();
    node->setCore(core);
    if (name != nullptr)
        setName(node, name);
    return node;
}

NodePtr added(const NodePtr& parent, const NodeCorePtr& core, const char* name = nullptr) {
    parent->addChild(nodeOf(core, name));
    return parent->getChild(parent->getNChildren() - 1);
}

/// Every kind of core, material and attachment, with shared cores, materials and properties.
NodeRefPtr sampleScene() {
    const NodeRefPtr root(nodeOf(Group::create(), "root \"quoted\" \n"));
    const MaterialPtr material = texturedMaterial();
    const GeometryPtr geometry = interleavedGeometry(material);
    const NodePtr part = added(root, geometry, "part");
    added(root, geometry, "")->setTravMask(5); // an empty name is a name

    const GeometryPtr sharing = Geometry::create();
    sharing->setPositions(geometry->getPositions());
    sharing->setTypes(geometry->getTypes());
    const SimpleTexturedMaterialPtr simple = SimpleTexturedMaterial::create();
    simple->setShininess(3.25f);
    const SwitchMaterialPtr choice = SwitchMaterial::create();
    choice->addMaterial(simple);
    choice->addMaterial(material);
    choice->setChoice(1);
    sharing->setMaterial(choice);
    const MaterialGroupPtr group = MaterialGroup::create();
    group->setMaterial(material);
    added(added(root, group), sharing);

    const TransformPtr transform = Transform::create();
    transform->getMatrix().setTranslate(1.f, 2.f, 3.f);
    const NodePtr moved = added(root, transform);
    const ComponentTransformPtr parts = ComponentTransform::create();
    parts->setTranslation(Vec3f(4, 5, 6));
    endEditCP(parts, ComponentTransform::TranslationFieldMask);
    added(moved, parts);
    const TransformPtr apart = ComponentTransform::create();
    apart->getMatrix().setTranslate(9.f, 0.f, 0.f); // not what the components make
    added(moved, apart);
    const SwitchPtr selection = Switch::create();
    selection->setChoice(Switch::ALL);
    added(moved, selection);
    const DistanceLODPtr lod = DistanceLOD::create();
    lod->editMFRange()->push_back(10.f);
    lod->setCenter(Pnt3f(1, 1, 1));
    added(moved, lod);
    added(moved, NullFC);

    const StringAttributeMapPtr texts = StringAttributeMap::create();
    texts->setAttribute("zeta", "1");
    texts->setAttribute("alpha", std::string("a\0b", 3));
    root->addAttachment(texts);
    part->addAttachment(texts, 7);
    return root;
}

std::string written(const NodePtr& root) {
    std::ostringstream out;
    EXPECT_TRUE(SceneFileHandler::the().write(root, out, "osb"));
    return out.str();
}

NodePtr readBack(const std::string& bytes) {
    std::istringstream in(bytes);
    return SceneFileHandler::the().read(in, "osb", nullptr);
}

TEST(SceneFiles, AWholeTreeComesBack) {
    const NodeRefPtr root = sampleScene();
    const std::string before = canonicalText(root);
    const std::string bytes = written(root);
    EXPECT_EQ(canonicalText(root), before) << "writing changes nothing";
    const unsigned int alive = liveContainers();
    {
        const NodePtr again = readBack(bytes);
        ASSERT_NE(again, NullFC);
        EXPECT_EQ(again.getRefCount(), 0u);
        const NodeRefPtr holds(again);
        EXPECT_EQ(canonicalText(again), before);
        EXPECT_EQ(written(again), bytes) << "the same scene gives the same file";

        const NodePtr part = again->getChild(0);
        EXPECT_EQ(part.getRefCount(), 1u);
        EXPECT_EQ(part->getCore().getRefCount(), 2u);
        EXPECT_EQ(part->getCore()->getParents().getSize(), 2u);
        const GeometryPtr geometry = GeometryPtr::dcast(part->getCore());
        EXPECT_EQ(geometry->getPositions().getRefCount(), 2u);
        EXPECT_EQ(geometry->getMaterial().getRefCount(), 3u);
        const auto texts = part->findAttachment(StringAttributeMap::getClassType(), 7);
        ASSERT_NE(texts, NullFC);
        EXPECT_EQ(texts.getRefCount(), 2u);
        EXPECT_EQ(StringAttributeMapPtr::dcast(texts)->getAttribute("zeta"), "1");
        EXPECT_EQ(again->getChild(3)->getChild(0)->getToWorld()[3][0], 5.f);
        EXPECT_EQ(again->getChild(3)->getChild(1)->getToWorld()[3][0], 10.f);
    }
    EXPECT_EQ(liveContainers(), alive);
}

TEST(SceneFiles, EveryPropertyFormComesBack) {
    int forms = 0;
    for (UInt32 id = 1; id < 2000; ++id) {
        const FieldContainerType* type = FieldContainerFactory::the()->findType(id);
        if (type == nullptr || type->isAbstract())
            continue;
        const FieldContainerRefPtr made(type->createFieldContainer());
        auto* array = dynamic_cast<GeoPropertyArrayInterface*>(made.getCPtr());
        if (array == nullptr)
            continue;
        SCOPED_TRACE(type->getCName());
        ++forms;
        array->resize(3);
        const UInt32 count = 3 * array->getFormatSize() * array->getDimension();
        for (UInt32 i = 0; i < count; ++i)
            array->editData()[i] = static_cast<UInt8>(i + 1); // values are stored as they are
        const NodeRefPtr root(nodeOf(Group::create()));
        root->addAttachment(AttachmentPtr::dcast(made.get()));
        const NodeRefPtr again(readBack(written(root)));
        ASSERT_NE(again, NullFC);
        const AttachmentPtr back = again->findAttachment(type->getGroupId());
        ASSERT_NE(back, NullFC);
        EXPECT_EQ(back->getTypeId(), id);
        const auto* read = dynamic_cast<GeoPropertyArrayInterface*>(back.getCPtr());
        ASSERT_EQ(read->getSize(), 3u);
        EXPECT_EQ(std::memcmp(read->getData(), array->getData(), count), 0);
    }
    EXPECT_GE(forms, 23);
}

TEST(SceneFiles, ReadingIsAChangeLikeAnyOther) {
    const std::string bytes = written(sampleScene());
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
    const NodeRefPtr root = sampleScene();
    const std::string file = testing::TempDir() + "scene_by_extension.OSB";
    ASSERT_TRUE(SceneFileHandler::the().write(root, file.c_str(), true));
    {
        const NodeRefPtr again(SceneFileHandler::the().read(file.c_str(), nullptr));
        ASSERT_NE(again, NullFC);
        EXPECT_EQ(canonicalText(again), canonicalText(root));
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

/// Walks what was read as a user would.
void useScene(const NodePtr& root) {
    root->updateVolume();
    for (UInt32 i = 0; i < root->getNChildren(); ++i) {
        int triangles = 0;
        for (TriangleIterator it(root->getChild(i)); !it.isAtEnd() && ++triangles < 1000; ++it) {
            for (Int32 corner = 0; corner < 3; ++corner)
                it.getPosition(corner);
        }
    }
    EXPECT_FALSE(canonicalText(root).empty());
    EXPECT_FALSE(written(root).empty());
}

TEST(SceneFilesDamage, FlippedBytesAndCutsNeverDoHarm) {
    const std::string whole = written(sampleScene());
    const unsigned int alive = liveContainers();
    std::mt19937 rng(60601);
    int refused = 0;
    const int rounds = 1500;
    for (int round = 0; round < rounds; ++round) {
        std::string bytes = whole;
        const unsigned flips = round % 4 == 0 ? 0 : 1 + static_cast<unsigned>(rng() % 5);
        for (unsigned i = 0; i < flips; ++i)
            bytes[rng() % bytes.size()] ^= char(1u << rng() % 8);
        if (flips == 0)
            bytes.resize(rng() % bytes.size());
        const NodeRefPtr root(readBack(bytes));
        if (root != NullFC)
            useScene(root);
        else
            ++refused;
        EXPECT_TRUE(flips > 0 || root == NullFC) << bytes.size();
    }
    EXPECT_EQ(liveContainers(), alive);
    EXPECT_GT(refused, rounds / 4);
    EXPECT_LT(refused, rounds) << "flips inside values go unnoticed";
}

template <class T> std::string raw(T number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(T));
}
std::string text(const std::string& word) { return raw(UInt32(word.size())) + word; }

std::string field(const std::string& name, int kind, const std::string& data) {
    return text(name) + raw(UInt8(kind)) + raw(UInt64(data.size())) + data;
}
std::string links(const std::string& name, const std::vector<UInt32>& targets) {
    std::string data = raw(UInt32(targets.size()));
    for (const UInt32 target : targets)
        data += raw(target);
    return field(name, 1, data);
}
std::string attachmentTo(UInt32 target) {
    return field("attachments", 2, raw(UInt32(1)) + raw(UInt16(0)) + raw(target));
}

using container = std::pair<std::string, std::string>; ///< type and fields

/// A file of containers numbered in order.
std::string fileOf(const std::vector<container>& containers) {
    std::string bytes("\x89OSB\r\n\x1a\n", 8);
    bytes += raw(UInt32(0x01020304)) + raw(UInt32(1));
    UInt32 number = 0;
    for (const auto& [type, fields] : containers)
        bytes += text(type) + raw(++number) + raw(UInt64(fields.size())) + fields;
    return bytes + raw(UInt32(0));
}

const container bare("Node", ""), group("Group", "");

container parentOf(const std::vector<UInt32>& children) {
    return {"Node", links("children", children)};
}
std::string chainOf(UInt32 nodes) {
    std::vector<container> containers;
    for (UInt32 i = 1; i <= nodes; ++i)
        containers.push_back(i < nodes ? parentOf({i + 1}) : bare);
    return fileOf(containers);
}

const std::string lone = fileOf({bare}), header = lone.substr(0, 16);
const container attached("Node", attachmentTo(2));
const UInt64 huge = 0xFFFFFFFFFFFFFFF0u;

using named_files = std::vector<std::pair<const char*, std::string>>;
const named_files readable = {
    {"lone node", lone},
    {"abstract type", fileOf({{"Node", links("core", {2})}, {"NodeCore", ""}})},
    {"unused container", fileOf({bare, group})},
    {"chain", chainOf(2001)},
    {"zero is none", fileOf({parentOf({0, 0})})},
    {"shared core", fileOf({{"Node", links("core", {2}) + links("children", {3})},
                            group,
                            {"Node", links("core", {2})}})},
    {"value as link", fileOf({{"Node", links("travMask", {1})}})},
    {"inner field", fileOf({{"Node", field("parent", 0, raw(UInt32(1)))}})},
    {"text without its end", fileOf({bare, {"Name", field("name", 0, raw(UInt32(0)))}})},
    {"unknown kind", fileOf({{"Node", field("travMask", 9, "??")}})},
};
const named_files refused = {
    {"nothing", ""},
    {"other magic", "X" + lone.substr(1)},
    {"other order", lone.substr(0, 8) + raw(UInt32(0x04030201)) + lone.substr(12)},
    {"other version", lone.substr(0, 12) + raw(UInt32(2)) + lone.substr(16)},
    {"no container", fileOf({})},
    {"core on top", fileOf({group})},
    {"unknown on top", fileOf({{"NoSuchType", ""}})},
    {"chain too long", chainOf(2002)},
    {"own child", fileOf({parentOf({1})})},
    {"circle", fileOf({parentOf({2}), parentOf({3}), parentOf({2})})},
    {"circle aside", fileOf({bare,
                             {"SwitchMaterial", links("materials", {3})},
                             {"SwitchMaterial", links("materials", {2})}})},
    {"root below another", fileOf({bare, parentOf({1})})},
    {"two parents", fileOf({parentOf({2, 3}), parentOf({4}), parentOf({4}), bare})},
    {"twice a child", fileOf({parentOf({2, 2}), bare})},
    {"number too high", fileOf({parentOf({7})})},
    {"core as child", fileOf({parentOf({2}), group})},
    {"node as core", fileOf({{"Node", links("core", {2})}, bare})},
    {"two cores", fileOf({{"Node", links("core", {2, 3})}, group, group})},
    {"group as attachment", fileOf({attached, group})},
    {"links cut short", fileOf({{"Node", field("children", 1, raw(UInt32(0xFFFFFFFF)))}})},
    {"attachments cut short", fileOf({{"Node", field("attachments", 2, raw(UInt32(0xFFFFFFFF)))}})},
    {"link as value", fileOf({{"Node", field("core", 0, raw(UInt32(1)))}})},
    {"value too short", fileOf({{"Node", field("travMask", 0, "abc")}})},
    {"value too long", fileOf({{"Node", field("travMask", 0, "abcde")}})},
    {"long list", fileOf({bare, {"Image", field("pixel", 0, raw(UInt32(0xFFFFFFFF)) + "abc")}})},
    {"long text", fileOf({bare, {"Name", field("name", 0, raw(UInt32(0xFFFFFFF0)) + "abc")}})},
    {"image without its pixels", fileOf({bare,
                                         {"Image", field("width", 0, raw(Int32(4000))) +
                                                       field("pixelFormat", 0, raw(UInt32(6407))) +
                                                       field("pixel", 0, raw(UInt32(2)) + "ab")}})},
    {"image of negative size", fileOf({bare,
                                       {"Image", field("width", 0, raw(Int32(-1))) +
                                                     field("pixelFormat", 0, raw(UInt32(6409))) +
                                                     field("pixel", 0, raw(UInt32(1)) + "a")}})},
    {"keys without values",
     fileOf(
         {attached,
          {"StringAttributeMap", field("keys", 0, raw(UInt32(1)) + raw(UInt32(2)) + "a" + '\0')}})},
    {"endless field", fileOf({{"Node", text("travMask") + raw(UInt8(0)) + raw(huge)}})},
    {"endless container", header + text("Node") + raw(UInt32(1)) + raw(huge) + "abc"},
    {"endless name", header + raw(UInt32(0xFFFFFFF0)) + "Node"},
    {"wrong number", header + text("Node") + raw(UInt32(2)) + raw(UInt64(0)) + raw(UInt32(0))},
};

TEST(SceneFilesByHand, AreReadOrRefusedWithoutALeak) {
    const unsigned int alive = liveContainers();
    for (const auto& [name, bytes] : readable) {
        const NodeRefPtr root(readBack(bytes));
        EXPECT_NE(root, NullFC) << name;
        EXPECT_EQ(root.get().getRefCount(), 1u) << name;
    }
    EXPECT_EQ(liveContainers(), alive);
    for (const auto& [name, bytes] : refused) {
        EXPECT_EQ(NodeRefPtr(readBack(bytes)), NullFC) << name;
        ASSERT_EQ(liveContainers(), alive) << name;
    }
}

} // namespace
