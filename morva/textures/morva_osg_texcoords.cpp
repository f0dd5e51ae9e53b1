#include <morva/textures/morva_osg_texcoords.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_stage_errors.h>
#include <morva/textures/morva_osg_texcoord_form.h>

namespace morva::osg {

namespace {

/// A triangle that has come to this many pieces more is not halved any further.
constexpr std::uint32_t most_pieces = 65536;
/// Triangles that one call may add in any case, for each that was there, and at most.
constexpr std::uint64_t always_added = std::uint64_t(1) << 20;
constexpr std::uint64_t added_per_triangle = 4096;
constexpr std::uint64_t most_added = std::uint64_t(1) << 25;

template <typename Step>
void applyStep(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c, Step step) {
    triangle_uv t{a, b, c};
    step(t);
    a = t.a;
    b = t.b;
    c = t.c;
}

/// Whether what halving reads between the corners can be below `max`. With a limit of 1 it cannot
/// for a triangle from 1 to 1.002: the middle of both is moved onto 1, and 1 stays where it is, so
/// that one of the halves reaches from 1 to 1.002 again.
inline bool canComeBelow(const triangle_uv& t, float max) {
    const auto near = [](float a, float b) { // not to a NaN
        return std::abs(static_cast<double>(a) - static_cast<double>(b)) <= 2 * snap_distance;
    };
    for (::osg::UInt32 axis = 0; axis < 2; ++axis) {
        const float a = t.a[axis], b = t.b[axis], c = t.c[axis];
        if ((a > max || b > max || c > max) && !(near(a, b) && near(b, c) && near(c, a)))
            return true;
    }
    return false;
}

/// Coordinates 0 of a geoset, three rows at a time, in any stored form; no rows if it has none.
/// Follows the property when it grows; while this lives it is being edited.
class coordinate_rows {
  public:
    coordinate_rows(const osg_geoset& geoset, int cut_limit, repeating_directions repeats = {})
        : cut_limit_(static_cast<float>(cut_limit)), repeats_{repeats.u, repeats.v} {
        slot_.follow(coordinatesOf(geoset));
        if (slot_.present())
            edit_.emplace(slot_.get());
    }

    std::size_t rows() const { return slot_.size(); }
    /// Triangles that there are rows for.
    std::size_t triangles() const { return slot_.size() / 3; }

    /// Brings a triangle into the normal form, and returns it, with 0 along the directions that
    /// stay as they are.
    triangle_uv normaliseAt(std::size_t triangle) {
        const std::size_t row = 3 * triangle;
        const triangle_uv whole{slot_.value(row), slot_.value(row + 1), slot_.value(row + 2)};
        triangle_uv t{moving(whole.a), moving(whole.b), moving(whole.c)};
        if (isZero(t)) // as are the rows that a geoset has to spare
            return t;
        normalise(t, cut_limit_);
        slot_.put(row, moved(whole.a, t.a));
        slot_.put(row + 1, moved(whole.b, t.b));
        slot_.put(row + 2, moved(whole.c, t.c));
        return t;
    }

  private:
    ::osg::Vec2f moving(const ::osg::Vec2f& whole) const { return moved(::osg::Vec2f(), whole); }

    /// A coordinate with the values of another one along the directions that repeat.
    ::osg::Vec2f moved(const ::osg::Vec2f& whole, const ::osg::Vec2f& to) const {
        return {repeats_[0] ? to[0] : whole[0], repeats_[1] ? to[1] : whole[1]};
    }

    float cut_limit_;
    bool repeats_[2]; ///< u and v
    texcoords_slot slot_;
    std::optional<open_edit<::osg::GeoTexCoordsPtr>> edit_;
};

/// Halves a triangle; how many were added.
int halve(osg_geoset& geoset, std::size_t triangle, unsigned long& first) {
    int pieces = 0;
    geoset.splitElementInTwoParts(triangle, pieces, first, 0, false);
    return pieces;
}

/// Halves triangles of a geoset that reach too far.
///
/// A half has half the area, and nothing below a size of 1e-6 is halved, but that alone does not
/// end: where single precision runs out, middles of edges fall where they like, and a triangle can
/// come back to what it was. It may also end after more pieces than memory holds. So a triangle
/// stays as it is if halving would not help it, the pieces of one are counted, and what is left
/// bounds the work of one call in total.
class halving {
  public:
    halving(osg_geoset& cut, int max_coordinate)
        : geoset_(cut), max_(static_cast<float>(max_coordinate)), wanted_(max_coordinate > 0),
          before_(cut.size), most_(addedLimit(cut.size)) {}

    /// Halves a triangle with these coordinates if it reaches too far, and returns whether it did.
    bool tried(std::size_t triangle, const triangle_uv& t) {
        if (!wanted_ || !(largest(t) > max_) || triangle >= geoset_.size || added_ >= most_ ||
            !canComeBelow(t, max_))
            return false;
        if (pieces_of_.empty())
            pieces_of_.resize(before_);
        const std::size_t whole = triangle < before_ ? triangle : source_of_[triangle - before_];
        if (pieces_of_[whole] >= most_pieces)
            return false;
        unsigned long first = 0;
        const int pieces = halve(geoset_, triangle, first);
        added_ += static_cast<std::uint64_t>(pieces);
        pieces_of_[whole] += static_cast<std::uint32_t>(pieces);
        source_of_.insert(source_of_.end(), static_cast<std::size_t>(pieces),
                          static_cast<std::uint32_t>(whole));
        return pieces > 0;
    }

    int triangles() const { return static_cast<int>(added_); }

  private:
    static std::uint64_t addedLimit(std::uint64_t triangles) {
        const std::uint64_t by_count = std::min(triangles, most_added) * added_per_triangle;
        return std::min(std::max(always_added, by_count), most_added);
    }

    osg_geoset& geoset_;
    float max_;
    bool wanted_;
    std::size_t before_; ///< triangles that there were
    std::uint64_t most_;
    std::uint64_t added_ = 0;
    std::vector<std::uint32_t> source_of_; ///< of each added one, a triangle below `before_`
    std::vector<std::uint32_t> pieces_of_; ///< added for each of `before_`; empty until the first
};

} // namespace

void roundTCToInteger(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, snapAll);
}

void getTCPositiv(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, shiftUpFromNegative);
}

void getTCNearToZero(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c) {
    applyStep(a, b, c, shiftDownToZero);
}

void cutTC(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c, int cutLimit) {
    const auto limit = static_cast<float>(cutLimit);
    wrapPoint(a, limit);
    wrapPoint(b, limit);
    wrapPoint(c, limit);
}

int optimizeTexCoords(osg_geoset& geoset, int maxTC, int cutLimit) {
    return optimizeTexCoords(geoset, maxTC, cutLimit, repeating_directions());
}

int optimizeTexCoords(osg_geoset& geoset, int maxTC, int cutLimit, repeating_directions repeats) {
    if (!repeats.u && !repeats.v)
        return 0;
    coordinate_rows coordinates(geoset, cutLimit, repeats);
    halving cut(geoset, maxTC);
    for (std::size_t i = 0; i < coordinates.triangles();) { // grows
        const triangle_uv t = coordinates.normaliseAt(i);
        // What is left of a triangle that was halved goes through the same once more.
        if (!cut.tried(i, t))
            ++i;
    }
    return cut.triangles();
}

int optimizeTexCoordsSmart(osg_geoset& geoset, int maxTC, int cutLimit) {
    coordinate_rows coordinates(geoset, cutLimit);
    const auto max = static_cast<float>(maxTC);
    const std::size_t budget = coordinates.rows();

    // Triangles by how far they reach, equal ones in the order of entry. Those within the limit
    // are never taken and only end the loop, so that their absence does as well.
    std::multimap<float, std::size_t> large;
    const auto enter = [&](std::size_t triangle) {
        const float key = largest(coordinates.normaliseAt(triangle)); // never a NaN
        if (key > max && triangle < geoset.size)
            large.emplace(key, triangle);
    };
    for (std::size_t i = 0; i < coordinates.triangles(); ++i)
        enter(i);
    if (large.empty())
        return 0;

    std::size_t added = 0;
    auto cursor = large.end();
    while (cursor != large.begin()) {
        const auto taken = std::prev(cursor);
        const std::size_t triangle = taken->second;
        unsigned long first = 0;
        const int pieces = halve(geoset, triangle, first);
        added += static_cast<std::size_t>(pieces);
        if (added > budget || pieces < 1)
            break;
        large.erase(taken);
        enter(triangle);
        for (unsigned long i = first; i < first + static_cast<unsigned long>(pieces); ++i)
            enter(i);
        if (large.empty())
            break;
        // On the last entry, not behind it: from now on the one before it is taken, and the
        // largest waits for as long as it is the largest.
        cursor = std::prev(large.end());
    }
    return static_cast<int>(added);
}

namespace {

/// Gives the fields of a geoset the length of its triangles, with nothing to spare: the core is to
/// be drawn, and the geoset ends here.
void fitToTriangles(osg_geoset& geoset) {
    try {
        const ::osg::GeometryPtr core = geoset.geometry.get();
        const ::osg::CPEditor edit(core);
        geoset.resizeFieldContainers(static_cast<unsigned int>(geoset.size));
        geoset_fields fields;
        fields.follow(core);
        fields.forEachPresent([](auto& slot) { slot.get()->shrink(); });
        if (core->getNormals() != ::osg::NullFC &&
            core->getNormals()->size() != core->getPositions()->size())
            ::osg::calcVertexNormals(core);
        return;
    } catch (...) {
        printSetupError();
    }
    geoset.clear();
}

/// Gives a core the name and the attachments of the one whose place it takes.
void takeOver(const ::osg::GeometryPtr& from, const ::osg::GeometryPtr& to) {
    for (const auto& [key, attachment] : from->getSFAttachments()->getValue()) {
        const bool is_name = ::osg::NamePtr::dcast(attachment) != ::osg::NullFC;
        if (!is_name && std::strcmp(attachment->getType().getCName(), picking_tree_type) != 0)
            to->addAttachment(attachment, static_cast<::osg::UInt16>(key & 0xffffU));
    }
    if (const ::osg::Char8* name = ::osg::getName(from)) // one of its own: both can be renamed
        ::osg::setName(to, name);
}

} // namespace

int optimizeTexCoords(::osg::NodePtr& node, int maxTC, int cutLimit) {
    osg_geoset geoset;
    extract_options wanted;
    wanted.search_material = wanted.run_setup = wanted.clean_texcoords = true;
    wanted.known_ids_only = true;
    extract(node, geoset, wanted);
    const ::osg::GeometryPtr source = geometryOf(node);
    // Without memory extraction brings nothing; that is no reason to lose what there is.
    if (source == ::osg::NullFC || (geoset.size == 0 && counttriangles(source) > 0))
        return 0;
    const int added = optimizeTexCoords(geoset, maxTC, cutLimit);
    if (geoset.geometry->getPositions() != ::osg::NullFC)
        fitToTriangles(geoset);
    takeOver(source, geoset.geometry.get());
    reportWhole(geoset.geometry.get());
    giveCore(node, geoset.geometry.get());
    return added;
}

} // namespace morva::osg
