#include <morva/tools/morva_osg_model_cells.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include <morva/tools/morva_osg_model_cell_contents.h>
#include <morva/tools/morva_osg_model_cell_strategy.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// No tree comes there: on each axis boxes are halved until single precision has run out.
constexpr std::uint32_t deepest = 2000;

cell_box emptyBox() {
    const float most = std::numeric_limits<float>::max();
    return {{most, most, most}, {-most, -most, -most}};
}

/// Lets a box hold an extent on one axis.
void growAxis(cell_box& box, UInt32 axis, float low, float high) {
    box.low[axis] = std::min(box.low[axis], low);
    box.high[axis] = std::max(box.high[axis], high);
}

cell_box boxOf(const float_box& box) {
    cell_box result;
    for (UInt32 axis = 0; axis < 3; ++axis) {
        result.low[axis] = box.min[axis];
        result.high[axis] = box.max[axis];
    }
    return result;
}

/// The box of a line or a point.
cell_box boxOfElement(const cell_part& part, cell_kind kind, std::uint64_t element) {
    cell_box box = emptyBox();
    const UInt32* const vertices = part.verticesOf(kind, element);
    for (std::size_t k = 0; k < cornersOf(kind); ++k) {
        const ::osg::Pnt3f place = part.worldOf(vertices[k]);
        for (UInt32 axis = 0; axis < 3; ++axis)
            growAxis(box, axis, place[axis], place[axis]);
    }
    return box;
}

/// Builds the tree, and finds out what is in each of its leaves.
class cell_division_maker {
  public:
    cell_division_maker(cell_contents& contents, cell_division& division)
        : contents_(contents), division_(division), options_(contents.options) {}

    void make() {
        for (const cell_part& part : contents_.parts)
            division_.parts.push_back({part.kept[cell_triangle].size(), part.kept[cell_line].size(),
                                       part.kept[cell_point].size(), 0, part.unplaced});
        buildTree();
        listLeaves();
        for (const cell_kind kind : {cell_line, cell_point})
            spread(kind);
        for (std::size_t i = 0; i < leaves_.size(); ++i)
            finishLeaf(leaves_[i]);
        cell_triangles& triangles = contents_.triangles;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            std::vector<float>().swap(triangles.low[axis]);
            std::vector<float>().swap(triangles.high[axis]);
        }
    }

  private:
    struct leaf {
        cell_box space;
        cell_elements elements;
    };

    void buildTree() {
        const double most = std::numeric_limits<std::uint32_t>::max();
        kd_build_setup setup;
        const bool cuts = options_.straddle == cell_straddle::cut;
        // Where elements are no triangles the strategy alone knows what fits.
        setup.max_elements = options_.measure == cell_measure::triangles && !cuts
                                 ? static_cast<std::uint32_t>(std::min(options_.limit, most))
                                 : 0;
        setup.max_depth = deepest;
        setup.straddle_mode = cuts ? 1 : 3;
        compile(contents_.triangles, tree_, setup, cell_strategy{options_});
    }

    /// Walks down with the boxes of the nodes.
    void listLeaves() {
        leaf_of_node_.resize(static_cast<std::size_t>(tree_.node_count) + 1);
        std::vector<std::pair<std::size_t, float_box>> todo = {{0, contents_.triangles.bbox}};
        while (!todo.empty()) {
            const auto [number, box] = todo.back();
            todo.pop_back();
            const kd_node<float>& node = tree_.nodes[number];
            if (node.is_leaf()) {
                leaf_of_node_[number] = leaves_.size();
                leaves_.push_back({boxOf(box), {}});
                if (contents_.triangles.size != 0)
                    leaves_.back().elements.of[cell_triangle].assign(
                        tree_.indices + node.range_first(),
                        tree_.indices + node.range_first() + node.range_count());
                continue;
            }
            todo.push_back({static_cast<std::size_t>(node.right_child()), box});
            todo.back().second.min[node.axis] = node.cut_plane();
            todo.push_back({number + 1, box});
            todo.back().second.max[node.axis] = node.cut_plane();
        }
    }

    /// Puts lines or points into the leaves, by the rule for triangles that stay whole.
    void spread(cell_kind kind) {
        for (const cell_part& part : contents_.parts) {
            const std::uint64_t end = part.first[kind] + part.kept[kind].size();
            for (std::uint64_t element = part.first[kind]; element < end; ++element) {
                const cell_box box = boxOfElement(part, kind, element);
                leaves_[leaf_of_node_[leafAt(box)]].elements.of[kind].push_back(element);
            }
        }
    }

    std::size_t leafAt(const cell_box& box) const {
        std::size_t number = 0;
        while (!tree_.nodes[number].is_leaf()) {
            const kd_node<float>& node = tree_.nodes[number];
            const float low = box.low[node.axis], high = box.high[node.axis];
            const float plane = node.cut_plane();
            const bool left = low < plane && (plane >= high || plane > (high - low) * 0.5F + low);
            number = left ? number + 1 : static_cast<std::size_t>(node.right_child());
        }
        return number;
    }

    /// Makes a cell of a leaf, unless it is empty.
    void finishLeaf(leaf& from) {
        model_cell cell;
        cell.space = from.space;
        cell.box = emptyBox();
        orderTriangles(from.elements.of[cell_triangle]);
        addTriangles(from.elements.of[cell_triangle], cell);
        addOthers(cell_line, from.elements.of[cell_line], cell, cell.lines, &cell_share::lines);
        addOthers(cell_point, from.elements.of[cell_point], cell, cell.points, &cell_share::points);
        if (cell.shares.empty())
            return;
        std::sort(cell.shares.begin(), cell.shares.end(),
                  [](const cell_share& a, const cell_share& b) { return a.part < b.part; });
        joinShares(cell.shares);
        if (contents_.triangles.size == 0)
            cell.space = cell.box;
        cell.above_limit = isAboveLimit(cell);
        division_.cells.push_back(std::move(cell));
        contents_.cells.push_back(std::move(from.elements));
    }

    bool isAboveLimit(const model_cell& cell) const {
        if (options_.measure == cell_measure::triangles)
            return static_cast<double>(cell.triangles) > options_.limit;
        float_box space{};
        for (UInt32 axis = 0; axis < 3; ++axis) {
            space.min[axis] = cell.space.low[axis];
            space.max[axis] = cell.space.high[axis];
        }
        return !isWithin(space, options_.limit);
    }

    void orderTriangles(std::vector<std::uint64_t>& elements) const {
        const cell_triangles& triangles = contents_.triangles;
        std::sort(elements.begin(), elements.end(), [&](std::uint64_t a, std::uint64_t b) {
            return std::make_pair(triangles.originOf(a), a) <
                   std::make_pair(triangles.originOf(b), b);
        });
    }

    void addTriangles(const std::vector<std::uint64_t>& elements, model_cell& cell) {
        const cell_triangles& triangles = contents_.triangles;
        for (const std::uint64_t element : elements) {
            for (UInt32 axis = 0; axis < 3; ++axis)
                growAxis(cell.box, axis, triangles.low[axis][static_cast<std::size_t>(element)],
                         triangles.high[axis][static_cast<std::size_t>(element)]);
            const std::uint64_t count = triangles.trianglesOf(element);
            const std::size_t part = enter(cell_triangle, triangles.originOf(element), count, cell,
                                           &cell_share::triangles);
            division_.parts[part].pieces += element < triangles.whole ? count - 1 : count;
            cell.triangles += count;
        }
    }

    void addOthers(cell_kind kind, const std::vector<std::uint64_t>& elements, model_cell& cell,
                   std::uint64_t& total, std::uint64_t cell_share::*count) {
        for (const std::uint64_t element : elements) {
            const std::size_t part = enter(kind, element, 1, cell, count);
            const cell_box box = boxOfElement(contents_.parts[part], kind, element);
            for (UInt32 axis = 0; axis < 3; ++axis)
                growAxis(cell.box, axis, box.low[axis], box.high[axis]);
        }
        total = elements.size();
    }

    /// Counts `more` for an element in the share of its part, which is the last one or comes behind
    /// it.
    std::size_t enter(cell_kind kind, std::uint64_t element, std::uint64_t more, model_cell& cell,
                      std::uint64_t cell_share::*count) const {
        const auto holds = [&](std::size_t part) {
            const cell_part& known = contents_.parts[part];
            return element >= known.first[kind] &&
                   element - known.first[kind] < known.kept[kind].size();
        };
        if (cell.shares.empty() || !holds(cell.shares.back().part)) {
            cell.shares.emplace_back();
            cell.shares.back().part =
                static_cast<std::uint32_t>(partOf(contents_.parts, kind, element));
        }
        cell.shares.back().*count += more;
        return cell.shares.back().part;
    }

    /// Makes one of neighbours that are of one part.
    static void joinShares(std::vector<cell_share>& shares) {
        std::vector<cell_share> joined;
        for (const cell_share& share : shares) {
            if (joined.empty() || joined.back().part != share.part) {
                joined.push_back(share);
                continue;
            }
            joined.back().triangles += share.triangles;
            joined.back().lines += share.lines;
            joined.back().points += share.points;
        }
        shares.swap(joined);
    }

    cell_contents& contents_;
    cell_division& division_;
    const model_cell_options& options_;
    kd_tree<float> tree_;
    std::vector<leaf> leaves_;
    std::vector<std::size_t> leaf_of_node_; ///< of leaves: their place among these
};

} // namespace

cell_division divideModel(const std::vector<::osg::NodePtr>& parts,
                          const model_cell_options& options) {
    if (!(options.limit > 0.0)) // true for NaN
        throw std::invalid_argument("the limit of a cell must be above 0");
    model_cell_options chosen = options;
    if (chosen.measure == cell_measure::triangles)
        chosen.limit = std::max(1.0, std::floor(chosen.limit));
    const auto contents = std::make_shared<cell_contents>(parts, chosen);
    cell_division division;
    cell_division_maker(*contents, division).make();
    division.contents = contents;
    return division;
}

} // namespace morva::osg
