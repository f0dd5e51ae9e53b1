#include "cell_record.h"

#include <algorithm>
#include <cstdio>

#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

using morva::osg::model_cell;

/// Sums and extremes over the cells.
struct cell_sums {
    explicit cell_sums(const std::vector<model_cell>& cells) {
        for (const model_cell& cell : cells) {
            triangles += cell.triangles;
            lines += cell.lines;
            points += cell.points;
            least = &cell == cells.data() ? cell.triangles : std::min(least, cell.triangles);
            most = std::max(most, cell.triangles);
            above += cell.above_limit ? 1 : 0;
        }
    }
    std::uint64_t triangles = 0, lines = 0, points = 0, least = 0, most = 0, above = 0;
};

std::string counted(std::uint64_t count, const char* one, const char* several) {
    return withCommas(count) + " " + (count == 1 ? one : several);
}

std::string textOf(const ::osg::Pnt3f& place) {
    return shortText(place[0]) + "," + shortText(place[1]) + "," + shortText(place[2]);
}

} // namespace

std::vector<std::string> notesOf(const cell_record& record) {
    std::vector<std::string> notes;
    if (!record.left_out.empty())
        notes.push_back(counted(record.left_out.size(), "part", "parts") +
                        " that a viewer does not show (hidden, not chosen by a switch, a further "
                        "level of detail) are in no cell: " +
                        quotedNames(record.left_out));
    std::uint64_t unplaced = 0;
    std::vector<std::string> names;
    for (std::size_t i = 0; i < record.parts.size(); ++i) {
        unplaced += record.division.parts[i].unplaced;
        if (record.division.parts[i].unplaced != 0)
            names.push_back(record.parts[i].path);
    }
    if (unplaced != 0)
        notes.push_back(
            "in no cell, since without a finite place in the world: " +
            counted(unplaced, "triangle, line or point", "triangles, lines and points") + " of " +
            quotedNames(names));
    const cell_sums sums(record.division.cells);
    const bool by_size = record.asked.cells.measure == morva::osg::cell_measure::size;
    if (sums.above != 0)
        notes.push_back(counted(sums.above, "cell stays", "cells stay") + " above the limit" +
                        (by_size ? ": single precision has run out there"
                                 : ", with up to " + withCommas(sums.most) +
                                       " triangles: no plane tells them apart"));
    if (sums.triangles == 0)
        notes.push_back("there are no triangles: lines and points are in one cell");
    return notes;
}

std::string planOf(const cell_record& record) {
    std::string text;
    char line[160];
    std::snprintf(line, sizeof line, "%-14s %12s %10s %10s %8s  %s\n", "cell", "triangles", "lines",
                  "points", "parts", "box");
    text += line;
    for (std::size_t i = 0; i < record.division.cells.size(); ++i) {
        const model_cell& cell = record.division.cells[i];
        std::snprintf(line, sizeof line, "%-14s %12s %10s %10s %8s  ", record.files[i].path.c_str(),
                      withCommas(cell.triangles).c_str(), withCommas(cell.lines).c_str(),
                      withCommas(cell.points).c_str(), withCommas(cell.shares.size()).c_str());
        text += line + textOf(cell.box.low) + " to " + textOf(cell.box.high) +
                (cell.above_limit ? "  above the limit\n" : "\n");
    }
    return text + tableOf(record);
}

std::string tableOf(const cell_record& record) {
    const std::vector<model_cell>& cells = record.division.cells;
    const cell_sums sums(cells);
    std::uint64_t bytes = 0, pieces = 0, least = 0, most = 0;
    for (const file_record& file : record.files)
        bytes += file.bytes;
    for (const morva::osg::divided_part& part : record.division.parts)
        pieces += part.pieces;
    for (const model_cell& cell : cells) {
        least = &cell == cells.data() ? cell.shares.size()
                                      : std::min<std::uint64_t>(least, cell.shares.size());
        most = std::max<std::uint64_t>(most, cell.shares.size());
    }
    std::string text = counted(cells.size(), "cell", "cells") + " of " +
                       counted(record.parts.size(), "part", "parts") + "\n";
    text += "triangles  " + withCommas(sums.triangles) + ", " + withCommas(sums.least) + " to " +
            withCommas(sums.most) + " a cell" +
            (pieces != 0 ? ", " + withCommas(pieces) + " more by cuts" : "") + "\n";
    if (sums.lines + sums.points != 0)
        text +=
            "lines      " + withCommas(sums.lines) + ", points " + withCommas(sums.points) + "\n";
    text += "parts      " + withCommas(least) + " to " + withCommas(most) + " a cell\n";
    if (bytes != 0)
        text += "files      " + readableBytes(bytes) + " before the manifest\n";
    return text;
}

} // namespace morva::host
