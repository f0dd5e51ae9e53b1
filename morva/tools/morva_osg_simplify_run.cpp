// A run for several targets: triangles, vertices, and the steps down to the lowest target.

#include <morva/tools/morva_osg_simplify.h>

#include <algorithm>
#include <cstdint>

#include <morva/core/morva_huge_pages.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_value_hash.h>
#include <morva/core/morva_span.h>
#include <morva/tools/morva_osg_edge_queue.h>
#include <morva/tools/morva_osg_live_triangles.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

constexpr std::size_t steps_between_reports = 10000;

/// The corners of the triangles that may stay.
std::vector<UInt32> soundCorners(const geometry_columns& columns) {
    const property_column& places = columns[vertex_property::position];
    std::vector<UInt32> corners;
    forEachTriangle(columns, rest_rule::left_out, [&](std::size_t a, std::size_t b, std::size_t c) {
        const auto* p = places.find<::osg::Pnt3f>(a);
        const auto* q = places.find<::osg::Pnt3f>(b);
        const auto* r = places.find<::osg::Pnt3f>(c);
        if (p == nullptr || q == nullptr || r == nullptr || is_rogue(*p, *q, *r))
            return;
        for (const std::size_t corner : {a, b, c})
            corners.push_back(static_cast<UInt32>(corner));
    });
    return corners;
}

/// Values of corners in all columns of a geometry that has them.
class whole_corners {
  public:
    explicit whole_corners(const geometry_columns& columns) {
        columns.forEachPresent([this](vertex_property, const property_column& column) {
            columns_.push_back(&column);
        });
    }
    UInt32 hash(UInt32 corner) const {
        std::uint64_t sum = 0;
        for (const property_column* column : columns_) {
            for (unsigned int i = 0; i < column->width; ++i)
                sum = (sum ^ bitsOf(value(*column, corner, i))) * 0x9E3779B97F4A7C15ULL;
        }
        return hashOfSum(sum);
    }
    bool equal(UInt32 a, UInt32 b) const {
        bool all = true;
        for (const property_column* column : columns_) {
            for (unsigned int i = 0; i < column->width; ++i)
                all = all && value(*column, a, i) == value(*column, b, i);
        }
        return all;
    }

  private:
    /// Zero for a corner that leads nowhere.
    static float value(const property_column& column, UInt32 corner, unsigned int i) {
        const std::size_t row = column.row(corner);
        return row < column.rows ? column.at(row)[i] : 0.0F;
    }

    std::vector<const property_column*> columns_;
};

/// The same for their places alone. Rows are small numbers, so most corners need no look-up.
class corner_places {
  public:
    explicit corner_places(const geometry_columns& columns)
        : column_(columns[vertex_property::position]) {}
    UInt32 hash(UInt32 corner) const { return hashOf(*column_.find<::osg::Pnt3f>(corner)); }
    bool equal(UInt32 a, UInt32 b) const {
        return isEqual(*column_.find<::osg::Pnt3f>(a), *column_.find<::osg::Pnt3f>(b));
    }

  private:
    const property_column& column_;
};

/// Numbers the vertices by first use.
template <typename Values>
void weld(simplification& run, const property_column& places, const Values& values) {
    number_table known(run.corners.size());
    std::vector<UInt32> first; // corner that each vertex was met at
    run.vertices = vector_in_huge_pages<UInt32>(run.corners.size());
    UInt32 hashes[batch_size];
    for (std::size_t start = 0; start < run.corners.size(); start += batch_size) {
        const std::size_t count = std::min(batch_size, run.corners.size() - start);
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = values.hash(run.corners[start + i]);
            known.fetch(hashes[i]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const UInt32 corner = run.corners[start + i];
            const auto next = static_cast<UInt32>(first.size());
            const UInt32 number = known.findOrEnter(
                hashes[i], next, [&](UInt32 other) { return values.equal(first[other], corner); });
            if (number == next)
                first.push_back(corner);
            run.vertices[start + i] = number;
        }
    }
    run.places.reserve(first.size());
    for (const UInt32 corner : first)
        run.places.push_back(*places.find<::osg::Pnt3f>(corner));
}

void readTriangles(simplification& run) {
    const bool all = run.options.weld == simplify_weld::corner;
    const geometry_columns columns(run.source.get(),
                                   span<const vertex_property>(all_properties, all ? 12 : 1),
                                   color_form::rgba_where_stored);
    run.corners = soundCorners(columns);
    const property_column& places = columns[vertex_property::position];
    if (all)
        weld(run, places, whole_corners(columns));
    else
        weld(run, places, corner_places(columns));
}

/// Takes edges until no more triangles than `target` live. Steps behind the last one that a
/// triangle went with are not kept where the target is out of reach.
void collapseDownTo(simplification& run, UInt32 target) {
    const vertex_uses uses(run.places.size(), run.vertices);
    live_triangles alive(run.vertices, uses);
    run.live = alive.count();
    if (run.live <= target)
        return;
    edge_queue queue(run.places, run.vertices, uses,
                     run.options.lock_borders ? borderVertices(uses, run.vertices)
                                              : std::vector<bool>());
    std::size_t worth = 0; // steps up to the last that a triangle went with
    for (bool more = queue.hasNext(); more && alive.count() > target;) {
        if (run.steps.size() % steps_between_reports == 0)
            say_progress(run.live - alive.count(), run.live - target, {}, flush::no);
        const UInt32 before = alive.count();
        alive.fetch(queue.next());
        const vertex_pair pair = queue.collapse();
        more = queue.findNext(); // on its way while the triangles are counted
        alive.join(pair);
        run.steps.push_back({pair.kept, pair.gone, alive.count()});
        worth = alive.count() < before ? run.steps.size() : worth;
    }
    run.steps.resize(worth);
}

simplify_stop stopAt(const simplification& run, UInt32 target) {
    if (run.live <= target)
        return {0, true};
    const auto found =
        std::partition_point(run.steps.begin(), run.steps.end(),
                             [target](const simplify_step& step) { return step.live > target; });
    const auto before = static_cast<std::size_t>(found - run.steps.begin());
    return found == run.steps.end() ? simplify_stop{before, false}
                                    : simplify_stop{before + 1, true};
}

} // namespace

simplification simplify(const ::osg::GeometryPtr& geometry, const std::vector<UInt32>& targets,
                        const simplify_options& options) {
    simplification run;
    run.source = geometry;
    run.options = options;
    if (geometry != ::osg::NullFC)
        readTriangles(run);
    collapseDownTo(run, targets.empty() ? static_cast<UInt32>(run.corners.size() / 3)
                                        : *std::min_element(targets.begin(), targets.end()));
    for (const UInt32 target : targets)
        run.stops.push_back(stopAt(run, target));
    return run;
}

} // namespace morva::osg
