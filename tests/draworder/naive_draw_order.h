#pragma once

// The cache optimisers step by step, on the lists and sets of the published records: what the
// pieces must hold, to the last index and value. The source is read as the call has left it, with
// its index shared.

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
    static constexpr auto left = &vertex::trianglesLeft, count = &vertex::triangleCount;
    static constexpr auto waiting = &vertex::triangles;
    static constexpr auto drawn = &list::triangles;
    static constexpr auto draw = &list::addTriangle;
    static constexpr auto scoreVertex = &morva::osg::FindVertexScore;
    static constexpr auto score = &morva::osg::calcTriangleScore;
    static constexpr auto scoreAll = &morva::osg::calcTriangleScoreForVertices;
    static constexpr auto search = &morva::osg::searchHighestScoreTriangle;
    static auto begin(const ::osg::GeometryPtr& g) { return g->beginTriangles(); }
};

/// The same for lines.
struct naive_lines {
    using element = morva::osg::vcache_line_data;
    using vertex = morva::osg::vlinecache_vertex_data;
    using list = morva::osg::linedrawlist;
    static constexpr int corners = 2;
    static constexpr auto left = &vertex::linesLeft, count = &vertex::lineCount;
    static constexpr auto waiting = &vertex::lines;
    static constexpr auto drawn = &list::lines;
    static constexpr auto draw = &list::addLine;
    static constexpr auto scoreVertex = &morva::osg::FindLineVertexScore;
    static constexpr auto score = &morva::osg::calcLineScore;
    static constexpr auto scoreAll = &morva::osg::calcLineScoreForVertices;

    static ::osg::LineIterator begin(const ::osg::GeometryPtr& g) { return g->beginLines(); }
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

  private:
    void read(const ::osg::GeometryPtr& source) {
        for (auto it = Kind::begin(source); !it.isAtEnd() && isWhole(it, Kind::corners); ++it) {
            if constexpr (Kind::corners == 3) {
                if (morva::osg::is_rogue(it.getPosition(0), it.getPosition(1), it.getPosition(2)))
                    continue;
            }
            typename Kind::element e;
            e.index = unsigned(it.getIndex());
            for (int k = 0; k < Kind::corners; ++k) {
                e.positions[k] = it.getPositionIndex(k);
                e.normals[k] = it.getNormalIndex(k);
                e.colors[k] = it.getColorIndex(k);
                if constexpr (Kind::corners == 3) // lines have no slot 0
                    e.texCoords[k] = it.getTexCoordsIndex(k);
                e.texCoords7[k] = it.getTexCoordsIndex7(k);
                typename Kind::vertex& v = vertices_[std::size_t(e.positions[k])];
                ++(v.*Kind::count);
                (v.*Kind::waiting).push_back(unsigned(elements_.size()));
            }
            elements_.push_back(e);
        }
    }

    void draw(unsigned limit, bool per_property) {
        for (typename Kind::vertex& v : vertices_) {
            v.*Kind::left = v.*Kind::count;
            Kind::scoreVertex(&v);
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
            if (isFull(lists_.back())) {
                open(limit, per_property);
                flush();
                current = next();
            }
            drawn_twice += elements_[current].drawn ? 1 : 0;
            (lists_.back().*Kind::draw)(&elements_[current]);
            touch(current);
            bool flushCache = true; // set either way
            current = Kind::search(elements_, vertices_, lru_, flushCache, marker_, vertex_marker_);
            if (flushCache)
                flush();
            if (current >= elements_.size())
                current = next();
        }
    }

    void open(unsigned limit, bool per_property) {
        typename Kind::list list;
        list.perProperty = per_property;
        list.limit = limit;
        lists_.push_back(list);
    }

    static bool isFull(const typename Kind::list& list) {
        const auto full = [&](const auto&... sets) { return ((sets.size() >= list.limit) || ...); };
        if (!list.perProperty)
            return full(list.usedCorners);
        if constexpr (Kind::corners == 3) {
            if (full(list.usedTexCoords))
                return true;
        }
        return full(list.usedPositions, list.usedNormals, list.usedColors, list.usedTexCoords7);
    }

    unsigned next() {
        while (marker_ < elements_.size() && elements_[marker_].drawn)
            ++marker_;
        return marker_ < elements_.size() ? unsigned(marker_) : 0;
    }

    void touch(unsigned current) {
        const auto& p = elements_[current].positions;
        for (const ::osg::Int32 position : p) {
            typename Kind::vertex& v = vertices_[std::size_t(position)];
            --(v.*Kind::left);
            (v.*Kind::waiting).remove(current);
        }
        for (const ::osg::Int32 position : p) {
            lru_.remove(unsigned(position));
            lru_.push_front(unsigned(position));
        }
        int place = 0;
        for (const unsigned v : lru_) {
            if (place <= 31) {
                vertices_[v].cachePosition = place++;
            } else {
                vertices_[v].cachePosition = -1;
                if (vertices_[v].*Kind::left > 0)
                    vertex_marker_ = v;
            }
            Kind::scoreVertex(&vertices_[v]);
            Kind::scoreAll(elements_, vertices_, v);
        }
        if (lru_.size() > 32)
            lru_.resize(32);
    }

    void flush() {
        for (const unsigned v : lru_) {
            vertices_[v].cachePosition = -1;
            Kind::scoreVertex(&vertices_[v]);
            Kind::scoreAll(elements_, vertices_, v);
        }
        lru_.clear();
    }

    static naive_piece pieceOf(const typename Kind::list& list, const bool (&has)[5]) {
        naive_piece piece;
        std::map<::osg::Int32, ::osg::UInt32> maps[5];
        for (const typename Kind::element* e : list.*Kind::drawn) {
            for (int k = 0; k < Kind::corners; ++k, ++piece.corners) {
                ::osg::Int32 old[5] = {e->positions[k], e->normals[k], e->colors[k], -1,
                                       e->texCoords7[k]};
                if constexpr (Kind::corners == 3)
                    old[3] = e->texCoords[k];
                for (std::size_t i = 0; i < 5; ++i) {
                    if (!has[i])
                        continue;
                    const auto fresh = ::osg::UInt32(piece.values[i].size());
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
