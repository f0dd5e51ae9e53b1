#pragma once

// The steps of the walk on lists, for the records of triangles and of lines: what the functions of
// morva_osg_cacheopt.h and morva_osg_line_cacheopt.h have in common.

#include <cstddef>
#include <iterator>
#include <list>
#include <vector>

#include <morva/draworder/morva_osg_cache_scores.h>

namespace morva::osg::detail {

/// Scores an element that is not drawn, and stores it.
template <typename Rules, typename Element, typename Vertex>
float scoreElement(Element& of, const std::vector<Vertex>& vertices) {
    if (of.drawn)
        return -1.0F;
    of.score = elementScore<Rules>(
        [&](unsigned k) { return vertices[static_cast<std::size_t>(of.positions[k])].score; });
    return of.score;
}

/// Keeps the best of a vertex's elements; returns whether one was better than `best`.
template <typename Element>
bool takeBest(const std::vector<Element>& elements, const std::list<unsigned int>& waiting,
              float& best, unsigned int& place) {
    bool taken = false;
    for (const unsigned int candidate : waiting) {
        if (!(elements[candidate].score > best))
            continue;
        best = elements[candidate].score;
        place = candidate;
        taken = true;
    }
    return taken;
}

/// Moves the marker to the first element from there on that is not drawn; false without one.
template <typename Element>
bool findUndrawn(const std::vector<Element>& elements, unsigned long& marker) {
    for (unsigned long i = marker; i < elements.size(); ++i) {
        if (elements[i].drawn)
            continue;
        marker = i;
        return true;
    }
    return false;
}

/// Marks an element as drawn and enters its indices into a piece; lines have no slot 0.
template <typename Element, typename List> void enterDrawn(Element& element, List& list) {
    constexpr std::size_t corners = std::size(Element().positions);
    element.drawn = true;
    element.score = -1.0F;
    for (std::size_t k = 0; k < corners; ++k) {
        ::osg::Int32 slot_0 = -1;
        if constexpr (corners == 3)
            slot_0 = element.texCoords[k];
        if (!list.perProperty) {
            list.usedCorners.insert({element.positions[k], element.normals[k], element.colors[k],
                                     slot_0, element.texCoords7[k]});
            continue;
        }
        list.usedPositions.insert(static_cast<unsigned int>(element.positions[k]));
        list.usedNormals.insert(static_cast<unsigned int>(element.normals[k]));
        list.usedColors.insert(static_cast<unsigned int>(element.colors[k]));
        if constexpr (corners == 3)
            list.usedTexCoords.insert(static_cast<unsigned int>(slot_0));
        list.usedTexCoords7.insert(static_cast<unsigned int>(element.texCoords7[k]));
    }
}

} // namespace morva::osg::detail
