#pragma once

// Geometry for the tests of the geosets, in every primitive type, index layout and stored form;
// and the flat rows of a geoset as plain records.

#include "tests/support/test.h"

#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_geoset_rules.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/trees/kd_rules.h>
#include <morva/trees/kd_tree.h>

namespace tri {

using morva::osg::osg_geoset;
using morva::osg::osg_line_geoset;
using morva::osg::osg_point_geoset;
using piece = std::vector<::osg::Pnt3f>; ///< corners of one triangle, or of several

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

/// One vertex of a flat element; what a core does not have stays zero.
struct corner {
    ::osg::Pnt3f position;
    ::osg::Vec3f normal;
    ::osg::Color3f color, secondary;
    ::osg::Vec2f uv[4];
    float id = 0;
};
using rows = std::vector<corner>;

/// The values of a vertex as plain numbers, for comparisons to the last bit.
inline std::vector<float> numbersOf(const corner& c) {
    std::vector<float> out;
    for (::osg::UInt32 i = 0; i < 3; ++i)
        out.insert(out.end(), {c.position[i], c.normal[i], c.color[i], c.secondary[i]});
    for (const ::osg::Vec2f& uv : c.uv)
        out.insert(out.end(), {uv[0], uv[1]});
    out.push_back(c.id);
    return out;
}

inline std::vector<std::vector<float>> numbersOf(const rows& all) {
    std::vector<std::vector<float>> out;
    for (const corner& c : all)
        out.push_back(numbersOf(c));
    return out;
}

/// Whether numbers are equal, where a NaN equals a NaN.
inline bool same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }
inline bool same(const std::vector<float>& a, const std::vector<float>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](float x, float y) { return same(x, y); });
}

inline std::vector<float> numbersOf(const piece& p) {
    const float* first = p.empty() ? nullptr : &p[0][0];
    return {first, first + 3 * p.size()};
}

template <typename Property, typename Take>
void readRows(const Property& property, rows& out, const Take& take) {
    if (property == ::osg::NullFC)
        return;
    for (::osg::UInt32 i = 0; i < out.size() && i < property->size(); ++i)
        take(out[i], property->getValue(i));
}

/// The first `count` rows of a core, value by value.
inline rows rowsOf(const ::osg::GeometryPtr& core, std::size_t count) {
    rows out(count);
    readRows(core->getPositions(), out, [](corner& c, const auto& v) { c.position = v; });
    readRows(core->getNormals(), out, [](corner& c, const auto& v) { c.normal = v; });
    readRows(core->getColors(), out, [](corner& c, const auto& v) { c.color = v; });
    readRows(core->getSecondaryColors(), out, [](corner& c, const auto& v) { c.secondary = v; });
    const ::osg::GeoTexCoordsPtr units[4] = {core->getTexCoords(), core->getTexCoords1(),
                                             core->getTexCoords2(), core->getTexCoords3()};
    for (int unit = 0; unit < 4; ++unit)
        readRows(units[unit], out, [unit](corner& c, const auto& v) { c.uv[unit] = v; });
    readRows(core->getTexCoords7(), out, [](corner& c, const auto& v) { c.id = v[0]; });
    return out;
}

/// The same of a vertex of a scene graph's iterator; zero what no mapping entry names.
template <typename Iterator> corner cornerAt(const Iterator& it, ::osg::Int32 k) {
    using ::osg::Geometry;
    const ::osg::GeometryPtr g = it.getGeometry();
    const bool all = g->getIndices() == ::osg::NullFC || g->getMFIndexMapping()->size() == 0;
    corner c;
    const auto take = [&](::osg::UInt16 bit, auto& to, const auto& value) {
        if (all || g->calcMappingIndex(bit) >= 0)
            to = value();
    };
    c.position = it.getPosition(k);
    take(Geometry::MapNormal, c.normal, [&] { return it.getNormal(k); });
    take(Geometry::MapColor, c.color, [&] { return it.getColor(k); });
    take(Geometry::MapSecondaryColor, c.secondary, [&] { return it.getSecondaryColor(k); });
    take(Geometry::MapTexCoords, c.uv[0], [&] { return it.getTexCoords(k); });
    take(Geometry::MapTexCoords1, c.uv[1], [&] { return it.getTexCoords1(k); });
    take(Geometry::MapTexCoords2, c.uv[2], [&] { return it.getTexCoords2(k); });
    take(Geometry::MapTexCoords3, c.uv[3], [&] { return it.getTexCoords3(k); });
    take(Geometry::MapTexCoords7, c.id, [&] { return it.getTexCoords7(k)[0]; });
    return c;
}

/// Number of rows of a property, -1 for none.
template <typename Property> int lengthOf(const Property& property) {
    return property == ::osg::NullFC ? -1 : static_cast<int>(property->size());
}

inline mesh_data meshOf(const std::vector<std::pair<unsigned, unsigned>>& primitives,
                        const piece& positions) {
    mesh_data mesh;
    mesh.primitives = primitives;
    mesh.positions = positions;
    return mesh;
}

/// `count` elements of 3, 2 or 1 corners side by side along x, the right angle of each at
/// (x, y, z). Points are what getNumberOfPoints() counts: runs of GL_LINES.
inline mesh_data elements(unsigned corners, unsigned count, const ::osg::Vec3f& at = {0, 0, 0}) {
    const ::osg::Pnt3f shape[3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh_data mesh = meshOf({{corners == 3 ? 4U : 1U, corners * count}}, {});
    for (unsigned i = 0; i < corners * count; ++i) {
        mesh.positions.push_back(shape[i % corners] + at +
                                 ::osg::Vec3f(static_cast<float>(i / corners), 0, 0));
    }
    return mesh;
}

inline ::osg::GeometryPtr soup(const piece& positions) {
    return geometryOf(meshOf({{4, static_cast<unsigned>(positions.size())}}, positions));
}

/// While this lives no ID is given, as after a merge; those that vertices bring are kept.
struct registration_off {
    registration_off() { morva::osg::getIDmapHandler().merged = true; }
    ~registration_off() { morva::osg::getIDmapHandler().merged = false; }
};

using wishes = morva::osg::extract_options;
constexpr wishes set_up{false, false, false, true, false};

inline unsigned int pour(const ::osg::NodePtr& node, osg_geoset& geoset, const wishes& w = {}) {
    return extract(node, geoset, w.to_world, w.search_material, w.write_ids, w.run_setup,
                   w.clean_texcoords);
}
template <typename Geoset>
unsigned int pour(const ::osg::NodePtr& node, Geoset& geoset, const wishes& w = {}) {
    return extract(node, geoset, w.to_world, w.search_material, w.write_ids, w.run_setup);
}
template <typename Geoset>
unsigned int pour(const mesh_data& mesh, Geoset& geoset, const wishes& w = {}) {
    return pour(node_ref(meshNode(mesh)).get(), geoset, w);
}

/// A geoset over a soup, ready for cuts. `colored` gives every vertex a colour and coordinates
/// that are its own position, and every triangle an ID that is its number.
inline void fillGeoset(osg_geoset& geoset, const piece& positions, bool colored = false) {
    mesh_data mesh = meshOf({{4, static_cast<unsigned>(positions.size())}}, positions);
    for (std::size_t i = 0; colored && i < positions.size(); ++i) {
        const ::osg::Pnt3f& p = positions[i];
        mesh.colors.push_back(::osg::Color3f(p[0], p[1], p[2]));
        mesh.coordinates.push_back(::osg::Vec2f(p[0], p[1]));
        mesh.ids.push_back(static_cast<float>(i / 3));
    }
    const registration_off kept;
    pour(mesh, geoset, set_up);
}

/// One triangle or more as a geoset, even those that extraction would leave out.
inline void fillRaw(osg_geoset& geoset, const piece& corners) {
    geoset.geometry = soup(corners);
    geoset.vertex_count = corners.size();
    geoset.setup();
}

template <typename Geoset> piece cornersOf(const Geoset& geoset, std::size_t i) {
    piece corners;
    for (std::size_t k = 0; k < Geoset::corners; ++k) {
        corners.push_back(geoset.geometry->getPositions()->getValue(
            static_cast<::osg::UInt32>(Geoset::corners * i + k)));
    }
    return corners;
}

/// Twice the area vector of a triangle, in double precision.
inline ::osg::Vec3d areaOf(const piece& t) {
    const ::osg::Pnt3d a(t[0]), b(t[1]), c(t[2]);
    return (b - a).cross(c - a);
}

inline double areaOfAll(const osg_geoset& geoset) {
    double sum = 0;
    for (std::size_t i = 0; i < geoset.size; ++i)
        sum += areaOf(cornersOf(geoset, i)).length();
    return sum;
}

template <typename Act> std::string toldBy(const Act& act, std::ostream& stream = std::cout) {
    const stream_capture capture(stream);
    act();
    return capture.text();
}

/// What a cut told and made.
struct cut_result {
    int pieces = -1;
    unsigned long first = 0;
    std::string told;
};

/// The result of `act`, which takes the two numbers that a cut gives.
template <typename Act> cut_result cutBy(const Act& act) {
    cut_result result;
    result.told = toldBy([&] { act(result.pieces, result.first); });
    return result;
}

template <typename Geoset>
cut_result cut(Geoset& geoset, unsigned long element, double plane, int axis) {
    return cutBy([&](int& pieces, unsigned long& first) {
        geoset.splitElement(element, plane, axis, pieces, first);
    });
}

using morva::osg::broken_rule_of;

enum class layout { plain, one_index, index_per_property };

/// Where a random geometry takes its values from.
struct random_form {
    layout indices = layout::plain;
    bool other_forms = false; ///< stored in other than the usual forms
};

/// Stores every other property of a geometry in another form, with the same values.
inline void takeOtherForms(const ::osg::GeometryPtr& g, std::mt19937& rng) {
    using namespace ::osg;
    const auto some = [&rng] { return rng() % 2 == 0; };
    if (some())
        g->setPositions(inOtherForm<GeoPositions3d>(g->getPositions()));
    if (some())
        g->setNormals(inOtherForm<GeoNormals3b>(g->getNormals()));
    if (some())
        g->setColors(inOtherForm<GeoColors4ub>(g->getColors()));
    if (some())
        g->setSecondaryColors(inOtherForm<GeoColors4f>(g->getSecondaryColors()));
    if (some())
        g->setTexCoords(inOtherForm<GeoTexCoords3f>(g->getTexCoords()));
    if (some())
        g->setTexCoords2(inOtherForm<GeoTexCoords3f>(g->getTexCoords2()));
    if (some())
        g->setTexCoords7(inOtherForm<GeoTexCoords2f>(g->getTexCoords7()));
    if (some())
        g->setIndices(inOtherForm<GeoIndicesUI16>(g->getIndices()));
}

/// Random primitives of all types, or one without a length, with random properties on a coarse
/// grid, so that corners often coincide; some are far out or no number.
inline ::osg::GeometryPtr randomGeometry(std::mt19937& rng, const random_form& form) {
    const auto some = [&rng](unsigned of) { return rng() % of == 0; };
    const bool one = some(5);
    mesh_data mesh = mixture(rng, one ? 1 : 7);
    for (::osg::Pnt3f& p : mesh.positions) {
        if (some(20))
            p[rng() % 3] = some(2) ? nan_value : some(2) ? -2e12F : 9e11F;
    }
    if (form.indices != layout::plain)
        mesh.positions.resize(5 + rng() % 12);
    if (some(2))
        mesh = withNormals(mesh, rng);
    if (some(3))
        mesh.secondary = withColors(mesh, rng).colors;
    if (some(2))
        mesh = withColors(mesh, rng);
    if (some(2))
        mesh = withCoordinates(mesh, rng);
    if (some(3))
        mesh = withIds(mesh);
    if (form.indices == layout::one_index)
        mesh = withIndex(mesh, rng);
    if (form.indices == layout::index_per_property) {
        mesh.mapping.assign(2 + rng() % 2, 0);
        for (unsigned bit = 0; bit < 12; ++bit) // positions not always first
            if (bit == 0 || !some(9))           // some have no entry
                mesh.mapping[rng() % mesh.mapping.size()] |= static_cast<::osg::UInt16>(1U << bit);
        for (std::size_t i = vertexCount(mesh) * mesh.mapping.size(); i > 0; --i)
            mesh.indices.push_back(static_cast<::osg::UInt32>(rng() % mesh.positions.size()));
    }
    const ::osg::GeometryPtr geometry = geometryOf(mesh);
    const auto unit = [&]() -> ::osg::GeoTexCoordsPtr {
        const ::osg::GeoTexCoords2fPtr made =
            some(3) ? ::osg::GeoTexCoords2f::create() : ::osg::GeoTexCoords2fPtr();
        for (std::size_t i = 0; made != ::osg::NullFC && i < mesh.positions.size(); ++i)
            made->addValue(::osg::Vec2f(static_cast<float>(rng() % 9), 0.5F));
        return made;
    };
    geometry->setTexCoords1(unit());
    geometry->setTexCoords2(unit());
    geometry->setTexCoords3(unit());
    if (form.other_forms)
        takeOtherForms(geometry, rng);
    if (one && vertexCount(mesh) > 0)
        geometry->setLengths(::osg::NullFC);
    return geometry;
}

/// Triangles anywhere, each with its corners along the three axes from one point: no slivers.
inline piece scattered(std::mt19937& rng, std::size_t count) {
    std::uniform_real_distribution<float> anywhere(-1.0F, 1.0F), away(0.1F, 0.3F);
    piece positions;
    for (std::size_t i = 0; i < count; ++i) {
        const float x = anywhere(rng), y = anywhere(rng), z = anywhere(rng);
        positions.insert(positions.end(), 3, {x, y, z});
        for (::osg::UInt32 k = 0; k < 3; ++k)
            positions[3 * i + k][k] += rng() % 2 == 0 ? away(rng) : -away(rng);
    }
    return positions;
}

} // namespace tri
