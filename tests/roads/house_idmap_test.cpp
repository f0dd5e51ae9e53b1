// Every part of the house leads to its box, its appearance and the cores that hold it.

#include <nlohmann/json.hpp>

#include <morva/core/morva_osg_tools.h>

#include "../../host/part_names.h"
#include "models.h"
#include "tests/host/host_files.h"

namespace {

using nlohmann::json;

/// "1.5, 2, 3" as numbers.
::osg::Pnt3f pointOf(const std::string& text) {
    std::istringstream in(text);
    ::osg::Pnt3f point;
    char comma;
    in >> point[0] >> comma >> point[1] >> comma >> point[2];
    EXPECT_FALSE(in.fail()) << text;
    return point;
}

void expectSame(const ::osg::Pnt3f& read, const ::osg::Pnt3f& expected) {
    for (unsigned axis = 0; axis < 3; ++axis)
        EXPECT_NEAR(read[axis], expected[axis], 1e-5F * (1.0F + std::abs(expected[axis])));
}

/// The diffuse colour as the file tells it.
std::string diffuseOf(const ::osg::NodePtr& node) {
    ::osg::Color4f diffuse, specular, ambient, emission;
    float shininess = 0.0F;
    EXPECT_TRUE(morva::osg::getColor(node, diffuse, specular, ambient, emission, shininess));
    std::ostringstream text;
    text << diffuse[0] << ' ' << diffuse[1] << ' ' << diffuse[2];
    return text.str();
}

TEST(HouseRoad, EveryPartStandsInTheIdMap) {
    const temporary_folder folder;
    ASSERT_EQ(runMorva(wordsOf("optimize " + roads::house +
                                   " -q -o @h.glb --report @r.json -p "
                                   "maxtris(500),alphageometry(true),idmap(@m)",
                               folder))
                  .code,
              0);
    const json map = json::parse(bytesOf(folder.file("m.json")));
    const json report = json::parse(bytesOf(folder.file("r.json")));
    const morva::host::model out = morva::host::readModel(folder.file("h.glb"));

    const std::vector<std::string> names = namesOf(geometryNodes(out.root));
    const std::set<std::string> written(names.begin(), names.end());
    std::map<std::string, std::string> diffuse_of;
    for (const json& appearance : map["appearance"])
        diffuse_of[appearance["name"]] = appearance["material"]["diffuseColor"];
    std::map<std::string, const json*> blocks;
    for (const json& block : map["mapping"])
        blocks[block["name"]] = &block;

    const morva::host::model source = morva::host::readModel(roads::house);
    const auto parts = morva::host::namedParts(source.root, true);
    ASSERT_GT(parts.size(), 200U);
    ASSERT_EQ(blocks.size(), parts.size());
    EXPECT_EQ(map["numberOfIDs"], parts.size());
    std::set<std::string> used;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        SCOPED_TRACE(parts[i].name);
        ASSERT_EQ(blocks.count(parts[i].name), 1U);
        const json& block = *blocks[parts[i].name];
        ::osg::DynamicVolume volume;
        parts[i].node->getWorldVolume(volume);
        ::osg::Pnt3f low, high;
        volume.getBounds(low, high);
        expectSame(pointOf(block["min"]), low);
        expectSame(pointOf(block["max"]), high);
        EXPECT_EQ(diffuse_of.at(block["appearance"]), diffuseOf(parts[i].node));
        EXPECT_FALSE(block["usage"].empty());
        for (const json& core : block["usage"]) {
            EXPECT_EQ(written.count(core), 1U) << core;
            used.insert(core);
        }
        const json& part = report["parts"][i];
        EXPECT_EQ(part["name"], parts[i].name);
        EXPECT_EQ(part["original_name"], parts[i].original_name);
        EXPECT_EQ(part["cores"], block["usage"]);
        EXPECT_EQ(part["triangles_out"].get<int>(),
                  part["triangles"].get<int>() - part["degenerate"].get<int>());
    }
    EXPECT_EQ(used, written) << "no core without a part";
}

} // namespace
