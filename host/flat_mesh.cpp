#include "flat_mesh.h"

#include <algorithm>

namespace morva::host {

namespace {

bool isOneTriangleRun(const geometry_view& view) {
    return !view.columns.indexed() && view.runs.size() == 1 && view.runs[0].type == GL_TRIANGLES &&
           view.runs[0].length == view.positions.rows && view.positions.rows % 3 == 0;
}

/// Whether each entry of each attribute is one vertex, and all of them are used.
bool passesThrough(const geometry_view& view, int id_set) {
    const std::size_t count = view.positions.rows;
    const auto fits = [&](const property_column& column) {
        return !column.present || column.rows == count;
    };
    const auto* sets = view.coordinates;
    if (!view.one_index_per_corner || !fits(view.normals) || !fits(view.colors) ||
        !std::all_of(sets, sets + flat_mesh::written_sets, fits) || view.runs.empty() ||
        (id_set >= 0 && !fits(sets[id_set])))
        return false;
    std::vector<bool> used(count, false);
    std::size_t unused = count;
    for (std::size_t corner = 0; corner < view.usedCorners(); ++corner) {
        const std::uint32_t index = view.positions.row(corner);
        unused -= used[index] ? 0 : 1;
        used[index] = true;
    }
    return unused == 0;
}

void pass(const property_column& from, flat_attribute& to) {
    to.components = static_cast<int>(from.width);
    to.values = from.values;
}

void gather(const property_column& from, const std::vector<std::uint32_t>& first_corner,
            flat_attribute& to) {
    if (!from.present)
        return;
    to.components = static_cast<int>(from.width);
    to.gathered.reserve(first_corner.size() * from.width);
    for (const std::uint32_t corner : first_corner) {
        const float* value = from.at(from.row(corner));
        to.gathered.insert(to.gathered.end(), value, value + from.width);
    }
    to.values = to.gathered.data();
}

} // namespace

flat_mesh::flat_mesh(const geometry_view& view, int id_set) {
    running = isOneTriangleRun(view);
    const bool direct = running || passesThrough(view, id_set);
    vertex_numbering numbering;
    if (!direct)
        numbering = numberVertices(view);
    vertex_count = direct ? view.positions.rows : numbering.first_corner.size();

    const auto take = [&](const property_column& from, flat_attribute& to) {
        if (direct)
            pass(from, to);
        else
            gather(from, numbering.first_corner, to);
    };
    take(view.positions, positions);
    take(view.normals, normals);
    take(view.colors, colors);
    for (std::size_t set = 0; set < written_sets; ++set) {
        if (static_cast<int>(set) != id_set)
            take(view.coordinates[set], coordinates[set]);
    }
    if (id_set >= 0)
        take(view.coordinates[id_set], ids);
    if (running)
        return;

    const auto vertex = [&](std::size_t corner) {
        return direct ? view.positions.row(corner) : numbering.of_corner[corner];
    };
    triangles.reserve(view.columns.corners());
    forEachTriangle(view, [&](std::size_t a, std::size_t b, std::size_t c) {
        triangles.push_back(vertex(a));
        triangles.push_back(vertex(b));
        triangles.push_back(vertex(c));
    });
    forEachLine(view, [&](std::size_t a, std::size_t b) {
        lines.push_back(vertex(a));
        lines.push_back(vertex(b));
    });
    forEachPoint(view, [&](std::size_t corner) { points.push_back(vertex(corner)); });
}

} // namespace morva::host
