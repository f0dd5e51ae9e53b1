#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGTriangleIterator.h"

#include "OSGNumberTable.h"

#include <algorithm>
#include <deque>

OSG_BEGIN_NAMESPACE

namespace {

enum : UInt32 { None = 0xFFFFFFFFu };

/// The triangles of a geometry over numbered vertices, who lies behind which edge, and which are
/// still free.
///
/// Edge e of triangle e / 3 runs from its corner e % 3 to the next one. Edges of one direction
/// form a group, in ascending order; the neighbours behind an edge are the group that runs the
/// other way. Manifold meshes have groups of one, but any number is dealt with.
///
/// Takings are tentative until keep(); drop() frees what was taken since.
class triangle_net {
  public:
    std::vector<UInt32> corners;  ///< 3 per triangle
    std::vector<UInt32> place_of; ///< per vertex: a place among the geometry's indices
    std::vector<UInt32> apart;    ///< corners of triangles that a strip would lose

    UInt32 size() const { return static_cast<UInt32>(corners.size() / 3); }
    UInt32 from(UInt32 edge) const { return corners[edge]; }
    UInt32 to(UInt32 edge) const { return corners[turned(edge, 1)]; }
    UInt32 opposite(UInt32 edge) const { return corners[turned(edge, 2)]; }
    /// The edge of the same triangle `steps` further on.
    static UInt32 turned(UInt32 edge, UInt32 steps) { return edge / 3 * 3 + (edge + steps) % 3; }

    bool isFree(UInt32 triangle) const { return !taken[triangle]; }
    /// The lowest edge that runs against this one and whose triangle is free, or None.
    UInt32 freeBehind(UInt32 edge) {
        const UInt32 group = behind[edge];
        if (group == None)
            return None;
        UInt32 candidate = head_of[group];
        while (candidate != None && taken[candidate / 3])
            candidate = next_of[candidate];
        if (candidate != head_of[group]) {
            moved_heads.emplace_back(group, head_of[group]);
            head_of[group] = candidate;
        }
        return candidate;
    }
    UInt32 freeNeighbours(UInt32 triangle) {
        UInt32 count = 0;
        for (UInt32 edge = triangle * 3; edge < triangle * 3 + 3; ++edge)
            count += freeBehind(edge) != None ? 1 : 0;
        return count;
    }

    void take(UInt32 triangle) {
        taken[triangle] = true;
        tentative.push_back(triangle);
    }
    void keep() {
        tentative.clear();
        moved_heads.clear();
    }
    void drop() {
        for (const UInt32 triangle : tentative)
            taken[triangle] = false;
        for (; !moved_heads.empty(); moved_heads.pop_back())
            head_of[moved_heads.back().first] = moved_heads.back().second;
        tentative.clear();
    }
    const std::vector<UInt32>& takenNow() const { return tentative; }

    void link();

  private:
    std::vector<UInt32> behind;  ///< per edge: the group that runs against it, or None
    std::vector<UInt32> next_of; ///< per edge: the next one of its group
    std::vector<UInt32> head_of; ///< per group: its first edge that may be free
    std::vector<bool> taken;     ///< per triangle
    std::vector<UInt32> tentative;
    std::vector<std::pair<UInt32, UInt32>> moved_heads; ///< groups and what their heads were
};

/// Sorts the edges by direction, first vertex by counting, the few of a vertex by comparison.
void triangle_net::link() {
    const UInt32 edges = static_cast<UInt32>(corners.size());
    taken.assign(size(), false);
    behind.assign(edges, None);
    next_of.assign(edges, None);
    std::vector<UInt32> first_of(place_of.size() + 1, 0);
    for (const UInt32 vertex : corners)
        ++first_of[vertex + 1];
    for (std::size_t v = 0; v + 1 < first_of.size(); ++v)
        first_of[v + 1] += first_of[v];
    std::vector<UInt32> sorted(edges);
    std::vector<UInt32> next_place(first_of.begin(), first_of.end() - 1);
    for (UInt32 edge = 0; edge < edges; ++edge)
        sorted[next_place[from(edge)]++] = edge;

    std::vector<UInt32> group_at(edges); // per sorted place
    for (UInt32 v = 0; v < place_of.size(); ++v) {
        std::stable_sort(sorted.begin() + first_of[v], sorted.begin() + first_of[v + 1],
                         [this](UInt32 a, UInt32 b) { return to(a) < to(b); });
        for (UInt32 i = first_of[v]; i < first_of[v + 1]; ++i) {
            const bool goes_on = i > first_of[v] && to(sorted[i - 1]) == to(sorted[i]);
            if (goes_on)
                next_of[sorted[i - 1]] = sorted[i];
            else
                head_of.push_back(sorted[i]);
            group_at[i] = static_cast<UInt32>(head_of.size() - 1);
        }
    }
    for (UInt32 edge = 0; edge < edges; ++edge) {
        const auto begin = sorted.begin() + first_of[to(edge)];
        const auto end = sorted.begin() + first_of[to(edge) + 1];
        const auto found = std::lower_bound(
            begin, end, from(edge), [this](UInt32 other, UInt32 v) { return to(other) < v; });
        if (found != end && to(*found) == from(edge))
            behind[edge] = group_at[static_cast<std::size_t>(found - sorted.begin())];
    }
}

struct primitive {
    UInt32 type;
    std::vector<UInt32> vertices;
};

/// Numbers vertices by their tuples of indices and leaves out triangles with two equal ones.
triangle_net netOf(const GeometryPtr& geometry) {
    triangle_net net;
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    const GeoNumbers indices = GeoNumbers::of(geometry->getIndices());
    NumberTable known(indices.size / stride);
    for (TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        UInt32 vertex[3];
        Int32 position[3];
        for (Int32 k = 0; k < 3; ++k) {
            const UInt32 place = static_cast<UInt32>(it.getIndexIndex(k));
            const UInt32 fresh = static_cast<UInt32>(net.place_of.size());
            UInt64 hash = 0;
            for (UInt32 i = 0; i < stride; ++i)
                hash = osgMixHash(hash, indices[place + i]);
            vertex[k] = known.findOrEnter(hash, fresh, [&](UInt32 other) {
                UInt32 i = 0;
                while (i < stride && indices[place + i] == indices[net.place_of[other] + i])
                    ++i;
                return i == stride;
            });
            if (vertex[k] == fresh)
                net.place_of.push_back(place);
            position[k] = it.getPositionIndex(k);
        }
        if (vertex[0] == vertex[1] || vertex[1] == vertex[2] || vertex[0] == vertex[2])
            continue;
        // Walking a strip passes over triangles with two corners at one position.
        const bool lost_in_strips =
            position[0] == position[1] || position[1] == position[2] || position[0] == position[2];
        std::vector<UInt32>& target = lost_in_strips ? net.apart : net.corners;
        target.insert(target.end(), vertex, vertex + 3);
    }
    net.link();
    return net;
}

/// Grows a strip that begins with the vertices of edge `start` and takes its triangles.
void growStrip(triangle_net& net, UInt32 start, std::vector<UInt32>& strip) {
    strip.assign({net.from(start), net.to(start), net.opposite(start)});
    UInt32 edge = start;
    // A strip leaves its triangles, seen from the edge it came in by, left and right in turn.
    for (UInt32 turn = 1; edge != None; turn = 3 - turn) {
        net.take(edge / 3);
        edge = net.freeBehind(triangle_net::turned(edge, turn));
        if (edge != None)
            strip.push_back(net.opposite(edge));
    }
}

/// Takes the longest of the three strips that begin with a triangle.
std::vector<UInt32> takeBestStrip(triangle_net& net, UInt32 triangle) {
    std::vector<UInt32> strip;
    UInt32 best_edge = triangle * 3;
    std::size_t best_size = 0;
    for (UInt32 edge = triangle * 3; edge < triangle * 3 + 3; ++edge) {
        growStrip(net, edge, strip);
        net.drop();
        if (strip.size() > best_size) {
            best_size = strip.size();
            best_edge = edge;
        }
    }
    growStrip(net, best_edge, strip);
    return strip;
}

/// Begins each strip at a triangle with the fewest free neighbours, which is hardest to reach
/// later, and among those at the one that has waited longest.
class strip_builder {
  public:
    explicit strip_builder(triangle_net& triangles) : net(triangles) {}

    std::vector<primitive> build(bool with_lone) {
        for (UInt32 t = 0; t < net.size(); ++t)
            enqueue(t);
        std::vector<primitive> strips;
        for (UInt32 t = next(); t != None; t = next()) {
            if (!with_lone && net.freeNeighbours(t) == 0)
                continue;
            strips.push_back({GL_TRIANGLE_STRIP, takeBestStrip(net, t)});
            const std::vector<UInt32> strip_triangles = net.takenNow();
            net.keep();
            for (const UInt32 done : strip_triangles)
                enqueueNeighbours(done);
        }
        return strips;
    }

  private:
    void enqueue(UInt32 t) {
        if (net.isFree(t))
            waiting[net.freeNeighbours(t)].push_back(t);
    }
    void enqueueNeighbours(UInt32 t) {
        for (UInt32 edge = t * 3; edge < t * 3 + 3; ++edge) {
            const UInt32 other = net.freeBehind(edge);
            if (other != None)
                enqueue(other / 3);
        }
    }
    UInt32 next() {
        for (UInt32 count = 0; count < 4;) {
            if (waiting[count].empty()) {
                ++count;
                continue;
            }
            const UInt32 t = waiting[count].front();
            waiting[count].pop_front();
            if (!net.isFree(t))
                continue;
            const UInt32 present = net.freeNeighbours(t);
            if (present == count)
                return t;
            waiting[present].push_back(t); // it has lost neighbours since
            count = present;
        }
        return None;
    }

    triangle_net& net;
    std::deque<UInt32> waiting[4]; ///< by number of free neighbours
};

/// Fans around the vertices with many triangles, in order of vertices.
std::vector<primitive> buildFans(triangle_net& net, UInt32 least_triangles) {
    std::vector<std::vector<UInt32>> edges_from(net.place_of.size());
    for (UInt32 edge = 0; edge < net.corners.size(); ++edge)
        edges_from[net.from(edge)].push_back(edge);
    std::vector<primitive> fans;
    for (UInt32 center = 0; center < edges_from.size(); ++center) {
        if (edges_from[center].size() < least_triangles)
            continue;
        for (const UInt32 start : edges_from[center]) {
            if (!net.isFree(start / 3))
                continue;
            std::vector<UInt32> fan{center, net.to(start), net.opposite(start)};
            net.take(start / 3);
            // Each triangle runs center -> a -> b; the next one has center -> b.
            for (UInt32 edge = start;;) {
                edge = net.freeBehind(triangle_net::turned(edge, 2));
                if (edge == None)
                    break;
                fan.push_back(net.opposite(edge));
                net.take(edge / 3);
            }
            if (fan.size() - 2 >= least_triangles) {
                fans.push_back({GL_TRIANGLE_FAN, fan});
                net.keep();
            } else {
                net.drop();
            }
        }
    }
    return fans;
}

std::vector<UInt32> loneTriangles(const triangle_net& net) {
    std::vector<UInt32> vertices;
    for (UInt32 t = 0; t < net.size(); ++t) {
        if (net.isFree(t))
            vertices.insert(vertices.end(), &net.corners[t * 3], &net.corners[t * 3] + 3);
    }
    vertices.insert(vertices.end(), net.apart.begin(), net.apart.end());
    return vertices;
}

/// One strip of all: the last vertex of one and the first of the next are repeated, the last once
/// more where the winding would turn round.
primitive stitched(const std::vector<primitive>& strips) {
    primitive joined{GL_TRIANGLE_STRIP, {}};
    for (const primitive& strip : strips) {
        if (!joined.vertices.empty()) {
            const UInt32 last = joined.vertices.back();
            if (joined.vertices.size() % 2 != 0)
                joined.vertices.push_back(last);
            joined.vertices.push_back(last);
            joined.vertices.push_back(strip.vertices.front());
        }
        joined.vertices.insert(joined.vertices.end(), strip.vertices.begin(), strip.vertices.end());
    }
    return joined;
}

UInt32 costOf(const std::vector<primitive>& primitives) {
    std::size_t cost = 0;
    for (const primitive& p : primitives)
        cost += p.vertices.size();
    return static_cast<UInt32>(cost);
}

void writePrimitives(const GeometryPtr& geometry, const triangle_net& net,
                     const std::vector<primitive>& primitives) {
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    const GeoNumbers old = GeoNumbers::of(geometry->getIndices());
    const RefPtr<GeoPTypesUI8Ptr> types(GeoPTypesUI8::create());
    const RefPtr<GeoPLengthsUI32Ptr> lengths(GeoPLengthsUI32::create());
    const RefPtr<GeoIndicesUI32Ptr> indices(GeoIndicesUI32::create());
    std::vector<UInt32>& values = indices->editField().getValues();
    for (const primitive& p : primitives) {
        types->editField().push_back(static_cast<UInt8>(p.type));
        lengths->editField().push_back(static_cast<UInt32>(p.vertices.size()));
        for (const UInt32 vertex : p.vertices) {
            for (UInt32 i = 0; i < stride; ++i)
                values.push_back(old[net.place_of[vertex] + i]);
        }
    }
    geometry->setTypes(types.get());
    geometry->setLengths(lengths.get());
    geometry->setIndices(indices.get());
}

} // namespace

Int32 createOptimizedPrimitives(GeometryPtr geometry, UInt32, bool createStrips, bool createFans,
                                UInt32 minFanEdgeCount, bool, bool stitchStrips,
                                bool stripifyIsolatedTris) {
    if (geometry == NullFC || geometry->getPositions() == NullFC ||
        geometry->getIndices() == NullFC) {
        return 0;
    }
    triangle_net net = netOf(geometry);
    const std::size_t triangles = net.size() + net.apart.size() / 3;
    if (triangles == 0)
        return 0;
    std::vector<primitive> fans;
    std::vector<primitive> strips;
    if (createFans)
        fans = buildFans(net, osgMax(minFanEdgeCount, 1u));
    if (createStrips)
        strips = strip_builder(net).build(stripifyIsolatedTris);
    const std::vector<UInt32> lone = loneTriangles(net);

    const UInt32 cost = costOf(strips) + costOf(fans) + static_cast<UInt32>(lone.size());
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    const UInt32 present = geometry->getIndices()->getSize() / stride;
    if (cost >= present || cost > 3 * triangles)
        return static_cast<Int32>(cost);

    if (stitchStrips && strips.size() > 1)
        strips.assign(1, stitched(strips));
    std::vector<primitive> all;
    if (!lone.empty())
        all.push_back({GL_TRIANGLES, lone});
    all.insert(all.end(), strips.begin(), strips.end());
    all.insert(all.end(), fans.begin(), fans.end());
    writePrimitives(geometry, net, all);
    return static_cast<Int32>(cost);
}

OSG_END_NAMESPACE
