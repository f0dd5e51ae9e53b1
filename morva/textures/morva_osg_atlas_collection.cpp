#include <morva/textures/morva_osg_atlas_collection.h>

#include <algorithm>

#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/textures/morva_osg_scene_atlas.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace morva::osg {

image_numbers::image_numbers(atlas_sources& sources, const std::vector<ImageData>& images)
    : sources_(sources), finder_(sources.equality()) {
    for (std::size_t i = 0; i < images.size(); ++i)
        finder_.enter(static_cast<std::uint32_t>(i), sources.of(images[i]));
}

std::uint32_t image_numbers::of(const ::osg::ImagePtr& image) {
    if (image == ::osg::NullFC)
        return no_image;
    const auto [known, is_new] = known_.try_emplace(image.getFieldContainerId(), no_image);
    if (is_new && sources_.of(image).pixels != nullptr)
        known->second = finder_.find(sources_.of(image));
    return known->second;
}

void image_collection::add(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    const ::osg::ImagePtr image = getImage(node);
    if (geometry == ::osg::NullFC || image == ::osg::NullFC || sources_.of(image).pixels == nullptr)
        return;
    float u = 0, v = 0;
    hasTexCoordsGreater1(geometry->getTexCoords(), u, v, false);
    const std::uint32_t number = of(image);
    ImageData& record = growing_[number != no_image ? number : append(image)];
    record.maxTexCoordU = u > record.maxTexCoordU ? u : record.maxTexCoordU;
    record.maxTexCoordV = v > record.maxTexCoordV ? v : record.maxTexCoordV;
}

/// Without coordinates yet.
std::uint32_t image_collection::append(const ::osg::ImagePtr& image) {
    const atlas_source& source = sources_.of(image);
    const auto number = static_cast<std::uint32_t>(growing_.size());
    growing_.push_back(entryOf(source));
    finder_.enter(number, source);
    known_[image.getFieldContainerId()] = number;
    return number;
}

void collectImageData(const std::vector<::osg::NodePtr>& nodes, std::vector<ImageData>& images) {
    atlas_sources sources(image_equality::first_bytes, other_formats::as_copies);
    image_collection collection(sources, images);
    for (const ::osg::NodePtr& node : nodes)
        collection.add(node);
}

void collectImageData(::osg::NodePtr root, std::vector<ImageData>& images) {
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(root, nodes, false);
    collectImageData(nodes, images);
}

} // namespace morva::osg
