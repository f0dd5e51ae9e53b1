#include <morva/tools/morva_osg_simplify.h>

#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_geoset_tools.h>

#include "tests/support/shortage.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test.h"
#include "tests/tools/naive_simplify.h"

namespace {

using ::osg::Pnt3f;
using ::osg::UInt32;
using namespace morva::osg;

TEST(CalcEdgeCost, IsLengthPlusReferencesAndEntersWhatIsMissing) {
    const geometry_ref geometry(geometryOf(quads(2)));
    std::map<unsigned, unsigned> references{{1, 7}};
    EXPECT_EQ(CalcEdgeCost(geometry.get(), 0, 1, references), 8.0);
    EXPECT_EQ(CalcEdgeCost(geometry.get(), 1, 99, references), 7.0); // there is no position 99
    EXPECT_EQ(CalcEdgeCost(::osg::NullFC, 4, 1, references), 7.0);
    EXPECT_EQ(references, (std::map<unsigned, unsigned>{{0, 0}, {1, 7}, {4, 0}, {99, 0}}));
}

using values = std::vector<float>;

/// What a geometry has at one corner in some properties, end to end; zero for nowhere.
values valuesAt(const geometry_columns& columns, std::size_t corner) {
    values all;
    columns.forEachPresent([&](vertex_property, const property_column& column) {
        for (unsigned i = 0; i < column.width; ++i) {
            const std::size_t row = column.row(corner);
            all.push_back(row < column.rows ? column.at(row)[i] : 0.0F);
        }
    });
    return all;
}

/// The same at another place.
values movedTo(const Pnt3f& place, const geometry_columns& attributes, std::size_t corner) {
    values all = valuesAt(attributes, corner);
    all.insert(all.begin(), {place[0], place[1], place[2]});
    return all;
}

/// All but places and normals.
const morva::span<const vertex_property> attributes(all_properties + 2, vertex_properties - 2);
const std::vector<vertex_property> all_but_normals = [] {
    std::vector<vertex_property> chosen(std::begin(all_properties), std::end(all_properties));
    chosen.erase(chosen.begin() + 1);
    return chosen;
}();

/// The soft triangles of a geometry, welded.
struct naive_weld {
    std::vector<Pnt3f> places;
    std::vector<UInt32> index;
    std::vector<std::size_t> corners; ///< one per entry of the index
    std::vector<std::size_t> first;   ///< per vertex: the corner that it was met at

    explicit naive_weld(const ::osg::GeometryPtr& geometry, bool by_place = false) {
        const geometry_columns columns(geometry, all_properties),
            compared(geometry, {all_properties, by_place ? 1 : vertex_properties});
        const property_column& position = columns[vertex_property::position];
        std::map<values, UInt32> known;
        forEachTriangle(columns, rest_rule::left_out, [&](auto a, auto b, auto c) {
            const Pnt3f *p = position.find<Pnt3f>(a), *q = position.find<Pnt3f>(b),
                        *r = position.find<Pnt3f>(c);
            if (p == nullptr || q == nullptr || r == nullptr || is_rogue(*p, *q, *r))
                return;
            for (const std::size_t corner : {a, b, c}) {
                const auto entered =
                    known.emplace(valuesAt(compared, corner), UInt32(known.size()));
                if (entered.second) {
                    places.push_back(*position.find<Pnt3f>(corner));
                    first.push_back(corner);
                }
                index.push_back(entered.first->second);
                corners.push_back(corner);
            }
        });
    }
};

/// Corners at random, so that edges without length, hubs and doubled triangles come up; places on a
/// coarse grid, so that costs are equal, with a few that have no distance.
mesh_data coarseMesh(std::mt19937& rng, unsigned triangles) {
    const auto below = [&rng](unsigned end) { return unsigned(rng() % end); };
    mesh_data mesh;
    const unsigned vertices = 1 + below(triangles / 2 + 4);
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), 3e38F, -3e38F, 1e-30F};
    const bool wild = below(4) == 0, hub = below(3) == 0;
    for (unsigned v = 0; v < vertices; ++v) {
        mesh.positions.emplace_back(float(below(4)), float(below(3)), 0.25F * float(below(3)));
        if (wild && below(5) == 0)
            mesh.positions[v][below(3)] = odd[below(4)];
    }
    for (unsigned i = 0; i < 3 * triangles; ++i)
        mesh.indices.push_back(i > 5 && below(9) == 0 ? mesh.indices[i - 3]
                               : hub && i % 3 == 0    ? 0
                                                      : below(vertices));
    mesh.primitives = {{4, 3 * triangles}};
    return mesh;
}

/// Triangles of every primitive kind, with and without attributes and indices.
mesh_data anyMesh(std::mt19937& rng) {
    const auto size = [&rng](unsigned least) { return least + rng() % 20; };
    if (rng() % 3 == 0)
        return coarseMesh(rng, size(1));
    const mesh_data shapes[] = {
        soup(rng, size(0)), row(4, 1),      strip(size(3)), strip(size(4), 8),
        fan(size(3)),       quads(size(1)), cube(),         mixture(rng, 1 + rng() % 5)};
    mesh_data mesh = shapes[rng() % 8];
    if (!mesh.mapping.empty())
        return mesh;
    const mesh_data dressed[] = {mesh, withIds(mesh), withNormals(mesh, rng),
                                 withAttributes(mesh, rng)};
    mesh = dressed[rng() % 4];
    if (rng() % 3 == 0)
        mesh.secondary.assign(mesh.positions.size(), {0.5F, 0.0F, 1.0F});
    const mesh_data indexed[] = {mesh, mesh, withIndex(mesh, rng), withIndexPerProperty(mesh, rng)};
    return indexed[rng() % 4];
}

/// A core of such a mesh; some have coordinates that index rebuilding leaves out.
geometry_ref anyCore(std::mt19937& rng, const mesh_data& mesh) {
    const geometry_ref core(geometryOf(mesh));
    std::vector<::osg::Vec2f> rows(mesh.positions.size(), {0.0F, 0.5F});
    for (::osg::Vec2f& row : rows)
        row[0] = float(rng() % 2);
    if (rng() % 3 == 0 && mesh.indices.empty())
        core->setTexCoords2(propertyOf<::osg::GeoTexCoords2f>(rows));
    return core;
}

/// A state of the run beside that of the naive one.
void expectState(const simplification& run, std::size_t collapses, const naive_simplifier& naive,
                 const naive_weld& welded) {
    const simplified_triangles mesh = simplifiedTriangles(run, collapses);
    const geometry_ref core(simplifiedCore(run, collapses));
    const geometry_columns was(run.source.get(), attributes), is(core.get(), all_but_normals);
    const bool by_place = run.options.weld == simplify_weld::position;
    std::size_t next = 0;
    for (std::size_t t = 0; t < naive.index.size() / 3; ++t) {
        const UInt32* v = &naive.index[3 * t];
        if (!naive.lives(t) || is_rogue(naive.places[v[0]], naive.places[v[1]], naive.places[v[2]]))
            continue;
        ASSERT_LT(next / 3, mesh.of.size());
        ASSERT_EQ(mesh.of[next / 3], t);
        for (std::size_t k = 0; k < 3; ++k, ++next) {
            ASSERT_EQ(mesh.vertices[next], v[k]);
            ASSERT_EQ(std::memcmp(&mesh.places[v[k]], &naive.places[v[k]], sizeof(Pnt3f)), 0);
            ASSERT_EQ(valuesAt(is, next),
                      movedTo(naive.places[v[k]], was,
                              by_place ? welded.corners[3 * t + k] : welded.first[v[k]]));
        }
    }
    EXPECT_EQ(mesh.vertices.size(), next);
    EXPECT_EQ(core->getLengths()->getValue(0), next);
    for (::osg::TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it)
        EXPECT_TRUE(std::isfinite(it.getNormal(0).length()));
}

TEST(Simplify, EveryTargetIsAPrefixOfTheNaiveRun) {
    const morva::sink_scope quiet(
        {[](std::string_view line) { ADD_FAILURE() << line; }, nullptr,
         [](std::size_t done, std::size_t total) { EXPECT_LE(done, total); }});
    std::mt19937 rng(seedOf(77));
    unsigned floors = 0;
    for (unsigned round = 0; round < roundsOf(2000U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const geometry_ref core = anyCore(rng, anyMesh(rng));
        const simplify_options options{
            rng() % 2 == 0 ? simplify_weld::position : simplify_weld::corner, rng() % 3 == 0};
        const naive_weld welded(core.get(), options.weld == simplify_weld::position);
        std::vector<naive_simplifier> states;
        states.emplace_back(welded.places, welded.index, options.lock_borders);
        const UInt32 live = states[0].live(), low = live / 5;
        const std::vector<UInt32> targets{live / 2, live, UInt32(low + rng() % (live - low + 1)),
                                          low};
        while (states.back().more && states.back().live() > low) {
            states.push_back(states.back());
            states.back().collapse();
        }
        const UInt32 floor = states.back().live();
        const simplification run = simplify(core.get(), targets, options);
        ASSERT_EQ(run.vertices, welded.index);
        ASSERT_EQ(run.live, live);
        ASSERT_LT(run.steps.size(), states.size());
        for (std::size_t i = 0; i < run.steps.size(); ++i) {
            ASSERT_EQ(std::make_pair(run.steps[i].kept, run.steps[i].gone), states[i + 1].taken);
            ASSERT_EQ(run.steps[i].live, states[i + 1].live());
        }
        for (std::size_t i = 0; i < targets.size(); ++i) {
            const auto stop = std::find_if(states.begin(), states.end(), [&](const auto& state) {
                return state.live() <= std::max(floor, targets[i]);
            });
            floors += floor > targets[i] ? 1 : 0;
            EXPECT_EQ(run.stops[i].reached, floor <= targets[i]);
            ASSERT_EQ(run.stops[i].collapses, stop - states.begin());
            expectState(run, run.stops[i].collapses, *stop, welded);
        }
    }
    EXPECT_GT(floors, 20U);
}

TEST(Simplify, CoreKeepsMaterialNameAndAlpha) {
    const geometry_ref core(geometryOf(quads(3), simple({1, 0, 0})));
    const ::osg::Color4f glassy(0.5F, 0.25F, 1.0F, 0.75F);
    core->setColors(propertyOf<::osg::GeoColors4f>(std::vector<::osg::Color4f>(12, glassy)));
    ::osg::setName(core.get(), "sheet");
    const geometry_ref made(simplifiedCore(simplify(core.get(), {4}), 99));
    EXPECT_EQ(made->getMaterial(), core->getMaterial());
    EXPECT_STREQ(::osg::getName(made.get()), "sheet");
    const auto colors = ::osg::GeoColors4fPtr::dcast(made->getColors());
    ASSERT_TRUE(colors != ::osg::NullFC && colors->size() == 1);
    EXPECT_EQ(colors->editField()[0], glassy);
    EXPECT_TRUE(simplifiedCore(simplify(::osg::NullFC, {4}), 0) == ::osg::NullFC);
}

/// What the tool comes to, with what it says.
struct naive_tool {
    std::string lines;
    std::vector<values> corners; ///< per corner: place and attributes
    bool null = true;

    naive_tool(const ::osg::NodePtr& node, unsigned target) {
        if (target == 0)
            return;
        const stream_capture out(std::cout);
        osg_geoset geoset;
        extract(node, geoset, false, true, false, true, true);
        lines = out.text(); // a name may be missed
        if (geoset.size == 0)
            return;
        null = false;
        const ::osg::GeometryPtr geometry = geoset.geometry.get();
        const std::size_t positions = geometry->getPositions()->size();
        const naive_weld welded(geometry);
        naive_simplifier naive(welded.places, welded.index, false);
        std::cout << "CreateSingleIndex: " << welded.places.size()
                  << "\nMyRefMap Entries: " << welded.places.size() << '\n';
        for (const unsigned limit = target * 3; naive.more && naive.edges.size() > limit;
             naive.collapse()) {
            if (naive.edges.size() % 10000 == 0)
                std::cout << "Simplify: " << naive.edges.size() << '\n';
        }
        std::cout << "simpified\n";
        unsigned left_out = 0;
        for (std::size_t i = 0; i < naive.index.size(); i += 3)
            left_out +=
                unsigned{is_rogue(naive.places[naive.index[i]], naive.places[naive.index[i + 1]],
                                  naive.places[naive.index[i + 2]])};
        if (geometry->getTexCoords7() != ::osg::NullFC)
            std::cout << "Node has no name and will not get an IDmap.\n";
        std::cout << "Tris: " << positions << "\nNoTris: " << left_out
                  << "\nextracted\ncreatesingle done\nThe Return..\n";
        lines = out.text();
        const geometry_columns were(geometry, attributes);
        for (const UInt32 vertex : naive.index)
            corners.push_back(movedTo(naive.places[vertex], were, welded.first[vertex]));
    }
};

void expectSame(const ::osg::GeometryPtr& made, const naive_tool& naive) {
    const geometry_columns is(made, all_but_normals);
    ASSERT_EQ(is.corners(), naive.corners.size());
    for (std::size_t corner = 0; corner < is.corners(); ++corner)
        ASSERT_EQ(valuesAt(is, corner), naive.corners[corner]);
}

/// The current directory for as long as this lives.
class inside {
  public:
    explicit inside(const std::string& folder) : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    ~inside() { std::filesystem::current_path(before_); }

  private:
    std::filesystem::path before_;
};

TEST(SimplifyGeometry, LinesAndResultAreThoseOfTheNaiveRun) {
    const temporary_folder folder;
    const inside there(folder.path());
    std::mt19937 rng(seedOf(4711));
    for (unsigned round = 0; round < roundsOf(400U) && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const mesh_data mesh = round == 0 ? strip(3340) : anyMesh(rng); // the first has a line more
        const geometry_ref core = anyCore(rng, mesh);
        if (rng() % 2 == 0)
            core->setMaterial(chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2)));
        const node_ref node(nodeOf(core.get()));
        if (rng() % 4 != 0)
            named("part", node.get());
        const std::size_t most = mesh.positions.size() + 2;
        const unsigned target = round == 0        ? 3333
                                : round % 20 == 0 ? 0x55555556U // three times that is 2
                                                  : unsigned(rng() % (most + 1));
        const naive_tool naive(node.get(), target);
        const stream_capture out(std::cout);
        const geometry_ref made(simplifyGeometry(node.get(), target));
        ASSERT_EQ(out.text(), naive.lines);
        ASSERT_EQ(made == ::osg::NullFC, naive.null);
        if (naive.null)
            continue;
        ASSERT_NO_FATAL_FAILURE(expectSame(made.get(), naive));
        EXPECT_TRUE(made->getParents().empty());
        EXPECT_EQ(made->getMaterial(), core->getMaterial());
        const node_ref again(::osg::SceneFileHandler::the().read("simple.osb"));
        ASSERT_TRUE(again != ::osg::NullFC);
        ASSERT_NO_FATAL_FAILURE(expectSame(coreOf(again.get()), naive));
    }
    EXPECT_TRUE(geometry_ref(simplifyGeometry(::osg::NullFC, 3)) == ::osg::NullFC);
}

/// A writer of scene files that gives up.
struct throwing_type : ::osg::SceneFileType {
    explicit throwing_type(const ::osg::Char8* (&suffixes)[1])
        : SceneFileType(suffixes, sizeof(suffixes), true, 1000) {}
    const ::osg::Char8* getName() const override { return "Throwing"; }
    bool write(const ::osg::NodePtr&, std::ostream&, const ::osg::Char8*) const override {
        asked = true;
        throw std::runtime_error("no");
    }
    mutable bool asked = false;
};

TEST(SimplifyGeometry, AFileThatCannotBeWrittenChangesNothing) {
    const temporary_folder folder;
    const inside there(folder.path());
    const node_ref node(meshNode(strip(40)));
    const naive_tool naive(node.get(), 11);
    const auto callsLikeNaive = [&] {
        const stream_capture out(std::cout);
        const geometry_ref made(simplifyGeometry(node.get(), 11));
        EXPECT_EQ(out.text(), naive.lines);
        expectSame(made.get(), naive);
    };
    std::filesystem::create_directory("simple.osb");
    callsLikeNaive(); // a folder is in the way
    std::filesystem::remove("simple.osb");
    const ::osg::Char8* suffixes[] = {"osb"};
    const throwing_type thrower(suffixes);
    callsLikeNaive();
    EXPECT_TRUE(thrower.asked);
}

TEST(SimplifyMemory, AFailedAllocationLeavesNothingBehind) {
    const temporary_folder folder;
    const inside there(folder.path());
    std::mt19937 rng(seedOf(5));
    const stream_capture out(std::cout), error(std::cerr);
    mesh_data mesh = withAttributes(strip(12), rng);
    mesh.secondary.resize(mesh.positions.size());
    const node_ref node(named("part", meshNode(mesh, simple({1, 0, 0}))));
    world_mesh before = worldMesh(node.get());
    const auto inTurn = [&](const auto& make) {
        const unsigned live = liveContainers();
        failInTurn(24, [&](const auto& starved) {
            starved([&] { const geometry_ref made(make()); });
            EXPECT_EQ(liveContainers(), live);
        });
        EXPECT_EQ(firstDifference(before, worldMesh(node.get())), "");
    };
    for (const simplify_weld weld : {simplify_weld::position, simplify_weld::corner}) {
        inTurn([&] {
            const simplification run = simplify(coreOf(node.get()), {4}, {weld, true});
            return simplifiedCore(run, run.stops[0].collapses);
        });
    }
    coreOf(node.get())->setTexCoords(::osg::NullFC); // which the tool takes off
    before = worldMesh(node.get());
    inTurn([&] { return simplifyGeometry(node.get(), 5); });
}

} // namespace
