#include <morva/tools/morva_osg_simplify_limit.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/tools/morva_osg_edge_queue.h>
#include <morva/tools/morva_osg_nearest_triangles.h>

namespace morva::osg {

using ::osg::Pnt3f;
using ::osg::UInt32;

namespace {

constexpr UInt32 nobody = static_cast<UInt32>(-1);

/// A sample of the source, in one of the spaces.
struct source_point {
    point3d at;
    const linear_map* space;
    double distance; ///< to the result
};

/// The state after some steps, and the way back.
class step_history {
  public:
    step_history(const simplification& run, const vertex_uses& uses, std::size_t steps);

    std::size_t steps() const { return done_.size(); }
    /// Steps of the first state in which a triangle is where it is now.
    std::size_t birthOf(std::size_t triangle) const;
    /// Takes the last step back. Calls `use` with the places of each triangle that is there again,
    /// some of them more than once.
    template <typename Use> void undo(const Use& use);

  private:
    /// What a step changed. The vertices at a place are a ring, in which each leads to the next.
    struct change {
        Pnt3f before;     ///< place of the kept vertex
        UInt32 kept_ring; ///< a vertex there before, or `nobody`
        UInt32 gone_ring; ///< one that came there
    };
    void redo(const simplify_step& step);
    template <typename Use> void forEachTriangleOf(UInt32 ring, const Use& use) const;

    const simplification& run_;
    const vertex_uses& uses_;
    std::vector<Pnt3f> places_;
    std::vector<UInt32> ring_at_;      ///< per place: one of the vertices there, or `nobody`
    std::vector<UInt32> next_;         ///< per vertex, in its ring
    std::vector<UInt32> at_;           ///< per vertex: its place
    std::vector<UInt32> last_changed_; ///< per place: steps after the last that moved what is there
    std::vector<change> done_;
};

step_history::step_history(const simplification& run, const vertex_uses& uses, std::size_t steps)
    : run_(run), uses_(uses), places_(run.places), ring_at_(run.places.size()),
      last_changed_(run.places.size()) {
    for (std::size_t v = 0; v < ring_at_.size(); ++v)
        ring_at_[v] = static_cast<UInt32>(v);
    next_ = ring_at_;
    done_.reserve(steps);
    while (done_.size() < steps)
        redo(run.steps[done_.size()]);
    at_ = fates(run.places.size(), run.steps, steps);
}

void step_history::redo(const simplify_step& step) {
    UInt32& there = ring_at_[step.kept];
    const UInt32 coming = step.kept != step.gone ? ring_at_[step.gone] : nobody;
    done_.push_back({places_[step.kept], there, coming});
    last_changed_[step.kept] = static_cast<UInt32>(done_.size());
    moveToMiddle(places_[step.kept], places_[step.gone]);
    if (coming == nobody)
        return;
    ring_at_[step.gone] = nobody;
    if (there == nobody)
        there = coming;
    else
        std::swap(next_[there], next_[coming]); // one ring of two, or two of one
}

std::size_t step_history::birthOf(std::size_t triangle) const {
    UInt32 birth = 0;
    for (std::size_t k = 0; k < 3; ++k)
        birth = std::max(birth, last_changed_[at_[run_.vertices[3 * triangle + k]]]);
    return birth;
}

template <typename Use> void step_history::forEachTriangleOf(UInt32 ring, const Use& use) const {
    UInt32 vertex = ring;
    if (ring == nobody)
        return;
    do {
        for (const UInt32 corner : uses_.of(vertex)) {
            const UInt32* const vertices = &run_.vertices[corner - corner % 3];
            const UInt32 a = at_[vertices[0]], b = at_[vertices[1]], c = at_[vertices[2]];
            if (a != b && b != c && c != a && !is_rogue(places_[a], places_[b], places_[c]))
                use(places_[a], places_[b], places_[c]);
        }
        vertex = next_[vertex];
    } while (vertex != ring);
}

template <typename Use> void step_history::undo(const Use& use) {
    const simplify_step& step = run_.steps[done_.size() - 1];
    const change was = done_.back();
    done_.pop_back();
    places_[step.kept] = was.before;
    if (was.gone_ring != nobody) {
        if (was.kept_ring != nobody)
            std::swap(next_[was.kept_ring], next_[was.gone_ring]);
        UInt32 vertex = was.gone_ring;
        do {
            at_[vertex] = step.gone;
            vertex = next_[vertex];
        } while (vertex != was.gone_ring);
    }
    forEachTriangleOf(was.kept_ring, use);
    forEachTriangleOf(was.gone_ring, use);
}

/// Looks for the last state that is near enough.
class limit_search {
  public:
    limit_search(const simplification& run, double limit, const std::vector<linear_map>& spaces);

    std::size_t from(std::size_t steps);

  private:
    /// What is too far away in a state.
    struct findings {
        std::size_t birth = std::numeric_limits<std::size_t>::max(); ///< of the oldest triangle
        std::vector<source_point> points; ///< the farthest ones of the source, a heap
        bool good() const {
            return points.empty() && birth == std::numeric_limits<std::size_t>::max();
        }
    };
    static constexpr std::size_t most_points = 64; ///< that one way back looks at

    struct measured_space {
        const linear_map* map; ///< null: none
        nearest_triangles source;
    };

    findings look(const simplified_triangles& mesh, const step_history& history) const;
    void lookAtResult(const nearest_triangles& result, const nearest_triangles& source,
                      const simplified_triangles& mesh, const step_history& history,
                      findings& found) const;
    void lookAtSource(const measured_space& space, const nearest_triangles& result,
                      findings& found) const;
    bool isNear(const source_point& point, const Pnt3f& a, const Pnt3f& b, const Pnt3f& c) const;

    const simplification& run_;
    double limit_;
    vertex_uses uses_;
    std::vector<measured_space> spaces_;
};

limit_search::limit_search(const simplification& run, double limit,
                           const std::vector<linear_map>& spaces)
    : run_(run), limit_(limit), uses_(run.places.size(), run.vertices) {
    const simplified_triangles source = simplifiedTriangles(run, 0);
    if (spaces.empty())
        spaces_.push_back({nullptr, nearest_triangles(source, nullptr)});
    for (const linear_map& space : spaces)
        spaces_.push_back({&space, nearest_triangles(source, &space)});
}

bool isCloser(const source_point& a, const source_point& b) { return a.distance > b.distance; }

void limit_search::lookAtResult(const nearest_triangles& result, const nearest_triangles& source,
                                const simplified_triangles& mesh, const step_history& history,
                                findings& found) const {
    nearest_hit near;
    for (std::size_t place = 0; place < result.size(); ++place) {
        const std::size_t birth = history.birthOf(mesh.of[result.number(place)]);
        if (birth >= found.birth)
            continue;
        bool far = false;
        forEachSample(result.corners(place), true, [&](const point3d& p, double) {
            far = far || source.distance(p, near) > limit_;
        });
        if (far)
            found.birth = birth;
    }
}

void limit_search::lookAtSource(const measured_space& space, const nearest_triangles& result,
                                findings& found) const {
    nearest_hit near;
    for (std::size_t place = 0; place < space.source.size(); ++place) {
        forEachSample(space.source.corners(place), false, [&](const point3d& p, double) {
            const double distance = result.distance(p, near);
            if (!(distance > limit_))
                return;
            auto& points = found.points;
            if (points.size() == most_points) {
                if (distance <= points.front().distance)
                    return;
                std::pop_heap(points.begin(), points.end(), isCloser);
                points.pop_back();
            }
            points.push_back({p, space.map, distance});
            std::push_heap(points.begin(), points.end(), isCloser);
        });
    }
}

limit_search::findings limit_search::look(const simplified_triangles& mesh,
                                          const step_history& history) const {
    findings found;
    for (const measured_space& space : spaces_) {
        const nearest_triangles result(mesh, space.map);
        lookAtResult(result, space.source, mesh, history, found);
        lookAtSource(space, result, found);
    }
    return found;
}

bool limit_search::isNear(const source_point& point, const Pnt3f& a, const Pnt3f& b,
                          const Pnt3f& c) const {
    Pnt3f corners[3] = {a, b, c};
    for (Pnt3f& corner : corners)
        corner = point.space != nullptr ? mapped(corner, *point.space) : corner;
    for (unsigned int i = 0; i < 3; ++i) {
        const auto [low, high] = std::minmax({corners[0][i], corners[1][i], corners[2][i]});
        if (point.at[i] < double{low} - limit_ || point.at[i] > double{high} + limit_)
            return false;
    }
    const corners3d triangle{widened(corners[0]), widened(corners[1]), widened(corners[2])};
    return std::sqrt(squaredDistance(point.at, triangle)) <= limit_;
}

std::size_t limit_search::from(std::size_t steps) {
    while (steps > 0) {
        step_history history(run_, uses_, steps);
        findings found = look(simplifiedTriangles(run_, steps), history);
        if (found.good())
            break;
        auto& points = found.points;
        while (history.steps() > 0 && (history.steps() >= found.birth || !points.empty())) {
            history.undo([&](const Pnt3f& a, const Pnt3f& b, const Pnt3f& c) {
                const auto reached = [&](const source_point& p) { return isNear(p, a, b, c); };
                points.erase(std::remove_if(points.begin(), points.end(), reached), points.end());
            });
        }
        steps = history.steps();
    }
    return steps;
}

} // namespace

std::size_t longestWithin(const simplification& run, std::size_t most, double limit,
                          const std::vector<linear_map>& spaces) {
    return limit_search(run, limit, spaces).from(std::min(most, run.steps.size()));
}

} // namespace morva::osg
