#pragma once

// Small scenes for tests, built inside out:
//
//     node_ref root(group({named("hood", meshNode(quads(2), simple({1, 0, 0}))),
//                          moved({5, 0, 0}, {meshNode(soup(rng, 40))}),
//                          switched(1, {meshNode(soup(rng, 3)), meshNode(strip(6))})}));
//
// A mesh_data is a geometry as plain lists; a list that is empty makes no property. Builders of
// meshes give positions alone; with*() adds the other attributes. Everything made has a reference
// count of 0 until something takes it in: hold the root in a node_ref, or lose it.

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGSwitchMaterial.h>

namespace morva_test {

using node_ref = ::osg::RefPtr<::osg::NodePtr>;
using geometry_ref = ::osg::RefPtr<::osg::GeometryPtr>;
using node_list = std::vector<::osg::NodePtr>;

/// A geometry as plain lists. Without indices vertices take the rows in running order; with
/// indices and no mapping one index serves all lists; with a mapping of k entries there are k
/// indices per vertex.
struct mesh_data {
    std::vector<std::pair<unsigned, unsigned>> primitives; ///< OpenGL mode, vertices
    std::vector<::osg::Pnt3f> positions;
    std::vector<::osg::Vec3f> normals;
    std::vector<::osg::Color3f> colors;
    std::vector<::osg::Color3f> secondary;
    std::vector<::osg::Vec2f> coordinates; ///< texture slot 0
    std::vector<float> ids;                ///< texture slot 7, one component
    std::vector<::osg::UInt32> indices;
    std::vector<::osg::UInt16> mapping;
};

/// `count` independent triangles with corners on a coarse grid, so that corners coincide often;
/// about one in eight is degenerate.
mesh_data soup(std::mt19937& rng, std::size_t count);
/// `count` unit squares in a row along x, in the plane z = 0, as quads.
mesh_data quads(std::size_t count);
/// `vertices` of a band along x, in the plane z = 0; a triangle strip, or with `mode` 8 a strip of
/// quads.
mesh_data strip(std::size_t vertices, unsigned mode = 5);
/// `vertices` around a centre; a triangle fan, or with `mode` 9 a polygon.
mesh_data fan(std::size_t vertices, unsigned mode = 6);
/// `vertices` along x, with `mode` 0 points, 1 lines, 2 a loop, 3 a line strip.
mesh_data row(std::size_t vertices, unsigned mode);
/// The unit cube: 8 positions, 6 normals, 36 vertices with an index for each of the two.
mesh_data cube();
/// Random primitives of all ten modes, in one geometry.
mesh_data mixture(std::mt19937& rng, std::size_t primitives);

/// Attributes with few different values each, one per position.
mesh_data withNormals(mesh_data mesh, std::mt19937& rng);
mesh_data withColors(mesh_data mesh, std::mt19937& rng);
mesh_data withCoordinates(mesh_data mesh, std::mt19937& rng);
/// One ID for each run of `run` positions, from 0 on.
mesh_data withIds(mesh_data mesh, std::size_t run = 3);
/// All four.
mesh_data withAttributes(mesh_data mesh, std::mt19937& rng);

/// Vertices that the primitives claim.
std::size_t vertexCount(const mesh_data& mesh);
/// The same mesh with one random index per vertex; the rows stay.
mesh_data withIndex(mesh_data mesh, std::mt19937& rng);
/// The same mesh with a random index of its own for each property that it has.
mesh_data withIndexPerProperty(mesh_data mesh, std::mt19937& rng);

/// A core with these lists in the forms that the library makes itself.
::osg::GeometryPtr geometryOf(const mesh_data& mesh,
                              const ::osg::MaterialPtr& material = ::osg::NullFC);
/// A triangle run with all twelve properties, each of `count` zeros, but for the one with the map
/// bit `other`, which has `other_count`.
::osg::GeometryPtr everyProperty(unsigned count, unsigned other = 0, unsigned other_count = 0);
/// A property with these values.
template <typename Form, typename Value>
typename Form::PtrType propertyOf(const std::vector<Value>& values) {
    const typename Form::PtrType property = Form::create();
    for (const Value& value : values)
        property->editField().push_back(value);
    return property;
}
/// A property of another form with the same values; null stays null.
template <typename Other, typename Role> Role inOtherForm(const Role& usual) {
    if (usual == ::osg::NullFC)
        return usual;
    const auto other = Other::create();
    for (::osg::UInt32 i = 0; i < usual->size(); ++i)
        other->addValue(usual->getValue(i));
    return other;
}
/// Replaces each property that there is by one of another form with the same values.
void storeOtherwise(const ::osg::GeometryPtr& geometry);
/// A node with a mesh as its core.
::osg::NodePtr meshNode(const mesh_data& mesh, const ::osg::MaterialPtr& material = ::osg::NullFC);
::osg::NodePtr nodeOf(const ::osg::NodeCorePtr& core, const node_list& children = {});

::osg::NodePtr group(const node_list& children = {});
::osg::NodePtr moved(const ::osg::Vec3f& by, const node_list& children);
::osg::NodePtr transformed(const ::osg::Matrix& matrix, const node_list& children);
::osg::NodePtr switched(int choice, const node_list& children);
/// A level-of-detail node with ranges 10, 20, ...
::osg::NodePtr detailed(const node_list& children);
::osg::NodePtr materialGroup(const ::osg::MaterialPtr& material, const node_list& children);
/// The same node, named.
::osg::NodePtr named(const std::string& name, const ::osg::NodePtr& node);
/// The same node with a traversal mask of 0.
::osg::NodePtr hidden(const ::osg::NodePtr& node);

using material_map = std::map<std::string, ::osg::MaterialPtr>;

/// A tree of named nodes from text: "r(a !b ?1s(c d))" is a group of two meshes and a switch.
///
/// A name alone is a mesh, one with brackets a group of what stands in them. Marks in front of it
/// make it something else: "!" hidden, "#" a mesh with children, "." no core, "~" moved by 1 in x,
/// "?2" a switch with that choice, "%" a level of detail, "$" a material group.
/// materials  by name, of meshes and material groups
::osg::NodePtr sceneOf(const std::string& text, const material_map& materials = {});
/// The names of a tree in the same form, without marks; "-" for a nameless node.
std::string textOf(const ::osg::NodePtr& node);
/// The first node of that name, parents first; null if there is none.
::osg::NodePtr nodeNamed(const ::osg::NodePtr& root, const std::string& name);

::osg::SimpleMaterialPtr simple(const ::osg::Color3f& diffuse);
/// A material chunk, and a texture chunk behind it if there is an image.
::osg::ChunkMaterialPtr chunked(const ::osg::Color4f& diffuse,
                                const ::osg::ImagePtr& image = ::osg::NullFC);
/// A material without any chunk, for tests that add their own.
::osg::ChunkMaterialPtr bareMaterial();
/// A cube texture and nothing else.
::osg::ChunkMaterialPtr cubeTextured();
::osg::SwitchMaterialPtr choiceOf(::osg::UInt32 choice,
                                  const std::vector<::osg::MaterialPtr>& materials);
/// `format` as in ::osg::Image, bytes per pixel 1 to 4; every byte is `value`.
::osg::ImagePtr imageOf(::osg::UInt32 format, int width, int height, std::uint8_t value = 255);

/// The geometry core of a node, or null.
::osg::GeometryPtr coreOf(const ::osg::NodePtr& node);
/// All nodes with a geometry core below a node, itself included, parents first.
node_list geometryNodes(const ::osg::NodePtr& root);
/// Names of nodes in order, "" for a nameless or null one.
std::vector<std::string> namesOf(const node_list& nodes);

} // namespace morva_test
