#include <regex>

#include <morva/core/morva_osg_params.h>

#include "growth_notes.h"
#include "parameter_effects.h"
#include "parameter_notes.h"
#include "parameter_table.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::growthNotes;
using morva::host::parameterNotes;

/// Something for each key: images, glass, shared cores, hidden parts, several materials.
::osg::NodePtr mixedScene() {
    std::mt19937 rng(seedOf(14));
    const ::osg::NodePtr hidden = meshNode(quads(2), simple({0, 1, 0}));
    hidden->setTravMask(0);
    return group({meshNode(soup(rng, 40), simple({1, 0, 0})), hidden,
                  moved({5, 0, 0}, {meshNode(quads(3), chunked({1, 1, 1, .5f}))}),
                  meshNode(quads(4), simple({1, 0, 0})), meshNode(strip(8), simple({0, 0, 1}))});
}

/// The text, which names its buffer by content; generated names are numbered on.
std::string outputOf(const temporary_folder& folder, const std::string& parameters) {
    const command_result result =
        runMorva({"optimize", folder.file("in.glb"), "-o", folder.file("o.gltf"), "--overwrite",
                  "-p", parameters});
    return std::to_string(result.code) +
           std::regex_replace(bytesOf(folder.file("o.gltf")), std::regex("G_[0-9]+"), "G_");
}

TEST(ParameterNotes, NameExactlyWhatTheRunDoesNotHeed) {
    const std::string others[] = {"opt(0)",
                                  "toworld(false)",
                                  "calcnormals(true)",
                                  "vertexcolor(50)",
                                  "ignorematerial(true)",
                                  "alphageometry(true)",
                                  "texcoords(0)",
                                  "exactatlas(false)",
                                  "atlaspadding(3)",
                                  "silent(true)",
                                  "addcolorstex(true)",
                                  "storeondisk(true)",
                                  "aoreplace(true)",
                                  "maxtris(7)",
                                  "keeprenderfalse(true)",
                                  "numthreads(2)",
                                  "mostusedmaterial(true)"};
    const temporary_folder folder;
    modelFile(folder.file("in.glb"), mixedScene());
    std::size_t noted = 0;
    for (const char* base : {"flat(false)", "cacheopt(true)", "onegeometry(true)", "maxtris(20)"}) {
        const std::string usual = outputOf(folder, base);
        for (const std::string& token : others) {
            const std::string key = token.substr(0, token.find('('));
            const std::string parameters = std::string(base) + "," + token;
            if (key == "maxtris" && std::string(base).find("max") == 0)
                continue;
            const auto plan = morva::osg::planOf(parameters);
            const bool dead = !morva::host::whyWithoutEffect(key, plan).empty();
            noted += dead ? 1 : 0;
            EXPECT_EQ(parameterNotes(parameters).size(), dead ? 1u : 0u) << parameters;
            EXPECT_TRUE(!dead || outputOf(folder, parameters) == usual) << parameters;
        }
    }
    EXPECT_EQ(noted, 40u);
    for (const char* heeded :
         {"maxtris(20),opt(0)", "maxtris(20),alphageometry(true)", "maxtris(20),vertexcolor(50)"}) {
        EXPECT_TRUE(parameterNotes(heeded).empty()) << heeded;
        EXPECT_FALSE(outputOf(folder, heeded) == outputOf(folder, "maxtris(20)")) << heeded;
    }
}

TEST(ParameterNotes, NameValuesAndKeysThatAreNotRead) {
    const std::map<std::string, std::string> expected = {
        {"opt(9)", "takes 0 to 3"},
        {"opt(1x)", "takes 0 to 3"},
        {"maxtris(-5)", "takes a number from 0"},
        {"toworld(yes)", "takes true or false, and counts as false"},
        {"flat(2)", "takes true or false, and counts as true"},
        {" opt(1)", "has a blank in its key, which hides it; it is ignored"},
        {"nonsense(1)", "has an unknown key; it is ignored"},
        {"opt", "is not of the form key(value); it is ignored"}};
    for (const auto& [token, end] : expected) {
        const bool merges = token.find("maxtris") == 0;
        const auto notes = parameterNotes(token + (merges ? "" : ",maxtris(5)"));
        ASSERT_EQ(notes.size(), 1u) << token;
        EXPECT_EQ(notes[0], "parameter '" + token + "' " + end);
    }
    EXPECT_TRUE(parameterNotes("Opt(3),MAXTRIS(5000),flat(0),toworld(1),prefix(a b)").empty());
}

TEST(ParameterNotes, TellWhyAnOutputGrowsWhereCoresAreBounded) {
    morva::host::scene_statistics before, after;
    before.geometry_bytes = after.geometry_bytes = 1000;
    before.triangles = after.triangles = 5001;
    before.acmr = 0.7;
    after.acmr = 0.8;
    for (const char* const keys : {"maxtris(5000)", "maxtris(5001)", "flat(false)", "cacheopt(1)"})
        EXPECT_EQ(growthNotes(before, after, morva::osg::planOf(keys)).empty(),
                  std::string(keys) != "maxtris(5000)");
    after.acmr = 0.71; // less than is told
    EXPECT_TRUE(growthNotes(before, after, morva::osg::planOf("maxtris(5000)")).empty());
}

TEST(ParameterNotes, StandOnATableOfAllKeysButThoseThatChangeNothing) {
    morva::osg::optTree_setup setup;
    const morva::osg::run_plan plan;
    std::size_t keys = 0;
    morva::osg::forEachKey(setup, [&](const char* key, const auto&) {
        const bool dead =
            morva::host::whyWithoutEffect(key, plan) == "is read, but changes nothing";
        EXPECT_EQ(morva::host::rowOf(key) != nullptr, !dead) << key;
        keys += dead ? 0 : 1;
    });
    EXPECT_EQ(keys, morva::host::parameter_rows.size());
}

} // namespace
} // namespace morva_test
