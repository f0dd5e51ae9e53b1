// The road of empty parameters: what the command says of it, and what comes out.

#include <nlohmann/json.hpp>

#include <morva/idmap/morva_osg_idmaphandler.h>

#include "auto_road.h"
#include "scene_walk.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using texts = std::vector<std::string>;

/// A mesh with `image`, which it repeats up to `reach` times.
::osg::NodePtr papered(const ::osg::ImagePtr& image, float reach) {
    mesh_data mesh = quads(2);
    for (const ::osg::Pnt3f& at : mesh.positions)
        mesh.coordinates.emplace_back(at[0] / 2 * reach, at[1]);
    return meshNode(mesh, chunked({1, 1, 1, 1}, image));
}

/// Parts that end in every way; those of `skipped` only if it is set.
::osg::NodePtr variety(bool skipped) {
    std::mt19937 rng(seedOf(3));
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 4, 4),
                          other = imageOf(::osg::Image::OSG_RGB_PF, 8, 4, 9);
    node_list parts = {
        named("soup", meshNode(soup(rng, 60), simple({1, 0, 0}))),
        moved({3, 0, 0}, {named("glass", nodeOf(geometryOf(soup(rng, 50), chunked({1, 1, 1, .5f})),
                                                {named("in glass", meshNode(quads(3)))}))}),
        named("paper", papered(image, 1)),
        named("tiles", papered(image, 5)),
        named("other", papered(other, 1)),
        switched(0, {named("chosen", meshNode(soup(rng, 30))), named("not", meshNode(quads(1)))}),
        hidden(group({named("unseen", meshNode(quads(7)))}))};
    if (skipped) {
        parts.push_back(named("cube", nodeOf(geometryOf(soup(rng, 9), cubeTextured()),
                                             {named("in cube", meshNode(quads(2)))})));
        parts.push_back(hidden(named("off", meshNode(quads(4)))));
        mesh_data hollow = quads(1);
        hollow.primitives.insert(hollow.primitives.begin(), {4, 0});
        parts.push_back(named("hollow", meshNode(hollow)));
    }
    return named("top", group(parts));
}

TEST(AutoRoad, TellsWhatBecomesOfEachPart) {
    const struct {
        bool skipped;
        std::uint64_t left_out;
        texts fates,
            notes; ///< fates of "soup", "glass", "tiles", "chosen", "unseen", "cube", "off",
                   ///< "hollow"
    } rows[] = {
        {false,
         30 + 2 + 14,
         {"merged", "carried over", "merged", "left out", "left out"},
         {"automatic road: nothing is to be left alone; images go into atlases, then geometry is "
          "merged by material, in cache order",
          "hidden parts are left out, 1 of them: 'top/#6/unseen'",
          "parts below a switch or level of detail are left out, 2 of them: 'top/#5/chosen', "
          "'top/#5/not'"}},
        {true,
         14 + 8,
         {"merged", "merged", "merged", "carried over", "left out", "carried over", "left out",
          "open"},
         {"automatic road: 1 part hidden and 1 part with a switch material or a cube texture; the "
          "others are merged, and come out in cells",
          "hidden parts are left out, 2 of them: 'top/#6/unseen', 'top/off'",
          "parts whose image repeats more than twice may be cut there, 1 of them: 'top/tiles'",
          "cells make normals anew, with edges from 30 degrees on, and textured parts of one "
          "material one core"}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.skipped);
        const node_ref root(variety(row.skipped));
        const auto parts = morva::host::namedParts(root.get(), true);
        const auto road = morva::host::autoRoadOf(root.get());
        const auto plan = morva::host::planAudit(root.get(), parts, road);
        EXPECT_EQ(morva::host::notesOn(road, parts, plan), row.notes);
        texts fates;
        for (const char* name :
             {"soup", "glass", "tiles", "chosen", "unseen", "cube", "off", "hollow"}) {
            for (const auto& part : plan.parts) {
                if (part.name.substr(part.name.rfind('/') + 1) == name)
                    fates.emplace_back(morva::host::textOf(part.fate));
            }
        }
        EXPECT_EQ(fates, row.fates);
        const stream_capture out(std::cout);
        morva::osg::run_record record;
        const node_ref result(morva::host::runOptimiser(root.get(), "", record));
        const auto verdict = morva::host::judge(plan, result.get());
        EXPECT_EQ(verdict.differences, texts());
        EXPECT_EQ(verdict.left_out, row.left_out);
        EXPECT_EQ(morva::host::atlasesOf(*record.automatic).atlases.size(), 1U);
        const node_ref nothing(group());
        EXPECT_FALSE(morva::host::judge(plan, nothing.get()).differences.empty());
    }
}

/// As in a new process.
void startNames() {
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    handler.mergedCount = handler.maxGeoCount = 0;
}

TEST(AutoRoad, IsTheSameByBothCommands) {
    const temporary_folder folder;
    for (const bool skipped : {false, true}) {
        SCOPED_TRACE(skipped);
        modelFile(folder.file("in.osb"), variety(skipped));
        texts arguments = wordsOf("auto @in.osb -o @a.glb --report @a.json --overwrite", folder);
        startNames();
        const command_result first = runMorva(arguments);
        EXPECT_EQ(first.code, 0) << first.err;
        EXPECT_NE(first.err.find("morva: note: automatic road: "), std::string::npos);
        const auto report = nlohmann::json::parse(bytesOf(folder.file("a.json")));
        EXPECT_EQ(report["command"], "auto");
        EXPECT_EQ(report["parameters"], "");
        EXPECT_EQ(report["road"]["with_cells"], skipped);
        EXPECT_EQ(report["road"]["cells"].get<int>() > 0, skipped);
        EXPECT_EQ(report["road"]["below_switches"], 2);

        arguments = wordsOf("optimize @in.osb -o @b.glb --overwrite -q -p", folder);
        arguments.emplace_back();
        startNames();
        EXPECT_EQ(runMorva(arguments).code, 0);
        EXPECT_TRUE(bytesOf(folder.file("a.glb")) == bytesOf(folder.file("b.glb")));
    }
}

} // namespace
} // namespace morva_test
