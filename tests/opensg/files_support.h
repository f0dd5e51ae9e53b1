#pragma once

// Scenes for the tests of scene files, and their text in canonical form.

#include <gtest/gtest.h>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGFieldContainerFactory.h>
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

#include <map>
#include <sstream>

namespace scene_files {

using namespace osg;

/// Containers alive with numbers up to that of one made just now.
inline std::size_t liveContainers() {
    const NodeRefPtr newest(Node::create());
    std::size_t alive = 0;
    for (UInt32 id = 1; id < newest.get().getFieldContainerId(); ++id) {
        alive += FieldContainerFactory::the()->getContainer(id) != NullFC ? 1 : 0;
    }
    return alive;
}

/// All that can be reached from a container, one field a line; containers by order of mention.
class canonical_text {
  public:
    static std::string of(const FieldContainerPtr& root) {
        canonical_text text;
        text.numberOf(root);
        for (std::size_t i = 0; i < text._order.size(); ++i)
            text.describe(text._order[i]);
        return text._out.str();
    }

  private:
    std::size_t numberOf(const FieldContainerPtr& container) {
        if (container == NullFC)
            return 0;
        const auto entered = _numbers.emplace(container.getFieldContainerId(), _order.size() + 1);
        if (entered.second)
            _order.push_back(container);
        return entered.first->second;
    }

    void describe(const FieldContainerPtr container) {
        _out << "[" << numberOf(container) << "] " << container->getTypeName() << "\n";
        for (const FieldDescription* desc : container->getType().getFieldDescs()) {
            if (desc->isInternal())
                continue;
            const Field& field = *desc->getField(*container);
            _out << "  " << desc->getCName() << " =";
            if (const auto* map = dynamic_cast<const SFAttachmentMap*>(&field)) {
                for (const auto& entry : map->getValue()) {
                    _out << " " << entry.first << ":" << numberOf(entry.second);
                }
            } else if (field.holdsPointers()) {
                for (UInt32 i = 0; i < field.getSize(); ++i) {
                    _out << " #" << numberOf(field.pointerAt(i));
                }
            } else {
                std::string text;
                _out << " " << field.getValueByStr(text);
            }
            _out << "\n";
        }
    }

    std::map<UInt32, std::size_t> _numbers;
    std::vector<FieldContainerPtr> _order;
    std::ostringstream _out;
};

template <class Property, class... Values>
typename Property::PtrType filled(const Values&... values) {
    const typename Property::PtrType property = Property::create();
    (property->addValue(values), ...);
    return property;
}

inline MaterialPtr texturedMaterial() {
    const ImagePtr image = Image::create();
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
    setName(colours, "colours");
    const ChunkMaterialPtr material = ChunkMaterial::create();
    material->addChunk(colours);
    material->addChunk(texture, 1);
    material->addChunk(cube, 2);
    material->addChunk(BlendChunk::create());
    setName(material, "brick");
    return material;
}

inline GeometryPtr interleavedGeometry(const MaterialPtr& material) {
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

inline NodePtr nodeOf(const NodeCorePtr& core, const char* name = nullptr) {
    const NodePtr node = Node::create();
    node->setCore(core);
    if (name != nullptr)
        setName(node, name);
    return node;
}

/// Every kind of core, material and attachment, with shared cores, materials and properties.
inline NodeRefPtr sampleScene() {
    const NodeRefPtr root(nodeOf(Group::create(), "root \"quoted\" \n"));
    const MaterialPtr material = texturedMaterial();
    const GeometryPtr geometry = interleavedGeometry(material);
    root->addChild(nodeOf(geometry, "part"));
    root->addChild(nodeOf(geometry, "")); // an empty name is a name
    root->getChild(1)->setTravMask(5);

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
    root->addChild(nodeOf(group));
    root->getChild(2)->addChild(nodeOf(sharing));

    const TransformPtr transform = Transform::create();
    Matrix matrix;
    matrix.setTranslate(1.f, 2.f, 3.f);
    transform->setMatrix(matrix);
    root->addChild(nodeOf(transform));
    const ComponentTransformPtr parts = ComponentTransform::create();
    parts->setTranslation(Vec3f(4, 5, 6));
    endEditCP(parts, ComponentTransform::TranslationFieldMask);
    root->getChild(3)->addChild(nodeOf(parts));
    const SwitchPtr selection = Switch::create();
    selection->setChoice(Switch::ALL);
    root->getChild(3)->addChild(nodeOf(selection));
    const DistanceLODPtr lod = DistanceLOD::create();
    lod->editMFRange()->push_back(10.f);
    lod->setCenter(Pnt3f(1, 1, 1));
    root->getChild(3)->addChild(nodeOf(lod));
    root->getChild(3)->addChild(Node::create()); // no core

    const StringAttributeMapPtr texts = StringAttributeMap::create();
    texts->setAttribute("zeta", "1");
    texts->setAttribute("alpha", std::string("a\0b", 3));
    setName(texts, "texts");
    root->addAttachment(texts);
    root->getChild(0)->addAttachment(texts, 7);
    return root;
}

inline std::string written(const NodePtr& root) {
    std::ostringstream out;
    EXPECT_TRUE(SceneFileHandler::the().write(root, out, "osb"));
    return out.str();
}

inline NodePtr readBack(const std::string& bytes) {
    std::istringstream in(bytes);
    return SceneFileHandler::the().read(in, "osb", nullptr);
}

} // namespace scene_files
