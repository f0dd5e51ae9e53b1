#include "flat_mesh.h"

#include <algorithm>

namespace morva::host {

namespace {

bool isOneTriangleRun(const geometry_view& view) {
    return view.indices == nullptr && view.runs.size() == 1 && view.runs[0].type == GL_TRIANGLES &&
           view.runs[0].length == view.positions.count && view.positions.count % 3 == 0;
}

/// Whether each entry of each attribute is one vertex, and all of them are used.
bool passesThrough(const geometry_view& view) {
    const std::uint32_t count = view.positions.count;
    const auto fits = [&](const attribute_view& attribute) {
        return !attribute.present() || attribute.count == count;
    };
    const auto* sets = view.coordinates;
    if (!view.oneIndexPerCorner() || !fits(view.normals) || !fits(view.colors) ||
        !std::all_of(sets, sets + flat_mesh::written_sets, fits) || view.runs.empty())
        return false;
    std::vector<bool> used(count, false);
    std::size_t unused = count;
    const std::uint32_t end = view.runs.back().first + view.runs.back().length;
    for (std::uint32_t corner = 0; corner < end; ++corner) {
        const std::uint32_t index = view.index(view.positions, corner);
        unused -= used[index] ? 0 : 1;
        used[index] = true;
    }
    return unused == 0;
}

void pass(const attribute_view& from, flat_attribute& to) {
    to.components = from.components;
    to.values = from.values;
}

void gather(const geometry_view& view, const attribute_view& from,
            const std::vector<std::uint32_t>& first_corner, flat_attribute& to) {
    if (!from.present())
        return;
    to.components = from.components;
    to.gathered.reserve(first_corner.size() * static_cast<std::size_t>(from.components));
    for (const std::uint32_t corner : first_corner) {
        const float* value = from.at(view.index(from, corner));
        to.gathered.insert(to.gathered.end(), value, value + from.components);
    }
    to.values = to.gathered.data();
}

} // namespace

flat_mesh::flat_mesh(const geometry_view& view) {
    running = isOneTriangleRun(view);
    const bool direct = running || passesThrough(view);
    vertex_numbering numbering;
    if (!direct)
        numbering = numberVertices(view);
    vertex_count = direct ? view.positions.count : numbering.first_corner.size();

    const auto take = [&](const attribute_view& from, flat_attribute& to) {
        if (direct)
            pass(from, to);
        else
            gather(view, from, numbering.first_corner, to);
    };
    take(view.positions, positions);
    take(view.normals, normals);
    take(view.colors, colors);
    for (std::size_t set = 0; set < written_sets; ++set)
        take(view.coordinates[set], coordinates[set]);
    if (running)
        return;

    const auto vertex = [&](std::uint32_t corner) {
        return direct ? view.index(view.positions, corner) : numbering.of_corner[corner];
    };
    triangles.reserve(view.corner_count);
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        triangles.push_back(vertex(a));
        triangles.push_back(vertex(b));
        triangles.push_back(vertex(c));
    });
    forEachLine(view, [&](std::uint32_t a, std::uint32_t b) {
        lines.push_back(vertex(a));
        lines.push_back(vertex(b));
    });
    forEachPoint(view, [&](std::uint32_t corner) { points.push_back(vertex(corner)); });
}

} // namespace morva::host
