#include <morva/tools/morva_osg_model_cells.h>

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using namespace morva::osg;

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

world_mesh meshOfCells(const cell_division& division) {
    world_mesh all;
    for (std::size_t i = 0; i < division.cells.size(); ++i) {
        const world_mesh mesh =
            worldMesh(node_ref(cellScene(division, i)).get(), {true, true, true, true});
        EXPECT_EQ(mesh.size(), division.cells[i].triangles);
        all.insert(all.end(), mesh.begin(), mesh.end());
    }
    std::sort(all.begin(), all.end());
    return all;
}

/// Whether a cell holds what its record tells, within its limit.
void expectAsTold(const cell_division& division, std::size_t number,
                  const model_cell_options& options) {
    const model_cell& cell = division.cells[number];
    const node_ref scene(cellScene(division, number));
    const node_list nodes = geometryNodes(scene.get());
    ASSERT_EQ(nodes.size(), cell.shares.size());
    std::uint64_t triangles = 0, lines = 0, points = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const cell_share& share = cell.shares[i];
        EXPECT_TRUE(i == 0 || cell.shares[i - 1].part < share.part);
        EXPECT_EQ(getNumberOfTriangles(nodes[i]), share.triangles);
        triangles += share.triangles;
        lines += share.lines;
        points += share.points;
    }
    EXPECT_TRUE(cell.triangles == triangles && cell.lines == lines && cell.points == points);
    const mesh_summary sum = summaryOf(worldMesh(scene.get()));
    float longest = 0;
    for (UInt32 a = 0; a < 3; ++a) {
        const float slack = 1e-6F * (1 + std::abs(cell.box.low[a]) + std::abs(cell.box.high[a]));
        longest = std::max(longest, cell.space.high[a] - cell.space.low[a]);
        if (lines + points != 0)
            continue; // of which the spaces do not know
        EXPECT_NEAR(cell.box.low[a], sum.min[a], slack);
        EXPECT_NEAR(cell.box.high[a], sum.max[a], slack);
        EXPECT_LE(cell.box.low[a], cell.space.high[a] + slack) << "some of it lies in its space";
        EXPECT_GE(cell.box.high[a], cell.space.low[a] - slack);
    }
    const bool by_count = options.measure == cell_measure::triangles;
    EXPECT_TRUE(cell.above_limit || triangles == 0 ||
                (by_count ? double(triangles) : double(longest)) <= options.limit);
}

TEST(DivideModel, WithoutCutsHoldsEveryElementOnceToTheBitInCellsAsTold) {
    std::mt19937 rng(seedOf(1213));
    for (unsigned round = 0; round < roundsOf(1500U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const node_ref root = someScene(rng);
        const node_list parts = geometryNodes(root.get());
        model_cell_options options{cell_measure::triangles, double(1 + rng() % 40)};
        if (rng() % 3 == 0)
            options = {cell_measure::size, 0.5 * double(1 + rng() % 20)};
        const cell_division division = divideModel(parts, options);
        for (std::size_t i = 0; i < division.cells.size(); ++i)
            expectAsTold(division, i, options);
        EXPECT_EQ(
            firstDifference(worldMesh(root.get(), {true, true, true, true}), meshOfCells(division)),
            "");
    }
}

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
    mesh_data stack, huge, beyond, scattered = morva_test::row(7, 0);
    for (int i = 0; i < 3000; ++i)
        stack.positions.insert(stack.positions.end(), {{0.1F, 0, 0}, {1, 0.3F, 0}, {0, 1, 0.7F}});
    stack.primitives = {{4, 9000}};
    huge.positions = {{-1e30F, 0, 0}, {1e30F, 0, 0}, {0, 1e30F, 1}};
    beyond.positions = {{-3e38F, 0, 0}, {3e38F, 0, 0}, {0, 1, 1}};
    huge.primitives = beyond.primitives = {{4, 3}};
    scattered.positions[3][1] = float(nan);
    const node_ref coincident(meshNode(stack)), large(meshNode(huge)),
        endless_one(meshNode(beyond)), points(meshNode(scattered)), two(meshNode(quads(1))),
        row(meshNode(quads(3))),
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
        {"exactly the limit", {row.get()}, {cell_measure::triangles, 6}, 1, 0},
        {"exactly the limit in size", {row.get()}, {cell_measure::size, 3.0}, 1, 0},
        {"a limit below one", {two.get()}, {cell_measure::triangles, 0.5}, 1, 1},
        {"one huge triangle", {large.get()}, {cell_measure::triangles, 1}, 1, 0},
        {"the same into small cells", {large.get()}, {cell_measure::size, 1.0}, 1, 1},
        {"one that no box can halve", {endless_one.get()}, {cell_measure::triangles, 1}, 0, 0},
        {"points alone, one without a place", {points.get()}, {cell_measure::triangles, 1}, 1, 0},
        {"far apart", geometryNodes(many.get()), {cell_measure::triangles, 100}, 2, 0}};
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
    EXPECT_EQ(divideModel({row.get()}, {cell_measure::triangles, 4}).cells.at(0).triangles, 2u)
        << "what is in the middle goes right";
    mesh_data lined = quads(4);
    lined.primitives.push_back({1, 2});
    lined.positions.insert(lined.positions.end(), {{1, 0, 0}, {3, 0, 0}});
    const node_ref with_line(meshNode(lined));
    EXPECT_EQ(divideModel({with_line.get()}, {cell_measure::triangles, 4}).cells.at(1).lines, 1u);
    const cell_division of_points = divideModel({points.get()}, {});
    EXPECT_EQ(of_points.parts[0].unplaced, 1u);
    EXPECT_TRUE(of_points.cells[0].space.low == of_points.cells[0].box.low &&
                of_points.cells[0].space.high == of_points.cells[0].box.high);
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
