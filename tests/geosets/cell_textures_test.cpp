// Images of cells in atlases: what rays see before and after.

#include "cell_scenes.h"

#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/textures/morva_osg_kept_images.h>

#include "tests/support/picture_sampler.h"

namespace {

using namespace morva::osg;

/// Takes what is not drawn by a cell off a scene, and gives each other geometry node a core of its
/// own, ten units above the one before.
void layOut(const ::osg::NodePtr& root) {
    node_list listed;
    getGeometryNodes(root, listed, false);
    float height = 0;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        if (std::find(listed.begin(), listed.end(), node) == listed.end()) {
            node->getParent()->subChild(node);
            continue;
        }
        const geometry_ref own(::osg::GeometryPtr::dcast(coreOf(node)->clone()));
        own->setMaterial(coreOf(node)->getMaterial());
        for (::osg::UInt32 i = 0; i < own->getPositions()->size(); ++i)
            own->getPositions()->setValue(
                own->getPositions()->getValue(i) + ::osg::Vec3f(0, 0, height), i);
        node->setCore(own.get());
        height += 10;
    }
}

TEST(CellTextures, ShowTheSamePictureWhereThatIsAskedFor) {
    std::size_t moved = 0;
    // Always the same scenes: pictures mistake triangles of one core that lie on each other.
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const node_ref root(textured_scene(seed + 300).root());
        layOut(root);
        const picture before(root);
        cell_options options;
        options.exact = true;
        options.flat = seed % 2 == 0;
        options.optimizetc = seed % 3 == 0 ? 2 : -1;
        options.padding = seed % 4 == 0 ? seed / 4 % 9 : 0;
        const unsigned limits[] = {4, 25000};
        cell_record record;
        const stream_capture out(std::cout);
        const node_ref result(buildSceneTree(root.get(), {limits[seed % 2], 0}, options, record));
        const picture_comparison seen = comparePictures(
            before, picture(node_ref(group({result.get()}))), record.textures, options.padding);
        ASSERT_EQ(seen.fault, "");
        EXPECT_EQ(seen.moved, record.textures.geometries);
        EXPECT_LE(seen.inset, 1.01);
        moved += seen.moved;
    }
    EXPECT_GT(moved, 450U);
}

/// Too large as it is laid out: halved, and nothing of that is left behind. Where that does not
/// help the atlas is what it was at first, and coordinates stay.
TEST(CellTextures, ShrinkWhatIsTooLarge) {
    for (const auto& [height, format] : {std::pair(40, 6407U), {40, 6408U}, {2, 6407U}}) {
        SCOPED_TRACE(testing::Message() << height << " of " << format);
        const std::size_t kept = keptImages();
        const ::osg::ImageRefPtr image(::morva_test::imageOf(format, 200, height));
        mesh_data square = quads(1);
        for (const ::osg::Pnt3f& p : square.positions)
            square.coordinates.emplace_back(50 * p[0], 50 * p[1]);
        const node_ref root(group({meshNode(square, chunked({1, 1, 1, 1}, image.get()))}));
        const stream_capture out(std::cout);
        cell_record record;
        const node_ref result(buildSceneTree(root.get(), {100, 0}, cell_options(), record));
        const ::osg::GeometryPtr core = coreOf(geometryNodes(result).at(0));
        const auto look = ::osg::ChunkMaterialPtr::dcast(core->getMaterial());
        const auto shown = ::osg::TextureChunkPtr::dcast(look->getChunks(1))->getImage();
        const bool shrunk = height == 40;
        EXPECT_EQ(out.text().find("createAtlas failed! Vec: 1") == std::string::npos, shrunk);
        EXPECT_EQ(shown->getWidth(), shrunk ? 4096 : 2);
        EXPECT_EQ(shown->getPixelFormat(), format);
        EXPECT_EQ(record.textures.atlases.size(), shrunk ? 1U : 0U);
        float u = 0;
        for (::osg::UInt32 i = 0; i < core->getTexCoords()->size(); ++i)
            u = std::max(u, core->getTexCoords()->getValue(i)[0]);
        EXPECT_NEAR(u, shrunk ? 1 : 50, 0.01);
        EXPECT_EQ(keptImages(), kept);
        EXPECT_EQ(image->getWidth(), 200);
    }
}

} // namespace
