// Atlases of a whole scene: beside a twin that takes each step by the letter, and with nothing
// that looks different afterwards.

#include "atlas_support.h"
#include "naive_scene_atlas.h"
#include "textured_scenes.h"

#include "tests/support/picture_sampler.h"

#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/textures/morva_osg_scene_atlas.h>

namespace {

using namespace morva::osg;
using u32 = ::osg::UInt32;

bool sameCoordinates(const pictured_triangle& a, const pictured_triangle& b) {
    for (std::size_t k = 0; k < 3; ++k) {
        for (const u32 axis : {0U, 1U}) {
            const float x = a.coordinates[k][axis], y = b.coordinates[k][axis];
            if (!(x == y || (std::isnan(x) && std::isnan(y))) || a.corners[k] != b.corners[k])
                return false;
        }
    }
    return true;
}

/// The first difference of two scenes that were built alike; image for image, bit for bit.
std::string firstDifferenceOf(const ::osg::NodePtr& ours, const ::osg::NodePtr& theirs) {
    const picture mine(ours), other(theirs);
    std::map<const pictured_image*, const pictured_image*> partners;
    auto twin = other.nodes().begin();
    for (const auto& [number, node] : mine.nodes()) {
        const pictured_node& wanted = (twin++)->second;
        const std::string at = "node \"" + node.name + "\": ";
        if (node.material != wanted.material)
            return at + node.material + " / " + wanted.material;
        if (node.wrap != wanted.wrap || (node.image == nullptr) != (wanted.image == nullptr))
            return at + "other wrapping or image";
        if (!std::equal(node.triangles.begin(), node.triangles.end(), wanted.triangles.begin(),
                        wanted.triangles.end(), sameCoordinates))
            return at + "other triangles";
        const auto partner = partners.emplace(node.image, wanted.image).first->second;
        if (partner != wanted.image)
            return at + "another one of equal images";
        if (node.image != nullptr && (node.image->width != wanted.image->width ||
                                      node.image->texels != wanted.image->texels))
            return at + "other pixels";
    }
    return "";
}

std::string typesBelow(const ::osg::NodePtr& node) {
    std::string text = node->getCore()->getType().getCName();
    for (u32 i = 0; i < node->getNChildren(); ++i)
        text += (i == 0 ? "(" : " ") + typesBelow(node->getChild(i));
    return node->getNChildren() == 0 ? text : text + ")";
}

TEST(SceneAtlas, IsThatOfItsTwin) {
    std::size_t placed = 0;
    for (unsigned seed = 0; seed < 600; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        const unsigned sizes[] = {32, 64, 100, 128, 256};
        const unsigned size = sizes[rng() % 5], texcoords[] = {1, 3, 5, 4294967295U},
                       limit = texcoords[rng() % 4], optimize[] = {0, 2, 3, 4294967295U},
                       most = optimize[rng() % 4];
        const node_ref ours(textured_scene(seed).root()), theirs(textured_scene(seed).root());
        naive::stage twin;
        const unsigned expected = twin.run(theirs, size, limit, most);
        const stream_capture out(std::cout);
        ASSERT_EQ(createTextureAtlasForScene(ours.get(), size, limit, most), expected);
        EXPECT_EQ(out.text(), twin.text);
        ASSERT_EQ(firstDifferenceOf(ours, theirs), "");
        ASSERT_EQ(typesBelow(ours), typesBelow(theirs));
        placed += expected;
    }
    EXPECT_GT(placed, 400U);
}

TEST(SceneAtlas, ShowsTheSamePictureIfItIsToBeExact) {
    std::size_t moved = 0, pieces = 0;
    double inset = 0;
    for (unsigned seed = 0; seed < 600; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed + 7000);
        const unsigned sizes[] = {32, 64, 128, 200, 300};
        const unsigned limits[] = {1, 2, 5, 4294967295U}, cuts[] = {0, 2, 3, 4294967295U},
                       paddings[] = {0, 0, 1, 3, 8};
        atlas_options options;
        options.textureSize = sizes[rng() % 5];
        options.texcoords = limits[rng() % 4];
        options.optimizetc = cuts[rng() % 4];
        options.exact = true;
        options.padding = paddings[rng() % 5];
        const node_ref root(textured_scene(seed + 7000).root());
        const picture before(root);
        const mesh_choice rest = {true, true, false, false, is_rogue};
        const world_mesh mesh = worldMesh(root, rest);
        const stream_capture out(std::cout);
        atlas_record record;
        const unsigned placed = createTextureAtlas(root.get(), options, record);
        const picture_comparison seen =
            comparePictures(before, picture(root), record, options.padding);
        ASSERT_EQ(seen.fault, "");
        if (int(options.optimizetc) <= 0) {
            EXPECT_EQ(firstDifference(mesh, worldMesh(root, rest)), "");
        }
        EXPECT_EQ(seen.moved, record.geometries);
        std::size_t told = 0;
        for (const recorded_atlas& atlas : record.atlases)
            told += atlas.images.size();
        EXPECT_EQ(placed, told);
        moved += seen.moved;
        pieces += seen.pieces;
        inset = std::max(inset, seen.inset);
    }
    EXPECT_GT(moved, 450U);
    EXPECT_GT(pieces, 2000U);
    EXPECT_LE(inset, 1.01);
}

/// A run on a random scene: what is written of the result, and what its ID map says.
std::string resultOf(unsigned seed, const std::string& parameters) {
    const node_ref root(textured_scene(seed).root());
    const stream_capture out(std::cout);
    idmapHandler& ids = getIDmapHandler();
    ids.maxGeoCount = ids.mergedCount = 0; // names go on counting over runs
    const node_ref result(optTree(root.get(), parameters));
    std::ostringstream text;
    EXPECT_TRUE(::osg::SceneFileHandler::the().write(result.get(), text, "osb"));
    for (const auto& [id, nodes] : ids.usage) {
        for (const std::string& name : nodes)
            text << "\n" << ids.names[std::size_t(id)] << " in " << name;
    }
    return text.str();
}

TEST(SceneAtlas, GivesTheSameBytesForAnyNumberOfThreads) {
    const std::string atlas = "maxtexturesize(128),texcoords(5),idmapinroot(true),";
    for (const char* more : {"", "maxtris(7)", "maxtris(100),exactatlas(true),atlaspadding(3)",
                             "maxtris(100),alphageometry(true)",
                             "maxtris(0),exactatlas(true),alphageometry(true),optimizetc(3)"}) {
        for (unsigned seed = 0; seed < 6; ++seed) {
            SCOPED_TRACE(testing::Message() << more << " " << seed);
            const std::string one = resultOf(seed, atlas + more);
            EXPECT_GT(one.size(), 2000U);
            for (const char* threads : {",numthreads(1)", ",numthreads(2)", ",numthreads(8)"})
                EXPECT_TRUE(one == resultOf(seed, atlas + more + threads)) << threads;
        }
    }
}

TEST(SceneAtlas, KeepsTheIDsOfTriangles) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        SCOPED_TRACE(seed);
        std::set<std::string> found[2];
        for (const bool atlas : {false, true}) {
            resultOf(seed, std::string("idmapinroot(true),maxtris(1000)") +
                               (atlas ? ",maxtexturesize(128),texcoords(5)" : ""));
            for (const auto& [id, nodes] : getIDmapHandler().usage)
                found[atlas].insert(getIDmapHandler().names[std::size_t(id)]);
        }
        EXPECT_EQ(found[0], found[1]);
        EXPECT_GT(found[0].size(), 1U);
    }
}

} // namespace
