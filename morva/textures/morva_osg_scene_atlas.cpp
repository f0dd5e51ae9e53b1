// The texture stage: from the geometry of a scene to atlases.

#include <morva/textures/morva_osg_scene_atlas.h>

#include <algorithm>
#include <string>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/textures/morva_osg_atlas_building.h>
#include <morva/textures/morva_osg_atlas_collection.h>
#include <morva/textures/morva_osg_atlas_nodes.h>
#include <morva/textures/morva_osg_atlas_sources.h>
#include <morva/textures/morva_osg_texcoord_form.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace morva::osg {

namespace {

constexpr unsigned int least_side = 32, usual_side = 8192;
constexpr unsigned int most_padding = 64;

/// Opaque geometry or transparent one, on its way into atlases.
struct atlas_list {
    std::vector<::osg::NodePtr> nodes;
    std::vector<ImageData> images;
    bool colored = false; ///< some of it has vertex colours
};

atlas_options checked(atlas_options options) {
    if (options.textureSize < least_side || options.textureSize > usual_side) {
        say({"createTextureAtlasForScene: Texture Size must between 32x32 and 8192x8192."});
        options.textureSize = usual_side;
    }
    options.padding = std::min(options.padding, most_padding);
    return options;
}

void sayCollected(const atlas_list& list, const char* kind) {
    say({std::to_string(list.images.size()), " ", kind, " images collected for texture atlas."});
}

void sayPlaced(unsigned int placed, const char* kind) {
    say({std::to_string(placed), " ", kind, " images processed."});
}

/// One call of createTextureAtlas().
class scene_atlas {
  public:
    scene_atlas(const atlas_options& options, atlas_record& record)
        : options_(options), record_(record),
          sources_(options.exact ? image_equality::whole : image_equality::first_bytes) {}

    unsigned int run(const ::osg::NodePtr& root) {
        const walk_start start(root); // a root's stand-in goes with it
        alpha_scans scans;
        getGeometryNodes(start.get(), solid_.nodes, transparent_.nodes, false, scans);
        keepAtlasNodes(solid_.nodes, options_, false, sources_, record_);
        keepAtlasNodes(transparent_.nodes, options_, true, sources_, record_);
        for (atlas_list* list : {&solid_, &transparent_})
            list->colored = hasVertexColors(list->nodes);
        if (geometryOf(root) == ::osg::NullFC) { // else the list has a stand-in with its core
            flatten(solid_);
            flatten(transparent_);
        }
        collect(solid_);
        collect(transparent_);
        sayCollected(solid_, "solid");
        sayCollected(transparent_, "transparent");
        const unsigned int placed_solid = build(solid_, false);
        const unsigned int placed_transparent = build(transparent_, true);
        sayPlaced(placed_solid, "solid");
        sayPlaced(placed_transparent, "transparent");
        return placed_solid + placed_transparent;
    }

  private:
    void flatten(atlas_list& list) const {
        const auto max = static_cast<int>(options_.optimizetc);
        for (::osg::NodePtr& node : list.nodes) {
            if (!options_.exact || !takesCoordinatesOfOthers(node))
                optimizeTexCoords(node, max, usual_cut_limit);
        }
    }

    /// Without an image the old core loses its coordinates, too: another node may show one with it.
    static bool takesCoordinatesOfOthers(const ::osg::NodePtr& node) {
        return node->getCore()->getParents().size() > 1 && getImage(node) == ::osg::NullFC;
    }

    void collect(atlas_list& list) {
        image_collection collection(sources_, list.images);
        for (const ::osg::NodePtr& node : list.nodes)
            collection.add(node);
    }

    unsigned int build(atlas_list& list, bool transparent) {
        atlas_form form = formFor(options_.textureSize, transparent, list.colored);
        form.exact = options_.exact;
        form.padding = options_.padding;
        return buildAtlases(list.nodes, list.images, form, sources_, record_);
    }

    const atlas_options options_;
    atlas_record& record_;
    atlas_sources sources_;
    atlas_list solid_, transparent_;
};

} // namespace

unsigned int createTextureAtlas(::osg::NodePtr root, const atlas_options& options,
                                atlas_record& record) {
    record = {};
    if (root == ::osg::NullFC)
        return 0;
    return scene_atlas(checked(options), record).run(root);
}

unsigned int createTextureAtlasForScene(::osg::NodePtr root, unsigned int textureSize,
                                        unsigned int texcoords, unsigned int optimizetc) {
    atlas_options options;
    options.textureSize = textureSize;
    options.texcoords = texcoords;
    options.optimizetc = optimizetc;
    atlas_record record;
    return createTextureAtlas(root, options, record);
}

} // namespace morva::osg
