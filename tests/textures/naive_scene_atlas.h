#pragma once

// The atlases of a scene by the letter: each step as one would say it, every pair of free spaces
// tried after each split, pixel by pixel. The oracle of placing and of the whole stage.

#include "tests/support/test.h"

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <OpenSG/OSGBlendChunk.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace naive {

using u32 = std::uint32_t;

struct space {
    u32 x, y, width, height;
    auto all() const { return std::tie(x, y, width, height); }
    bool operator==(const space& other) const { return all() == other.all(); }
};

inline u32 tiledSide(float tiles, u32 side) {
    const double count = std::ceil(double(tiles));
    return count > 0 ? u32(std::min(count * side, 2147483647.0)) : 0;
}

/// The free spaces of one atlas.
struct atlas {
    u32 side;
    std::vector<space> spaces{{0, 0, side, side}};

    bool joinOne() {
        for (auto a = spaces.begin(); a != spaces.end(); ++a) {
            for (auto b = spaces.begin(); b != spaces.end(); ++b) {
                space both = *a;
                if (a == b)
                    continue;
                if (b->y == a->y + a->height && b->width == a->width && b->x == a->x)
                    both.height += b->height;
                else if (b->x == a->x + a->width && b->height == a->height && b->y == a->y)
                    both.width += b->width;
                else
                    continue;
                spaces.erase(std::max(a, b));
                spaces.erase(std::min(a, b));
                spaces.insert(spaces.begin(), both);
                return true;
            }
        }
        return false;
    }
    void join() {
        while (joinOne()) {
        }
    }

    /// A place for a size; -1 if there is none.
    std::pair<int, int> place(u32 w, u32 h) {
        if (w == 0 || h == 0)
            return {-1, -1};
        auto found = std::find_if(spaces.begin(), spaces.end(), [&](const space& one) {
            return one.width == w && one.height == h;
        });
        const bool exact = found != spaces.end();
        for (auto one = spaces.begin(); !exact && one != spaces.end(); ++one) {
            const auto waste = [&](const space& s) { return s.width * s.height - w * h; };
            if (one->width >= w && one->height >= h &&
                (found == spaces.end() || waste(*one) < waste(*found)))
                found = one;
        }
        if (found == spaces.end())
            return {-1, -1};
        const space old = *found;
        spaces.erase(found);
        if (h < old.height)
            spaces.insert(spaces.begin(), {old.x, old.y + h, old.width, old.height - h});
        if (w < old.width)
            spaces.insert(spaces.begin(), {old.x + w, old.y, old.width - w, h});
        if (!exact)
            join();
        return {int(old.x), int(old.y)};
    }

    /// Width and height of the kept part.
    std::pair<u32, u32> kept(bool power) {
        u32 width = side, height = side;
        if (spaces.empty())
            return {side, side};
        join();
        for (const space& one : spaces)
            height = one.width == side ? one.y : height;
        for (const space& one : spaces)
            width = one.height == height ? one.x : width;
        for (u32* one : {&width, &height}) {
            u32 up = 1;
            while (up < *one && up < 8192)
                up *= 2;
            *one = power ? up : *one;
        }
        return {width, height};
    }
};

inline float adjusted(float u, int side, int image, int at) {
    const float texel = static_cast<float>(1.0 / image);
    if (texel > u)
        u = texel;
    const float frac = u - std::trunc(u);
    if (double(frac) > 1.0 - double(texel) || u == std::trunc(u))
        u = u - texel;
    return static_cast<float>(double(u) * image / side + double(at) / side);
}

/// An image as an atlas takes it.
struct source {
    u32 width = 0, height = 0;
    bool alpha = false;
    std::vector<unsigned char> pixels; ///< RGB or RGBA; empty for one that an atlas can't show
    float u = 0, v = 0;
    int x = -1, y = -1, index = -1;

    bool startsAs(const source& other) const {
        return width == other.width && height == other.height &&
               std::equal(pixels.begin(), pixels.begin() + long(width * height),
                          other.pixels.begin());
    }
    std::pair<float, float> order() const {
        return {float(tiledSide(v, height)), float(tiledSide(u, width))};
    }
};

inline source sourceOf(const ::osg::ImagePtr& image) {
    using Image = ::osg::Image;
    source one;
    one.width = u32(image->getWidth());
    one.height = u32(image->getHeight());
    const u32 format = image->getPixelFormat(), bytes = image->getBpp();
    const bool grey = format == Image::OSG_L_PF || format == Image::OSG_I_PF ||
                      format == Image::OSG_LA_PF || format == Image::OSG_A_PF,
               swapped = format == Image::OSG_BGR_PF || format == Image::OSG_BGRA_PF,
               last = format == Image::OSG_LA_PF || format == Image::OSG_A_PF ||
                      format == Image::OSG_BGRA_PF; // alpha, which must be full
    one.alpha = format == Image::OSG_RGBA_PF;
    for (std::size_t i = 0; i < std::size_t{one.width} * one.height; ++i) {
        const unsigned char* p = image->getData() + i * bytes;
        if (last && p[bytes - 1] != 255)
            return {};
        for (unsigned c = 0; c < 3; ++c)
            one.pixels.push_back(p[grey ? 0 : swapped ? 2 - c : c]);
        if (one.alpha)
            one.pixels.push_back(p[3]);
    }
    return one;
}

/// All of the stage, on a scene of its own. Sizes are 32 to 8192.
class stage {
  public:
    unsigned run(const ::osg::NodePtr& root, unsigned size, unsigned texcoords,
                 unsigned optimizetc) {
        std::vector<::osg::NodePtr> lists[2];
        morva::osg::getGeometryNodes(root, lists[0], lists[1], false);
        bool colors[2];
        for (auto& list : lists) {
            list.erase(std::remove_if(list.begin(), list.end(),
                                      [&](const ::osg::NodePtr& node) {
                                          return staysOut(node, float(texcoords), int(size / 2));
                                      }),
                       list.end());
        }
        for (int i : {0, 1})
            colors[i] = morva::osg::hasVertexColors(lists[i]);
        for (auto& list : lists) {
            for (::osg::NodePtr& node : list)
                morva::osg::optimizeTexCoords(node, int(optimizetc), 50);
        }
        std::vector<source> images[2] = {collect(lists[0]), collect(lists[1])};
        unsigned placed[2];
        for (int i : {0, 1})
            placed[i] = build(lists[i], images[i], i == 1, size, colors[i]);
        std::ostringstream out;
        out << images[0].size() << " solid images collected for texture atlas.\n"
            << images[1].size() << " transparent images collected for texture atlas.\n"
            << placed[0] << " solid images processed.\n"
            << placed[1] << " transparent images processed.\n";
        text = out.str();
        return placed[0] + placed[1];
    }

    std::string text;

  private:
    struct drawn_atlas {
        u32 width, height; ///< for the next node
        std::pair<u32, u32> kept;
        ::osg::ChunkMaterialRefPtr material;
    };

    static bool staysOut(const ::osg::NodePtr& node, float texcoords, int half) {
        const ::osg::GeometryPtr core = coreOf(node);
        const ::osg::ImagePtr image = morva::osg::getImage(node);
        bool lines = false;
        for (u32 i = 0; core->getTypes() != ::osg::NullFC && i < core->getTypes()->size(); ++i)
            lines =
                lines || (core->getTypes()->getValue(i) < 4 && core->getLengths()->getValue(i) > 0);
        return lines || morva::osg::getNumberOfTriangles(core) == 0 ||
               morva::osg::checkGeoForTexIndex(node, texcoords, half) ||
               (image != ::osg::NullFC && sourceOf(image).pixels.empty());
    }

    static std::vector<source>::iterator find(std::vector<source>& images, const source& one) {
        return std::find_if(images.begin(), images.end(),
                            [&](const source& other) { return other.startsAs(one); });
    }

    static std::vector<source> collect(const std::vector<::osg::NodePtr>& nodes) {
        std::vector<source> images;
        for (const ::osg::NodePtr& node : nodes) {
            const ::osg::ImagePtr image = morva::osg::getImage(node);
            if (image == ::osg::NullFC)
                continue;
            source one = sourceOf(image);
            const ::osg::GeoTexCoordsPtr values = coreOf(node)->getTexCoords();
            for (u32 i = 0; values != ::osg::NullFC && i < values->size(); ++i) {
                one.u = std::max(one.u, values->getValue(i)[0]);
                one.v = std::max(one.v, values->getValue(i)[1]);
            }
            const auto known = find(images, one);
            if (known == images.end()) {
                images.push_back(one);
                continue;
            }
            known->u = std::max(known->u, one.u);
            known->v = std::max(known->v, one.v);
        }
        return images;
    }

    unsigned build(const std::vector<::osg::NodePtr>& nodes, std::vector<source>& images,
                   bool transparent, unsigned size, bool colors) {
        if (images.size() < 2)
            return 0;
        std::sort(images.begin(), images.end(),
                  [](const source& a, const source& b) { return a.order() < b.order(); });
        std::reverse(images.begin(), images.end());
        u32 side = 32;
        while (side < size)
            side *= 2;
        std::vector<drawn_atlas> atlases;
        unsigned total = 0, now = 1;
        for (; now > 0 && total < images.size(); total += now) {
            atlas spaces{side};
            now = 0;
            for (source& one : images) {
                if (one.index >= 0 || spaces.spaces.empty())
                    continue;
                std::tie(one.x, one.y) =
                    spaces.place(tiledSide(one.u, one.width), tiledSide(one.v, one.height));
                one.index = one.x < 0 ? -1 : int(atlases.size());
                now += one.index < 0 ? 0 : 1;
            }
            atlases.push_back({side, side, spaces.kept(true), {}});
            atlases.back().material =
                materialOf(draw(images, int(atlases.size()) - 1, atlases.back().kept, transparent),
                           transparent, colors);
        }
        listed_ = {nodes.begin(), nodes.end()};
        for (const ::osg::NodePtr& node : nodes)
            show(node, images, atlases);
        return total;
    }

    static ::osg::ImagePtr draw(const std::vector<source>& images, int index,
                                std::pair<u32, u32> kept, bool transparent) {
        const ::osg::ImagePtr image =
            imageOf(transparent ? 6408 : 6407, int(kept.first), int(kept.second), 0);
        const u32 bytes = transparent ? 4 : 3;
        for (u32 i = 0; transparent && i < kept.first * kept.second; ++i)
            image->getData()[4 * i + 3] = 255;
        for (const source& one : images) {
            for (u32 y = 0; one.index == index && y < tiledSide(one.v, one.height); ++y) {
                for (u32 x = 0; x < tiledSide(one.u, one.width); ++x) {
                    const u32 to_x = u32(one.x) + x, to_y = u32(one.y) + y,
                              from = y % one.height * one.width + x % one.width;
                    for (u32 c = 0; to_x < kept.first && to_y < kept.second && c < bytes; ++c)
                        image->getData()[(to_y * kept.first + to_x) * bytes + c] =
                            c == 3 && !one.alpha ? 255 : one.pixels[from * (one.alpha ? 4 : 3) + c];
                }
            }
        }
        return image;
    }

    static ::osg::ChunkMaterialPtr materialOf(::osg::ImagePtr image, bool transparent,
                                              bool colors) {
        const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
        const ::osg::TextureChunkPtr texture = ::osg::TextureChunk::create();
        texture->setImage(image);
        material->addChunk(texture, -2);
        if (transparent) {
            const ::osg::BlendChunkPtr blend = ::osg::BlendChunk::create();
            blend->setSrcFactor(770);
            blend->setDestFactor(771);
            material->addChunk(blend, -2);
        }
        if (colors) {
            const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
            chunk->setColorMaterial(5634);
            material->addChunk(chunk, -2);
        }
        return material;
    }

    void show(const ::osg::NodePtr& node, std::vector<source>& images,
              std::vector<drawn_atlas>& atlases) {
        const ::osg::ImagePtr image = morva::osg::getImage(node);
        if (image == ::osg::NullFC)
            return;
        const auto one = find(images, sourceOf(image));
        if (one == images.end() || one->index < 0)
            return;
        drawn_atlas& to = atlases[std::size_t(one->index)];
        const ::osg::GeometryPtr core = coreOf(node);
        const ::osg::GeoTexCoordsPtr values = core->getTexCoords();
        for (u32 i = 0; values != ::osg::NullFC && i < values->size(); ++i) {
            ::osg::Vec2f value = values->getValue(i);
            value[0] = adjusted(value[0], int(to.width), int(one->width), one->x);
            value[1] = adjusted(value[1], int(to.height), int(one->height), one->y);
            values->setValue(value, i);
        }
        std::tie(to.width, to.height) = to.kept; // the first one was by the whole side
        core->setMaterial(to.material.get());
        const ::osg::NodePtr outer = morva::osg::searchMaterialGroup(node);
        if (outer != ::osg::NullFC)
            dissolve(outer);
    }

    /// Hands the material of a group to what shows it, and makes it a plain group.
    void dissolve(const ::osg::NodePtr& outer) const {
        morva::osg::settled_cores settled;
        for (const ::osg::NodePtr& node : geometryNodes(outer)) {
            if (listed_.count(node) == 0)
                node->setCore(settled.coreFor(node));
        }
        outer->setCore(::osg::Group::create());
    }

    std::set<::osg::NodePtr> listed_; ///< opaque or transparent ones, while they get atlases
};

} // namespace naive
