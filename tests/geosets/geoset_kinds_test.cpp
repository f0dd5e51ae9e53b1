// Extraction and set-up of triangles, lines and points alike, against a walk that takes vertex by
// vertex and value by value.

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_element_offer.h>

#include "triangle_scenes.h"

namespace {

using namespace tri;

/// A vertex of a source.
struct source_corner : corner {
    ::osg::UInt32 position_row = ~0U, id_row = ~0U; ///< ~0 for none
};

/// The elements of a geometry, vertex after vertex. What its lengths claim ends with its data.
std::vector<source_corner> elementsOf(const ::osg::GeometryPtr& g, unsigned corners) {
    const ::osg::GeoPLengthsPtr lengths = g->getLengths();
    const std::size_t vertices = morva::osg::cornersOf(g);
    std::vector<source_corner> all;
    std::size_t first = 0, length = 0;
    const auto put = [&](std::initializer_list<std::size_t> places) {
        for (const std::size_t place : places) {
            source_corner& c = all.emplace_back();
            static_cast<corner&>(c) = vertexAt(g, first + place, [&c](int bit, ::osg::UInt32 row) {
                if (bit == ::osg::Geometry::MapPosition)
                    c.position_row = row;
                if (bit == ::osg::Geometry::MapTexCoords7)
                    c.id_row = row;
            });
        }
    };
    for (::osg::UInt32 p = 0; p < g->getTypes()->size(); ++p, first += length) {
        const ::osg::UInt32 type = g->getTypes()->getValue(p);
        length = lengths == ::osg::NullFC ? vertices : lengths->getValue(p);
        length = std::min(length, vertices - first);
        for (std::size_t i = 0; i < length; ++i) {
            if (corners == 1 && type == 1)
                put({i});
            if (corners == 2 && ((type == 1 && i % 2 == 1) || ((type == 2 || type == 3) && i > 0)))
                put({i - 1, i});
            if (corners == 2 && type == 2 && i > 0 && i + 1 == length)
                put({i, 0});
            if (corners != 3 || i < 2)
                continue;
            if (type == 4 && i % 3 == 2)
                put({i - 2, i - 1, i});
            if (type == 5 || type == 8) {
                put({i - 2 + i % 2, i - 1 - i % 2, i});
                const auto last = all.end() - 3;
                if (i > 2 && (last[0].position_row == last[1].position_row ||
                              last[1].position_row == last[2].position_row ||
                              last[2].position_row == last[0].position_row))
                    all.erase(last, all.end()); // it turns the strip
            }
            if (type == 6 || type == 9)
                put({0, i - 1, i});
            if (type == 7 && i % 4 == 3)
                put({i - 3, i - 2, i - 1, i - 3, i - 1, i});
        }
    }
    return all;
}

/// What a geoset should hold: all rows, and which attributes it has by now.
struct naive_geoset {
    explicit naive_geoset(unsigned per_element) : corners(per_element) {}

    const unsigned corners;
    rows vertices;
    bool positions = false, normals = false, colors = false, secondary = false, ids = false;
    ::osg::MaterialPtr material;
    std::vector<std::string> names; ///< by ID
    std::string told;

    /// Appends a node's geometry. Returns the triangles left out.
    unsigned int take(const ::osg::NodePtr& node, const wishes& w) {
        const ::osg::GeometryPtr g = coreOf(node);
        const std::vector<source_corner> brought = elementsOf(g, corners);
        if (brought.empty())
            return 0;
        const bool clean = w.clean_texcoords && corners == 3 && g->getMaterial() == ::osg::NullFC;
        const bool brings_normals = g->getNormals() != ::osg::NullFC;
        const ::osg::Vec3f up(0, 1, 0);
        const ::osg::Color3f white(1, 1, 1);
        positions = true;
        enter(normals, brings_normals, [&](corner& c) { c.normal = up; });
        enter(colors, g->getColors() != ::osg::NullFC, [&](corner& c) { c.color = white; });
        enter(secondary, g->getSecondaryColors() != ::osg::NullFC,
              [&](corner& c) { c.secondary = white; });
        if (material == ::osg::NullFC)
            material = g->getMaterial();
        const auto above = ::osg::MaterialGroupPtr::dcast(node->getParent()->getCore());
        if (material == ::osg::NullFC && w.search_material && above != ::osg::NullFC)
            material = above->getMaterial();
        float own = 0;
        const bool writes = idsWritten(node, w.write_ids, g->getTexCoords7() != ::osg::NullFC, own);

        unsigned int rogue = 0;
        const ::osg::Matrix world = node->getToWorld();
        for (std::size_t first = 0; first < brought.size(); first += corners) {
            rows element(&brought[first], &brought[first] + corners);
            bool leads = true;
            for (std::size_t k = 0; k < corners; ++k) {
                leads = leads && brought[first + k].position_row < g->getPositions()->size();
                corner& c = element[k];
                if (w.to_world)
                    moveTo(world, c);
                c.normal = brings_normals ? c.normal : normals ? up : ::osg::Vec3f();
                if (colors && g->getColors() == ::osg::NullFC)
                    c.color = white;
                if (secondary && g->getSecondaryColors() == ::osg::NullFC)
                    c.secondary = white;
                for (::osg::Vec2f& uv : c.uv)
                    uv = corners == 3 && !clean ? uv : ::osg::Vec2f();
                if (brought[first].id_row == ~0U)
                    c.id = own;
                c.id = writes ? c.id : 0.0F;
            }
            if (corners == 3 &&
                (!leads || morva::osg::is_rogue(element[0].position, element[1].position,
                                                element[2].position)))
                ++rogue;
            else
                vertices.insert(vertices.end(), element.begin(), element.end());
        }
        if (normals && !brings_normals && corners == 3)
            calculate([](const auto& core) { morva::osg::calcCreaseNormals(core, 0.5235988F); });
        if (w.run_setup)
            setUp();
        return rogue;
    }

    /// A set-up adds normals of triangles, if there are none so far.
    void setUp() {
        if (corners == 3 && positions && !normals)
            calculate([](const auto& core) { ::osg::calcVertexNormals(core); });
        normals = normals || (corners == 3 && positions);
    }

    /// Lowest and highest position. A NaN in the very first one stays, any other is passed over.
    ::osg::Vec3f reach(bool highest) const {
        ::osg::Vec3f at;
        for (::osg::UInt32 a = 0; a < 3 && !vertices.empty(); ++a) {
            at[a] = vertices[0].position[a];
            for (const corner& c : vertices)
                at[a] = (highest ? c.position[a] > at[a] : c.position[a] < at[a]) ? c.position[a]
                                                                                  : at[a];
        }
        return at;
    }

  private:
    /// Rows of earlier nodes get the default of an attribute that is new.
    template <typename Set> void enter(bool& has, bool brings, const Set& set) {
        if (!has && brings)
            std::for_each(vertices.begin(), vertices.end(), set);
        has = has || brings;
    }

    bool idsWritten(const ::osg::NodePtr& node, bool wanted, bool brought, float& own) {
        if (!wanted && !ids && !brought)
            return false;
        const char* const name = ::osg::getName(node);
        if (name == nullptr) {
            told += "Node has no name and will not get an IDmap.\n";
            return false;
        }
        ids = true;
        own = float(std::find(names.begin(), names.end(), name) - names.begin());
        if (own == float(names.size()))
            names.emplace_back(name);
        return true;
    }

    /// A number that is none on one axis reaches the others. Normals keep their length.
    static void moveTo(const ::osg::Matrix& world, corner& c) {
        const ::osg::Pnt3f p = c.position;
        for (::osg::UInt32 r = 0; r < 3; ++r)
            c.position[r] =
                world[0][r] * p[0] + world[1][r] * p[1] + world[2][r] * p[2] + world[3][r];
        if (c.normal.length() >= 1e-6F)
            c.normal = c.normal * (1.0F / c.normal.length());
    }

    /// Normals of all rows as for a geometry of these positions without indices.
    template <typename Calculate> void calculate(const Calculate& calc) {
        piece places;
        for (const corner& c : vertices)
            places.push_back(c.position);
        const ::osg::GeometryRefPtr core(soup(places));
        calc(core.get());
        for (::osg::UInt32 i = 0; i < vertices.size(); ++i)
            vertices[i].normal = core->getNormals()->getValue(i);
    }
};

/// Random primitives of all types with random properties on a coarse grid, so that corners often
/// coincide; some are far out or no number; lengths that do not add up or are none; indices and
/// rows that lead nowhere.
::osg::GeometryPtr randomGeometry(std::mt19937& rng) {
    const auto some = [&rng](unsigned of) { return rng() % of == 0; };
    const bool without_lengths = some(6);
    mesh_data mesh = mixture(rng, without_lengths ? 1 : 7);
    for (::osg::Pnt3f& p : mesh.positions) {
        if (some(20))
            p[rng() % 3] = some(2) ? nan_value : some(2) ? -2e12F : 9e11F;
    }
    const unsigned layout = rng() % 3; // of indices: none, one, one per property
    if (layout != 0)
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
    if (!mesh.normals.empty() && some(4))
        mesh.normals.resize(1 + rng() % mesh.normals.size());
    if (layout == 2) {
        mesh.mapping.assign(2 + rng() % 2, 0);
        for (unsigned bit = 0; bit < 12; ++bit) // positions not always first
            if (bit == 0 || !some(9))           // some have no entry
                mesh.mapping[rng() % mesh.mapping.size()] |= static_cast<::osg::UInt16>(1U << bit);
    }
    if (layout != 0) {
        for (std::size_t i = vertexCount(mesh) * std::max<std::size_t>(1, mesh.mapping.size());
             i > 0; --i)
            mesh.indices.push_back(some(40) ? ~0U : ::osg::UInt32(rng() % mesh.positions.size()));
    }
    for (auto& [type, length] : mesh.primitives) {
        const unsigned odd[] = {0, 1, 2, length + 1, 0x7ffffffeU, 3000000000U, 4000000000U};
        length = some(12) ? odd[rng() % std::size(odd)] : length;
    }
    const ::osg::GeometryPtr geometry = geometryOf(mesh);
    const auto unit = [&]() -> ::osg::GeoTexCoordsPtr {
        const ::osg::GeoTexCoords2fPtr made =
            some(3) ? ::osg::GeoTexCoords2f::create() : ::osg::GeoTexCoords2fPtr();
        for (std::size_t i = 0; made != ::osg::NullFC && i < mesh.positions.size(); ++i)
            made->addValue(::osg::Vec2f(float(rng() % 9), 0.5F));
        return made;
    };
    geometry->setTexCoords1(unit());
    geometry->setTexCoords2(unit());
    geometry->setTexCoords3(unit());
    if (some(2))
        storeOtherwise(geometry);
    if (without_lengths)
        geometry->setLengths(::osg::NullFC);
    return geometry;
}

template <typename G> struct GeosetKinds : testing::Test {
    GeosetKinds() { handler.reset(); }
    ~GeosetKinds() override { handler.reset(); }

    static mesh_data some(unsigned count, const ::osg::Vec3f& at = {0, 0, 0}) {
        return elements(G::corners, count, at);
    }

    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    G geoset;
};
using kinds = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(GeosetKinds, kinds);

TYPED_TEST(GeosetKinds, ExtractionAgreesWithTheWalkOverManyNodes) {
    constexpr unsigned n = TypeParam::corners;
    std::mt19937 rng(seedOf(4711));
    const ::osg::MaterialRefPtr of_group(bareMaterial()),
        of_core(chunked({1, 1, 1, 1}, imageOf(6407, 2, 2)));
    std::size_t all = 0;
    for (int round = 0; round < roundsOf(700); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        this->handler.reset();
        TypeParam target;
        if (round % 5 == 0)
            target.vertex_capacity = rng() % 200; // a budget that may or may not do
        naive_geoset expected(n);
        std::string told;
        std::uint64_t data = target.vertex_capacity;
        for (int i = 0; i < 4; ++i) {
            const ::osg::GeoPLengthsPtr held = target.geometry->getLengths();
            const bool itself =
                rng() % 9 == 0 && held != ::osg::NullFC && held->getValue(0) == target.vertex_count;
            const ::osg::GeometryRefPtr geometry(itself ? target.geometry.get()
                                                        : randomGeometry(rng));
            if (!itself && rng() % 3 == 0)
                geometry->setMaterial(of_core.get());
            const node_ref root(materialGroup(of_group.get(), {nodeOf(geometry.get())}));
            const node_ref moved_root(transformed(
                ::osg::Matrix(2, 0, 0, 8, 0, 2, 0, -4, 0, 0, 2, 0.5F, 0, 0, 0, 1), {root.get()}));
            const ::osg::NodePtr node = root->getChild(0);
            if (rng() % 4 != 0)
                named("n" + std::to_string(rng() % 3), node);
            const wishes w{rng() % 2 == 0, rng() % 3 == 0, rng() % 4 == 0, rng() % 4 == 0,
                           !itself && rng() % 4 == 0};
            if (elementsOf(geometry.get(), n).empty() &&
                morva::osg::offerOf(geometry.get(), n).room > 0)
                continue; // counted, though there are none
            data += 3 * morva::osg::cornersOf(geometry.get());
            const unsigned int left_out = expected.take(node, w);
            told += toldBy([&] {
                told += toldBy([&] { EXPECT_EQ(extract(node, target, w), left_out); }, std::cerr);
            });
            EXPECT_LE(target.vertex_capacity, data) << "no more room than there is data for";
        }
        const ::osg::GeometryPtr core = target.geometry.get();
        EXPECT_EQ(core->getNormals() != ::osg::NullFC, expected.normals);
        EXPECT_EQ(core->getColors() != ::osg::NullFC, expected.colors);
        EXPECT_EQ(core->getTexCoords7() != ::osg::NullFC, expected.ids);
        EXPECT_EQ(core->getMaterial(), expected.material);
        EXPECT_EQ(told, expected.told);
        this->handler.releaseHeldLock();
        EXPECT_EQ(this->handler.names, expected.names);
        target.setup();
        expected.setUp();
        ASSERT_EQ(target.size * n, expected.vertices.size());
        const rows made = rowsOf(core, expected.vertices.size());
        for (std::size_t v = 0; v < made.size(); ++v)
            ASSERT_TRUE(same(numbersOf(made[v]), numbersOf(expected.vertices[v]))) << v;
        for (::osg::UInt32 a = 0; a < 3; ++a) {
            EXPECT_TRUE(same({target.bbox.min[a], target.bbox.max[a]},
                             {expected.reach(false)[a], expected.reach(true)[a]}));
        }
        all += target.size;
    }
    EXPECT_GT(all, 2000U);
}

TYPED_TEST(GeosetKinds, ExtractRefusesWithOneLineAndNoChange) {
    const char* const kind[] = {"point_", "line_", ""};
    const std::string tools =
        std::string("Morva_osg_") + kind[TypeParam::corners - 1] + "geoset_tools::Extract: ";
    TypeParam without_core;
    without_core.geometry = ::osg::NullFC;
    const struct {
        node_ref node;
        TypeParam& into;
        std::string line;
    } cases[] = {{node_ref(), this->geoset, tools + "No Node\n"},
                 {node_ref(::osg::Node::create()), this->geoset, tools + "No Core\n"},
                 {node_ref(group()), this->geoset, tools + "No GeometryCore\n"},
                 {node_ref(nodeOf(::osg::Geometry::create())), this->geoset, ""},
                 {node_ref(meshNode(this->some(1))), without_core,
                  "Morva_osg_geoset_tools::Extract: No Geometry in geoset!\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(toldBy([&] {
                      extract(c.node.get(), c.into, {true, true, true, true, true});
                  }),
                  c.line);
        EXPECT_EQ(c.into.vertex_count, 0U);
    }
    const node_ref whole(meshNode(this->some(1))); // by the flags one by one
    if constexpr (TypeParam::corners == 3)
        extract(whole.get(), this->geoset, false, false, false, true, false);
    else
        extract(whole.get(), this->geoset, false, false, false, true);
    EXPECT_EQ(this->geoset.size, 1U);
    without_core.setup();
    without_core.calc_bounding_box();
    EXPECT_EQ(without_core.size, 0U);
}

TYPED_TEST(GeosetKinds, ExtractTurnsNormalsWithoutScalingThemAndEntersTheBoxAskedFor) {
    // Rows: x' = -2 y + 5, y' = 3 x, z' = 4 z - 1: a quarter turn, scaled.
    const ::osg::Matrix matrix(0, -2, 0, 5, 3, 0, 0, 0, 0, 0, 4, -1, 0, 0, 0, 1);
    mesh_data mesh = this->some(3 / TypeParam::corners + 1, {1, 2, 3});
    mesh.normals.assign(mesh.positions.size(), {1, 0, 0});
    mesh.normals[1] = {0, 0, 2};
    mesh.normals[2] = {0, 1e-7F, 0}; // of no length: not blown up
    const node_ref root(
        transformed(matrix, {named("a", meshNode(mesh)), named("b", meshNode(mesh))}));
    extract(root->getChild(0), this->geoset, {true, false, true, true, false});
    const ::osg::Vec3f turned[3] = {{0, 1, 0}, {0, 0, 1}, {-1e-7F, 0, 0}};
    const rows world = rowsOf(this->geoset.geometry.get(), 3);
    for (std::size_t k = 0; k < 3; ++k) {
        const ::osg::Pnt3f& p = mesh.positions[k];
        EXPECT_EQ(world[k].position, ::osg::Pnt3f(5 - 2 * p[1], 3 * p[0], 4 * p[2] - 1));
        EXPECT_NEAR((world[k].normal - turned[k]).length(), 0, 2e-6F) << k;
    }
    EXPECT_LT(world[2].normal.length(), 2e-7F);
    extract(root->getChild(1), this->geoset, {false, false, true, true, false});
    EXPECT_EQ(this->handler.mins[0][2], 11);
    EXPECT_EQ(this->handler.mins[1], ::osg::Pnt3f(1, 2, 3));
}

} // namespace
