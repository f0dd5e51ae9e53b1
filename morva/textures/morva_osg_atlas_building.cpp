#include <morva/textures/morva_osg_atlas_building.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>
#include <morva/textures/morva_osg_atlas_collection.h>
#include <morva/textures/morva_osg_atlas_materials.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_placed_record.h>
#include <morva/textures/morva_osg_scene_atlas.h>

namespace morva::osg {

namespace {

/// An atlas with its images in it.
struct drawn_atlas {
    FixedTextureAtlas atlas;
    std::vector<std::size_t> placed; ///< numbers of its images
    std::uint32_t kept_width = 0;    ///< sides of the kept part, of which `atlas` is told when
    std::uint32_t kept_height = 0;   ///< its first geometry is there
    material_copies copies;          ///< of the materials of its geometry, if they stay
};

/// A geometry on its way to an atlas.
struct atlas_user {
    ::osg::NodePtr node;
    std::uint32_t image = no_image; ///< number in the list
    std::size_t atlas = 0;
};

/// The core of a node, which no other node has: a copy where others have it, too.
::osg::GeometryPtr ownCoreOf(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = geometryOf(node);
    if (core->getParents().size() <= 1)
        return core;
    fresh<::osg::GeometryPtr> copy(copyOfCore(core));
    copy->setMaterial(core->getMaterial());
    reportWhole(copy.get());
    giveCore(node, copy.get());
    return copy.release();
}

using node_numbers = std::unordered_set<::osg::UInt32>;

/// Gives the geometry below a node that has no material the one that it shows, but for nodes that
/// are `left`.
void settleMaterials(const ::osg::NodePtr& node, const node_numbers& left, settled_cores& settled) {
    if (geometryOf(node) != ::osg::NullFC && left.count(node.getFieldContainerId()) == 0) {
        const ::osg::RefPtr<::osg::NodeCorePtr> core(settled.coreFor(node));
        if (core.get() != node->getCore())
            giveCore(node, core.get());
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        settleMaterials(node->getChild(i), left, settled);
}

/// Makes the material group above a node a plain group; false if there is none.
///
/// left        nodes that are not settled
/// keep_empty  one without a material stays: it hides those of the groups below it
bool dropMaterialGroup(const ::osg::NodePtr& node, const node_numbers& left, bool keep_empty) {
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group == ::osg::NullFC)
        return false;
    const auto core = ::osg::MaterialGroupPtr::dcast(group->getCore());
    if (keep_empty && core->getMaterial() == ::osg::NullFC)
        return false;
    settled_cores settled;
    settleMaterials(group, left, settled);
    giveCore(group, ::osg::Group::create());
    return true;
}

/// Moves geometry from its images to the atlases.
class texture_replacement {
  public:
    /// nodes  that it will be asked for
    texture_replacement(const std::vector<::osg::NodePtr>& nodes, image_numbers& numbers,
                        const std::vector<ImageData>& images, bool exact)
        : numbers_(numbers), images_(images), exact_(exact) {
        for (const ::osg::NodePtr& node : nodes) {
            if (!exact && node != ::osg::NullFC)
                left_.insert(node.getFieldContainerId());
        }
    }

    /// Geometry gets copies of its own materials.
    bool keepsMaterials() const { return exact_; }

    /// What a node shows now, if that is in one of the atlases. Each node is taken once.
    std::optional<atlas_user> userOf(const ::osg::NodePtr& node, std::size_t atlases) {
        if (geometryOf(node) == ::osg::NullFC || seen_.count(node.getFieldContainerId()) != 0)
            return std::nullopt;
        const ::osg::ImagePtr picture = getImage(node);
        const std::uint32_t number = numbers_.of(picture);
        if (number >= images_.size() || images_[number].atlasIndex < 0 ||
            static_cast<std::size_t>(images_[number].atlasIndex) >= atlases)
            return std::nullopt;
        seen_.insert(node.getFieldContainerId());
        held_.emplace_back(picture); // images are compared until all nodes are through
        return atlas_user{node, number, static_cast<std::size_t>(images_[number].atlasIndex)};
    }

    /// drawn  the same atlas, or null for one that finds out by itself what is kept of it
    void replace(const atlas_user& user, FixedTextureAtlas& atlas, const drawn_atlas* drawn) {
        const ::osg::NodePtr& node = user.node;
        const ImageData& image = images_[user.image];
        const ::osg::GeometryPtr geometry = ownCoreOf(node);
        // Whoever comes first finds the sides of a new atlas: its material tells the kept ones.
        const std::uint32_t width = atlas.usedWidth, height = atlas.usedHeight;
        const ::osg::MaterialPtr material =
            exact_ ? drawn->copies.of(getMaterial(node)) : atlas.getMinifiedMaterial();
        if (drawn != nullptr) {
            atlas.usedWidth = drawn->kept_width;
            atlas.usedHeight = drawn->kept_height;
        }
        adjustTexCoords(geometry, width, height, image.width, image.height,
                        static_cast<unsigned int>(image.x), static_cast<unsigned int>(image.y));
        giveMaterial(geometry, material);
        while (dropMaterialGroup(node, left_, exact_) && exact_) {
        }
    }

  private:
    image_numbers& numbers_;
    const std::vector<ImageData>& images_;
    bool exact_;
    node_numbers seen_;
    node_numbers left_; ///< their own turn decides what they show
    std::vector<::osg::RefPtr<::osg::ImagePtr>> held_;
};

void giveUp(std::vector<ImageData>& images, const drawn_atlas& target) {
    for (const std::size_t number : target.placed) {
        ImageData& image = images[number];
        image.inAtlas = false;
        image.x = image.y = image.atlasIndex = -1;
    }
}

/// Places and draws the images.
///
/// no_memory  out: an atlas was given up
std::vector<drawn_atlas> drawAtlases(std::vector<ImageData>& images, const atlas_form& form,
                                     const atlas_sources& sources, bool& no_memory) {
    std::vector<drawn_atlas> atlases;
    std::size_t total = 0;
    while (total < images.size()) {
        drawn_atlas next;
        next.atlas = emptyAtlas(form, static_cast<std::uint32_t>(atlases.size()));
        next.placed = placeImages(images, next.atlas, form.padding);
        if (next.placed.empty())
            break;
        if (!makeKeptPart(next.atlas, form, images, next.placed, sources)) {
            giveUp(images, next);
            no_memory = true;
            break;
        }
        total += next.placed.size();
        next.kept_width = next.atlas.usedWidth;
        next.kept_height = next.atlas.usedHeight;
        if (!form.exact)
            next.atlas.usedWidth = next.atlas.usedHeight = form.rounded_side;
        atlases.push_back(std::move(next));
    }
    return atlases;
}

/// Writes down what became of a list of images.
class atlas_report {
  public:
    atlas_report(const std::vector<ImageData>& images, const atlas_form& form,
                 image_numbers& numbers, atlas_record& record)
        : images_(images), form_(form), numbers_(numbers), record_(record) {}

    /// Before anything is replaced: nodes show their own images.
    void noteNodes(const std::vector<::osg::NodePtr>& nodes, bool no_memory) {
        for (const ::osg::NodePtr& node : nodes) {
            const ::osg::ImagePtr picture = getImage(node);
            const std::uint32_t number = numbers_.of(picture);
            if (number == no_image)
                continue;
            pictures_.emplace(number, picture);
            if (!images_[number].inAtlas)
                record_.leaveOut(picture, obstacleOf(images_[number], no_memory));
        }
    }

    void noteAtlas(const drawn_atlas& target) {
        recorded_atlas entry;
        entry.image = target.atlas.minifiedImage;
        entry.width = target.kept_width;
        entry.height = target.kept_height;
        entry.transparent = form_.transparent;
        double filled = 0;
        for (const std::size_t number : target.placed) {
            filled += recordPlaced(images_[number], pictures_[static_cast<std::uint32_t>(number)],
                                   form_.padding, entry);
        }
        recordFilled(std::move(entry), filled, record_);
    }

  private:
    atlas_obstacle obstacleOf(const ImageData& image, bool no_memory) const {
        if (images_.size() < 2)
            return atlas_obstacle::only_image;
        const image_footprint room = footprintOf(image, form_.padding);
        if (room.width == 0 || room.height == 0)
            return atlas_obstacle::no_area;
        const auto side = static_cast<std::int32_t>(form_.side);
        return no_memory && room.width <= side && room.height <= side
                   ? atlas_obstacle::no_memory
                   : atlas_obstacle::larger_than_atlas;
    }

    const std::vector<ImageData>& images_;
    const atlas_form& form_;
    image_numbers& numbers_;
    std::unordered_map<std::uint32_t, ::osg::RefPtr<::osg::ImagePtr>> pictures_;
    atlas_record& record_;
};

/// Gives the nodes what they show of the atlases; how many do.
std::size_t replaceAll(const std::vector<::osg::NodePtr>& nodes, std::vector<drawn_atlas>& atlases,
                       texture_replacement replacement) {
    std::size_t replaced = 0;
    // Where materials stay, all that an atlas is shown in must be known before the first copy.
    std::vector<atlas_user> waiting;
    const auto replace = [&](const atlas_user& user) {
        drawn_atlas& target = atlases[user.atlas];
        replacement.replace(user, target.atlas, &target);
    };
    for (const ::osg::NodePtr& node : nodes) {
        const std::optional<atlas_user> user = replacement.userOf(node, atlases.size());
        if (!user)
            continue;
        ++replaced;
        if (replacement.keepsMaterials()) {
            atlases[user->atlas].copies.want(getMaterial(node));
            waiting.push_back(*user);
        } else {
            replace(*user);
        }
    }
    if (replacement.keepsMaterials()) {
        for (drawn_atlas& target : atlases)
            target.copies.make(target.atlas.minifiedImage.get());
    }
    for (const atlas_user& user : waiting)
        replace(user);
    return replaced;
}

} // namespace

unsigned int buildAtlases(const std::vector<::osg::NodePtr>& nodes, std::vector<ImageData>& images,
                          const atlas_form& form, atlas_sources& sources, atlas_record& record) {
    bool no_memory = false;
    std::vector<drawn_atlas> atlases;
    if (images.size() >= 2) {
        std::sort(images.begin(), images.end());
        std::reverse(images.begin(), images.end());
        atlases = drawAtlases(images, form, sources, no_memory);
    }
    image_numbers numbers(sources, images);
    atlas_report report(images, form, numbers, record);
    report.noteNodes(nodes, no_memory);
    unsigned int placed = 0;
    for (const drawn_atlas& target : atlases) {
        report.noteAtlas(target);
        placed += static_cast<unsigned int>(target.placed.size());
    }
    record.geometries += replaceAll(nodes, atlases, {nodes, numbers, images, form.exact});
    return placed;
}

unsigned int buildAtlases(const std::vector<::osg::NodePtr>& nodes, std::vector<ImageData>& images,
                          bool transparent, unsigned int textureSize, bool hasVertexColors) {
    atlas_sources sources(image_equality::first_bytes);
    atlas_record record;
    return buildAtlases(nodes, images, formFor(textureSize, transparent, hasVertexColors), sources,
                        record);
}

void replaceTexturesByTextureAtlas(const std::vector<::osg::NodePtr>& nodes,
                                   const std::vector<ImageData>& images,
                                   std::vector<FixedTextureAtlas>& atlases) {
    atlas_sources sources(image_equality::first_bytes);
    image_numbers numbers(sources, images);
    texture_replacement replacement(nodes, numbers, images, false);
    for (const ::osg::NodePtr& node : nodes) {
        if (const std::optional<atlas_user> user = replacement.userOf(node, atlases.size()))
            replacement.replace(*user, atlases[user->atlas], nullptr);
    }
}

} // namespace morva::osg
