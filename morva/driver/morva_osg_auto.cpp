#include <morva/driver/morva_osg_auto.h>

#include <algorithm>
#include <vector>

#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/driver/morva_osg_help.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/textures/morva_osg_atlas_collection.h>
#include <morva/textures/morva_osg_scene_atlas.h>

namespace morva::osg {

namespace {

/// Side of the atlases, and the highest coordinates in them.
constexpr unsigned int atlas_side = 4096, atlas_limit = 2;

constexpr kd_build_setup treeSetup(unsigned int triangles) {
    return {triangles, 100, 3, 1.0F, 2.0F, 0.95F, false};
}

std::size_t countHidden(const ::osg::NodePtr& node) {
    std::size_t count = geometryOf(node) != ::osg::NullFC && node->getTravMask() == 0 ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += countHidden(node->getChild(i));
    return count;
}

/// Whether some node shows an image that collectImageData() would list; none is copied for it.
bool showImages(const std::vector<::osg::NodePtr>& nodes) {
    atlas_sources sources(image_equality::first_bytes);
    std::vector<ImageData> images;
    image_collection collection(sources, images);
    return std::any_of(nodes.begin(), nodes.end(), [&](const ::osg::NodePtr& node) {
        collection.add(node);
        return !images.empty();
    });
}

} // namespace

auto_record autoRoadOf(const ::osg::NodePtr& root) {
    auto_record record;
    if (root == ::osg::NullFC)
        return record;
    const walk_start start(root);
    std::vector<::osg::NodePtr> nodes;
    std::vector<::osg::NodePtr> transparent;
    record.below_switches = getGeometryNodes(start.get(), nodes, transparent, false);
    record.has_images = showImages(nodes) || showImages(transparent);
    record.hidden = countHidden(root);
    record.left_alone = cntShouldSkipNodes(root) - record.hidden;
    record.with_skipped = record.hidden + record.left_alone > 0;
    return record;
}

void sayHelp() {
    std::string text = optTreeDoc();
    text.pop_back(); // its last line end comes anew
    say({"Available parameters are: "});
    say({text}, flush::no);
}

::osg::NodePtr optTreeAuto(::osg::NodePtr root) {
    auto_record record;
    return optTreeAuto(root, {}, record);
}

::osg::NodePtr optTreeAuto(::osg::NodePtr root, const auto_options& options, auto_record& record) {
    say({"Optimization called withoud parameters. Automated optimization started."});
    sayHelp();
    record = autoRoadOf(root);
    const kd_build_setup kd = treeSetup(25000);
    mergeGeo_setup setup;
    setup.silent = true;
    setup.cacheopt = true;
    setup.numthreads = options.numthreads;
    if (record.with_skipped) {
        say({"Optimizing: Some Nodes are skipped."});
        return optWithSkippedGeo(root, setup, kd, false, false, options, record);
    }
    if (record.has_images) {
        atlas_options atlas;
        atlas.textureSize = atlas_side;
        atlas.texcoords = atlas.optimizetc = atlas_limit;
        atlas.exact = options.exactatlas;
        atlas.padding = options.atlaspadding;
        createTextureAtlas(root, atlas, record.atlas);
        setup.texcoords = setup.optimizetc = -1; // coordinates lead into an atlas now
    }
    return mergeGeo(root, kd, setup);
}

::osg::NodePtr optGeometry(::osg::GeometryPtr geometry, unsigned int limit, int opt) {
    if (geometry == ::osg::NullFC)
        return newGroupNode();
    // The node goes again, and with it a core that nobody else holds: such a one is not used.
    const bool is_held = geometry.getRefCount() > 0;
    const fresh<::osg::NodePtr> node(newNodeWith(is_held ? geometry : copyOfCore(geometry)));
    mergeGeo_setup setup;
    setup.opt = opt;
    setup.silent = true;
    return mergeGeo(node.get(), treeSetup(limit), setup);
}

unsigned int calcTrisPerGeometrycore(unsigned int triangles) {
    constexpr unsigned int smallest = 10000, largest = 25000;
    if (triangles <= 100000)
        return smallest;
    if (triangles > 999999)
        return largest;
    const float share = static_cast<float>(triangles) / 1000000.0F;
    return static_cast<unsigned int>(share * 15000.0F) + smallest;
}

} // namespace morva::osg
