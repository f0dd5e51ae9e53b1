// Images of a cell side by side, so that nothing looks different.

#include <morva/textures/morva_osg_cell_textures.h>

#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <numeric>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/textures/morva_osg_atlas_collection.h>
#include <morva/textures/morva_osg_atlas_materials.h>
#include <morva/textures/morva_osg_atlas_nodes.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_images.h>
#include <morva/textures/morva_osg_placed_record.h>
#include <morva/textures/morva_osg_scene_atlas.h>
#include <morva/textures/morva_osg_texcoord_form.h>
#include <morva/textures/morva_osg_texcoords.h>
#include <morva/textures/texturatlas_packing.h>

namespace morva::osg {

namespace {

constexpr std::int32_t longest_cell_side = 8192;
constexpr unsigned int most_cell_padding = 64;

/// An object that an atlas could show.
struct candidate {
    std::size_t object = 0;
    std::int64_t element = 0;
    ::osg::RefPtr<::osg::NodePtr> node;   ///< over the element's core
    ::osg::RefPtr<::osg::ImagePtr> image; ///< that it shows
};

::osg::Int32 powerFrom(std::int32_t side) {
    ::osg::Int32 power = 1;
    while (power < side)
        power *= 2;
    return power;
}

/// Which images an atlas takes, and where.
class exact_places {
  public:
    exact_places(std::vector<ImageData>& images, unsigned int padding)
        : images_(images), padding_(padding), order_(images.size()) {
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::stable_sort(order_.begin(), order_.end(),
                         [this](std::size_t a, std::size_t b) { return areaOf(a) < areaOf(b); });
    }

    /// Leaves out the largest ones until the others fit; each time twice as many, so that packing
    /// is not repeated for each. They get their places.
    void settle() {
        std::int64_t area = 0;
        for (const std::size_t number : order_)
            area += areaOf(number);
        while (!order_.empty() && (area > most_area || isTooLong(order_.back()))) {
            area -= areaOf(order_.back());
            order_.pop_back();
        }
        for (std::size_t fewer = 1; order_.size() > 1 && !fits(); fewer *= 2)
            order_.resize(order_.size() - std::min(fewer, order_.size() - 1));
        if (order_.size() < 2)
            return; // one alone gains nothing
        for (const std::size_t number : order_)
            place(images_[number]);
    }

    ::osg::Int32 width() const { return powerFrom(atlas_.width); }
    ::osg::Int32 height() const { return powerFrom(atlas_.height); }

  private:
    static constexpr std::int64_t most_area = std::int64_t{longest_cell_side} * longest_cell_side;

    std::int64_t areaOf(std::size_t number) const {
        const image_footprint room = footprintOf(images_[number], padding_);
        return std::int64_t{room.width} * room.height;
    }
    bool isTooLong(std::size_t number) const {
        const image_footprint room = footprintOf(images_[number], padding_);
        return std::max(room.width, room.height) > longest_cell_side;
    }

    bool fits() {
        atlas_ = texturatlas();
        std::vector<std::size_t> as_listed = order_;
        std::sort(as_listed.begin(), as_listed.end());
        for (const std::size_t number : as_listed)
            atlas_.items.push_back(sizeOf(images_[number]));
        atlas_.itemCount = atlas_.items.size();
        pack(atlas_, static_cast<unsigned int>(longest_cell_side), {true, padding_});
        return atlas_.width <= longest_cell_side && atlas_.height <= longest_cell_side;
    }

    static texturinfo sizeOf(const ImageData& image) {
        return {tiledWidth(image), tiledHeight(image)};
    }

    /// Takes the next place of its size out of the packing.
    void place(ImageData& image) {
        const auto found = atlas_.placed.find(sizeOf(image));
        if (found == atlas_.placed.end())
            return;
        image.x = found->second.width;
        image.y = found->second.height;
        image.inAtlas = true;
        atlas_.placed.erase(found);
    }

    std::vector<ImageData>& images_;
    unsigned int padding_;
    std::vector<std::size_t> order_; ///< images that are to be placed, the largest last
    texturatlas atlas_;
};

/// Opaque images of a cell, or transparent ones.
class exact_cell_atlas {
  public:
    exact_cell_atlas(const cell_run& run, bool transparent, unsigned int padding,
                     atlas_sources& sources, atlas_record& record)
        : run_(run), transparent_(transparent), padding_(padding), sources_(sources),
          record_(record) {}

    void add(const candidate& wanted) { candidates_.push_back(wanted); }

    void build(int optimizetc, cell_textures& result) {
        collect(optimizetc, result);
        exact_places places(images_, padding_);
        places.settle();
        const bool drawn = draw(places);
        image_numbers numbers(sources_, images_);
        pictures_.resize(images_.size());
        std::vector<const candidate*> placed;
        for (const candidate& each : candidates_) {
            const std::uint32_t number = numbers.of(each.image.get());
            if (pictures_[number] == ::osg::NullFC)
                pictures_[number] = each.image;
            if (images_[number].inAtlas && drawn)
                placed.push_back(&each);
            else
                leaveOut(each, obstacleOf(images_[number]), result);
        }
        if (placed.empty())
            return;
        recordCellAtlas(target_.get(), images_, pictures_, padding_, record_);
        record_.geometries += placed.size();
        replace(placed, numbers, result);
    }

  private:
    void leaveOut(const candidate& each, atlas_obstacle obstacle, cell_textures& result) {
        record_.leaveOut(each.image.get(), obstacle);
        result.plain.push_back(each.object);
    }

    atlas_obstacle obstacleOf(const ImageData& image) const {
        if (images_.size() < 2)
            return atlas_obstacle::only_image;
        return image.inAtlas ? atlas_obstacle::no_memory : atlas_obstacle::larger_than_atlas;
    }

    /// Brings coordinates into their normal form; what then has none above 0 stays out.
    void collect(int optimizetc, cell_textures& result) {
        image_collection collection(sources_, images_);
        std::vector<candidate> all;
        all.swap(candidates_);
        for (const candidate& each : all) {
            osg_geoset& geoset = run_.scene.geosets[each.element];
            optimizeTexCoords(geoset, optimizetc, usual_cut_limit);
            float u = 0, v = 0;
            hasTexCoordsGreater1(geoset.geometry->getTexCoords(), u, v, false);
            if (tileCount(u) == 0 || tileCount(v) == 0) {
                leaveOut(each, atlas_obstacle::no_area, result);
                continue;
            }
            collection.add(each.node.get());
            candidates_.push_back(each);
        }
    }

    /// False without memory.
    bool draw(const exact_places& places) {
        try {
            const open_edit edit(target_.get());
            if (std::none_of(images_.begin(), images_.end(),
                             [](const ImageData& image) { return image.inAtlas; }) ||
                !makeBlack(target_.get(), static_cast<std::uint32_t>(places.width()),
                           static_cast<std::uint32_t>(places.height()), transparent_))
                return false;
            const canvas whole = canvasOf(target_.get());
            for (const ImageData& image : images_) {
                const image_footprint room = footprintOf(image, padding_);
                if (image.inAtlas)
                    drawRepeated(
                        whole,
                        {image.x - room.inset, image.y - room.inset, room.width, room.height},
                        image, image.x, image.y, sources_.recipeOf(image));
            }
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    /// Moves coordinates, and sorts objects by the copies of their materials.
    void replace(const std::vector<const candidate*>& placed, image_numbers& numbers,
                 cell_textures& result) {
        const auto materialOf = [this](const candidate& each) {
            return run_.scene.geosets[each.element].geometry->getMaterial();
        };
        material_copies copies;
        for (const candidate* each : placed)
            copies.want(materialOf(*each));
        copies.make(target_.get());
        std::map<::osg::UInt32, std::size_t> group_of; // by the number of the copy
        for (const candidate* each : placed) {
            const ImageData& image = images_[numbers.of(each->image.get())];
            adjustTexCoords(run_.scene.geosets[each->element].geometry.get(),
                            static_cast<unsigned int>(target_->getWidth()),
                            static_cast<unsigned int>(target_->getHeight()), image.width,
                            image.height, static_cast<unsigned int>(image.x),
                            static_cast<unsigned int>(image.y));
            const ::osg::MaterialPtr copy = copies.of(materialOf(*each));
            const auto [group, is_new] =
                group_of.try_emplace(copy.getFieldContainerId(), result.textured.size());
            if (is_new)
                result.textured.push_back({::osg::RefPtr<::osg::MaterialPtr>(copy), {}});
            result.textured[group->second].objects.push_back(each->object);
        }
    }

    const cell_run& run_;
    bool transparent_;
    unsigned int padding_;
    atlas_sources& sources_;
    atlas_record& record_;
    std::vector<candidate> candidates_;
    std::vector<ImageData> images_;
    std::vector<::osg::RefPtr<::osg::ImagePtr>> pictures_; ///< that show `images_`, or null
    const ::osg::RefPtr<::osg::ImagePtr> target_{::osg::Image::create()};
};

} // namespace

cell_textures textureCellExactly(const cell_run& run, int optimizetc, unsigned int padding,
                                 atlas_record& record) {
    padding = std::min(padding, most_cell_padding);
    cell_textures result;
    atlas_sources sources(image_equality::whole);
    alpha_scans scans;
    exact_cell_atlas opaque(run, false, padding, sources, record);
    exact_cell_atlas transparent(run, true, padding, sources, record);
    for (std::size_t object = 0; object < run.count; ++object) {
        const std::int64_t element = run.element(object);
        const ::osg::MaterialPtr material =
            element < 0 ? ::osg::MaterialPtr() : run.scene.geosets[element].geometry->getMaterial();
        const ::osg::RefPtr<::osg::ImagePtr> image(imageOf(material));
        if (image == ::osg::NullFC) {
            result.plain.push_back(object);
            continue;
        }
        const ::osg::RefPtr<::osg::NodePtr> node(
            newNodeWith(run.scene.geosets[element].geometry.get()));
        const bool in_rgba = scans.isTransparent(image.get()) || hasMaterialAlpha(node.get());
        if (const auto obstacle = obstacleToExactness(node.get(), image.get(), in_rgba, sources)) {
            record.leaveOut(image.get(), *obstacle);
            result.plain.push_back(object);
            continue;
        }
        (in_rgba ? transparent : opaque).add({object, element, node, image});
    }
    opaque.build(optimizetc, result);
    transparent.build(optimizetc, result);
    std::sort(result.plain.begin(), result.plain.end());
    return result;
}

} // namespace morva::osg
