// The front door: order of stages, what is printed, what becomes of the root and its parent.

#include "tests/support/test.h"

#include <morva/core/morva_osg_params.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

const std::string first_line = "Optimizing Tree...\n";

std::string settings(const std::string& cacheopt = "0", const std::string& idmap = "",
                     const std::string& alpha = "0") {
    return "Cacheopt:       " + cacheopt + "\nCalcNormals:    0\nFlat:           1\n" +
           "IDMAP:          \"" + idmap + "\"\nOPT:            1\nOptimizeTC:     2\n" +
           "TexCoords:      2\nToWorld:        1\nVertexColor:    -1\nAddColorsTex:   0\n" +
           "deleteUnusedTC: 1\nmergeSameName:  0\nalphaGeometry:  " + alpha +
           "\nignoreMaterial: 0\nkeepRenderFalse:0\n";
}

::osg::NodePtr fiveParts() {
    return group({meshNode(quads(2), simple({1, 0, 0})),
                  moved({5, 0, 0}, {meshNode(quads(3), simple({0, 0, 1}))}),
                  meshNode(quads(9), chunked({0, 1, 0, 0.5F})), hidden(meshNode(quads(4))),
                  switched(1, {meshNode(quads(1)), meshNode(quads(4))}),
                  detailed({meshNode(quads(2)), meshNode(quads(7))})});
}

TEST(OptTree, PrintsTheSettingsThatHoldRunsItsStagesInOrderAndGivesTheRootBack) {
    const struct {
        const char* parameters;
        std::string printed;          ///< somewhere
        std::size_t triangles, cores; ///< of the result
    } rows[] = {
        {"maxtris(0)", first_line + settings(), 64, 8},
        {"maxtris(100)", settings(), 28, 3},
        {"cacheopt(true),maxtris(10)", settings("1") + "Merge Geometry. Cacheopt: 1\n", 28, 3},
        {"onegeometry(true),cacheopt(true)", settings("1", "", "1"), 28, 1},
        {"maxtris(100),idmapinroot(true)", settings("0", "metaOnly"), 28, 3},
        {"idmap(/dev/null/x)", settings("0", "/dev/null/x") + "Write IDmap with 0 names.\n", 64, 8},
        {"help()",
         first_line + "Available parameters are: \n" + morva::osg::optTreeDoc() + settings(), 64,
         8},
        {"maxtris(100),buildhull(1)", settings(), 28, 3},
        {"flat(false)", "\nBuilding Scene Hierarchy for final scenegraph...\ndone.\n", 28, 3},
        {"flat(false),maxtris(100),keeprenderfalse(1)", "Building Scene", 36, 4},
        {"maxtris(100),removelod(true),removeswitch(1)",
         settings() + "Removing LOD parts.\nRemoving Switch parts.\n", 40, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.parameters);
        const node_ref parent(group({named("first", group()), fiveParts(), group()}));
        const node_ref root(parent->getChild(1));
        const stream_capture out(std::cout);
        std::cout << std::boolalpha << std::hex << std::showbase; // must not reach the settings
        const std::string trees = morva::osg::getIDmapHandler().tree.str();
        const node_ref result(morva::osg::optTree(root.get(), row.parameters));
        EXPECT_EQ(morva::osg::getIDmapHandler().tree.str() == trees,
                  std::strstr(row.parameters, "idmap") == nullptr);
        EXPECT_NE(out.text().find(row.printed), std::string::npos) << out.text();
        EXPECT_EQ(worldMesh(result.get()).size(), row.triangles);
        EXPECT_EQ(geometryNodes(result.get()).size(), row.cores);
        EXPECT_EQ(parent->getNChildren(), 3U) << "the input at the end of the list, or its hull";
        EXPECT_EQ(parent->findChild(root.get()), std::strstr(row.parameters, "hull") ? -1 : 2);
        EXPECT_EQ(result == root, row.triangles == 64);
        EXPECT_EQ(result.get().getRefCount(), result == root ? 3U : 1U);
        const auto& map_type = ::osg::StringAttributeMap::getClassType();
        EXPECT_EQ(result->findAttachment(map_type, 1) != ::osg::NullFC,
                  std::strstr(row.parameters, "inroot") != nullptr);
    }
}

/// What differs from a plan that does nothing.
std::string described(const morva::osg::run_plan& plan) {
    const morva::osg::optTree_setup& all = plan.setup;
    const morva::osg::atlas_options atlas = plan.atlas.value_or(morva::osg::atlas_options());
    std::ostringstream text;
    const auto tell = [&text](bool holds, const auto&... fact) {
        if (holds)
            (text << ... << fact) << " ";
    };
    tell(!plan.is_automatic, "runs");
    tell(plan.merges, "merges:", plan.tree.max_elements);
    tell(all.merge.cacheopt, "cache");
    tell(all.merge.alphageometry, "alpha");
    tell(plan.builds_hierarchy, "hierarchy");
    tell(plan.atlas.has_value(), "atlas:", atlas.textureSize, ":", atlas.texcoords, ":",
         atlas.optimizetc, ":", atlas.exact, ":", atlas.padding);
    tell(plan.removes_parts, "removes");
    tell(plan.builds_hull, "hull");
    tell(plan.orders_cache && !all.merge.cacheopt, "orders");
    tell(!all.aoreplace, "keeps");
    tell(plan.tracks_ids, "ids:", all.merge.idmap, ":", plan.idmap_file);
    tell(!all.prefix.empty(), "prefix:", all.prefix);
    tell(!all.merge.silent || plan.tree.max_depth != 100 || plan.cache_entries != 65533, "?");
    return text.str();
}

TEST(PlanOf, TellsWhatFollowsFromTheKeys) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},
        {"flat(true)", "runs "},
        {"flat(false)", "runs hierarchy "},
        {"cacheopt(true),maxtris(10),silent(0)", "runs merges:10 cache "},
        {"cacheopt(true),maxtris(11)", "runs merges:11 "},
        {"cacheopt(true)", "runs merges:0 cache "},
        // Its own limit of triangles leaves the cache stage alone.
        {"cacheopt(true),onegeometry(true)", "runs merges:2000000 cache alpha "},
        {"cacheopt(true),onegeometry(true),maxtris(11)", "runs merges:2000000 alpha "},
        {"idmapinroot(true),idmap()", "runs ids:metaOnly: "},
        {"idmapinroot(true),idmap(A b)", "runs ids:A b:A b.json "},
        {"idmap(metaOnly)", "runs ids:metaOnly:metaOnly.json "},
        {"Prefix(P)", "runs prefix:P "},
        {"ambientgutout(1)", "runs removes "},
        {"buildhull(1),maxtris(70)", "runs merges:70 hull orders "},
        {"buildhullwithcolors(1),aoreplace(0)", "runs merges:0 hull orders keeps "},
        {"maxtexturesize(64)", "runs atlas:64:2:2:0:0 "},
        {"maxtexturesize(-1),texcoords(-1),optimizetc(0),exactatlas(1),atlaspadding(7)",
         "runs atlas:4294967295:4294967295:0:1:7 "},
        {"removeLODParts(true),centerBB(10)", "runs "}};
    for (const auto& [parameters, expected] : rows)
        EXPECT_EQ(described(morva::osg::planOf(parameters)), expected) << parameters;
}

} // namespace
