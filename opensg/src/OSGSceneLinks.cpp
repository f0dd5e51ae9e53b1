#include "OSGSceneLinks.h"

#include "OpenSG/OSGChunkMaterial.h"
#include "OpenSG/OSGCubeTextureChunk.h"
#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGMaterialGroup.h"
#include "OpenSG/OSGNode.h"
#include "OpenSG/OSGSimpleTexturedMaterial.h"
#include "OpenSG/OSGSwitchMaterial.h"

OSG_BEGIN_NAMESPACE

namespace {

/// `call` is handed the owner and the target once both have the right class.
template <class Owner, class TargetPtr, class Call>
bool assignTyped(const FieldContainerPtr& owner, const FieldContainerPtr& target, Call call) {
    const typename Owner::Ptr typedOwner = Owner::Ptr::dcast(owner);
    const TargetPtr typedTarget = TargetPtr::dcast(target);
    if (typedOwner == NullFC || typedTarget == NullFC)
        return false;
    call(*typedOwner, typedTarget);
    return true;
}

#define SCENE_LINK_OF(CLASS, FIELD, TARGET, METHOD, MANY, TO_CHILD)                                \
    {                                                                                              \
        &CLASS::getClassType(), CLASS::FIELD##FieldId, MANY, TO_CHILD,                             \
            [](const FieldContainerPtr& owner, const FieldContainerPtr& target) {                  \
                return assignTyped<CLASS, TARGET>(owner, target,                                   \
                                                  [](CLASS& o, TARGET t) { o.METHOD(t); });        \
            }                                                                                      \
    }
#define SCENE_LINK(CLASS, FIELD, TARGET)                                                           \
    SCENE_LINK_OF(CLASS, FIELD, TARGET, set##FIELD, false, false)

const std::vector<scene_link>& allLinks() {
    static const std::vector<scene_link>& links = *new std::vector<scene_link>{
        SCENE_LINK_OF(Node, Children, NodePtr, addChild, true, true),
        SCENE_LINK(Node, Core, NodeCorePtr),
        SCENE_LINK(MaterialGroup, Material, MaterialPtr),
        SCENE_LINK(MaterialDrawable, Material, MaterialPtr),
        SCENE_LINK(Geometry, Types, GeoPTypesPtr),
        SCENE_LINK(Geometry, Lengths, GeoPLengthsPtr),
        SCENE_LINK(Geometry, Positions, GeoPositionsPtr),
        SCENE_LINK(Geometry, Normals, GeoNormalsPtr),
        SCENE_LINK(Geometry, Colors, GeoColorsPtr),
        SCENE_LINK(Geometry, SecondaryColors, GeoColorsPtr),
        SCENE_LINK(Geometry, TexCoords, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords1, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords2, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords3, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords4, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords5, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords6, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, TexCoords7, GeoTexCoordsPtr),
        SCENE_LINK(Geometry, Indices, GeoIndicesPtr),
        SCENE_LINK_OF(ChunkMaterial, Chunks, StateChunkPtr, addChunk, true, false),
        SCENE_LINK(SimpleTexturedMaterial, Image, ImagePtr),
        SCENE_LINK_OF(SwitchMaterial, Materials, MaterialPtr, addMaterial, true, false),
        SCENE_LINK(TextureChunk, Image, ImagePtr),
        SCENE_LINK(CubeTextureChunk, PosZImage, ImagePtr),
        SCENE_LINK(CubeTextureChunk, PosXImage, ImagePtr),
        SCENE_LINK(CubeTextureChunk, NegXImage, ImagePtr),
        SCENE_LINK(CubeTextureChunk, PosYImage, ImagePtr),
        SCENE_LINK(CubeTextureChunk, NegYImage, ImagePtr)};
    return links;
}

#undef SCENE_LINK
#undef SCENE_LINK_OF

} // namespace

const scene_link* osgFindSceneLink(const FieldContainerType& type, UInt32 fieldId) {
    for (const scene_link& link : allLinks()) {
        if (link.fieldId == fieldId && type.isDerivedFrom(*link.owner))
            return &link;
    }
    return nullptr;
}

OSG_END_NAMESPACE
