#pragma once

// Simplification the slow way: a list of edges that is searched from end to end at every step, an
// index list in which every entry is looked at, and a map of references.

#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <OpenSG/OSGVector.h>

#include <morva/tools/morva_osg_simplify.h>

namespace morva_test {

struct naive_simplifier {
    std::vector<::osg::Pnt3f> places;
    std::vector<::osg::UInt32> index;
    std::map<unsigned, unsigned> references;
    std::vector<morva::osg::edge> edges;
    std::set<unsigned> locked; ///< vertices whose edges are not taken
    std::size_t chosen = 0;
    bool more;                           ///< an edge is chosen
    std::pair<unsigned, unsigned> taken; ///< start and end of the last one

    naive_simplifier(std::vector<::osg::Pnt3f> at, std::vector<::osg::UInt32> corners, bool lock)
        : places(std::move(at)), index(std::move(corners)) {
        for (const unsigned entry : index)
            ++references[entry];
        std::map<std::set<unsigned>, unsigned> sides;
        for (std::size_t t = 0; t < index.size(); t += 3) {
            for (std::size_t k = 0; k < 3; ++k) {
                const unsigned a = index[t + k], b = index[t + (k + 1) % 3];
                edges.push_back({a, b, cost(a, b)});
                sides[{a, b}] += lives(t / 3) ? 1 : 0;
            }
        }
        for (const auto& [ends, count] : sides)
            if (lock && count == 1)
                locked.insert(ends.begin(), ends.end());
        more = !edges.empty() && (!isLocked(edges[0]) || search());
    }

    double cost(unsigned a, unsigned b) {
        double sum = 0;
        for (unsigned i = 0; i < 3; ++i) {
            const float apart = places[a][i] - places[b][i];
            sum = sum + double(apart) * double(apart);
        }
        return (std::sqrt(sum) + references[a]) + references[b];
    }
    /// Per triangle, whether no two of its corners are at one vertex.
    bool lives(std::size_t t) const {
        return std::set<unsigned>(&index[3 * t], &index[3 * t] + 3).size() == 3;
    }
    bool isLocked(const morva::osg::edge& e) const {
        return locked.count(e.start) + locked.count(e.end) > 0;
    }
    /// Chooses the first of the lowest cost; false if there is none.
    bool search() {
        chosen = edges.size();
        double best = std::numeric_limits<double>::max();
        for (std::size_t i = 0; i < edges.size(); ++i) {
            if (!isLocked(edges[i]) && edges[i].cost < best)
                best = edges[chosen = i].cost;
        }
        return chosen < edges.size();
    }
    /// Takes the chosen edge out of the list and chooses the next.
    void collapse() {
        const unsigned a = edges[chosen].start, b = edges[chosen].end;
        edges.erase(edges.begin() + std::ptrdiff_t(chosen));
        for (unsigned i = 0; i < 3; ++i) {
            const float way = (places[b][i] - places[a][i]) * 0.5F;
            places[a][i] += way;
        }
        for (auto& entry : index)
            entry = entry == b ? a : entry;
        references[a] = references[a] + references[b] - 1;
        for (auto& e : edges) {
            if (e.start == a || e.start == b || e.end == a || e.end == b)
                e.cost = cost(e.start, e.end);
        }
        more = search();
        taken = {a, b};
    }
    unsigned live() const {
        unsigned count = 0;
        for (std::size_t t = 0; t < index.size() / 3; ++t)
            count += lives(t) ? 1 : 0;
        return count;
    }
};

} // namespace morva_test
