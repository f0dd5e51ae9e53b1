#include "cell_audit.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <tuple>

#include <OpenSG/OSGSimpleAttachments.h>

#include "geometry_view.h"
#include "print.h"
#include "scene_walk.h"

namespace morva::host {

namespace {

std::string nameOf(const ::osg::NodePtr& node) {
    const ::osg::Char8* const name = getName(node);
    return name != nullptr ? name : "";
}

/// Tells a place in the space of a part.
std::uint64_t printOf(std::uint32_t entry, const float* place) {
    const float zeros_alike[3] = {place[0] + 0.0F, place[1] + 0.0F, place[2] + 0.0F};
    return extendedPrint(extendedPrint(empty_print, &entry, sizeof entry), zeros_alike,
                         sizeof zeros_alike);
}

} // namespace

cell_audit::cell_audit(const std::vector<named_part>& parts,
                       const morva::osg::cell_division& division, bool cut)
    : cut_(cut) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::uint32_t number = entryOf(parts[i].name);
        const std::uint64_t unplaced = division.parts[i].unplaced;
        const geometry_view view(::osg::GeometryPtr::dcast(parts[i].node->getCore()));
        entries_[number].unplaced += unplaced;
        count(view, placement(parts[i].node), entries_[number].in);
        if (!cut_ && unplaced == 0)
            addPrints(view, number, before_);
        for (std::size_t row = 0; cut_ && row < view.positions.rows; ++row)
            corners_before_.push_back(printOf(number, view.positions.at(row)));
    }
    std::sort(corners_before_.begin(), corners_before_.end());
}

std::uint32_t cell_audit::entryOf(const std::string& name) {
    const auto place = entry_of_name_.emplace(name, static_cast<std::uint32_t>(entries_.size()));
    if (place.second) {
        entries_.emplace_back();
        entries_.back().name = name;
    }
    return place.first->second;
}

void cell_audit::count(const geometry_view& view, const placement& world, amounts& to) const {
    const std::vector<::osg::Pnt3f> moved =
        cut_ ? placed(view, &world) : std::vector<::osg::Pnt3f>();
    forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        ++to.triangles;
        if (!cut_)
            return;
        const measured_area area = triangleArea(view, moved, a, b, c);
        to.surface.area += area.area;
        to.surface.rounding += area.rounding;
    });
    forEachLine(view, [&](std::size_t, std::size_t) { ++to.lines; });
    forEachPoint(view, [&](std::size_t) { ++to.points; });
}

void cell_audit::add(std::size_t cell, const ::osg::NodePtr& scene) {
    for (const ::osg::NodePtr& node : geometryNodes(scene)) {
        const auto known = entry_of_name_.find(nameOf(node));
        if (known == entry_of_name_.end()) {
            strangers_.push_back(nameOf(node));
            continue;
        }
        const std::uint32_t number = known->second;
        const geometry_view view(::osg::GeometryPtr::dcast(node->getCore()));
        count(view, placement(node), entries_[number].out);
        if (!cut_ && entries_[number].unplaced == 0)
            addPrints(view, number, after_);
        for (std::size_t row = 0; cut_ && row < view.positions.rows; ++row) {
            const std::uint64_t print = printOf(number, view.positions.at(row));
            if (std::binary_search(corners_before_.begin(), corners_before_.end(), print))
                continue;
            cut_corners_.push_back({print, static_cast<std::uint32_t>(cell), number});
        }
    }
}

std::vector<std::string> cell_audit::judge() {
    std::vector<std::string> differences;
    for (const std::string& name : strangers_)
        differences.push_back("a cell holds '" + name + "', which is no part");
    for (const entry& part : entries_)
        judgeEntry(part, differences);
    judgePrints(differences);
    judgeSeams(differences);
    return differences;
}

void cell_audit::judgeEntry(const entry& part, std::vector<std::string>& differences) const {
    const std::uint64_t in = part.in.triangles + part.in.lines + part.in.points;
    const std::uint64_t out = part.out.triangles + part.out.lines + part.out.points;
    const bool whole = part.unplaced == 0
                           ? part.in.lines == part.out.lines && part.in.points == part.out.points &&
                                 (cut_ ? part.out.triangles >= part.in.triangles
                                       : part.out.triangles == part.in.triangles)
                           : (cut_ ? out + part.unplaced >= in : out + part.unplaced == in);
    const std::string who = "part '" + part.name + "': ";
    const auto texts = [](const amounts& of) {
        return std::to_string(of.triangles) + " triangles, " + std::to_string(of.lines) +
               " lines and " + std::to_string(of.points) + " points";
    };
    if (!whole) {
        differences.push_back(who + texts(part.in) + " went in, " + texts(part.out) +
                              " are in cells");
        return;
    }
    const double change = std::abs(part.out.surface.area - part.in.surface.area);
    const double rounding = part.in.surface.rounding + part.out.surface.rounding;
    // False where areas are no numbers: nothing can be told then.
    if (part.unplaced == 0 && change > 1e-6 * part.in.surface.area + rounding)
        differences.push_back(who + "an area of " + std::to_string(part.in.surface.area) +
                              " went in, " + std::to_string(part.out.surface.area) +
                              " is in cells");
}

void cell_audit::judgePrints(std::vector<std::string>& differences) {
    for (const print_difference& found : comparePrints(std::move(before_), std::move(after_)))
        differences.push_back("part '" + entries_[found.part].name +
                              "': " + std::to_string(found.lost) + " triangles are in no cell, " +
                              std::to_string(found.again) + " in several");
}

void cell_audit::judgeSeams(std::vector<std::string>& differences) {
    const auto key = [](const cut_corner& c) { return std::tie(c.print, c.cell); };
    std::sort(cut_corners_.begin(), cut_corners_.end(),
              [&](const cut_corner& a, const cut_corner& b) { return key(a) < key(b); });
    std::map<std::uint32_t, std::uint64_t> open; // corners by part
    for (std::size_t first = 0, end = 0; first < cut_corners_.size(); first = end) {
        const cut_corner& corner = cut_corners_[first];
        while (end < cut_corners_.size() && cut_corners_[end].print == corner.print)
            ++end;
        if (cut_corners_[end - 1].cell == corner.cell)
            ++open[corner.entry];
    }
    for (const auto& [part, corners] : open)
        differences.push_back("part '" + entries_[part].name + "': " + std::to_string(corners) +
                              " cut points have none in another cell to meet them");
}

std::uint64_t cell_audit::trianglesIn() const {
    return std::accumulate(
        entries_.begin(), entries_.end(), std::uint64_t{0},
        [](std::uint64_t sum, const entry& part) { return sum + part.in.triangles; });
}

std::uint64_t cell_audit::trianglesOut() const {
    return std::accumulate(
        entries_.begin(), entries_.end(), std::uint64_t{0},
        [](std::uint64_t sum, const entry& part) { return sum + part.out.triangles; });
}

} // namespace morva::host
