#include "OSGSceneLinks.h"

#include "OSGSceneBytes.h"
#include "OpenSG/OSGChunkMaterial.h"
#include "OpenSG/OSGCubeTextureChunk.h"
#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGMaterialGroup.h"
#include "OpenSG/OSGNode.h"
#include "OpenSG/OSGSimpleTexturedMaterial.h"
#include "OpenSG/OSGSwitchMaterial.h"

#include <algorithm>

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
                                                  [](CLASS& o, const TARGET& t) { o.METHOD(t); }); \
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

namespace {

/// What refers to what, to be taken apart from the top.
struct link_counts {
    std::vector<UInt32> owners; ///< references to each object
    std::vector<UInt32> first;  ///< links of owner i: first[i] .. first[i + 1] - 1

    link_counts(std::size_t count, const std::vector<pending_link>& links)
        : owners(count, 0), first(count + 1, 0) {
        std::vector<UInt8> isChild(count, 0);
        for (const pending_link& link : links) {
            ++owners[link.target];
            ++first[link.owner + 1];
            if (link.target == 0)
                throw scene_damage("the root hangs below something", link.place);
            if (link.link == nullptr || !link.link->toChild)
                continue;
            if (isChild[link.target] != 0)
                throw scene_damage("a node has two parents", link.place);
            isChild[link.target] = 1;
        }
        for (std::size_t i = 0; i < count; ++i)
            first[i + 1] += first[i];
    }
};

} // namespace

void osgCheckSceneLinks(std::size_t count, const std::vector<pending_link>& links,
                        UInt32 maxDepth) {
    link_counts counts(count, links);
    // Takes objects away whose owners are all gone; what remains sits in a circle.
    std::vector<UInt32> open;
    std::vector<UInt32> depth(count, 0);
    for (UInt32 i = 0; i < count; ++i) {
        if (counts.owners[i] == 0)
            open.push_back(i);
    }
    while (!open.empty()) {
        const UInt32 owner = open.back();
        open.pop_back();
        for (UInt32 i = counts.first[owner]; i < counts.first[owner + 1]; ++i) {
            const UInt32 target = links[i].target;
            depth[target] = std::max(depth[target], depth[owner] + 1);
            if (depth[target] > maxDepth)
                throw scene_damage("the scene is nested too deep", links[i].place);
            if (--counts.owners[target] == 0)
                open.push_back(target);
        }
    }
    for (const pending_link& link : links) {
        if (counts.owners[link.target] != 0 && counts.owners[link.owner] != 0)
            throw scene_damage("objects refer to each other in a circle", link.place);
    }
}

OSG_END_NAMESPACE
