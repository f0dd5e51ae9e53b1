#pragma once

// The scene as a viewer walks it: hidden subtrees are passed over, switches show their choice,
// levels of detail their first child. Statistics count and writers write what this walk meets.

#include <cstdint>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>

namespace morva::host {

/// A node that draws, with the material that holds there.
struct drawn_node {
    ::osg::NodePtr node;
    ::osg::GeometryPtr core;
    ::osg::MaterialPtr material; ///< may be null
};

/// The nodes that draw, in walk order; none for a hidden root.
std::vector<drawn_node> drawnNodes(const ::osg::NodePtr& root);

/// The children that a viewer goes on to, hidden ones left out.
std::vector<::osg::NodePtr> shownChildren(const ::osg::NodePtr& node);

/// The materials of the nodes that draw, null ones left out.
std::vector<::osg::MaterialPtr> materialsOf(const ::osg::NodePtr& root);

/// The nodes of a tree with a geometry core, shown or not, in walk order.
std::vector<::osg::NodePtr> geometryNodes(const ::osg::NodePtr& root);

/// Whether the mask of a node or of one above it is 0.
bool isHidden(::osg::NodePtr node);

/// Number of all nodes of a tree, shown or not, the root included.
std::uint64_t countNodes(const ::osg::NodePtr& root);

/// Writes the matrix of a placing core to `matrix`. Returns false, and leaves it, for any other
/// core, for an identity and for a matrix that is not finite.
bool placementOf(const ::osg::NodePtr& node, ::osg::Matrix& matrix);

/// A switch material's present choice, or the material itself.
::osg::MaterialPtr chosenMaterial(const ::osg::MaterialPtr& material);

/// The images that a material uses, in chunk order.
std::vector<::osg::ImagePtr> imagesOf(const ::osg::MaterialPtr& material);

/// What an image is called: by its field, or by the attachment that readers give it. "*3" is the
/// one of that number within a model file; empty without a name.
std::string nameOf(const ::osg::ImagePtr& image);

} // namespace morva::host
