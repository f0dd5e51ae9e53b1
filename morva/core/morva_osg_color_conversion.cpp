// Colour between materials and vertices, and fresh geometry.

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>
#include <iterator>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_property_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>

namespace morva::osg {

namespace {

constexpr float color_tolerance = 1e-6F; ///< per component, that two colours may differ
constexpr unsigned int gl_src_alpha = 770;
constexpr unsigned int gl_one_minus_src_alpha = 771;

template <typename Color> bool differ(const Color& a, const Color& b, unsigned int components) {
    for (unsigned int i = 0; i < components; ++i) {
        // Written so that a NaN differs from everything.
        if (!(a[i] - b[i] <= color_tolerance && b[i] - a[i] <= color_tolerance))
            return true;
    }
    return false;
}

bool uniformAlphaIntoMaterial(const ::osg::GeometryPtr& geometry) {
    const auto stored = ::osg::GeoColors4fPtr::dcast(geometry->getColors());
    if (stored == ::osg::NullFC) {
        say({"Sorry No AlphaColor"});
        return true;
    }
    const span<::osg::Color4f> colors = editSpan(stored);
    for (std::size_t i = 1; i < colors.size(); ++i) {
        if (differ(colors[i], colors[0], 4))
            return false;
    }
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    const ::osg::BlendChunkPtr blend = ::osg::BlendChunk::create();
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    const open_edit chunk_edit(chunk);
    const open_edit blend_edit(blend);
    const open_edit material_edit(material);
    chunk->setDiffuse(colors[0]);
    blend->setSrcFactor(gl_src_alpha);
    blend->setDestFactor(gl_one_minus_src_alpha);
    material->addChunk(blend, -2);
    material->addChunk(chunk, -2);
    giveMaterial(geometry, material);
    return true;
}

bool uniformColorIntoMaterial(const ::osg::GeometryPtr& geometry) {
    const auto colors = readBlock(geometry->getColors());
    const ::osg::Color3f first = colors[0];
    for (const ::osg::Color3f& color : colors) {
        if (differ(color, first, 3))
            return false;
    }
    const ::osg::SimpleMaterialPtr material = ::osg::SimpleMaterial::create();
    const open_edit edit(material);
    material->setDiffuse(first);
    giveMaterial(geometry, material);
    return true;
}

/// The colour that a material would be baked with; false if it must stay.
bool bakeableColor(const ::osg::MaterialPtr& material, ::osg::Color4f& color) {
    const auto simple = ::osg::SimpleMaterialPtr::dcast(material);
    if (simple != ::osg::NullFC) {
        const ::osg::Color3f diffuse = simple->getDiffuse();
        color = ::osg::Color4f(diffuse[0], diffuse[1], diffuse[2], 1.0F);
        return true;
    }
    const auto chunks = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunks == ::osg::NullFC)
        return false;
    ::osg::MaterialChunkPtr last;
    for (::osg::UInt32 i = 0; i < chunks->getMFChunks()->size(); ++i) {
        if (::osg::TextureChunkPtr::dcast(chunks->getChunks(i)) != ::osg::NullFC)
            return false;
        const auto chunk = ::osg::MaterialChunkPtr::dcast(chunks->getChunks(i));
        if (chunk != ::osg::NullFC)
            last = chunk;
    }
    if (last == ::osg::NullFC)
        return false;
    color = last->getDiffuse();
    return color[3] != 0.0F;
}

/// Place of the positions' index among those of a vertex; -1 if there is no mapping with it.
int positionSlot(const ::osg::GeometryPtr& geometry) {
    return geometry->getMFIndexMapping()->size() == 0
               ? -1
               : geometry->calcMappingIndex(::osg::Geometry::MapPosition);
}

/// The largest position that a vertex takes; 0 if none leads to a position. Indices that lead
/// nowhere have no say, or one wrong number could ask for gigabytes.
std::size_t largestPosition(const ::osg::GeometryPtr& geometry, int slot) {
    const auto indices = readBlock(geometry->getIndices());
    const std::size_t stride = geometry->getMFIndexMapping()->size();
    const std::size_t positions =
        geometry->getPositions() == ::osg::NullFC ? 0 : geometry->getPositions()->size();
    if (geometry->getIndices() == ::osg::NullFC)
        return positions == 0 ? 0 : positions - 1;
    std::size_t largest = 0;
    for (std::size_t at = static_cast<std::size_t>(slot); at < indices.size(); at += stride) {
        if (indices[at] < positions)
            largest = std::max<std::size_t>(largest, indices[at]);
    }
    return largest;
}

/// Colours for a geometry that has none: enough for every corner, and one more triangle's worth;
/// where they share the index of the positions enough for each of these, too.
::osg::RefPtr<::osg::GeoColors4fPtr> uniformColors(const ::osg::GeometryPtr& geometry,
                                                   const ::osg::Color4f& color) {
    constexpr vertex_property place[] = {vertex_property::position};
    std::size_t triangles = 0;
    forEachTriangle(geometry_columns(geometry, place), rest_rule::continued,
                    [&triangles](std::size_t, std::size_t, std::size_t) { ++triangles; });
    std::size_t count = 3 * (triangles + 1);
    const int slot = positionSlot(geometry);
    if (slot >= 0)
        count = std::max(count, largestPosition(geometry, slot));
    ::osg::RefPtr<::osg::GeoColors4fPtr> colors(::osg::GeoColors4f::create());
    colors->editField().resize(count + 1, color);
    return colors;
}

/// Mixes every present colour half and half.
void mixColors(const ::osg::GeoColorsPtr& colors, const ::osg::Color4f& color) {
    const open_edit edit(colors);
    changeColors(colors, static_cast<::osg::UInt32>(colors->size()),
                 [&color](::osg::Color3f& mixed, ::osg::UInt32) {
                     for (unsigned int k = 0; k < 3; ++k)
                         mixed[k] = (mixed[k] + color[k]) * 0.5F;
                 });
}

::osg::GeometryPtr freshGeometry(unsigned int type) {
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    const geometry_edit edit(geometry);
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    types->addValue(type);
    geometry->setTypes(types);
    geometry->setLengths(::osg::GeoPLengthsUI32::create());
    geometry->setPositions(::osg::GeoPositions3f::create());
    return geometry;
}

template <typename Ptr> bool isMissing(const Ptr& property) {
    return property == ::osg::NullFC || property->size() == 0;
}
/// The properties that checkGeoProperties() takes off where they are empty.
constexpr vertex_property dispensable[] = {
    vertex_property::normal,    vertex_property::color,      vertex_property::secondary_color,
    vertex_property::texcoords, vertex_property::texcoords1, vertex_property::texcoords2,
    vertex_property::texcoords3};

bool isEmpty(const ::osg::GeometryPtr& geometry, vertex_property which) {
    const auto* property = geometry->getProperty(mappingBit(which));
    return property != nullptr && property->getSize() == 0;
}

} // namespace

bool VertexColorIntoMaterial(::osg::GeometryPtr geometry, bool withAlpha) {
    if (geometry == ::osg::NullFC || geometry->getMaterial() != ::osg::NullFC ||
        isMissing(geometry->getColors()))
        return false;
    const bool done =
        withAlpha ? uniformAlphaIntoMaterial(geometry) : uniformColorIntoMaterial(geometry);
    // Without a new material there was no alpha to take: the colours stay then.
    if (done && geometry->getMaterial() != ::osg::NullFC) {
        const geometry_edit edit(geometry);
        geometry->setColors(::osg::NullFC);
    }
    return done;
}

bool MaterialColorIntoVertex(::osg::NodePtr node) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC)
        return false;
    ::osg::MaterialPtr material = geometry->getMaterial();
    if (material == ::osg::NullFC) {
        const ::osg::NodePtr group = searchMaterialGroup(node);
        if (group == ::osg::NullFC)
            return false;
        material = ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial();
    }
    ::osg::Color4f color;
    if (!bakeableColor(material, color))
        return false;
    ::osg::RefPtr<::osg::GeoColors4fPtr> made; // before anything changes: there may be no memory
    if (geometry->getColors() == ::osg::NullFC)
        made = uniformColors(geometry, color);
    const geometry_edit edit(geometry);
    geometry->setMaterial(::osg::NullFC);
    if (geometry->getColors() == ::osg::NullFC) {
        geometry->setColors(made.get());
        mapWithPositions(geometry, vertex_property::color);
    } else {
        mixColors(geometry->getColors(), color);
    }
    return true;
}

void setMaterialInGeometry(::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC || geometry->getMaterial() != ::osg::NullFC)
        return;
    giveMaterial(geometry, getMaterial(node));
}

::osg::NodePtr CollectNonMaterialNodes(::osg::NodePtr root) {
    if (root == ::osg::NullFC)
        return ::osg::NullFC;
    std::vector<::osg::NodePtr> nodes;
    const ::osg::GeometryPtr geometry = geometryOf(root);
    if (geometry == ::osg::NullFC) {
        getGeometryNodes(root, nodes, false);
    } else if (geometry->getMaterial() == ::osg::NullFC) {
        nodes.push_back(root);
    }
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(),
                               [](const ::osg::NodePtr& node) {
                                   return geometryOf(node)->getMaterial() != ::osg::NullFC ||
                                          searchMaterialGroup(node) != ::osg::NullFC;
                               }),
                nodes.end());
    if (nodes.empty())
        return ::osg::NullFC;
    fresh<::osg::NodePtr> collected(newGroupNode());
    for (const ::osg::NodePtr& node : nodes)
        addChildTo(collected.get(), node);
    return collected.release();
}

::osg::GeometryPtr createGeo() { return freshGeometry(4); }
::osg::GeometryPtr createLineGeo() { return freshGeometry(1); }

bool checkGeoProperties(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC || isMissing(geometry->getTypes()) ||
        isMissing(geometry->getLengths()) || isMissing(geometry->getPositions()))
        return false;
    const auto empty = [&geometry](vertex_property which) { return isEmpty(geometry, which); };
    // Not even edited: it may be read by other threads.
    if (std::none_of(std::begin(dispensable), std::end(dispensable), empty))
        return true;
    const geometry_edit edit(geometry);
    for (const vertex_property which : dispensable) {
        if (empty(which))
            setProperty(geometry, which, ::osg::NullFC);
    }
    return true;
}

} // namespace morva::osg
