#include "picture_sampler.h"

#include <optional>

#include <OpenSG/OSGFieldContainerType.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

#include <morva/core/morva_osg_geometry_tools.h>

#include "test.h"

namespace morva_test {

namespace {

using morva::osg::placed_image;
using morva::osg::recorded_atlas;
using weights = std::array<double, 3>;
using vec2 = std::array<double, 2>;

/// Wrapping of an image that repeats.
constexpr ::osg::UInt32 repeating = 0x2901;

/// Of an image's side, for values near whole numbers. What comes of cutting is seen to again.
constexpr double snap = 0.0011, snap_of_pieces = 3 * snap;

/// One texel as a number, RGBA; images with other channels are not read.
std::uint32_t texelAt(const ::osg::UInt8* p, ::osg::UInt32 format) {
    const std::pair<::osg::UInt32, const char*> channels[] = {
        {::osg::Image::OSG_RGB_PF, "012x"}, {::osg::Image::OSG_RGBA_PF, "0123"},
        {::osg::Image::OSG_BGR_PF, "210x"}, {::osg::Image::OSG_BGRA_PF, "2103"},
        {::osg::Image::OSG_LA_PF, "0001"},  {::osg::Image::OSG_A_PF, "xxx0"},
        {::osg::Image::OSG_L_PF, "000x"}};
    std::uint32_t texel = 0;
    for (const auto& [own, places] : channels) {
        for (std::size_t i = 0; own == format && i < 4; ++i)
            texel = texel << 8U | (places[i] == 'x' ? 255U : p[places[i] - '0']);
    }
    return texel;
}

/// The second and the third corner as seen from the first.
std::array<::osg::Vec3d, 2> sidesOf(const pictured_triangle& t) {
    const ::osg::Pnt3d first(t.corners[0]), second(t.corners[1]), third(t.corners[2]);
    return {second - first, third - first};
}
double areaOf(const pictured_triangle& t) {
    const auto [a, b] = sidesOf(t);
    return 0.5 * a.cross(b).length();
}
double longestSquare(const pictured_triangle& t) {
    const auto [a, b] = sidesOf(t);
    return std::max(a.dot(a), b.dot(b));
}

/// Not so for what passes drop, and for a line.
bool showsSomething(const pictured_triangle& t) {
    return !morva::osg::is_rogue(t.corners[0], t.corners[1], t.corners[2]) &&
           areaOf(t) > 1e-7 * longestSquare(t);
}

/// Where a point lies on a triangle; none if it is off it.
std::optional<weights> placeOn(const pictured_triangle& t, const ::osg::Pnt3f& point) {
    for (std::size_t k = 0; k < 3; ++k) {
        if (t.corners[k] == point)
            return weights{k == 0 ? 1.0 : 0.0, k == 1 ? 1.0 : 0.0, k == 2 ? 1.0 : 0.0};
    }
    const auto [a, b] = sidesOf(t);
    const ::osg::Vec3d p = ::osg::Pnt3d(point) - ::osg::Pnt3d(t.corners[0]), n = a.cross(b);
    const double square = n.dot(n);
    if (!(square > 0) || std::abs(p.dot(n)) > 1e-4 * std::sqrt(longestSquare(t) * square))
        return std::nullopt;
    const double second = p.cross(b).dot(n) / square, third = a.cross(p).dot(n) / square;
    const weights all = {1 - second - third, second, third};
    if (*std::min_element(all.begin(), all.end()) < -1e-3)
        return std::nullopt;
    return all;
}

/// What lies between three corners.
template <typename Corners> vec2 between(const Corners& corners, const weights& w) {
    vec2 sum{};
    for (std::size_t k = 0; k < 3; ++k) {
        sum[0] += w[k] * double(corners[k][0]);
        sum[1] += w[k] * double(corners[k][1]);
    }
    return sum;
}

/// The texel at a coordinate, which repeats.
std::uint32_t texelOf(const pictured_image& image, const vec2& at) {
    const auto wrapped = [](double texels, std::int64_t side) {
        const std::int64_t rest = std::int64_t(std::floor(texels + 1e-6)) % side;
        return rest < 0 ? rest + side : rest;
    };
    return image
        .texels[std::size_t(wrapped(at[1] * double(image.height), image.height) * image.width +
                            wrapped(at[0] * double(image.width), image.width))];
}

/// How one node's coordinates are to be read: in tiles of its image before.
struct reading {
    const pictured_image* shown = nullptr; ///< now
    const placed_image* place = nullptr;   ///< null for an image that stayed
    std::array<::osg::UInt32, 2> wrap{};   ///< before
    const pictured_image* before = nullptr;
    vec2 side{}; ///< of that

    /// From what a coordinate is now to tiles.
    double inTiles(double value, std::size_t axis) const {
        if (place == nullptr)
            return value;
        const double whole = double(axis == 0 ? shown->width : shown->height);
        return (value * whole - double(axis == 0 ? place->x : place->y)) / side[axis];
    }
    double tiles(std::size_t axis) const {
        return double(axis == 0 ? place->columns : place->rows);
    }
};

struct search {
    picture_comparison& result;
    const reading& how;
    std::string why; ///< what was wrong with the last candidate

    bool wrong(const std::string& text) {
        why = text;
        return false;
    }

    /// Whether the coordinates of a piece are those of the triangle below it, along one axis.
    bool followsAlong(std::size_t axis, const std::array<vec2, 3>& was,
                      const pictured_triangle& now, double near_whole) {
        std::array<double, 3> move{};
        double high = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            const double tile = how.inTiles(double(now.coordinates[k][::osg::UInt32(axis)]), axis);
            move[k] = tile - was[k][axis];
            high = std::max(high, std::abs(was[k][axis]));
            // In texels of the block; a coordinate at its far edge would show the neighbour.
            if (how.place != nullptr && (tile < -1e-6 || tile > how.tiles(axis) - 1e-6))
                return wrong("leaves its block: " + std::to_string(tile) + " tiles");
        }
        const double whole =
            how.wrap[axis] == repeating ? std::round((move[0] + move[1] + move[2]) / 3) : 0;
        const double texel = how.place == nullptr ? 0 : 1 / how.side[axis];
        const double slack = texel + near_whole + 2e-5 * (1 + high);
        for (const double one : move) {
            if (std::abs(one - whole) > slack)
                return wrong("moved by " + std::to_string(one) + " tiles");
            if (how.place != nullptr)
                result.inset = std::max(result.inset, (std::abs(one - whole) - near_whole) / texel);
        }
        return true;
    }

    /// Whether a texel within an inset of a coordinate before is what is shown now.
    bool showsTexelOf(const vec2& was, const vec2& now) {
        const std::uint32_t seen = texelOf(*how.shown, now);
        const auto most = [this](std::size_t axis) {
            return std::ceil(1.01 + snap_of_pieces * how.side[axis]);
        };
        for (double v = -most(1); v <= most(1); ++v) {
            for (double u = -most(0); u <= most(0); ++u) {
                if (texelOf(*how.before, {was[0] + u / how.side[0], was[1] + v / how.side[1]}) ==
                    seen)
                    return true;
            }
        }
        return wrong("shows another texel");
    }

    bool isPieceOf(const pictured_triangle& whole, const pictured_triangle& piece) {
        std::array<vec2, 3> was;
        for (std::size_t k = 0; k < 3; ++k) {
            const auto place = placeOn(whole, piece.corners[k]);
            if (!place)
                return why.empty() ? wrong("is on no triangle") : false;
            was[k] = between(whole.coordinates, *place);
        }
        const bool cut = whole.corners != piece.corners;
        for (const std::size_t axis : {std::size_t{0}, std::size_t{1}}) {
            if (!followsAlong(axis, was, piece, cut ? snap_of_pieces : snap))
                return false;
        }
        constexpr double in = 0.05;
        for (const weights& w : {weights{1 - 2 * in, in, in}, weights{in, 1 - 2 * in, in},
                                 weights{in, in, 1 - 2 * in}, weights{0.4, 0.3, 0.3}}) {
            if (how.place != nullptr &&
                !showsTexelOf(between(was, w), between(piece.coordinates, w)))
                return false;
        }
        return true;
    }
};

/// Finds each triangle of a node on those before, and all of those covered.
std::string compareTriangles(const pictured_node& before, const pictured_node& after,
                             const reading& how, picture_comparison& result) {
    const std::size_t count = before.triangles.size();
    std::vector<double> left;
    for (const pictured_triangle& t : before.triangles)
        left.push_back(areaOf(t));
    const std::vector<double> all = left;
    std::size_t hint = 0;
    for (const pictured_triangle& piece : after.triangles) {
        search one{result, how, ""};
        const double area = areaOf(piece);
        std::size_t tries = 0;
        for (; tries < count; ++tries, ++hint) { // mostly in order
            hint %= count;
            if (left[hint] > 0.99 * area - 1e-9 * all[hint] - 1e-30 &&
                one.isPieceOf(before.triangles[hint], piece))
                break;
        }
        if (tries == count)
            return "a triangle " + (one.why.empty() ? "too many" : one.why) +
                   (how.place == nullptr ? ", its image stayed" : "");
        result.pieces += area < 0.9 * all[hint] ? 1 : 0;
        left[hint] -= area;
        hint += left[hint] <= 0.01 * all[hint] ? 1 : 0;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (left[i] > 0.01 * all[i])
            return "triangle " + std::to_string(i) + " is not covered";
    }
    return "";
}

/// Where an image is to be in an atlas, with all its repetitions and what surrounds it.
struct block {
    std::int64_t left, top, right, bottom;

    block(const placed_image& at, std::int64_t padding)
        : left(at.x - padding), top(at.y - padding),
          right(at.x + std::int64_t{at.width} * at.columns + padding),
          bottom(at.y + std::int64_t{at.height} * at.rows + padding) {}
    bool meets(const block& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

bool holdsAll(const pictured_image& atlas, const pictured_image& image, const placed_image& at,
              const block& all) {
    if (image.width != at.width || image.height != at.height || all.left < 0 || all.top < 0 ||
        all.right > atlas.width || all.bottom > atlas.height)
        return false;
    for (std::int64_t y = all.top; y < all.bottom; ++y) {
        const std::int64_t row = (y - at.y + 64 * image.height) % image.height;
        for (std::int64_t x = all.left; x < all.right; ++x) {
            const std::int64_t column = (x - at.x + 64 * image.width) % image.width;
            if (atlas.texels[std::size_t(y * atlas.width + x)] !=
                image.texels[std::size_t(row * image.width + column)])
                return false;
        }
    }
    return true;
}

std::string checkAtlas(const picture& before, const picture& after, const recorded_atlas& atlas,
                       std::int64_t padding) {
    const pictured_image* whole = after.imageOf(atlas.image.get());
    if (whole == nullptr)
        return "nobody shows an atlas";
    if (whole->width != atlas.width || whole->height != atlas.height)
        return "an atlas has other sides";
    for (const placed_image& one : atlas.images) {
        const pictured_image* image = before.imageOf(one.image.get());
        const block all(one, padding);
        std::int64_t step = padding > 0 ? 1 : 0;
        while (step < padding)
            step *= 2;
        if (step > 0 && (one.x % step != 0 || one.y % step != 0))
            return "an image is not where smaller levels stay clean";
        if (image == nullptr || !holdsAll(*whole, *image, one, all))
            return "an atlas lacks an image";
        for (const placed_image& other : atlas.images) {
            if (&one != &other && all.meets(block(other, padding)))
                return "two images overlap";
        }
    }
    return "";
}

/// The place of what a node showed in the atlas that it shows now.
const placed_image* placeIn(const recorded_atlas& atlas, const picture& before,
                            const pictured_image& image) {
    for (const placed_image& one : atlas.images) {
        const pictured_image* placed = before.imageOf(one.image.get());
        if (placed != nullptr && placed->width == image.width && placed->texels == image.texels)
            return &one;
    }
    return nullptr;
}

std::string compareNode(const picture& pictured, const pictured_node& before,
                        const pictured_node& after, const morva::osg::atlas_record& record,
                        picture_comparison& result) {
    if (before.material != after.material)
        return "other material: " + before.material + " / " + after.material;
    if ((before.image == nullptr) != (after.image == nullptr))
        return "image gone";
    if (before.image == nullptr)
        return "";
    reading how;
    how.shown = after.image;
    how.before = before.image;
    how.wrap = before.wrap;
    how.side = {double(before.image->width), double(before.image->height)};
    if (before.image->container != after.image->container) {
        for (const recorded_atlas& atlas : record.atlases) {
            if (atlas.image.get().getFieldContainerId() == after.image->container)
                how.place = placeIn(atlas, pictured, *before.image);
        }
        if (how.place == nullptr)
            return "an image that is not that of its atlas";
        if (after.wrap[0] != repeating || after.wrap[1] != repeating)
            return "an atlas that doesn't repeat";
        ++result.moved;
    } else if (before.wrap != after.wrap || before.image->texels != after.image->texels) {
        return "its image changed";
    }
    return compareTriangles(before, after, how, result);
}

/// All values of a material or chunk in words, without what it holds and belongs to, its image and
/// how that is wrapped.
std::string valuesOf(::osg::FieldContainerPtr container) {
    const std::set<std::string> left_out = {"parents", "attachments", "chunks",   "image",
                                            "wrapS",   "wrapT",       "materials"};
    const ::osg::FieldContainerType& type = container->getType();
    std::string text = std::string(type.getCName()) + "(";
    for (::osg::UInt32 id = 1; id <= type.getNumFieldDescs(); ++id) {
        const ::osg::FieldDescription* field = type.getFieldDescription(id);
        if (field == nullptr || field->isInternal() || left_out.count(field->getCName()) > 0)
            continue;
        std::string value;
        text += std::string(field->getCName()) + "=" +
                container->getField(id)->getValueByStr(value) + " ";
    }
    return text + ")";
}

/// The material that a node is drawn with: its own, else that of the outermost material group.
::osg::MaterialPtr materialOf(const ::osg::NodePtr& node) {
    const ::osg::MaterialPtr own = coreOf(node)->getMaterial();
    ::osg::MaterialPtr outermost = ::osg::NullFC;
    for (::osg::NodePtr up = node->getParent(); up != ::osg::NullFC; up = up->getParent()) {
        const auto group = ::osg::MaterialGroupPtr::dcast(up->getCore());
        if (group != ::osg::NullFC)
            outermost = group->getMaterial();
    }
    return own != ::osg::NullFC ? own : outermost;
}

/// Puts the material in words, and how its image is wrapped. Returns the image.
::osg::ImagePtr describe(const ::osg::MaterialPtr& material, pictured_node& shown) {
    ::osg::ImagePtr image = ::osg::NullFC;
    shown.wrap = {repeating, repeating};
    shown.material = material == ::osg::NullFC ? "none" : valuesOf(material);
    const auto plain = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    const auto chunked = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunked != ::osg::NullFC) {
        for (const ::osg::StateChunkPtr& chunk : *chunked->getMFChunks()) {
            shown.material += valuesOf(chunk);
            const auto texture = ::osg::TextureChunkPtr::dcast(chunk);
            if (texture == ::osg::NullFC)
                continue;
            image = texture->getImage();
            shown.wrap = {texture->getWrapS(), texture->getWrapT()};
        }
    }
    if (plain != ::osg::NullFC)
        image = plain->getImage();
    return image;
}

} // namespace

picture::picture(const ::osg::NodePtr& root) {
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        pictured_node& shown = nodes_[node.getFieldContainerId()];
        const char* name = ::osg::getName(node);
        shown.name = name == nullptr ? "" : name;
        shown.image = enter(describe(materialOf(node), shown));
        const ::osg::GeometryPtr core = coreOf(node);
        if (core->getPositions() == ::osg::NullFC)
            continue;
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            pictured_triangle triangle;
            for (::osg::Int32 k = 0; k < 3; ++k) {
                triangle.corners[std::size_t(k)] = it.getPosition(k);
                triangle.coordinates[std::size_t(k)] = it.getTexCoords(k);
            }
            if (showsSomething(triangle))
                shown.triangles.push_back(triangle);
        }
    }
}

const pictured_image* picture::imageOf(const ::osg::ImagePtr& image) const {
    const auto found = images_.find(image.getFieldContainerId());
    return found == images_.end() ? nullptr : &found->second;
}

const pictured_image* picture::enter(const ::osg::ImagePtr& image) {
    if (image == ::osg::NullFC || image->getWidth() < 1 || image->getHeight() < 1 ||
        image->getData() == nullptr)
        return nullptr;
    const auto [entry, is_new] = images_.try_emplace(image.getFieldContainerId());
    pictured_image& copy = entry->second;
    if (is_new) {
        copy.container = image.getFieldContainerId();
        copy.width = image->getWidth();
        copy.height = image->getHeight();
        const std::size_t count = std::size_t(copy.width * copy.height), bytes = image->getBpp();
        const bool narrow = image->getDataType() == ::osg::Image::OSG_UINT8_IMAGEDATA;
        for (std::size_t i = 0; narrow && i < count; ++i)
            copy.texels.push_back(texelAt(image->getData() + i * bytes, image->getPixelFormat()));
    }
    return &copy;
}

namespace {

/// Sorts the triangles of a picture by the nodes on whose triangles they lie in another one.
std::map<::osg::UInt32, pictured_node> regroup(const picture& before, const picture& after,
                                               std::string& fault) {
    std::map<::osg::UInt32, pictured_node> parts;
    for (const auto& [number, node] : after.nodes()) {
        for (const pictured_triangle& piece : node.triangles) {
            const auto holds = [&piece](const pictured_triangle& whole) {
                return placeOn(whole, piece.corners[0]) && placeOn(whole, piece.corners[1]) &&
                       placeOn(whole, piece.corners[2]);
            };
            auto owner = before.nodes().begin();
            while (
                owner != before.nodes().end() &&
                std::none_of(owner->second.triangles.begin(), owner->second.triangles.end(), holds))
                ++owner;
            if (owner == before.nodes().end()) {
                fault = "a triangle of nobody";
                return parts;
            }
            const auto [part, is_new] = parts.try_emplace(owner->first, node);
            if (is_new)
                part->second.triangles.clear();
            if (part->second.image != node.image || part->second.material != node.material)
                fault = "a node in two looks";
            part->second.triangles.push_back(piece);
        }
    }
    return parts;
}

} // namespace

picture_comparison comparePictures(const picture& before, const picture& after,
                                   const morva::osg::atlas_record& record, unsigned padding) {
    picture_comparison result;
    for (const recorded_atlas& atlas : record.atlases)
        result.fault =
            result.fault.empty() ? checkAtlas(before, after, atlas, padding) : result.fault;
    const bool same_nodes = std::equal(
        before.nodes().begin(), before.nodes().end(), after.nodes().begin(), after.nodes().end(),
        [](const auto& x, const auto& y) { return x.first == y.first; });
    const auto parts = same_nodes ? after.nodes() : regroup(before, after, result.fault);
    for (const auto& [number, node] : before.nodes()) {
        if (!result.fault.empty())
            break;
        const auto now = parts.find(number);
        if (now != parts.end())
            result.fault = compareNode(before, node, now->second, record, result);
        else if (!node.triangles.empty())
            result.fault = "it is gone";
        if (!result.fault.empty())
            result.fault = "node \"" + node.name + "\": " + result.fault;
    }
    return result;
}

} // namespace morva_test
