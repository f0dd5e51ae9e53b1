#include "tests/support/placed_scenes.h"
#include "tests/support/test.h"
#include "tests/support/textured_scenes.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"

namespace morva_test {
namespace {

using morva::host::audit_plan;
using morva::host::audit_verdict;
using texts = std::vector<std::string>;

/// Parts of every fate: degenerate triangles, transparent with parts below, hidden, below a
/// switch, a cube map, a strip of quads that the counts by length pass over and that has none.
::osg::NodePtr everyFate() {
    std::mt19937 rng(3); // the counts below are those of this scene
    const ::osg::MaterialPtr glass = chunked({1, 1, 1, .5f});
    const ::osg::NodePtr unseen =
        hidden(named("hidden", nodeOf(geometryOf(soup(rng, 40), simple({0, 1, 0})),
                                      {named("in hidden", meshNode(quads(2)))})));
    const ::osg::NodePtr band = named("quad strip", meshNode(strip(8, 8), simple({0, 0, 1})));
    coreOf(band)->setLengths(::osg::NullFC);
    return named(
        "top",
        group({named("soup", meshNode(soup(rng, 60), simple({1, 0, 0}))),
               moved({3, 0, 0}, {named("glass", nodeOf(geometryOf(soup(rng, 50), glass),
                                                       {named("in glass", meshNode(quads(3)))}))}),
               unseen,
               switched(0, {named("chosen", meshNode(soup(rng, 30))), meshNode(soup(rng, 20))}),
               named("cube map", meshNode(quads(5), cubeTextured())), band,
               named("strip", meshNode(strip(8), simple({0, 0, 1})))}));
}

struct audited_run {
    node_ref root, result;
    audit_plan plan;
    audit_verdict verdict;
};

audited_run runAudit(const ::osg::NodePtr& scene, const std::string& parameters) {
    const stream_capture out(std::cout);
    audited_run run;
    run.root = node_ref(scene);
    const auto parts = morva::host::namedParts(scene, true);
    run.plan = morva::host::planAudit(scene, parts, parameters);
    morva::osg::run_record record;
    run.result = node_ref(morva::osg::optTree(scene, parameters, record));
    morva::host::noteStages(record, run.plan);
    run.verdict = morva::host::judge(run.plan, run.result.get());
    return run;
}

TEST(Audit, TellsTheFateOfEachPartAndMissesATriangle) {
    const audited_run run = runAudit(everyFate(), "maxtris(10)");
    std::vector<std::pair<std::string, std::string>> fates;
    for (const auto& part : run.plan.parts)
        fates.emplace_back(part.name, morva::host::textOf(part.fate));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"top/soup", "merged"},
        {"top/#1/glass", "carried over"},
        {"top/#1/glass/in glass", "merged"},
        {"top/hidden", "left out"},
        {"top/hidden/in hidden", "left out"},
        {"top/#3/chosen", "left out"},
        {"top/#3/#1", "left out"},
        {"top/cube map", "left out"},
        {"top/quad strip", "merged"},
        {"top/strip", "merged"}};
    EXPECT_EQ(fates, expected);
    EXPECT_EQ(run.verdict.least, run.verdict.most);
    EXPECT_GT(run.plan.parts[0].degenerate, 0u);
    EXPECT_EQ(run.verdict.in, 60u + 50 + 6 + 40 + 4 + 30 + 20 + 10 + 6 + 6);

    const audited_run halves = runAudit(everyFate(), "flat(false)");
    EXPECT_EQ(halves.verdict.differences, texts{});
    EXPECT_EQ(halves.verdict.out, 60u + 50 + 6 + 6 + 6);
    EXPECT_EQ(halves.verdict.notes,
              texts{"parts that are hidden, below a switch or level of detail, or to be left alone "
                    "are not in the hierarchy, 5 of them: 'top/hidden', 'top/hidden/in hidden', "
                    "'top/#3/chosen', 'top/#3/#1', 'top/cube map'"});

    const node_ref fewer(group({meshNode(quads(1))}));
    for (const audit_plan& plan : {run.plan, halves.plan}) {
        const audit_verdict verdict = morva::host::judge(plan, fewer.get());
        ASSERT_EQ(verdict.differences.size(), 1u);
        EXPECT_NE(verdict.differences[0].find("but 2 came out"), std::string::npos);
    }

    // All are there, but some of them came to nothing.
    for (const ::osg::NodePtr& node : geometryNodes(run.result.get())) {
        const ::osg::GeoPositionsPtr positions = coreOf(node)->getPositions();
        positions->setValue(positions->getValue(0), 1);
    }
    const audit_verdict collapsed = morva::host::judge(run.plan, run.result.get());
    ASSERT_EQ(collapsed.differences.size(), 1u);
    EXPECT_NE(collapsed.differences[0].find(" collapsed"), std::string::npos);
}

TEST(Audit, OfHullsKnowsWhatStaysAndThatOneForAllMissesNothing) {
    const struct {
        const char* keys;
        std::uint64_t out, least; ///< 44 hidden triangles, 124 others
    } rows[] = {
        {"buildhull(1),maxtris(20),keeprenderfalse(1)", 61, 0},
        {"buildhull(1),maxtris(300)", 124, 118},
        {"buildhull(1),maxtris(1000),keeprenderfalse(1),idmapinroot(1)", 168, 157},
        {"ambientocclusion(2),buildhullwithcolors(1),maxtris(1000),keeprenderfalse(1)", 162, 0},
        {"ambientocclusion(2),buildhull(1),buildhullwithcolors(1),maxtris(1000),keeprenderfalse(1)",
         158, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.keys);
        const audited_run run = runAudit(everyFate(), row.keys);
        EXPECT_EQ(run.plan.parts[0].fate, morva::host::part_fate::open);
        EXPECT_EQ(run.verdict.differences, texts{});
        EXPECT_EQ(run.verdict.out, row.out);
        EXPECT_EQ(run.verdict.least, row.least);
        const node_ref nothing(group());
        EXPECT_NE(morva::host::judge(run.plan, nothing.get()).differences, texts{});
    }
}

TEST(Audit, WithAnIdMapEachPartIsCheckedOnItsOwn) {
    const ::osg::MaterialPtr red = simple({1, 0, 0});
    audited_run run =
        runAudit(group({named("a", meshNode(quads(4), red)), named("b", meshNode(quads(6), red))}),
                 "maxtris(100),idmapinroot(true)");
    EXPECT_TRUE(run.verdict.by_part);
    EXPECT_EQ(run.verdict.differences, texts{});
    // Two triangles of a that came out under b: the sum is right, the parts are not.
    for (std::size_t i = 0; i < 2; ++i)
        run.plan.parts[i].least = run.plan.parts[i].most = 10;
    EXPECT_EQ(morva::host::judge(run.plan, run.result.get()).differences.size(), 2u);
}

/// Glass in the draw order that a merge might give it: the kept triangles of `glass` below a
/// transform, with `twice` shown in the place of `lost`.
::osg::NodePtr reorderedGlass(const mesh_data& glass, int twice, int lost) {
    mesh_data kept;
    for (auto p = glass.positions.begin(); p != glass.positions.end(); p += 3) {
        if (!morva::osg::is_rogue(p[0], p[1], p[2])) // another corner first: it stays the same
            kept.positions.insert(kept.positions.end(), {p[1], p[2], p[0]});
    }
    for (::osg::Pnt3f& p : kept.positions)
        p[2] = p[2] == 0 ? -p[2] : p[2]; // a new index may swap them
    const auto at = [&](int triangle) { return kept.positions.begin() + 3 * triangle; };
    if (twice >= 0)
        std::copy_n(at(twice), 3, at(lost));
    else if (lost >= 0)
        kept.positions.erase(at(lost), at(lost + 1));
    kept.primitives = {{4, unsigned(kept.positions.size())}};
    return group(
        {group(), moved({3, 0, 0}, {named("_G_1", meshNode(kept, chunked({1, 1, 1, .5f})))})});
}

TEST(Audit, SaysWhatANewDrawOrderShowsTwice) {
    std::mt19937 rng(seedOf(4));
    mesh_data glass = soup(rng, 24000); // enough vertices for a new order
    for (::osg::Pnt3f& p : glass.positions)
        p[2] += 0.001f * float(rng() % 1000); // few equal triangles
    mesh_data whole = glass;
    for (std::size_t i = 0; i < whole.positions.size(); i += 3) { // none degenerate
        whole.positions[i] += ::osg::Vec3f(0, 0, 9.f);
        whole.positions[i + 1] += ::osg::Vec3f(9.f, 0, 0);
    }
    const auto judged = [](const mesh_data& part, int twice, int lost) {
        const node_ref root(
            group({moved({3, 0, 0}, {named("glass", meshNode(part, chunked({1, 1, 1, .5f})))})}));
        const auto parts = morva::host::namedParts(root.get(), true);
        const audit_plan plan =
            morva::host::planAudit(root.get(), parts, "cacheopt(true),idmapinroot(true)");
        EXPECT_TRUE(plan.by_part);
        const node_ref result(reorderedGlass(part, twice, lost));
        return morva::host::judge(plan, result.get());
    };
    const audit_verdict good = judged(glass, -1, -1);
    EXPECT_EQ(good.notes, texts{});
    EXPECT_EQ(good.differences, texts{});
    EXPECT_EQ(good.in, good.out + good.degenerate);

    const audit_verdict odd = judged(glass, 5, 17);
    EXPECT_EQ(odd.differences, texts{});
    ASSERT_EQ(odd.notes.size(), 1u);
    EXPECT_EQ(odd.notes[0].find("part '#0/#0/glass': the new draw order shows 1 triangles once too "
                                "often and 1 not at all; it dropped "),
              0u)
        << odd.notes[0];
    // Without degenerate triangles there is no such excuse.
    const audit_verdict bad = judged(whole, 5, 17);
    EXPECT_EQ(bad.notes, texts{});
    EXPECT_EQ(bad.differences.size(), 1u);
    EXPECT_EQ(judged(glass, -1, 17).differences.size(), 2u) << "one of the parts, one of the sum";
}

/// Takes triangles off the end of a node that has nothing else, up to one that is not degenerate.
bool loseTriangle(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = coreOf(node);
    if (core->getTypes()->size() != 1 || core->getTypes()->getValue(0) != GL_TRIANGLES ||
        core->getParents().size() != 1)
        return false;
    const auto sound = morva::osg::counttriangles(core);
    while (core->getLengths()->getValue(0) >= 6 && morva::osg::counttriangles(core) == sound)
        core->getLengths()->setValue(core->getLengths()->getValue(0) - 3, 0);
    return morva::osg::counttriangles(core) < sound;
}

TEST(AuditOfAtlases, PassesAnySceneWithImagesAndMissesATriangle) {
    const struct {
        const char* keys;
        bool closed = true; ///< what comes out is foretold to the triangle, or by its area
    } rows[] = {{"exactatlas(1)"},
                {"texcoords(-1)", false},
                {"texcoords(9),flat(0)"},
                {"texcoords(9),maxtris(20),idmapinroot(1),exactatlas(1)"},
                {"texcoords(9),maxtris(20),idmapinroot(1)", false},
                {"texcoords(9),maxtris(20),toworld(0),alphageometry(1)", false},
                {"texcoords(9),maxtris(9),cacheopt(1),keeprenderfalse(1),idmapinroot(1)", false},
                {"texcoords(9),maxtris(9),cacheopt(1),idmapinroot(1),exactatlas(1)", false},
                {"texcoords(9),mostusedmaterial(1),maxtris(20)", false},
                {"texcoords(9),buildhull(1),maxtris(1000000)", false},
                {"texcoords(9),removelod(1),removeswitch(1)", false},
                {"texcoords(9),ambientocclusion(1),aoreplace(0),maxtris(9)", false}};
    // Always the same scenes: others may be cut into millions of pieces.
    for (unsigned seed = 0; seed < 40; ++seed) {
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << seed << ": " << row.keys);
            const node_ref scene(textured_scene(seed).root());
            const audited_run run =
                runAudit(scene.get(), std::string("maxtexturesize(64),") + row.keys);
            EXPECT_EQ(run.verdict.differences, texts{});
            const node_list nodes = geometryNodes(run.result.get());
            if (!row.closed || std::none_of(nodes.begin(), nodes.end(), &loseTriangle))
                continue;
            EXPECT_NE(morva::host::judge(run.plan, run.result.get()).differences, texts{});
        }
    }
}

/// Keys that find nothing to do, or not much, hide no fault in what they are to leave alone.
TEST(Audit, SeesWhatGoesOrMovesWhereKeysHaveNoEffect) {
    const auto scene = [] {
        return group({named("shell", meshNode(cube())), named("plate", meshNode(quads(6))),
                      moved({9, 0, 0}, {named("strip", meshNode(strip(9)))})});
    };
    for (const char* keys :
         {"maxtexturesize(4096),exactatlas(1),maxtris(100)",
          "maxtexturesize(4096),maxtris(100),mostusedmaterial(1)", "maxtexturesize(4096)",
          "buildhull(1),maxtris(100)", "buildhull(1),maxtris(12)", "ambientgutout(1),maxtris(100)",
          "ambientgutout(1)", "removelod(1),removeswitch(1),maxtris(100)",
          "ambientgutout(1),maxtexturesize(64),removeswitch(1),flat(0),maxtris(9)"}) {
        SCOPED_TRACE(keys);
        const audited_run whole = runAudit(scene(), keys);
        EXPECT_EQ(whole.verdict.differences, texts{});
        for (const ::osg::NodePtr& node : geometryNodes(whole.result.get())) {
            const ::osg::GeoPositionsPtr points = coreOf(node)->getPositions();
            const ::osg::Pnt3f place = points->getValue(0);
            points->setValue(place + ::osg::Vec3f(0, 0, 0.25F), 0);
            EXPECT_NE(morva::host::judge(whole.plan, whole.result.get()).differences, texts{})
                << "moved";
            points->setValue(place, 0);
        }
        EXPECT_EQ(morva::host::judge(whole.plan, whole.result.get()).differences, texts{});
        for (const ::osg::NodePtr& node : geometryNodes(whole.result.get())) {
            const ::osg::GeoPLengthsPtr lengths = coreOf(node)->getLengths();
            const ::osg::UInt32 last = lengths->size() - 1, length = lengths->getValue(last);
            lengths->setValue(length - 3, last);
            EXPECT_NE(morva::host::judge(whole.plan, whole.result.get()).differences, texts{})
                << "lost";
            lengths->setValue(length, last);
        }
    }
    // What interior removal did not take off must be there.
    audited_run run = runAudit(scene(), "ambientgutout(1),maxtris(100)");
    morva::host::noteRemoved({1}, run.plan);
    const auto verdict = morva::host::judge(run.plan, run.result.get());
    EXPECT_EQ(std::count(verdict.differences.begin(), verdict.differences.end(),
                         "0 parts were removed, but 1 are gone"),
              1);
    for (const char* others : {"removelod(1)", "removeswitch(1)", "buildhull(1)"})
        EXPECT_FALSE(
            runAudit(scene(), std::string("ambientgutout(1),") + others).plan.removed_parts)
            << "parts go for other reasons";
}

/// A part that could have lost its degenerate triangles keeps them, but loses one that is none.
TEST(AuditOfAtlases, SeesASoundTriangleGoAmongDegenerateOnes) {
    std::mt19937 rng(seedOf(7));
    mesh_data mesh = soup(rng, 40);
    mesh.coordinates.assign(120, ::osg::Vec2f(1.5F, 0));
    const ::osg::ChunkMaterialPtr clamped =
        chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2));
    ::osg::TextureChunkPtr::dcast(clamped->getChunks(1))->setWrapS(GL_CLAMP);
    const audited_run run =
        runAudit(group({meshNode(mesh, clamped)}), "maxtexturesize(64),exactatlas(1)");
    EXPECT_EQ(run.verdict.differences, texts{});
    EXPECT_EQ(run.verdict.out, 40U);
    ASSERT_TRUE(loseTriangle(geometryNodes(run.result.get())[0]));
    EXPECT_NE(morva::host::judge(run.plan, run.result.get()).differences, texts{});
}

/// Strips that pass over what equal vertices make degenerate, hidden parts that come to light.
TEST(Audit, PassesAnySceneWithHiddenAndTransparentParts) {
    const char* const rows[] = {
        "maxtris(10),cacheopt(1),keeprenderfalse(1),idmapinroot(1)",
        "buildhull(1),maxtris(1000000),keeprenderfalse(1),idmapinroot(1)",
        "mergehierarchy(1),maxtris(10),cacheopt(1),flat(0),numthreads(2),idmapinroot(1)"};
    const ::osg::MaterialRefPtr glass(chunked({1, 1, 1, .5F})), red(simple({1, 0, 0}));
    for (unsigned seed = 0; seed < roundsOf(110U); ++seed) {
        for (const char* row : rows) {
            SCOPED_TRACE(testing::Message() << seed << ": " << row);
            std::mt19937 rng(seedOf(seed));
            const node_ref scene(anyScene(rng, 3));
            for (unsigned i = 1; i < 5; ++i)
                scene->addChild(meshNode(mixture(rng, i * 2)));
            unsigned number = 0;
            for (const ::osg::NodePtr& node : geometryNodes(scene.get())) {
                named("n" + std::to_string(number++), node);
                coreOf(node)->setMaterial(rng() % 3 == 0 ? glass.get() : red.get());
            }
            EXPECT_EQ(runAudit(scene.get(), row).verdict.differences, texts{});
        }
    }
}

TEST(Audit, SaysHowManyPointsAndLineEndsGoOrCome) {
    const auto scene = [] {
        return group({named("cloud", meshNode(row(5, 0))), named("plate", meshNode(quads(2))),
                      named("loop", meshNode(row(4, 2))),
                      switched(0, {named("wire", meshNode(row(3, 3)))})});
    };
    const std::string points =
        "5 of 5 points do not come out: parts of points alone are not merged";
    EXPECT_EQ(runAudit(scene(), "maxtris(9)").verdict.notes,
              (texts{"4 of 12 line ends do not come out", points}));
    EXPECT_EQ(runAudit(scene(), "maxtris(9),removeswitch(1)").verdict.notes, texts{points});
    EXPECT_EQ(runAudit(scene(), "maxtris(0)").verdict.notes, texts{});
    // More than went in.
    const audited_run run = runAudit(scene(), "maxtris(0)");
    const node_ref twice(group({scene(), meshNode(row(1, 0))}));
    EXPECT_EQ(morva::host::judge(run.plan, twice.get()).notes,
              texts{"1 points more come out than went in"});
}

TEST(Audit, DegenerateIsAskedWhereTheMergeAsks) {
    // Shrunk to a point in the world, sound in its own space.
    ::osg::Matrix tiny;
    tiny.setScale(1e-9f, 1e-9f, 1e-9f);
    for (const auto& [parameters, degenerate] :
         {std::pair("maxtris(10)", 6u), std::pair("maxtris(10),toworld(false)", 0u)}) {
        const auto verdict = runAudit(group({transformed(tiny, {named("dot", meshNode(quads(3)))}),
                                             named("plate", meshNode(quads(1)))}),
                                      parameters)
                                 .verdict;
        EXPECT_EQ(verdict.degenerate, degenerate);
        EXPECT_TRUE(verdict.differences.empty());
    }
}

/// A tiled floor of two triangles, an untiled wall, and a wild plate without image.
::osg::NodePtr tiledRoom(float away = 500) {
    const ::osg::MaterialPtr tiles = chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2));
    const auto plate = [](float u, float v) {
        mesh_data mesh = quads(1);
        mesh.coordinates = {{0, 0}, {u, 0}, {u, v}, {0, v}};
        return mesh;
    };
    mesh_data floor = plate(9, 7.5F);
    floor.positions = {{0, 0, 0}, {5, 1.7F, 1.1F}, {6.3F, 5.9F, 2.3F}, {-1.3F, 4.1F, 0.7F}};
    return group({moved({away, 0, 0}, {named("floor", meshNode(floor, tiles))}),
                  named("wall", meshNode(plate(1, 1), tiles)),
                  named("plate", meshNode(plate(30, 30), simple({1, 0, 0})))});
}

TEST(AuditOfPieces, PassesPartsThatAreCut) {
    const struct {
        const char* parameters;
        std::uint64_t least; ///< triangles that come out: 6, and more if the floor is cut
        float away = 500;
    } rows[] = {{"maxtris(100)", 11},
                {"maxtris(100),idmapinroot(true)", 11},
                {"maxtris(100),toworld(false)", 11},
                {"maxtris(100),optimizetc(4),idmapinroot(true)", 11},
                {"onegeometry(true)", 11},
                // Floats are a sixteenth apart there, and pieces fit roughly; nowhere, not at all.
                {"maxtris(100),idmapinroot(true)", 0, 1e6F},
                {"maxtris(100),idmapinroot(true)", 0, std::numeric_limits<float>::quiet_NaN()},
                {"maxtexturesize(64),texcoords(-1)", 11},
                {"maxtexturesize(64),texcoords(9),maxtris(100),idmapinroot(true)", 11},
                {"maxtexturesize(64),texcoords(4),maxtris(100)", 6},
                {"maxtris(100),optimizetc(-1)", 6},
                {"maxtris(100),optimizetc(9)", 6}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.parameters << " at " << row.away);
        const audited_run run = runAudit(tiledRoom(row.away), row.parameters);
        EXPECT_EQ(run.verdict.differences, texts{});
        EXPECT_GE(run.verdict.out, row.least);
        EXPECT_TRUE(row.least != 6 || run.verdict.out == 6);
    }
    // A clamped direction has nothing cut, a mirrored one neither, unless nobody asks the material.
    for (const auto& [parameters, cut] : {std::pair("maxtris(100),idmapinroot(true)", 0),
                                          std::pair("maxtris(100),mostusedmaterial(1)", 0),
                                          std::pair("maxtris(100),ignorematerial(1)", 1)}) {
        for (const GLenum wrap : {GLenum{GL_CLAMP}, GLenum{GL_MIRRORED_REPEAT}}) {
            SCOPED_TRACE(testing::Message() << parameters << ", " << wrap);
            const ::osg::NodePtr room = tiledRoom();
            const auto texture = ::osg::TextureChunkPtr::dcast(
                ::osg::ChunkMaterialPtr::dcast(coreOf(room->getChild(1))->getMaterial())
                    ->getChunks(1));
            texture->setWrapS(wrap);
            texture->setWrapT(wrap);
            const audited_run run = runAudit(room, parameters);
            EXPECT_EQ(run.verdict.differences, texts{});
            EXPECT_EQ(run.verdict.out > 6, cut == 1);
            EXPECT_TRUE(run.plan.parts[0].cut == (cut == 1) || run.verdict.out == 6);
        }
    }
    // Only coordinates that an image needs, and that reach too far, can have a part cut.
    const audited_run run = runAudit(tiledRoom(), "maxtris(100)");
    ASSERT_EQ(run.plan.parts.size(), 3U);
    EXPECT_TRUE(run.plan.parts[0].cut && !run.plan.parts[1].cut && !run.plan.parts[2].cut);
}

TEST(AuditOfPieces, SeesAPieceThatIsNotWhatItWas) {
    for (const char* parameters : {"opt(0),maxtris(100)", "opt(0),maxtris(100),idmapinroot(true)",
                                   "maxtexturesize(64),texcoords(-1),toworld(0)"}) {
        for (const float x : {0.0F, 9.0F}) { // a piece that shrinks, or grows
            SCOPED_TRACE(testing::Message() << parameters << ", " << x);
            audited_run run = runAudit(tiledRoom(), parameters);
            for (const ::osg::NodePtr& node : geometryNodes(run.result.get())) {
                const ::osg::GeoPositionsPtr points = coreOf(node)->getPositions();
                if (points->size() > 30) // the floor's
                    points->setValue(points->getValue(1) + ::osg::Vec3f(0, 0, x), 0);
            }
            const auto verdict = morva::host::judge(run.plan, run.result.get());
            ASSERT_EQ(verdict.differences.size(), 1U);
            EXPECT_NE(verdict.differences[0].find(": cut into pieces, an area of "),
                      std::string::npos)
                << verdict.differences[0];
        }
    }
}

} // namespace
} // namespace morva_test
