#pragma once

// Questions about nodes and materials, and lists of nodes. Nothing here changes a scene; passes
// that edit walk these lists afterwards.
//
// A geometry's material is its own, or else that of the OUTERMOST material group above it.
//
//     getGeometryNodes()     what a merge takes: plain nodes, then those under switches and
//                            levels of detail, then transparent ones
//     getSkippedNodes()      what must be left alone
//     getTravMaskZeroNodes() what is hidden
//
// All read the calling thread's aspect and take no lock. Walks are recursive over the children.
// Null nodes are accepted unless told otherwise.

#include <list>
#include <map>
#include <string>
#include <vector>

#include <OpenSG/OSGColor.h>
#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Nodes of the subtree, the root included; a null node counts as 1.
MORVA_API unsigned int getNodeCount(::osg::NodePtr node);

/// Appends every node whose core is exactly a Geometry, parents before children. `node` must not
/// be null.
MORVA_API void collect_geo_nodes(::osg::NodePtr node, std::list<::osg::NodePtr>& nodes);

/// The outermost ancestor whose core is a MaterialGroup, or null. The node itself does not count.
MORVA_API ::osg::NodePtr searchMaterialGroup(const ::osg::NodePtr& node);

/// The material that a geometry node shows; null for none and for other nodes.
MORVA_API ::osg::MaterialPtr getMaterial(::osg::NodePtr node);

/// Writes a material's colours, and returns whether it did; otherwise all stay as they were.
///
/// A switch material stands for its choice. Of a chunk material the first MaterialChunk counts; a
/// SimpleMaterial without one gives its own colours with alpha 1.
/// prints  "False SwitchMatChoice" for a negative choice
MORVA_API bool getColor(::osg::MaterialPtr material, ::osg::Color4f& diffuse,
                        ::osg::Color4f& specular, ::osg::Color4f& ambient, ::osg::Color4f& emission,
                        float& shininess);
/// The same for the back side; only a MaterialChunk has one.
MORVA_API bool getBackColor(::osg::MaterialPtr material, ::osg::Color4f& diffuse,
                            ::osg::Color4f& specular, ::osg::Color4f& ambient,
                            ::osg::Color4f& emission, float& shininess);
/// Of a node's material; false without one.
MORVA_API bool getColor(::osg::NodePtr node, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
                        ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess);
MORVA_API bool getBackColor(::osg::NodePtr node, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
                            ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess);

/// The image that a material shows: that of a SimpleTexturedMaterial, or of a chunk material's
/// last TextureChunk. Null for none and for one without width or height.
///
/// hasTransparentPixels  set if an RGBA image has an alpha below 255; never cleared
/// blendsWithEnv         set if the texture is blended with the colour; never cleared
MORVA_API ::osg::ImagePtr getImage(::osg::MaterialPtr material, bool& hasTransparentPixels,
                                   bool& blendsWithEnv);
/// Of a node's material; clears both flags first.
MORVA_API ::osg::ImagePtr getImage(::osg::NodePtr node, bool& hasTransparentPixels,
                                   bool& blendsWithEnv);
MORVA_API ::osg::ImagePtr getImage(::osg::NodePtr node);

/// Whether the last MaterialChunk of the node's chunk material has a diffuse alpha other than
/// exactly 1; a NaN is other.
MORVA_API bool hasMaterialAlpha(::osg::NodePtr node);

/// Whether the optimiser must leave a geometry node alone: traversal mask 0, a switch material or
/// a cube map.
MORVA_API bool shouldSkipNode(::osg::NodePtr& node);
/// How many nodes of the subtree shouldSkipNode() holds for.
MORVA_API unsigned int cntShouldSkipNodes(::osg::NodePtr node);

/// Appends the geometry nodes that are hidden, by their own or an ancestor's mask of 0; `hidden`
/// is false for the top-level call.
MORVA_API void getTravMaskZeroNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes,
                                    bool hidden);
/// Appends the topmost nodes that must be left alone.
MORVA_API void getSkippedNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes);
/// Appends the topmost geometry nodes. A null node or one without a core adds nothing.
MORVA_API void collectsubTree(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes);

/// Sorts the geometry nodes that are neither hidden nor to be left alone: those under switches
/// and levels of detail, those with transparent pixels or material, and the rest.
MORVA_API void getGeometryNodesForTree(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                                       std::vector<::osg::NodePtr>& switches,
                                       std::vector<::osg::NodePtr>& transparent);

/// Appends plain nodes, those under switches too if `withSwitches`, and transparent ones apart.
///
/// A node that is a geometry itself stays untouched: the lists then hold a stand-in with the same
/// core, a child of a group. Stand-ins stay valid while another node shows the core, and for good
/// once moved to another parent; later calls drop the rest.
/// returns  how many nodes stand under switches and levels of detail
MORVA_API unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                                        std::vector<::osg::NodePtr>& transparent,
                                        bool withSwitches);
/// The same into one list: plain, then under switches, then transparent.
///
/// returns  the size of the list ahead of the transparent ones
MORVA_API unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes,
                                        bool withSwitches);

/// Enters every named node of the subtree under its name, in walk order.
MORVA_API void CollectNodeNames(::osg::NodePtr node,
                                std::map<std::string, std::vector<::osg::NodePtr>>& names);

/// Extent of the node's volume, brought up to date, in x, y and z. `node` must not be null.
MORVA_API float ModelWidth(const ::osg::NodePtr& node);
MORVA_API float ModelHeight(const ::osg::NodePtr& node);
MORVA_API float ModelLength(const ::osg::NodePtr& node);

} // namespace morva::osg
