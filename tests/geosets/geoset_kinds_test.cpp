// What holds for triangles, lines and points alike: extraction, set-up, clearing, sizes, trees.

#include "naive_extract.h"

namespace {

using namespace tri;

template <typename G> class GeosetKinds : public testing::Test {
  public:
    static constexpr unsigned corners = G::corners;

  protected:
    GeosetKinds() { morva::osg::getIDmapHandler().reset(); }
    ~GeosetKinds() override { morva::osg::getIDmapHandler().reset(); }

    static mesh_data some(unsigned count, const ::osg::Vec3f& at = {0, 0, 0}) {
        return elements(corners, count, at);
    }
    static std::string tools() {
        const char* const names[] = {"point_", "line_", ""};
        return std::string("Morva_osg_") + names[corners - 1] + "geoset_tools::Extract: ";
    }
    std::vector<float> ids() const {
        std::vector<float> result;
        for (const corner& c : rowsOf(geoset.geometry.get(), geoset.vertex_count))
            result.push_back(c.id);
        return result;
    }
    /// Each value once per corner.
    static std::vector<float> perCorner(const std::vector<float>& values) {
        std::vector<float> result;
        for (const float value : values)
            result.insert(result.end(), corners, value);
        return result;
    }

    G geoset;
};

using kinds = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(GeosetKinds, kinds);

TYPED_TEST(GeosetKinds, ExtractRefusesWithOneLineAndNoChange) {
    TypeParam without_core;
    without_core.geometry = ::osg::NullFC;
    const struct {
        const char* name;
        node_ref node;
        TypeParam& into;
        std::string line;
    } cases[] = {
        {"null", node_ref(), this->geoset, this->tools() + "No Node\n"},
        {"no_core", node_ref(::osg::Node::create()), this->geoset, this->tools() + "No Core\n"},
        {"group", node_ref(group()), this->geoset, this->tools() + "No GeometryCore\n"},
        {"nothing_to_draw", node_ref(nodeOf(::osg::Geometry::create())), this->geoset, ""},
        {"other_primitives", node_ref(meshNode(elements(TestFixture::corners == 3 ? 2 : 3, 1))),
         this->geoset, ""},
        {"no_target", node_ref(meshNode(this->some(1))), without_core,
         "Morva_osg_geoset_tools::Extract: No Geometry in geoset!\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto act = [&] {
            EXPECT_EQ(pour(c.node.get(), c.into, {true, true, true, true, true}), 0U);
        };
        EXPECT_EQ(toldBy(act), c.line);
        EXPECT_EQ(c.into.vertex_count, 0U);
    }
    without_core.setup();
    without_core.calc_bounding_box();
    EXPECT_EQ(without_core.size, 0U);
}

TYPED_TEST(GeosetKinds, ExtractMovesPositionsToTheWorldAndTurnsNormalsWithoutScalingThem) {
    // Rows: x' = -2 y + 5, y' = 3 x, z' = 4 z - 1: a quarter turn, scaled.
    const ::osg::Matrix matrix(0, -2, 0, 5, 3, 0, 0, 0, 0, 0, 4, -1, 0, 0, 0, 1);
    mesh_data mesh = this->some(3 / TestFixture::corners + 1, {1, 2, 3});
    mesh.normals.assign(mesh.positions.size(), {1, 0, 0});
    mesh.normals[1] = {0, 0, 2};
    mesh.normals[2] = {0, 1e-7F, 0}; // of no length: not blown up
    const node_ref root(transformed(matrix, {meshNode(mesh)}));
    pour(root->getChild(0), this->geoset, {true, false, false, true, false});
    const ::osg::Vec3f turned[3] = {{0, 1, 0}, {0, 0, 1}, {-1e-7F, 0, 0}};
    const rows world = rowsOf(this->geoset.geometry.get(), 3);
    for (std::size_t k = 0; k < 3; ++k) {
        const ::osg::Pnt3f& p = mesh.positions[k];
        EXPECT_EQ(world[k].position, ::osg::Pnt3f(5 - 2 * p[1], 3 * p[0], 4 * p[2] - 1));
        EXPECT_NEAR((world[k].normal - turned[k]).length(), 0, 2e-6F) << k;
    }
    EXPECT_LT(world[2].normal.length(), 2e-7F);
}

TYPED_TEST(GeosetKinds, ExtractionAgreesWithTheIteratorsOverManyNodes) {
    constexpr unsigned n = TestFixture::corners;
    std::mt19937 rng(4711);
    const registration_off ids_are_kept;
    std::size_t elements = 0;
    for (int round = 0; round < 500; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const random_form form{static_cast<layout>(round % 3), round % 2 == 0};
        TypeParam target;
        if (round % 5 == 0)
            target.vertex_capacity = rng() % 200; // a budget that may or may not do
        naive_soup expected;
        for (int i = 0; i < 4; ++i) {
            const ::osg::GeometryPtr geometry = randomGeometry(rng, form);
            const placement place{rng() % 2 == 0};
            const node_ref root(transformed(place.matrix(), {nodeOf(geometry)}));
            const wishes w{place.placed, false, false, rng() % 4 == 0, false};
            const unsigned int rogue = pour(root->getChild(0), target, w);
            const int found = naiveExtract(geometry, expected, place, n);
            EXPECT_EQ(rogue, static_cast<unsigned>(std::max(found, 0)));
            if (w.run_setup && found >= 0)
                naiveSetup(expected, n);
            ASSERT_EQ(target.vertex_count, expected.vertices.size());
            const rows made = rowsOf(target.geometry.get(), target.vertex_count);
            for (std::size_t v = 0; v < made.size(); ++v)
                ASSERT_TRUE(same(numbersOf(made[v]), numbersOf(expected.vertices[v]))) << v;
        }
        const ::osg::GeometryPtr core = target.geometry.get();
        EXPECT_EQ(core->getNormals() != ::osg::NullFC, expected.normals);
        EXPECT_EQ(core->getColors() != ::osg::NullFC, expected.colors);
        EXPECT_EQ(core->getTexCoords7() != ::osg::NullFC, expected.ids);
        target.setup();
        EXPECT_EQ(target.size, expected.vertices.size() / n);
        elements += target.size;
    }
    EXPECT_GT(elements, 2000U);
    EXPECT_TRUE(morva::osg::getIDmapHandler().names.empty());
}

/// Vertices that come out, and those that are counted before set-up: of points, lines, triangles.
struct count_case {
    const char* name;
    std::vector<std::pair<unsigned, unsigned>> primitives;
    unsigned int points; ///< positions that there are
    unsigned int kept[3], counted[3];
    bool lengths = true;
};

const count_case count_cases[] = {
    {"a quad strip alone counts for nothing", {{8, 4}}, 4, {0, 0, 6}, {}},
    {"a quad strip beside triangles comes uncounted", {{4, 3}, {8, 5}}, 8, {0, 0, 12}, {0, 0, 3}},
    {"a quad counts as two, a rest as half of one", {{7, 6}}, 6, {0, 0, 6}, {0, 0, 9}},
    {"a strip of one wraps the count", {{5, 1}, {4, 6}}, 7, {0, 0, 6}, {0, 0, 3}},
    {"a fan of none by two", {{6, 0}, {4, 3}, {4, 3}, {4, 3}}, 9, {0, 0, 9}, {0, 0, 3}},
    {"to none", {{4, 6}, {5, 0}}, 6, {0, 0, 6}, {}},
    {"and below", {{3, 0}, {5, 0}, {4, 1}}, 1, {}, {}},
    {"a line strip of none", {{3, 0}, {3, 5}}, 5, {0, 8, 0}, {0, 6, 0}},
    {"two of them", {{1, 2}, {3, 0}, {3, 0}}, 2, {2, 2, 0}, {2, 2, 0}},
    {"triangles end with the data", {{4, 3000000000U}}, 7, {0, 0, 6}, {0, 0, 6}},
    {"so does a fan", {{6, 4000000000U}}, 5, {0, 0, 9}, {0, 0, 9}},
    {"so do lines", {{4, 3}, {1, 0x7ffffffeU}}, 5, {2, 2, 3}, {2, 2, 3}},
    {"and a line strip", {{1, 2}, {3, 900}, {1, 2}}, 6, {2, 8, 0}, {4, 8, 0}},
    {"leftovers are dropped", {{4, 5}, {7, 7}, {1, 3}}, 15, {3, 2, 9}, {3, 2, 12}},
    {"a loop of two goes and comes", {{2, 2}, {0, 3}}, 5, {0, 4, 0}, {0, 4, 0}},
    {"without lengths", {{6, 0}}, 5, {0, 0, 9}, {0, 0, 9}, false},
    {"the first has them all", {{3, 0}, {8, 0}, {1, 0}}, 4, {0, 6, 0}, {0, 6, 0}, false},
    {"points", {{1, 0}}, 5, {5, 4, 0}, {5, 4, 0}, false}};

TYPED_TEST(GeosetKinds, CountsOfPrimitivesThatDoNotAddUpLoseNothing) {
    constexpr unsigned n = TestFixture::corners;
    for (const count_case& c : count_cases) {
        SCOPED_TRACE(c.name);
        mesh_data mesh = meshOf(c.primitives, {});
        for (unsigned int i = 0; i < c.points; ++i) {
            const auto x = static_cast<float>(i);
            mesh.positions.push_back(::osg::Pnt3f(x, x * x, x * x * x));
        }
        const node_ref node(meshNode(mesh));
        if (!c.lengths)
            coreOf(node)->setLengths(::osg::NullFC);
        TypeParam target;
        EXPECT_EQ(toldBy([&] { pour(node.get(), target); }, std::cerr), "");
        const ::osg::GeoPLengthsPtr lengths = target.geometry->getLengths();
        EXPECT_EQ(lengths == ::osg::NullFC ? 0 : lengths->getValue(0), c.counted[n - 1]);
        EXPECT_LE(target.vertex_capacity, 3U * c.points) << "no more room than there is data for";
        target.setup();
        EXPECT_EQ(n * target.size, c.kept[n - 1]);
        EXPECT_EQ(coreOf(node)->getLengths() != ::osg::NullFC, c.lengths) << "the source stays";
        for (::osg::UInt32 row = 0; n == 3 && row < target.vertex_count; ++row)
            EXPECT_NEAR(target.geometry->getNormals()->getValue(row).length(), 1.0F, 1e-5F);
    }
}

TYPED_TEST(GeosetKinds, TheFirstCornerTellsWhoseIdsAnElementHas) {
    constexpr ::osg::UInt32 none = 0xffffffffU;
    const struct {
        const char* name;
        ::osg::UInt16 mapping; ///< of the second index
        std::vector<::osg::UInt32> indices;
        std::vector<float> ids;
    } cases[] = {{"no entry", ::osg::Geometry::MapNormal, {0, 0, 0}, {1, 1, 1}},
                 {"none first", ::osg::Geometry::MapTexCoords7, {none, 0, 0}, {1, 1, 1}},
                 {"none later", ::osg::Geometry::MapTexCoords7, {0, none, 7}, {9, 0, 0}},
                 {"outside first", ::osg::Geometry::MapTexCoords7, {7, 0, none}, {0, 9, 0}}};
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        handler.reset();
        std::string taken = "taken";
        ::osg::Pnt3f zero;
        handler.insertNodeName(taken, zero, zero, ::osg::NullFC, "");
        mesh_data mesh = this->some(1);
        mesh.ids.assign(mesh.positions.size(), 9.0F);
        mesh.mapping = {::osg::Geometry::MapPosition, c.mapping};
        for (::osg::UInt32 k = 0; k < TestFixture::corners; ++k)
            mesh.indices.insert(mesh.indices.end(), {k, c.indices[k]});
        const node_ref node(named("node", meshNode(mesh)));
        this->geoset.clear();
        pour(node.get(), this->geoset, {false, false, true, false, false});
        EXPECT_EQ(this->ids(),
                  std::vector<float>(c.ids.begin(), c.ids.begin() + TestFixture::corners));
    }
}

TYPED_TEST(GeosetKinds, EachNameHasItsIdAndANamelessNodeGetsNoneAndSaysSo) {
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    const wishes with_ids{false, false, true, false, false};
    const node_ref nameless(meshNode(this->some(1)));
    EXPECT_EQ(toldBy([&] { pour(nameless.get(), this->geoset, with_ids); }),
              "Node has no name and will not get an IDmap.\n");
    EXPECT_EQ(lengthOf(this->geoset.geometry->getTexCoords7()), -1);

    this->geoset.clear();
    ::osg::setName(nameless->getCore(), "core"); // will do
    const node_ref scene(moved({0, 0, 10}, {named("a", meshNode(this->some(1))),
                                            named("b", meshNode(this->some(1, {5, 0, 0})))}));
    const wishes in_world{true, false, true, false, false};
    pour(scene->getChild(0), this->geoset, in_world);
    pour(scene->getChild(1), this->geoset, with_ids);
    pour(scene->getChild(0), this->geoset, in_world);
    pour(nameless.get(), this->geoset, with_ids);
    handler.releaseHeldLock();
    EXPECT_EQ(this->ids(), this->perCorner({0, 1, 0, 2}));
    EXPECT_EQ(handler.names, (std::vector<std::string>{"a", "b", "core"}));
    EXPECT_EQ(handler.mins[0], ::osg::Pnt3f(0, 0, 10));
    EXPECT_EQ(handler.mins[1], ::osg::Pnt3f(5, 0, 0));
}

TYPED_TEST(GeosetKinds, MaterialIsTheFirstOfItsOwnThenOfAGroupIfAsked) {
    const ::osg::MaterialPtr of_group = bareMaterial();
    const ::osg::MaterialPtr of_core = bareMaterial();
    const node_ref root(
        materialGroup(of_group, {meshNode(this->some(1)), meshNode(this->some(1), of_core)}));
    const wishes ask{false, true, false, false, false};
    TypeParam& asked = this->geoset;
    TypeParam not_asked;
    pour(node_ref(meshNode(this->some(1))).get(), asked, ask); // there is no group
    EXPECT_TRUE(asked.geometry->getMaterial() == ::osg::NullFC);
    pour(root->getChild(0), asked, ask);
    EXPECT_TRUE(asked.geometry->getMaterial() == of_group);
    pour(root->getChild(0), not_asked);
    EXPECT_TRUE(not_asked.geometry->getMaterial() == ::osg::NullFC);
    pour(root->getChild(1), not_asked, ask);
    EXPECT_TRUE(not_asked.geometry->getMaterial() == of_core);
    pour(root->getChild(1), asked, ask);
    EXPECT_TRUE(asked.geometry->getMaterial() == of_group) << "the first one stays";
}

TYPED_TEST(GeosetKinds, SetupOverallocatesIgnoresARestAndFindsTheBox) {
    const unsigned n = TestFixture::corners;
    this->geoset.vertex_count = 30;
    this->geoset.setup();
    EXPECT_EQ(this->geoset.size + this->geoset.wished_size, 0U) << "there are no positions";

    mesh_data mesh = this->some(2);
    mesh.positions.push_back({100, 100, 100});
    this->geoset.geometry = geometryOf(mesh);
    this->geoset.vertex_count = 2 * n + (n == 1 ? 0 : 1);
    this->geoset.setup();
    EXPECT_EQ(this->geoset.size, 2U);
    EXPECT_EQ(this->geoset.wished_size, 2U);
    EXPECT_EQ(lengthOf(this->geoset.geometry->getPositions()),
              static_cast<int>(n * this->geoset.vertex_count));
    EXPECT_EQ(this->geoset.bbox.max[0], n == 1 ? 1.0F : 2.0F);
    EXPECT_EQ(this->geoset.bbox.extent[2], 0.0F) << "a flat axis stays flat";

    // A NaN in the very first vertex stays in the box, any other is passed over, alone.
    this->geoset.geometry->getPositions()->setValue({0, nan_value, 0}, 0);
    this->geoset.geometry->getPositions()->setValue({nan_value, 7, 0}, n);
    this->geoset.geometry->getPositions()->setValue({8, 7, 0}, 2 * n - 1);
    this->geoset.setup();
    EXPECT_EQ(this->geoset.bbox.max[0], 8.0F);
    EXPECT_TRUE(std::isnan(this->geoset.bbox.min[1]) && std::isnan(this->geoset.bbox.max[1]));

    this->geoset.vertex_count = 0;
    this->geoset.setup();
    EXPECT_EQ(this->geoset.size, 0U);
    EXPECT_EQ(this->geoset.bbox.max[0], 0.0F);
}

TYPED_TEST(GeosetKinds, SizesAreInElementsUntilOneFailsAndClearStartsAnew) {
    const int n = TestFixture::corners;
    EXPECT_EQ(this->geoset.vertex_capacity, 0U);
    pour(this->some(4), this->geoset, set_up);
    const ::osg::GeometryRefPtr core(this->geoset.geometry.get());
    EXPECT_TRUE(this->geoset.resizeFieldContainers(5));
    EXPECT_EQ(lengthOf(core->getPositions()), 5 * n);
    this->geoset.names.push_back("something");
    for (const int fields : {7, 9}) {
        if constexpr (TestFixture::corners < 3) {
            this->geoset.setWishedSize(static_cast<unsigned long>(fields));
            EXPECT_EQ(this->geoset.vertex_capacity, static_cast<unsigned long>(fields));
        } else {
            EXPECT_EQ(this->geoset.resizeFieldContainers(static_cast<unsigned>(fields)),
                      fields == 7);
        }
        EXPECT_EQ(lengthOf(core->getPositions()), 7 * n);
        this->geoset.resize_failed = true;
    }
    this->geoset.clear();
    EXPECT_EQ(lengthOf(core->getPositions()), 7 * n) << "who took the core still has it";
    EXPECT_EQ(lengthOf(this->geoset.geometry->getPositions()), -1);
    EXPECT_EQ(this->geoset.size + this->geoset.wished_size + this->geoset.vertex_count, 0U);
    EXPECT_EQ(this->geoset.bbox.max[0], 0.0F);
    EXPECT_TRUE(this->geoset.names.empty() && !this->geoset.resize_failed);
    EXPECT_EQ(this->geoset.vertex_capacity, 500000U);
}

/// A geoset over lines given by their ends: colours by end (first red, second blue), IDs the
/// number of the line, normals by end.
void fill(osg_line_geoset& lines, const piece& ends) {
    mesh_data mesh = meshOf({{1, static_cast<unsigned>(ends.size())}}, ends);
    for (std::size_t i = 0; i < ends.size(); i += 2) {
        mesh.colors.insert(mesh.colors.end(), {{1, 0, 0}, {0, 0, 1}});
        mesh.secondary.insert(mesh.secondary.end(), {{0, 0, 0}, {0, 1, 0}});
        mesh.normals.insert(mesh.normals.end(), {{0, 1, 2}, {0, 0.5F, 2}});
    }
    const registration_off kept;
    pour(withIds(mesh, 2), lines, set_up);
}

TEST(LineSplit, NewLineIsTheFirstHalfAndTheElementKeepsTheSecond) {
    osg_line_geoset lines;
    fill(lines, {{1, 1, 1}, {2, 2, 2}, {0, 0, 0}, {8, 4, 0}});
    const cut_result found = cut(lines, 1, 2.0, 0);
    EXPECT_EQ(found.pieces, 1);
    EXPECT_EQ(found.first, 2U);
    ASSERT_EQ(lines.size, 3U);
    EXPECT_EQ(cornersOf(lines, 2), (piece{{0, 0, 0}, {2, 1, 0}}));
    EXPECT_EQ(cornersOf(lines, 1), (piece{{2, 1, 0}, {8, 4, 0}}));
    EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 6U);

    const rows all = rowsOf(lines.geometry.get(), 6);
    const ::osg::Color3f quarter(0.75F, 0, 0.25F), colors[] = {quarter, {0, 0, 1}, {1, 0, 0}};
    for (std::size_t k = 0; k < 4; ++k)
        EXPECT_EQ(all[2 + k].color, colors[k % 3]) << k;
    EXPECT_EQ(all[5].secondary, ::osg::Color3f(0, 0.25F, 0));
    EXPECT_EQ(all[5].normal, ::osg::Vec3f(0, 0.5F, 2)) << "end by end";
    EXPECT_EQ(all[4].id + all[5].id, 2.0F);

    lines.setup(); // the piece is not lost
    EXPECT_EQ(lines.size, 3U);

    osg_line_geoset upright; // colours go by x alone: 0 divided by 0
    fill(upright, {{3, 0, 0}, {3, 4, 0}});
    ASSERT_EQ(cut(upright, 0, 1.0, 1).pieces, 1);
    EXPECT_TRUE(std::isnan(upright.geometry->getColors()->getValue(0)[0]));
    EXPECT_EQ(upright.interpolate_color(1, ::osg::Pnt3f(3, 0, 0), 0), ::osg::Color3f(1, 0, 0));
}

TEST(LineSplit, RefusesWithoutChange) {
    const std::string factor = "Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( ";
    const std::string not_finite =
        "Morva::osg::osg_line_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN.\n";
    const struct {
        const char* name;
        piece ends;
        double plane;
        std::string line;
    } cases[] = {{"at the first end", {{2, 0, 0}, {1, 0, 0}}, 2.0, factor + "0 ).\n"},
                 {"past the second end", {{1, 0, 0}, {2, 0, 0}}, 3.0, factor + "2 ).\n"},
                 {"a hair before it", {{0, 0, 0}, {1, 0, 0}}, 0.999995, factor + "0.999995 ).\n"},
                 {"line in the plane", {{1, 0, 0}, {1, 1, 0}}, 1.0, not_finite},
                 {"other coordinate is NaN", {{0, 0, 0}, {2, nan_value, 0}}, 1.0, not_finite}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        osg_line_geoset lines;
        fill(lines, c.ends);
        const cut_result found = cut(lines, 0, c.plane, 0);
        EXPECT_EQ(found.told, c.line);
        EXPECT_EQ(found.pieces, 0);
        EXPECT_EQ(found.first, 1U);
        EXPECT_EQ(lines.size, 1U);
        EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 2U);
    }
    osg_line_geoset lines;
    fill(lines, {{0, 0, 0}, {1, 0, 0}});
    EXPECT_EQ(cut(lines, 3, 0.5, 0).pieces, 0) << "there is no line 3";
    EXPECT_EQ(cut(lines, 0, 0.5, 3).pieces, 0) << "there is no axis 3";
    lines.resize_failed = true;
    EXPECT_EQ(cut(lines, 0, 0.5, 0).pieces, 0);
    EXPECT_EQ(lines.size, 1U);
}

/// Builds a tree that cuts; `measure` tells the length or area of an element.
template <typename G, typename Measure>
void expectKeptByCuts(G& geoset, const morva::kd_build_setup& setup, const Measure& measure) {
    const auto total = [&] {
        double sum = 0;
        for (unsigned i = 0; i < geoset.size; ++i)
            sum += static_cast<double>(measure(cornersOf(geoset, i)));
        return sum;
    };
    const double before = total();
    morva::kd_tree<float> tree;
    const std::string told =
        toldBy([&] { morva::compile(geoset, tree, setup, morva::kd_strategy_ObjMedian()); });
    EXPECT_LT(std::count(told.begin(), told.end(), '\n'), 10) << told; // cuts very near an end
    EXPECT_NEAR(total(), before, 1e-5 * before);
    EXPECT_EQ(broken_rule_of(geoset), "");
}

TEST(CutInTree, KeepsTheLengthOfLinesAndTheAreaOfTriangles) {
    std::mt19937 rng(11);
    for (int round = 0; round < 40; ++round) {
        osg_line_geoset lines;
        fill(lines, soup(rng, 2 * (1 + rng() % 13)).positions);
        expectKeptByCuts(lines, {3, 20, round % 4, 1.0F, 2.0F, 0.95F, false},
                         [](const piece& ends) { return (ends[1] - ends[0]).length(); });
    }
    osg_geoset triangles;
    fillGeoset(triangles, scattered(rng, 600), true);
    expectKeptByCuts(triangles, {50, 20, 1, 1.0F, 2.0F, 0.95F, false},
                     [](const piece& t) { return areaOf(t).length(); });
    EXPECT_GT(triangles.size, 700U);
}

TEST(PointTree, APointOnThePlaneGoesRight) {
    osg_point_geoset points;
    const ::osg::GeoPositions2fPtr flat = ::osg::GeoPositions2f::create(); // another form
    for (const float x : {0.0F, 2.0F, 4.0F})
        flat->editField().push_back(::osg::Pnt2f(x, 0));
    points.geometry->setPositions(flat);
    points.vertex_count = 3;
    points.setup();
    morva::kd_tree<float> tree;
    morva::compile(points, tree, {1, 1, 3, 1.0F, 2.0F, 0.95F, false},
                   morva::kd_strategy_ObjMedian());
    ASSERT_EQ(tree.node_count, 2U);
    EXPECT_EQ(tree.nodes[0].plane, 2.0F);
    EXPECT_EQ(tree.nodes[1].count, 1U);
    EXPECT_EQ(tree.nodes[2].count, 2U);
}

} // namespace
