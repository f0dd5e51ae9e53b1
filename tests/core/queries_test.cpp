// Counts over primitive lists, the tests and measures of single triangles, and lists of nodes:
// which passes see what, in which order.

#include "tests/support/test.h"

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

namespace {

using primitive_list = std::vector<std::pair<unsigned, unsigned>>;

mesh_data primitivesOnly(const primitive_list& primitives) {
    mesh_data mesh;
    mesh.primitives = primitives;
    return mesh;
}

using counts = std::array<unsigned, 5>; ///< triangles, lines, points, primitives, classes

void expectCounts(const counts& expected, const ::osg::NodePtr& node) {
    using namespace morva::osg;
    const ::osg::GeometryPtr core = coreOf(node);
    const unsigned primitives = getNumberOfPrimitives(node);
    const unsigned classes = getNumberOfPrimitiveTypes(node);
    EXPECT_EQ(expected, (counts{getNumberOfTriangles(node), getNumberOfLines(node),
                                getNumberOfPoints(node), primitives, classes}));
    EXPECT_EQ(expected, (counts{getNumberOfTriangles(core), getNumberOfLines(core),
                                getNumberOfPoints(core), primitives, classes}));
    EXPECT_EQ(getNumberOfPrimitives(node_list{node, node, ::osg::NullFC}), 2 * primitives);
}

constexpr float huge = 999999995904.0F;
constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

} // namespace

TEST(GeometryQueries, CountsFollowTheirOwnListsOfTypes) {
    const struct {
        const char* rule;
        primitive_list primitives;
        counts expected;
    } rows[] = {{"points count as primitives alone", {{0, 7}}, {0, 0, 0, 7, 1}},
                {"lines count as points", {{1, 7}}, {0, 3, 7, 3, 1}},
                {"loop", {{2, 5}}, {0, 5, 0, 0, 0}},
                {"line strip", {{3, 5}}, {0, 4, 0, 0, 0}},
                {"triangles", {{4, 11}}, {3, 0, 0, 3, 1}},
                {"strip", {{5, 9}}, {7, 0, 0, 7, 1}},
                {"fan", {{6, 9}}, {7, 0, 0, 7, 1}},
                {"quads are two each", {{7, 8}}, {4, 0, 0, 4, 1}},
                {"quad strip is nothing", {{8, 10}}, {0, 0, 0, 0, 0}},
                {"polygon", {{9, 6}}, {4, 0, 0, 4, 1}},
                {"strip of one wraps", {{5, 1}}, {~0U, 0, 0, ~0U, 1}},
                {"line strip of none wraps", {{3, 0}}, {0, ~0U, 0, 0, 0}},
                {"wrapped terms add up", {{5, 1}, {4, 6}}, {1, 0, 0, 1, 1}},
                {"all classes", {{0, 1}, {1, 2}, {9, 3}}, {1, 1, 2, 3, 3}},
                {"unknown type", {{10, 9}}, {0, 0, 0, 0, 0}},
                {"none", {}, {0, 0, 0, 0, 0}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref node(meshNode(primitivesOnly(row.primitives)));
        expectCounts(row.expected, node.get());
    }
    // They stop at the shorter list, and at what is no geometry.
    const node_ref node(meshNode(primitivesOnly({{4, 3}, {4, 6}, {4, 9}})));
    coreOf(node)->getLengths()->resize(2);
    expectCounts({3, 0, 0, 3, 1}, node.get());
    coreOf(node)->getTypes()->resize(1);
    expectCounts({1, 0, 0, 1, 1}, node.get());
    coreOf(node)->setTypes(::osg::NullFC);
    for (const node_ref& nothing :
         {node_ref(), node_ref(::osg::Node::create()), node_ref(group()), node})
        expectCounts({0, 0, 0, 0, 0}, nothing.get());
    const std::pair<int, unsigned> classes[] = {{-2147483647, 0}, {-1, 0}, {0, 1}, {1, 2}, {2, 0},
                                                {3, 0},           {4, 3},  {5, 0}, {9, 0}};
    for (const auto& [type, vertices] : classes)
        EXPECT_EQ(morva::osg::getVertexCountOfPrimitiveType(type), vertices) << type;
    unsigned lines = 0;
    const std::function<void(std::size_t, std::size_t)> count = [&](auto, auto) { ++lines; };
    morva::osg::forEachLine({GL_LINES, 0, 3, 4}, count);
    EXPECT_EQ(lines, 2U) << "the data reaches on";
}

TEST(GeometryQueries, ThresholdIsForTheListedPropertiesAlone) {
    using morva::osg::isVertexCountBelowThreshold;
    for (unsigned bit = 1; bit < ::osg::Geometry::MapEmpty; bit *= 2) {
        const bool passed_over =
            bit >= ::osg::Geometry::MapTexCoords3 && bit <= ::osg::Geometry::MapTexCoords6;
        const node_ref node(nodeOf(everyProperty(6, bit, 9)));
        EXPECT_EQ(isVertexCountBelowThreshold(node.get(), 8), passed_over) << bit;
        EXPECT_TRUE(isVertexCountBelowThreshold(node.get(), 9)); // equal passes
    }
    const node_ref indexed(meshNode(cube())), holder(group());
    EXPECT_FALSE(isVertexCountBelowThreshold(indexed.get(), 71));
    EXPECT_TRUE(isVertexCountBelowThreshold(indexed.get(), 72));
    EXPECT_TRUE(isVertexCountBelowThreshold(holder.get(), 0));
    EXPECT_TRUE(isVertexCountBelowThreshold(::osg::NullFC, 0));
}

TEST(GeometryQueries, VertexCountSumsAllLengthsWhateverTheType) {
    const node_ref root(
        group({meshNode(primitivesOnly({{2, 5}, {8, 4}})), group(),
               switched(0, {meshNode(primitivesOnly({{4, 3}}))}),
               hidden(meshNode(primitivesOnly({{4, 300}}))), nodeOf(::osg::Geometry::create())}));
    node_list all = geometryNodes(root.get()), none;
    all.push_back(root.get()); // no geometry: adds nothing
    EXPECT_EQ(morva::osg::getVertexCount(all), 312U);
    EXPECT_EQ(morva::osg::getVertexCount(none), 0U);
    // From a root: neither what is hidden nor what stands under a switch.
    EXPECT_EQ(morva::osg::getVertexCount(root.get()), 9U);
    EXPECT_EQ(morva::osg::getVertexCount(root->getChild(0)), 9U);
    EXPECT_EQ(morva::osg::getVertexCount(::osg::NodePtr(::osg::NullFC)), 0U);
}

TEST(GeometryQueries, VertexColorsNeedOneEntryInOneNode) {
    const node_ref without(meshNode(quads(1))), with(nodeOf(everyProperty(1)));
    const node_ref hollow(nodeOf(everyProperty(3, ::osg::Geometry::MapColor, 0)));
    node_list nodes;
    for (const ::osg::NodePtr& node : {::osg::NodePtr(), without.get(), hollow.get(), with.get()}) {
        EXPECT_FALSE(morva::osg::hasVertexColors(nodes));
        nodes.push_back(node);
    }
    EXPECT_TRUE(morva::osg::hasVertexColors(nodes));
}

TEST(IsRogue, InEveryOrderOfCornersAndAxesAndSuchAreNotCounted) {
    const float beyond = std::nextafter(huge, infinite);
    const struct {
        const char* rule;
        ::osg::Pnt3f corners[3];
        bool rogue;
    } rows[] = {{"plain", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, false},
                {"two equal", {{1, 2, 3}, {1, 2, 3}, {0, 1, 0}}, true},
                {"within the tolerance", {{0, 0, 0}, {1e-6F, -1e-6F, 0}, {0, 1, 1}}, true},
                {"just outside", {{0, 0, 0}, {1.1e-6F, 0, 0}, {0, 1, 1}}, false},
                {"along an axis", {{0, 2, 2}, {1, 2, 2}, {5, 2, 2}}, true},
                {"along a slope is kept", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, false},
                {"signed zeros are equal", {{0, 0, -0.0F}, {1, -0.0F, 0}, {5, 0, 0}}, true},
                {"at the limit", {{huge, 0, 0}, {0, -huge, 0}, {0, 0, 1}}, false},
                {"above the limit", {{beyond, 0, 0}, {0, 1, 0}, {0, 0, 1}}, true},
                {"below the limit", {{-beyond, 0, 0}, {0, 1, 0}, {0, 0, 1}}, true},
                {"infinite", {{infinite, 0, 0}, {0, 1, 0}, {0, 0, 1}}, true},
                {"nan", {{nan_value, 0, 0}, {0, 1, 0}, {0, 0, 1}}, true}};
    const unsigned orders[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    mesh_data mesh = primitivesOnly({{4, 3}});
    for (const auto& row : rows) {
        for (const auto& corner : orders) {
            for (const auto& axis : orders) {
                ::osg::Pnt3f p[3];
                for (unsigned i = 0; i < 9; ++i)
                    p[i / 3][i % 3] = row.corners[corner[i / 3]][axis[i % 3]];
                EXPECT_EQ(morva::osg::is_rogue(p[0], p[1], p[2]), row.rogue) << row.rule;
                mesh.positions.assign(p, p + 3);
                const geometry_ref geometry(geometryOf(mesh));
                EXPECT_EQ(morva::osg::counttriangles(geometry.get()), row.rogue ? 0U : 1U);
                EXPECT_EQ(morva::osg::count_triangles(geometry.get()), row.rogue ? 0U : 1U);
            }
        }
    }
    const geometry_ref without_positions(geometryOf(primitivesOnly({{4, 6}})));
    for (const geometry_ref& nothing : {geometry_ref(), without_positions})
        EXPECT_EQ(morva::osg::counttriangles(nothing.get()), 0U);
}

TEST(TriangleArea, IsFiniteAlways) {
    using morva::osg::triangle_area;
    EXPECT_EQ(triangle_area({0, 0, 0}, {2, 0, 0}, {0, 3, 0}), 3.0);
    EXPECT_EQ(triangle_area({5, 5, 5}, {5, 5, 8}, {9, 5, 5}), 6.0);
    EXPECT_EQ(triangle_area({1, 2, 3}, {1, 2, 3}, {4, 5, 6}), 0.0);
    EXPECT_EQ(triangle_area({0, 0, 0}, {1, 0, 0}, {1, 1, 1}), 0.5 * std::sqrt(2.0)); // in double
    EXPECT_EQ(triangle_area({0, 0, 0}, {1e30F, 0, 0}, {0, 1, 0}), 0.0); // infinite squares
    const float most = std::numeric_limits<float>::max();
    for (const float far : {most, nan_value})
        EXPECT_EQ(triangle_area({far, 0, 0}, {0, 1, 0}, {0, 0, 1}), 0.0);
    // Single precision up to the root: the products of a sliver round to another area.
    const float uu = 9.0F + 1e-4F * 1e-4F, uv = 18.0F + 1e-4F * 2e-4F;
    const float vv = 36.0F + 2e-4F * 2e-4F + 1e-5F * 1e-5F;
    const double expected = 0.5 * std::sqrt(double(uu * vv - uv * uv));
    EXPECT_EQ(triangle_area({0, 0, 0}, {3, 1e-4F, 0}, {6, 2e-4F, 1e-5F}),
              std::isfinite(expected) ? expected : 0.0);
}

TEST(GeometryQueries, ModelExtentsAreThoseOfTheNodesVolume) {
    mesh_data mesh = row(2, 1);
    mesh.positions = {{-1, 2, 3}, {4, 10, 3.5F}};
    const node_ref root(moved({100, 0, 0}, {meshNode(mesh), moved({0, 0, 20}, {meshNode(mesh)})}));
    EXPECT_EQ(morva::osg::ModelWidth(root.get()), 5);
    EXPECT_EQ(morva::osg::ModelHeight(root.get()), 8);
    EXPECT_EQ(morva::osg::ModelLength(root.get()), 20.5F);
}

namespace {

using names = std::vector<std::string>;

/// A scene with one of everything that the collectors treat differently.
::osg::NodePtr everything() {
    const auto image = imageOf(::osg::Image::OSG_RGBA_PF, 2, 2, 254);
    return sceneOf(
        "root(plain glass ?-1switch(a g(b)) %detail(c !d) !hidden(e g(f)) #cube(unseen !mask) "
        "choice decal #last(below))",
        {{"glass", chunked({1, 1, 1, 0.5F})},
         {"cube", cubeTextured()},
         {"choice", choiceOf(0, {simple({1, 0, 0})})},
         {"decal", chunked({1, 1, 1, 1}, image)},
         {"last", simple({0, 1, 0})}});
}

/// The names that a collector lists.
template <typename Collector> names listed(const Collector& collector) {
    node_list nodes;
    collector(nodes);
    return namesOf(nodes);
}

} // namespace

TEST(NodeLists, GetGeometryNodesSortsPlainThenSwitchesThenTransparent) {
    const names all = {"plain", "last", "below", "a", "b", "c", "d", "glass", "decal"};
    const names without = {"plain", "last", "below", "glass", "decal"};
    const node_ref root(everything());
    for (const bool with_switches : {true, false}) {
        const std::ptrdiff_t ahead = with_switches ? 7 : 3;
        const names& expected = with_switches ? all : without;
        node_list nodes, plain, transparent;
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, with_switches), ahead);
        EXPECT_EQ(namesOf(nodes), expected);
        // Appends; what is in the list already counts as ahead.
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, with_switches),
                  expected.size() + std::size_t(ahead));
        // The number under switches is told also when they are not wanted.
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), plain, transparent, with_switches), 4U);
        EXPECT_EQ(namesOf(plain), names(expected.begin(), expected.begin() + ahead));
        EXPECT_EQ(namesOf(transparent), names(expected.begin() + ahead, expected.end()));
    }
    node_list plain, switches, transparent;
    morva::osg::getGeometryNodesForTree(root.get(), plain, switches, transparent);
    EXPECT_EQ(namesOf(switches), (names{"a", "b", "c", "d"}));
    EXPECT_EQ(plain.size() + transparent.size(), 5U);

    const node_ref bare(::osg::Node::create()), mask(sceneOf("!g(x)"));
    for (const ::osg::NodePtr& node : {::osg::NodePtr(::osg::NullFC), bare.get(), mask.get()}) {
        EXPECT_EQ(morva::osg::getGeometryNodes(node, switches, true), 4U) << "nothing is added";
        EXPECT_EQ(morva::osg::getGeometryNodes(node, switches, transparent, true), 0U);
        EXPECT_EQ(switches.size() + transparent.size(), 6U);
    }
}

TEST(NodeLists, AlphaIsLookedAtOncePerImage) {
    using Image = ::osg::Image;
    for (const int width : {1, 4096, 4097}) {
        const ::osg::RefPtr<::osg::ImagePtr> image(imageOf(Image::OSG_RGBA_PF, width, 2));
        const node_ref root(group({named("a", meshNode(quads(1), chunked({1, 1, 1, 1}, image))),
                                   named("b", meshNode(quads(1), chunked({0, 1, 1, 1}, image)))}));
        morva::osg::alpha_scans scans;
        for (const bool clear : {false, true}) {
            image->getData()[image->getSize() - 1] = clear ? 254 : 255;
            node_list plain, transparent, all;
            morva::osg::getGeometryNodes(root.get(), plain, transparent, false, scans);
            EXPECT_EQ(namesOf(plain), (names{"a", "b"})) << "known from the first look";
            EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), all, false), clear ? 0U : 2U);
        }
        EXPECT_FALSE(scans.isTransparent(::osg::NullFC));
    }
}

TEST(GetGeometryNodes, StandInsForGeometryRootsGoWithThem) {
    strays_expected = true; // the last stand-ins stay until the next call
    const auto ask = [](const node_ref& node) {
        node_list nodes, transparent;
        EXPECT_EQ(morva::osg::getGeometryNodes(node.get(), nodes, true), 1U);
        EXPECT_EQ(morva::osg::getGeometryNodes(node.get(), nodes, transparent, true), 0U);
        return nodes.at(0);
    };
    const node_ref roots[] = {node_ref(sceneOf("#a(b)", {{"a", simple({1, 0, 0})}})),
                              node_ref(sceneOf("c")), node_ref(sceneOf("d"))};
    const ::osg::NodePtr nodes[] = {ask(roots[0]), ask(roots[1]), ask(roots[2])};
    for (std::size_t i = 0; i < 3; ++i) { // earlier ones stay usable
        EXPECT_NE(nodes[i], roots[i].get());
        EXPECT_EQ(nodes[i]->getCore(), roots[i]->getCore());
        EXPECT_EQ(nodes[i]->getNChildren(), 0U);
        EXPECT_NE(nodes[i]->getParent(), ::osg::NullFC);
        EXPECT_EQ(roots[i]->getParent(), ::osg::NullFC);
    }
    const unsigned int before = liveContainers();
    for (int i = 0; i < 50; ++i) {
        const node_ref passing(sceneOf("passing"));
        ask(passing);
        ask(passing);
    }
    ask(roots[0]); // the time at which the rest is seen to
    EXPECT_EQ(liveContainers(), before);
    // A stand-in that was taken over by another parent lives on.
    const node_ref owner(group()), taken(sceneOf("taken"));
    owner->addChild(ask(taken));
    ask(roots[0]);
    EXPECT_EQ(owner->getChild(0)->getCore(), taken->getCore());
    EXPECT_NE(ask(taken), owner->getChild(0));
}

TEST(NodeLists, EachCollectorHasItsOwnRules) {
    using namespace morva::osg;
    const node_ref root(everything());
    const ::osg::NodePtr null, top = root.get();
    const names hidden_ones = {"d", "e", "f", "mask"};
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(top, l, false); }), hidden_ones);
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(nodeNamed(top, "cube"), l, true); }),
              (names{"cube", "unseen", "mask"}));
    EXPECT_EQ(listed([&](auto& l) { getSkippedNodes(top, l); }), (names{"d", "cube", "choice"}));
    EXPECT_EQ(cntShouldSkipNodes(top), 4U); // goes on below
    // The topmost geometries, whatever their mask.
    EXPECT_EQ(
        listed([&](auto& l) { collectsubTree(top, l); }),
        (names{"plain", "glass", "a", "b", "c", "d", "e", "f", "cube", "choice", "decal", "last"}));
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(null, l, true); }), names());
    EXPECT_EQ(listed([&](auto& l) { getSkippedNodes(null, l); }), names());
    EXPECT_EQ(cntShouldSkipNodes(null), 0U);
    std::map<std::string, node_list> found;
    CollectNodeNames(null, found);
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(getNodeCount(top), 21U);
    EXPECT_EQ(getNodeCount(null), 1U);

    const node_ref odd(sceneOf("#root(g(a .none(b)) c)"));
    std::list<::osg::NodePtr> nodes;
    collect_geo_nodes(odd.get(), nodes);
    EXPECT_EQ(namesOf({nodes.begin(), nodes.end()}), (names{"root", "a", "b", "c"}));
}

TEST(NodeLists, MaterialIsTheOwnOneOrThatOfTheOutermostGroup) {
    using namespace morva::osg;
    const material_map materials = {
        {"own", simple({1, 0, 0})}, {"outer", simple({0, 1, 0})}, {"inner", simple({0, 0, 1})}};
    const node_ref root(
        sceneOf("root($outer(g($inner(own bare))) $none($inner(under)))", materials));
    const auto at = [&](const char* name) { return nodeNamed(root.get(), name); };
    for (const char* below : {"own", "bare", "inner"})
        EXPECT_EQ(searchMaterialGroup(at(below)), at("outer")) << below;
    EXPECT_EQ(searchMaterialGroup(at("outer")), ::osg::NullFC); // itself does not count
    EXPECT_EQ(searchMaterialGroup(::osg::NullFC), ::osg::NullFC);
    EXPECT_EQ(getMaterial(at("own")), materials.at("own"));
    EXPECT_EQ(getMaterial(at("bare")), materials.at("outer"));
    EXPECT_EQ(getMaterial(at("inner")), ::osg::NullFC); // no geometry
    // An outermost group without a material hides the inner one as well.
    EXPECT_EQ(getMaterial(at("under")), ::osg::NullFC);
    EXPECT_EQ(getMaterial(::osg::NullFC), ::osg::NullFC);
}
