#pragma once

// What the geosets have in common: flat elements of a fixed number of vertices, held unindexed in
// the fields of one private geometry, one primitive over all of them.
//
//     source geometry --element_intake--> fields of the private geometry --setup()--> elements
//
// One owner at a time.

#include <cstddef>
#include <cstdint>
#include <string>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_math.h>
#include <morva/geosets/morva_osg_geoset_fields.h>

namespace morva::osg {

/// Makes the one primitive of a core, of `type` and empty, if there is none.
void makePrimitive(const ::osg::GeoPTypesPtr& types, const ::osg::GeoPLengthsPtr& lengths,
                   ::osg::UInt8 type);

/// Counts `more` vertices in the one primitive. Cannot fail.
void countVertices(const ::osg::GeoPLengthsPtr& lengths, std::uint64_t more);

/// Makes the length of a core's one primitive that of the vertices in use. Extraction counts what
/// sources claim by their lengths, which may be more than it kept, or less; so this comes before
/// anything walks the core. What is not one unindexed run stays, and so does a null core.
void settleLength(const ::osg::GeometryPtr& core, std::uint64_t vertices);

/// Name under which the ID map knows a node: its own, or else its core's unless that is empty. Null
/// for none.
const ::osg::Char8* mapName(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry);

/// Enters a node in the ID map with its box, in the world or its own, and returns its ID.
int enterInMap(const ::osg::NodePtr& node, const std::string& name, bool to_world);

/// The ID of a node's vertices: 0 when none is wanted or registration is off. A node without a
/// name gets none: one line on standard output, and `write_ids` becomes false.
int vertexId(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry, bool to_world,
             bool& write_ids);

/// Gives the geoset's core a material if it has none: the source's own, or with `search` that of
/// the outermost material group above the node.
void adoptMaterial(const ::osg::GeometryPtr& target, const ::osg::NodePtr& node,
                   const ::osg::GeometryPtr& source, bool search);

/// Box of the first `vertices` positions, by strict comparisons from vertex 0 on; flat axes stay
/// flat. Zero without any, and for a null geometry.
float_box boxOfVertices(const ::osg::GeometryPtr& geometry, std::size_t vertices);

/// Resizes the fields of a geoset to `rows` rows, and returns true. If that fails the old length
/// comes back, as far as possible, and the geoset never resizes again: false from then on. Each
/// failure is a line on standard output.
///
/// corners  vertices of an element
/// failed   resize_failed of the geoset
bool resizeOrMark(geoset_fields& fields, unsigned int corners, std::size_t rows, bool& failed);

/// Back to a geoset without elements and with a fresh core; `vertex_capacity` is then 500000.
template <typename Geoset> void clearElements(Geoset& geoset) {
    geoset.names.clear();
    geoset.geometry = ::osg::Geometry::create();
    geoset.size = 0;
    geoset.wished_size = 0;
    geoset.resize_failed = false;
    geoset.vertex_capacity = 500000;
    geoset.vertex_count = 0;
}

} // namespace morva::osg
