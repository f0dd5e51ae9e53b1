#pragma once

// The cache optimisers step by step, on the lists and sets of the published records: what the
// pieces must hold, to the last index and value.
//
//     optimizeCache(node, ...);
//     const naive_order<naive_triangles> expected(source, limit, per_property);
//     expected.pieces[0].values[0] ...
//
// The source is read as the call has left it, with its index shared.

#include "tests/support/test.h"

#include <list>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>

#include "tests/support/whole_elements.h"

namespace morva_test {

/// How the walk reaches into the records of triangles.
struct naive_triangles {
    using element = morva::osg::vcache_triangle_data;
    using vertex = morva::osg::vcache_vertex_data;
    using list = morva::osg::drawlist;
    static constexpr int corners = 3;

    static ::osg::TriangleIterator begin(const ::osg::GeometryPtr& g) {
        return g->beginTriangles();
    }
    static bool isKept(const ::osg::TriangleIterator& it) {
        return !morva::osg::is_rogue(it.getPosition(0), it.getPosition(1), it.getPosition(2));
    }
    static void readSlot0(element& to, const ::osg::TriangleIterator& it, int corner) {
        to.texCoords[corner] = it.getTexCoordsIndex(corner);
    }
    static std::array<::osg::Int32, 5> indices(const element& of, int corner) {
        return {of.positions[corner], of.normals[corner], of.colors[corner], of.texCoords[corner],
                of.texCoords7[corner]};
    }
    static int& left(vertex& of) { return of.trianglesLeft; }
    static int& count(vertex& of) { return of.triangleCount; }
    static std::list<unsigned>& waiting(vertex& of) { return of.triangles; }
    static const std::list<element*>& drawn(const list& of) { return of.triangles; }
    static void score(vertex& of) { morva::osg::FindVertexScore(&of); }
    static float score(std::vector<element>& e, std::vector<vertex>& v, unsigned i) {
        return morva::osg::calcTriangleScore(e, v, i);
    }
    static void scoreAll(std::vector<element>& e, std::vector<vertex>& v, unsigned i) {
        morva::osg::calcTriangleScoreForVertices(e, v, i);
    }
    static void draw(list& of, element* e) { of.addTriangle(e); }
    static bool isFull(const list& of) {
        if (!of.perProperty)
            return of.usedCorners.size() >= of.limit;
        return of.usedPositions.size() >= of.limit || of.usedNormals.size() >= of.limit ||
               of.usedColors.size() >= of.limit || of.usedTexCoords.size() >= of.limit ||
               of.usedTexCoords7.size() >= of.limit;
    }
    static unsigned search(std::vector<element>& e, std::vector<vertex>& v,
                           std::list<unsigned>& lru, bool& flush, unsigned long& marker,
                           unsigned long& vertexMarker) {
        return morva::osg::searchHighestScoreTriangle(e, v, lru, flush, marker, vertexMarker);
    }
};

/// The same for lines.
struct naive_lines {
    using element = morva::osg::vcache_line_data;
    using vertex = morva::osg::vlinecache_vertex_data;
    using list = morva::osg::linedrawlist;
    static constexpr int corners = 2;

    static ::osg::LineIterator begin(const ::osg::GeometryPtr& g) { return g->beginLines(); }
    static bool isKept(const ::osg::LineIterator&) { return true; }
    static void readSlot0(element&, const ::osg::LineIterator&, int) {}
    static std::array<::osg::Int32, 5> indices(const element& of, int end) {
        return {of.positions[end], of.normals[end], of.colors[end], -1, of.texCoords7[end]};
    }
    static int& left(vertex& of) { return of.linesLeft; }
    static int& count(vertex& of) { return of.lineCount; }
    static std::list<unsigned>& waiting(vertex& of) { return of.lines; }
    static const std::list<element*>& drawn(const list& of) { return of.lines; }
    static void score(vertex& of) { morva::osg::FindLineVertexScore(&of); }
    static float score(std::vector<element>& e, std::vector<vertex>& v, unsigned i) {
        return morva::osg::calcLineScore(e, v, i);
    }
    static void scoreAll(std::vector<element>& e, std::vector<vertex>& v, unsigned i) {
        morva::osg::calcLineScoreForVertices(e, v, i);
    }
    static void draw(list& of, element* e) { of.addLine(e); }
    static bool isFull(const list& of) {
        if (!of.perProperty)
            return of.usedCorners.size() >= of.limit;
        return of.usedPositions.size() >= of.limit || of.usedNormals.size() >= of.limit ||
               of.usedColors.size() >= of.limit || of.usedTexCoords7.size() >= of.limit;
    }
    static unsigned search(std::vector<element>& e, std::vector<vertex>& v,
                           std::list<unsigned>& lru, bool& flush, unsigned long& marker,
                           unsigned long&) {
        return morva::osg::searchHighestScoreLine(e, v, lru, flush, marker);
    }
};

/// One piece as its geometry must hold it; properties in the order positions, normals, colours,
/// coordinate sets 0 and 7.
struct naive_piece {
    std::vector<::osg::UInt32> index;                ///< one per corner and property
    std::array<std::vector<::osg::Int32>, 5> values; ///< rows of the source
    unsigned corners = 0;
};

template <typename Kind> class naive_order {
  public:
    naive_order(const ::osg::GeometryPtr& source, unsigned limit, bool per_property)
        : vertices_(source->getPositions()->size()) {
        read(source);
        draw(limit, per_property);
        const bool has[5] = {true, source->getNormals() != ::osg::NullFC,
                             source->getColors() != ::osg::NullFC,
                             Kind::corners == 3 && source->getTexCoords() != ::osg::NullFC,
                             source->getTexCoords7() != ::osg::NullFC};
        for (const typename Kind::list& list : lists_)
            pieces.push_back(pieceOf(list, has));
    }

    std::vector<naive_piece> pieces;
    unsigned drawn_twice = 0;
    unsigned beyond_the_last = 0;

  private:
    void read(const ::osg::GeometryPtr& source) {
        for (auto it = Kind::begin(source); !it.isAtEnd() && isWhole(it, Kind::corners); ++it) {
            if (!Kind::isKept(it))
                continue;
            typename Kind::element e;
            e.index = static_cast<unsigned>(it.getIndex());
            for (int k = 0; k < Kind::corners; ++k) {
                e.positions[k] = it.getPositionIndex(k);
                e.normals[k] = it.getNormalIndex(k);
                e.colors[k] = it.getColorIndex(k);
                Kind::readSlot0(e, it, k);
                e.texCoords7[k] = it.getTexCoordsIndex7(k);
                typename Kind::vertex& v = vertices_[static_cast<std::size_t>(e.positions[k])];
                ++Kind::count(v);
                Kind::waiting(v).push_back(static_cast<unsigned>(elements_.size()));
            }
            elements_.push_back(e);
        }
    }

    void draw(unsigned limit, bool per_property) {
        for (typename Kind::vertex& v : vertices_) {
            Kind::left(v) = Kind::count(v);
            Kind::score(v);
        }
        float best = 0.0F;
        unsigned current = 0;
        for (unsigned i = 0; i < elements_.size(); ++i) {
            const float score = Kind::score(elements_, vertices_, i);
            if (score > best) {
                best = score;
                current = i;
            }
        }
        open(limit, per_property);
        for (std::size_t i = 0; i < elements_.size(); ++i) {
            if (Kind::isFull(lists_.back())) {
                open(limit, per_property);
                flush();
                current = next();
            }
            drawn_twice += elements_[current].drawn ? 1 : 0;
            Kind::draw(lists_.back(), &elements_[current]);
            touch(current);
            bool flushCache = false;
            current = Kind::search(elements_, vertices_, lru_, flushCache, marker_, vertex_marker_);
            if (flushCache)
                flush();
            if (current >= elements_.size()) {
                ++beyond_the_last;
                current = next();
            }
        }
    }

    void open(unsigned limit, bool per_property) {
        typename Kind::list list;
        list.perProperty = per_property;
        list.limit = limit;
        lists_.push_back(list);
    }

    unsigned next() {
        while (marker_ < elements_.size() && elements_[marker_].drawn)
            ++marker_;
        return marker_ < elements_.size() ? static_cast<unsigned>(marker_) : 0;
    }

    void touch(unsigned current) {
        const auto& p = elements_[current].positions;
        for (const ::osg::Int32 position : p) {
            const auto at = static_cast<std::size_t>(position);
            --Kind::left(vertices_[at]);
            Kind::waiting(vertices_[at]).remove(current);
        }
        for (const ::osg::Int32 position : p) {
            lru_.remove(static_cast<unsigned>(position));
            lru_.push_front(static_cast<unsigned>(position));
        }
        int place = 0;
        for (const unsigned v : lru_) {
            if (place <= 31) {
                vertices_[v].cachePosition = place++;
            } else {
                vertices_[v].cachePosition = -1;
                if (Kind::left(vertices_[v]) > 0)
                    vertex_marker_ = v;
            }
            Kind::score(vertices_[v]);
            Kind::scoreAll(elements_, vertices_, v);
        }
        if (lru_.size() > 32)
            lru_.resize(32);
    }

    void flush() {
        for (const unsigned v : lru_) {
            vertices_[v].cachePosition = -1;
            Kind::score(vertices_[v]);
            Kind::scoreAll(elements_, vertices_, v);
        }
        lru_.clear();
    }

    static naive_piece pieceOf(const typename Kind::list& list, const bool (&has)[5]) {
        naive_piece piece;
        std::map<::osg::Int32, ::osg::UInt32> maps[5];
        for (const typename Kind::element* e : Kind::drawn(list)) {
            for (int k = 0; k < Kind::corners; ++k, ++piece.corners) {
                const std::array<::osg::Int32, 5> old = Kind::indices(*e, k);
                for (std::size_t i = 0; i < 5; ++i) {
                    if (!has[i])
                        continue;
                    const auto fresh = static_cast<::osg::UInt32>(piece.values[i].size());
                    const auto entered = maps[i].emplace(old[i], fresh);
                    if (entered.second)
                        piece.values[i].push_back(old[i]);
                    piece.index.push_back(entered.first->second);
                }
            }
        }
        return piece;
    }

    std::vector<typename Kind::element> elements_;
    std::vector<typename Kind::vertex> vertices_;
    std::list<typename Kind::list> lists_;
    std::list<unsigned> lru_;
    unsigned long marker_ = 0;
    unsigned long vertex_marker_ = std::numeric_limits<unsigned long>::max();
};

} // namespace morva_test
