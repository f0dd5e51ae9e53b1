#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGTriangleIterator.h"

#include <algorithm>
#include <unordered_map>

OSG_BEGIN_NAMESPACE

namespace {

enum : UInt32 { None = 0xFFFFFFFFu };

/// The triangles of a geometry over numbered vertices, and who lies behind which edge.
///
/// Edge e of triangle t runs from corner e to corner (e + 1) % 3. Triangles that share an edge run
/// along it in opposite directions; edges with more than two triangles keep them in a list.
class triangle_net {
  public:
    std::vector<UInt32> corners;  ///< 3 per triangle
    std::vector<UInt32> place_of; ///< per vertex: a place among the geometry's vertices
    std::vector<bool> used;       ///< per triangle: stands in a strip or fan

    UInt32 size() const { return static_cast<UInt32>(corners.size() / 3); }

    void link() {
        used.assign(size(), false);
        next_of.assign(corners.size(), None);
        head_of.reserve(corners.size());
        for (UInt32 edge = static_cast<UInt32>(corners.size()); edge-- > 0;) {
            const auto entered = head_of.emplace(keyOf(from(edge), to(edge)), edge);
            if (entered.second)
                continue;
            next_of[edge] = entered.first->second;
            entered.first->second = edge;
        }
    }
    /// The lowest edge from a to b whose triangle is free, or None.
    UInt32 freeEdge(UInt32 a, UInt32 b) const {
        const auto found = head_of.find(keyOf(a, b));
        if (found == head_of.end())
            return None;
        UInt32 edge = found->second;
        while (edge != None && used[edge / 3])
            edge = next_of[edge];
        return edge;
    }
    UInt32 from(UInt32 edge) const { return corners[edge]; }
    UInt32 to(UInt32 edge) const { return corners[edge / 3 * 3 + (edge + 1) % 3]; }
    UInt32 opposite(UInt32 edge) const { return corners[edge / 3 * 3 + (edge + 2) % 3]; }
    UInt32 freeNeighbours(UInt32 triangle) const {
        UInt32 count = 0;
        for (UInt32 edge = triangle * 3; edge < triangle * 3 + 3; ++edge) {
            if (freeEdge(to(edge), from(edge)) != None)
                ++count;
        }
        return count;
    }

  private:
    static UInt64 keyOf(UInt32 a, UInt32 b) { return (UInt64(a) << 32) | b; }

    std::unordered_map<UInt64, UInt32> head_of; ///< lowest edge of a direction
    std::vector<UInt32> next_of;                ///< next edge of the same direction
};

struct primitive {
    UInt32 type;
    std::vector<UInt32> vertices;
};

/// Numbers vertices by their indices and leaves out triangles with two equal ones.
triangle_net netOf(const GeometryPtr& geometry) {
    triangle_net net;
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    const GeoNumbers indices = GeoNumbers::of(geometry->getIndices());
    std::unordered_map<std::string, UInt32> tuples;
    std::unordered_map<UInt32, UInt32> singles;
    for (TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        UInt32 vertex[3];
        for (Int32 k = 0; k < 3; ++k) {
            const UInt32 place = static_cast<UInt32>(it.getIndexIndex(k));
            const UInt32 fresh = static_cast<UInt32>(net.place_of.size());
            if (stride == 1) {
                vertex[k] = singles.emplace(indices[place], fresh).first->second;
            } else {
                std::string key;
                for (UInt32 i = 0; i < stride; ++i)
                    key += std::to_string(indices[place + i]) + " ";
                vertex[k] = tuples.emplace(key, fresh).first->second;
            }
            if (vertex[k] == fresh)
                net.place_of.push_back(place);
        }
        if (vertex[0] == vertex[1] || vertex[1] == vertex[2] || vertex[0] == vertex[2])
            continue;
        net.corners.insert(net.corners.end(), vertex, vertex + 3);
    }
    net.link();
    return net;
}

/// Grows a strip from edge `start` of a free triangle and marks its triangles; `taken` gets them.
std::vector<UInt32> growStrip(triangle_net& net, UInt32 start, std::vector<UInt32>& taken) {
    std::vector<UInt32> strip{net.from(start), net.to(start), net.opposite(start)};
    net.used[start / 3] = true;
    taken.assign(1, start / 3);
    for (bool odd = true;; odd = !odd) {
        // Odd triangles run against the strip: their shared edge is turned round.
        const UInt32 p = strip[strip.size() - 2];
        const UInt32 q = strip.back();
        const UInt32 edge = odd ? net.freeEdge(q, p) : net.freeEdge(p, q);
        if (edge == None)
            return strip;
        strip.push_back(net.opposite(edge));
        net.used[edge / 3] = true;
        taken.push_back(edge / 3);
    }
}

void setUsed(triangle_net& net, const std::vector<UInt32>& triangles, bool used) {
    for (const UInt32 triangle : triangles)
        net.used[triangle] = used;
}

/// The longest of the three strips that begin with a triangle.
std::vector<UInt32> bestStrip(triangle_net& net, UInt32 triangle) {
    std::vector<UInt32> best;
    std::vector<UInt32> best_taken;
    std::vector<UInt32> taken;
    for (UInt32 edge = triangle * 3; edge < triangle * 3 + 3; ++edge) {
        std::vector<UInt32> strip = growStrip(net, edge, taken);
        setUsed(net, taken, false);
        if (strip.size() <= best.size())
            continue;
        best.swap(strip);
        best_taken.swap(taken);
    }
    setUsed(net, best_taken, true);
    return best;
}

std::vector<primitive> buildStrips(triangle_net& net, bool with_lone) {
    std::vector<primitive> strips;
    // Ends first: a triangle with few free neighbours is hard to reach later.
    std::vector<std::vector<UInt32>> by_neighbours(4);
    for (UInt32 t = 0; t < net.size(); ++t) {
        if (!net.used[t])
            by_neighbours[net.freeNeighbours(t)].push_back(t);
    }
    for (const std::vector<UInt32>& bucket : by_neighbours) {
        for (const UInt32 t : bucket) {
            if (net.used[t])
                continue;
            if (!with_lone && net.freeNeighbours(t) == 0)
                continue;
            strips.push_back({GL_TRIANGLE_STRIP, bestStrip(net, t)});
        }
    }
    return strips;
}

/// Fans around the vertices with many triangles, in order of vertices.
std::vector<primitive> buildFans(triangle_net& net, UInt32 least_triangles) {
    std::vector<std::vector<UInt32>> edges_from(net.place_of.size());
    for (UInt32 edge = 0; edge < net.corners.size(); ++edge) {
        edges_from[net.from(edge)].push_back(edge);
    }
    std::vector<primitive> fans;
    for (UInt32 center = 0; center < edges_from.size(); ++center) {
        if (edges_from[center].size() < least_triangles)
            continue;
        for (const UInt32 start : edges_from[center]) {
            if (net.used[start / 3])
                continue;
            std::vector<UInt32> fan{center, net.to(start), net.opposite(start)};
            std::vector<UInt32> taken{start / 3};
            net.used[start / 3] = true;
            for (;;) {
                const UInt32 edge = net.freeEdge(center, fan.back());
                if (edge == None)
                    break;
                fan.push_back(net.opposite(edge));
                taken.push_back(edge / 3);
                net.used[edge / 3] = true;
            }
            if (taken.size() >= least_triangles)
                fans.push_back({GL_TRIANGLE_FAN, fan});
            else
                setUsed(net, taken, false);
        }
    }
    return fans;
}

std::vector<UInt32> loneTriangles(const triangle_net& net) {
    std::vector<UInt32> vertices;
    for (UInt32 t = 0; t < net.size(); ++t) {
        if (net.used[t])
            continue;
        vertices.insert(vertices.end(), &net.corners[t * 3], &net.corners[t * 3] + 3);
    }
    return vertices;
}

/// One strip of all: the last vertex of one and the first of the next are repeated, and once more
/// where the winding would turn round.
primitive stitched(const std::vector<primitive>& strips) {
    primitive joined{GL_TRIANGLE_STRIP, {}};
    for (const primitive& strip : strips) {
        if (!joined.vertices.empty()) {
            const UInt32 last = joined.vertices.back();
            joined.vertices.push_back(last);
            joined.vertices.push_back(strip.vertices.front());
            if (joined.vertices.size() % 2 != 0)
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
    const GeoPTypesUI8Ptr types = GeoPTypesUI8::create();
    const GeoPLengthsUI32Ptr lengths = GeoPLengthsUI32::create();
    const GeoIndicesUI32Ptr indices = GeoIndicesUI32::create();
    for (const primitive& p : primitives) {
        types->editField().push_back(static_cast<UInt8>(p.type));
        lengths->editField().push_back(static_cast<UInt32>(p.vertices.size()));
        for (const UInt32 vertex : p.vertices) {
            for (UInt32 i = 0; i < stride; ++i) {
                indices->editField().push_back(old[net.place_of[vertex] + i]);
            }
        }
    }
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setIndices(indices);
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
    if (net.size() == 0)
        return 0;
    std::vector<primitive> fans;
    std::vector<primitive> strips;
    if (createFans)
        fans = buildFans(net, osgMax(minFanEdgeCount, 1u));
    if (createStrips)
        strips = buildStrips(net, stripifyIsolatedTris);
    const std::vector<UInt32> lone = loneTriangles(net);

    const UInt32 cost = costOf(strips) + costOf(fans) + static_cast<UInt32>(lone.size());
    const UInt32 stride = osgMax(geometry->getMFIndexMapping()->getSize(), 1u);
    const UInt32 present = geometry->getIndices()->getSize() / stride;
    if (cost >= present || cost > 3 * net.size())
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
