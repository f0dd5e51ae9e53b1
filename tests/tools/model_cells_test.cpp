#include <morva/tools/morva_osg_model_cells.h>

#include "tests/support/test.h"

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using namespace morva::osg;

constexpr float endless = std::numeric_limits<float>::infinity();

::osg::Matrix someMatrix(std::mt19937& rng) {
    const auto pick = [&rng](std::initializer_list<float> of) {
        return of.begin()[rng() % of.size()];
    };
    ::osg::Matrix matrix;
    matrix.setIdentity();
    for (UInt32 axis = 0; axis < 3; ++axis)
        matrix[axis][axis] = pick({1, 0.5F, -3, 2});
    matrix[rng() % 3][rng() % 3] = pick({1, 0.25F, -1});
    matrix[3] = {pick({0, 5, 1e6F}), pick({0, -2.5F}), pick({0, 7, 0.1F}), 1};
    return matrix;
}

/// Parts of all primitives and index forms, some placed, some of one core.
node_ref someScene(std::mt19937& rng) {
    node_list parts;
    for (unsigned i = 1 + rng() % 5; i-- > 0;) {
        const mesh_data shapes[] = {row(2 + rng() % 9, rng() % 4),
                                    strip(6 + 2 * (rng() % 8), rng() % 2 == 0 ? 5 : 8),
                                    fan(3 + rng() % 20), soup(rng, 1 + rng() % 80)};
        mesh_data mesh = shapes[std::min<std::size_t>(rng() % 6, 3)];
        mesh = withIds(withAttributes(mesh, rng));
        mesh = rng() % 3 == 0   ? withIndexPerProperty(mesh, rng)
               : rng() % 2 == 0 ? withIndex(mesh, rng)
                                : mesh;
        const ::osg::GeometryPtr core = geometryOf(mesh, simple({1, 0, 0}));
        for (unsigned again = rng() % 4 == 0 ? 2 : 1; again-- > 0;) {
            const ::osg::NodePtr node = named("part" + std::to_string(parts.size()), nodeOf(core));
            parts.push_back(rng() % 2 == 0 ? node : transformed(someMatrix(rng), {node}));
        }
    }
    return node_ref(group(parts));
}

// ------------------------------------------------------------------------------- the naive twin

struct naive_element {
    unsigned part = 0, kind = 0; ///< kind: corners
    Pnt3f low, high;
};
struct naive_cell {
    Pnt3f space_low, space_high;
    std::vector<naive_element> elements;
};

std::vector<naive_element> elementsOf(const node_list& parts) {
    std::vector<naive_element> all;
    for (unsigned part = 0; part < parts.size(); ++part) {
        const ::osg::Matrix m = parts[part]->getToWorld();
        const auto add = [&](const std::vector<Pnt3f>& corners) {
            naive_element e{part,
                            unsigned(corners.size()),
                            {endless, endless, endless},
                            {-endless, -endless, -endless}};
            for (const Pnt3f& p : corners) {
                for (UInt32 r = 0; r < 3; ++r) {
                    const float w = m[0][r] * p[0] + m[1][r] * p[1] + m[2][r] * p[2] + m[3][r];
                    e.low[r] = std::min(e.low[r], w);
                    e.high[r] = std::max(e.high[r], w);
                }
            }
            all.push_back(e);
        };
        const ::osg::GeometryPtr core = coreOf(parts[part]);
        for (auto t = core->beginTriangles(); t != core->endTriangles(); ++t)
            add({t.getPosition(0), t.getPosition(1), t.getPosition(2)});
        for (auto p = core->beginPrimitives(); p != core->endPrimitives(); ++p) {
            const UInt32 type = p.getType(), n = p.getLength();
            for (UInt32 i = 0; type == GL_POINTS && i < n; ++i)
                add({p.getPosition(int(i))});
            for (UInt32 i = 0; type >= GL_LINES && type <= GL_LINE_STRIP && i + 1 < n;
                 i += type == GL_LINES ? 2 : 1)
                add({p.getPosition(int(i)), p.getPosition(int(i + 1))});
            if (type == GL_LINE_LOOP && n > 1)
                add({p.getPosition(int(n - 1)), p.getPosition(0)});
        }
    }
    return all;
}

/// The tree from the words of its header, by copies.
void divideNaively(const std::vector<naive_element>& here, Pnt3f low, Pnt3f high,
                   const model_cell_options& options, std::vector<naive_cell>& cells) {
    std::vector<naive_element> triangles;
    std::copy_if(here.begin(), here.end(), std::back_inserter(triangles),
                 [](const auto& e) { return e.kind == 3; });
    UInt32 axis = 0;
    for (UInt32 a = 1; a < 3; ++a)
        axis = high[a] - low[a] >= high[axis] - low[axis] ? a : axis;
    const float plane = (high[axis] - low[axis]) * 0.5F + low[axis];
    const bool alike = std::all_of(triangles.begin(), triangles.end(), [&](const naive_element& e) {
        return e.low == triangles[0].low && e.high == triangles[0].high;
    });
    const bool by_count = options.measure == cell_measure::triangles;
    const bool small = double(high[axis]) - double(low[axis]) <= options.limit;
    if (triangles.empty() || plane == low[axis] || plane == high[axis] ||
        (by_count ? alike || double(triangles.size()) <= options.limit : small)) {
        if (!here.empty())
            cells.push_back({low, high, here});
        return;
    }
    std::vector<naive_element> sides[2];
    for (const naive_element& e : here) {
        const float lo = e.low[axis], hi = e.high[axis];
        const bool right = lo >= plane || (hi > plane && !(plane > (hi - lo) * 0.5F + lo));
        sides[right ? 1 : 0].push_back(e);
    }
    Pnt3f left_end = high, right_start = low;
    left_end[axis] = right_start[axis] = plane;
    divideNaively(sides[0], low, left_end, options, cells);
    divideNaively(sides[1], right_start, high, options, cells);
}

world_mesh meshOfCells(const cell_division& division,
                       std::vector<std::size_t>* parts_of_cells = nullptr) {
    world_mesh all;
    for (std::size_t i = 0; i < division.cells.size(); ++i) {
        const node_ref scene(cellScene(division, i));
        const world_mesh mesh = worldMesh(scene.get(), {true, true, true, true});
        EXPECT_EQ(mesh.size(), division.cells[i].triangles);
        all.insert(all.end(), mesh.begin(), mesh.end());
        if (parts_of_cells != nullptr)
            parts_of_cells->push_back(geometryNodes(scene.get()).size());
    }
    std::sort(all.begin(), all.end());
    return all;
}

TEST(DivideModel, WithoutCutsGivesTheCellsOfANaiveTreeAndEveryTriangleOnceToTheBit) {
    std::mt19937 rng(seedOf(1213));
    for (unsigned round = 0; round < roundsOf(1500U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const node_ref root = someScene(rng);
        const node_list parts = geometryNodes(root.get());
        model_cell_options options{cell_measure::triangles, double(1 + rng() % 40)};
        if (rng() % 3 == 0)
            options = {cell_measure::size, 0.5 * double(1 + rng() % 20)};
        const cell_division division = divideModel(parts, options);

        const std::vector<naive_element> elements = elementsOf(parts);
        Pnt3f low(endless, endless, endless), high(-endless, -endless, -endless);
        for (const naive_element& e : elements) {
            for (UInt32 a = 0; a < 3 && e.kind == 3; ++a) {
                low[a] = std::min(low[a], e.low[a]);
                high[a] = std::max(high[a], e.high[a]);
            }
        }
        std::vector<naive_cell> expected;
        divideNaively(elements, low, high, options, expected);
        ASSERT_EQ(division.cells.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const model_cell& cell = division.cells[i];
            std::map<UInt32, std::array<std::uint64_t, 3>> shares;
            Pnt3f box_low(endless, endless, endless), box_high(-endless, -endless, -endless);
            for (const naive_element& e : expected[i].elements) {
                ++shares[e.part][e.kind - 1];
                for (UInt32 a = 0; a < 3; ++a) {
                    box_low[a] = std::min(box_low[a], e.low[a]);
                    box_high[a] = std::max(box_high[a], e.high[a]);
                }
            }
            EXPECT_TRUE(cell.box.low == box_low && cell.box.high == box_high);
            const bool has_triangles = low[0] <= high[0];
            EXPECT_EQ(cell.space.low, has_triangles ? expected[i].space_low : box_low);
            EXPECT_EQ(cell.space.high, has_triangles ? expected[i].space_high : box_high);
            ASSERT_EQ(cell.shares.size(), shares.size());
            for (const cell_share& share : cell.shares)
                EXPECT_EQ(shares[share.part], (std::array<std::uint64_t, 3>{
                                                  share.points, share.lines, share.triangles}));
        }
        std::vector<std::size_t> nodes;
        EXPECT_EQ(firstDifference(worldMesh(root.get(), {true, true, true, true}),
                                  meshOfCells(division, &nodes)),
                  "");
        for (std::size_t i = 0; i < nodes.size(); ++i)
            EXPECT_EQ(nodes[i], division.cells[i].shares.size());
    }
}

// ------------------------------------------------------------------------------------ with cuts

/// Closed surfaces: the four faces of tetrahedra. Coordinates follow places, an ID is a triangle's.
::osg::NodePtr tetrahedra(std::mt19937& rng, unsigned count, float offset) {
    std::uniform_real_distribution<float> place(-1, 1);
    mesh_data mesh;
    for (unsigned i = 0; i < count; ++i) {
        Pnt3f corner[4];
        for (Pnt3f& p : corner)
            p = Pnt3f(offset + place(rng), place(rng), place(rng));
        for (const int k : {0, 1, 2, 0, 2, 3, 0, 3, 1, 1, 3, 2}) {
            mesh.positions.push_back(corner[k]);
            mesh.coordinates.push_back({corner[k][0] * 0.5F, 1 - corner[k][1]});
        }
    }
    mesh.primitives = {{4, unsigned(mesh.positions.size())}};
    return meshNode(withNormals(withIds(mesh), rng));
}

double areaOf(const world_triangle& t) { return summaryOf({t}).area; }

TEST(DivideModel, CutsIntoPiecesWithinTheirCellsOfEqualArea) {
    std::mt19937 rng(seedOf(77));
    for (unsigned round = 0; round < roundsOf(120U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const node_ref root(group({tetrahedra(rng, 1 + rng() % 12, round % 3 == 0 ? 100.0F : 0)}));
        const node_list parts = geometryNodes(root.get());
        model_cell_options options{cell_measure::triangles, double(8 + rng() % 40),
                                   cell_straddle::cut};
        if (rng() % 2 == 0)
            options = {cell_measure::size, 0.25 * double(1 + rng() % 8), cell_straddle::cut};
        const cell_division division = divideModel(parts, options);

        std::map<float, double> area_by_id;
        for (const world_triangle& t : worldMesh(root.get(), {true, true, true, true}))
            area_by_id[t.corners[0].values[world_corner::id_at]] += areaOf(t);
        std::uint64_t triangles = 0;
        for (std::size_t i = 0; i < division.cells.size(); ++i) {
            const model_cell& cell = division.cells[i];
            const node_ref scene(cellScene(division, i));
            triangles += cell.triangles;
            for (UInt32 a = 0; a < 3; ++a) {
                EXPECT_GE(cell.box.low[a] - cell.space.low[a], -1e-5F)
                    << "but for the thinnest tips";
                EXPECT_LE(cell.box.high[a] - cell.space.high[a], 1e-5F);
            }
            EXPECT_TRUE(cell.above_limit || options.measure == cell_measure::size ||
                        double(cell.triangles) <= options.limit);
            for (const world_triangle& t : worldMesh(scene.get(), {true, true, true, true})) {
                area_by_id[t.corners[0].values[world_corner::id_at]] -= areaOf(t);
                for (const world_corner& corner : t.corners) {
                    const auto& v = corner.values;
                    const float* tc = &v[world_corner::coordinates_at];
                    const float* n = &v[world_corner::normal_at];
                    EXPECT_NEAR(tc[0], v[0] * 0.5F, 2e-6F * (1 + std::abs(v[0])));
                    EXPECT_NEAR(tc[1], 1 - v[1], 1e-5F);
                    EXPECT_NEAR(n[0] * n[0] + n[1] * n[1] + n[2] * n[2], 1, 1e-4F);
                    for (UInt32 a = 0; a < 3; ++a)
                        EXPECT_TRUE(v[a] >= cell.box.low[a] && v[a] <= cell.box.high[a]);
                }
            }
        }
        EXPECT_EQ(triangles, division.parts[0].triangles + division.parts[0].pieces);
        for (const auto& [id, area] : area_by_id)
            EXPECT_NEAR(area, 0, round % 3 == 0 ? 1e-3 : 1e-5) << "triangle " << id;
    }
}

TEST(DivideModel, EndsOnWhatCannotBeDividedAndRefusesWhatMakesNoSense) {
    const auto nan = std::numeric_limits<double>::quiet_NaN();
    mesh_data stack, huge, beyond, scattered = row(7, 0);
    for (int i = 0; i < 3000; ++i)
        stack.positions.insert(stack.positions.end(), {{0.1F, 0, 0}, {1, 0.3F, 0}, {0, 1, 0.7F}});
    stack.primitives = {{4, 9000}};
    huge.positions = {{-1e30F, 0, 0}, {1e30F, 0, 0}, {0, 1e30F, 1}};
    beyond.positions = {{-3e38F, 0, 0}, {3e38F, 0, 0}, {0, 1, 1}};
    huge.primitives = beyond.primitives = {{4, 3}};
    scattered.positions[3][1] = float(nan);
    const node_ref coincident(meshNode(stack)), large(meshNode(huge)),
        endless_one(meshNode(beyond)), points(meshNode(scattered)), two(meshNode(quads(1))),
        many(group({meshNode(quads(50)), moved({1e6F, 1e6F, 1e6F}, {meshNode(quads(50))})}));
    const auto cut = [](double limit) {
        return model_cell_options{cell_measure::triangles, limit, cell_straddle::cut};
    };
    struct {
        const char* name;
        node_list parts;
        model_cell_options options;
        std::size_t cells, above;
    } const cases[] = {
        {"nothing", {}, {}, 0, 0},
        {"coincident triangles", {coincident.get()}, {cell_measure::triangles, 100}, 1, 1},
        {"the same, cut", {coincident.get()}, cut(100), 1, 1},
        {"halves of a square, cut", {two.get()}, cut(1), 1, 1},
        {"exactly the limit", {two.get()}, {cell_measure::triangles, 2}, 1, 0},
        {"a limit below one", {two.get()}, {cell_measure::triangles, 0.5}, 1, 1},
        {"one huge triangle", {large.get()}, {cell_measure::triangles, 1}, 1, 0},
        {"the same into small cells", {large.get()}, {cell_measure::size, 1.0}, 1, 1},
        {"one that no box can halve", {endless_one.get()}, {cell_measure::triangles, 1}, 0, 0},
        {"points alone, one without a place", {points.get()}, {cell_measure::triangles, 1}, 1, 0},
        {"far apart", geometryNodes(many.get()), {cell_measure::triangles, 100}, 2, 0},
    };
    for (const auto& c : cases) {
        const cell_division division = divideModel(c.parts, c.options);
        EXPECT_EQ(division.cells.size(), c.cells) << c.name;
        std::size_t above = 0;
        for (const model_cell& cell : division.cells)
            above += cell.above_limit ? 1 : 0;
        EXPECT_EQ(above, c.above) << c.name;
        meshOfCells(division);
        EXPECT_THROW(cellScene(division, c.cells), std::out_of_range) << c.name;
    }
    EXPECT_EQ(divideModel({points.get()}, {}).parts[0].unplaced, 1u);
    scattered.indices = {0, 1, 2, 3, 4, 5, 77}; // the last one leads nowhere
    const node_ref beyond_rows(meshNode(scattered));
    EXPECT_EQ(divideModel({beyond_rows.get()}, {}).parts[0].unplaced, 2u);
    for (const double limit : {0.0, -1.0, nan})
        EXPECT_THROW(divideModel({two.get()}, {cell_measure::size, limit}), std::invalid_argument);
    EXPECT_THROW(divideModel({two.get()}, {cell_measure::size, 1e-5, cell_straddle::cut}),
                 std::length_error);
}

TEST(CellScene, MakesNormalsAnewAndKeepsLinesBesideThem) {
    std::mt19937 rng(5);
    mesh_data mesh = withNormals(quads(4), rng);
    mesh.primitives.push_back({1, 2});
    mesh.positions.insert(mesh.positions.end(), {{0, 0, 5}, {1, 0, 5}});
    mesh.normals.insert(mesh.normals.end(), 2, {1, 0, 0});
    mesh.primitives.insert(mesh.primitives.begin(), {4, 3}); // without area: nothing to go by
    mesh.positions.insert(mesh.positions.begin(), {{7, 7, 7}, {8, 8, 8}, {9, 9, 9}});
    mesh.normals.insert(mesh.normals.begin(), 3, {1, 0, 0});
    const node_ref root(
        transformed(someMatrix(rng), {named("sheet", meshNode(mesh, simple({0, 1, 0})))}));
    hidden(root->getChild(0));
    ::osg::setName(root->getChild(0)->getCore(), "core");
    const node_list parts = geometryNodes(root.get());
    const cell_division division = divideModel(
        parts, {cell_measure::triangles, 100, cell_straddle::centre, cell_normals::recalc});
    const node_ref scene(cellScene(division, 0));
    const node_list made = geometryNodes(scene.get());
    ASSERT_EQ(namesOf(made), (std::vector<std::string>{"sheet", "sheet"}));
    for (const ::osg::NodePtr& node : made) {
        EXPECT_EQ(coreOf(node)->getMaterial(), coreOf(parts[0])->getMaterial());
        EXPECT_EQ(node->getParent()->getToWorld(), parts[0]->getToWorld());
        EXPECT_EQ(node->getTravMask(), 0U);
        EXPECT_STREQ(::osg::getName(node->getCore()), "core");
    }
    for (auto t = coreOf(made[0])->beginTriangles(); t != coreOf(made[0])->endTriangles(); ++t)
        EXPECT_EQ(t.getNormal(0), ::osg::Vec3f(0, 0, 1));
    EXPECT_EQ(coreOf(made[1])->getNormals()->getValue(1), ::osg::Vec3f(1, 0, 0));
}

} // namespace
