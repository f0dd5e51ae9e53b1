// Images of cells in atlases: what rays see before and after.

#include "cell_scenes.h"

#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/textures/morva_osg_kept_images.h>

#include "tests/support/picture_sampler.h"

namespace {

using namespace morva::osg;
using morva::kd_build_setup;

/// Gives each geometry node a core of its own, ten units above the one before.
void layOut(const ::osg::NodePtr& root) {
    float height = 0;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const geometry_ref own(::osg::GeometryPtr::dcast(coreOf(node)->clone()));
        own->setMaterial(coreOf(node)->getMaterial());
        for (::osg::UInt32 i = 0; i < own->getPositions()->size(); ++i)
            own->getPositions()->setValue(
                own->getPositions()->getValue(i) + ::osg::Vec3f(0, 0, height), i);
        node->setCore(own.get());
        height += 10;
    }
}

/// Takes what is not drawn, or not by a cell, off a scene.
void keepListed(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> listed;
    getGeometryNodes(root, listed, false);
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        if (std::find(listed.begin(), listed.end(), node) == listed.end())
            node->getParent()->subChild(node);
    }
}

TEST(CellTextures, ShowTheSamePictureWhereThatIsAskedFor) {
    std::size_t moved = 0, left_out = 0;
    // Always the same scenes: pictures mistake triangles of one core that lie on each other.
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const node_ref root(textured_scene(seed + 300).root());
        layOut(root);
        keepListed(root);
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
        const node_ref all(group({result.get()}));
        const picture_comparison seen =
            compareRegrouped(before, picture(all), record.textures, options.padding);
        ASSERT_EQ(seen.fault, "");
        EXPECT_EQ(seen.moved, record.textures.geometries);
        EXPECT_LE(seen.inset, 1.01);
        moved += seen.moved;
        for (const left_out_image& image : record.textures.left_out)
            left_out += image.geometries;
    }
    EXPECT_GT(moved, 450U);
    EXPECT_GT(left_out, 500U);
}

/// An image whose texels tell where they are: its number, x and y; a grey one x alone.
::osg::ImagePtr numbered(::osg::UInt32 format, int width, int height, int number) {
    const ::osg::ImagePtr image = ::morva_test::imageOf(format, width, height);
    const bool is_grey = image->getBpp() == 1;
    for (int i = 0; i < width * height; ++i) {
        const int values[] = {is_grey ? i % width : number, i % width, i / width, 128 + number};
        std::copy_n(values, image->getBpp(), image->getData() + i * int(image->getBpp()));
    }
    return image;
}

/// The texel that a coordinate leads to, as it is read without filters.
const ::osg::UInt8* texelOf(const ::osg::ImagePtr& image, const ::osg::Vec2f& at) {
    const auto place = [](float value, int side) {
        return ((int(std::floor(double(value) * side + 1e-5)) % side) + side) % side;
    };
    const int texel =
        place(at[1], image->getHeight()) * image->getWidth() + place(at[0], image->getWidth());
    return image->getData() + texel * int(image->getBpp());
}

::osg::ImagePtr imageShown(const ::osg::NodePtr& node) {
    const auto chunks = ::osg::ChunkMaterialPtr::dcast(coreOf(node)->getMaterial());
    return ::osg::TextureChunkPtr::dcast(chunks->getChunks(1))->getImage();
}

/// A square at a height, with coordinates from `low` over `size`.
::osg::NodePtr square(float height, const ::osg::ImagePtr& image, float low, float size) {
    mesh_data mesh = quads(1);
    for (::osg::Pnt3f& p : mesh.positions) {
        mesh.coordinates.emplace_back(low + size * p[0], low + size * p[1]);
        p[2] = height;
    }
    return meshNode(mesh, chunked({1, 1, 1, 1}, image));
}

/// Compares the texels that coordinates of squares of unlike images lead to, in one cell.
TEST(CellTextures, ShowTheSameTexelsInOneImage) {
    const struct {
        ::osg::UInt32 format;
        int width, height;
        float low, size; ///< of the coordinates
    } cases[] = {{6407, 33, 20, 0, 1},     {6408, 16, 64, 0, 2},      {6409, 40, 24, -3, 1},
                 {6407, 64, 64, 5.25F, 3}, {6409, 8, 8, 0.25F, 0.5F}, {6407, 33, 21, 0, 1}};
    std::vector<::osg::ImageRefPtr> images;
    const ::osg::MaterialRefPtr bare(chunked({1, 1, 1, 1}, numbered(6407, 8, 8, 9)));
    const node_ref root(materialGroup(simple({1, 0, 0}), {meshNode(quads(1), bare.get())}));
    for (const auto& each : cases) {
        const auto number = int(images.size());
        images.emplace_back(numbered(each.format, each.width, each.height, number));
        root->addChild(square(float(number), images.back().get(), each.low, each.size));
    }
    const stream_capture out(std::cout);
    const node_ref result(buildSceneTree(root.get(), {100000, 0}, true, 0, -1, false));
    const node_list cores = geometryNodes(result); // what is transparent comes last
    ASSERT_EQ(cores.size(), 2U);
    EXPECT_EQ(coreOf(cores[0])->getMaterial(), bare.get()) << "without coordinates";
    const ::osg::ImagePtr atlas = imageShown(cores[1]);
    ASSERT_EQ(atlas->getPixelFormat(), 6408U);
    std::size_t texels = 0;
    for (auto it = coreOf(cores[1])->beginTriangles(); !it.isAtEnd(); ++it) {
        const auto number = std::size_t(it.getPosition(0)[2]);
        const auto& each = cases[number];
        for (int place = 0; place < 200; ++place, ++texels) {
            const float second = float(place / 20) / 10,
                        first = float(place % 20) / 20 * (1 - second),
                        weights[] = {first, second, 1 - first - second};
            ::osg::Vec2f at, was;
            for (::osg::Int32 k = 0; k < 3; ++k) {
                const ::osg::Pnt3f p = it.getPosition(k);
                at += it.getTexCoords(k) * weights[k];
                was += ::osg::Vec2f(each.low + each.size * p[0], each.low + each.size * p[1]) *
                       weights[k];
            }
            const ::osg::UInt8 *seen = texelOf(atlas, at), *before = texelOf(images[number], was);
            // The inset moves by a texel, and scaling to powers of two by one or two more.
            const auto isNear = [&](int channel, int side) {
                const int apart = std::abs(seen[channel] - before[channel]);
                return std::min(apart, side - apart) <= 3;
            };
            ASSERT_TRUE(each.format == 6409U ? isNear(0, each.width)
                                             : seen[0] == before[0] && isNear(1, each.width) &&
                                                   isNear(2, each.height))
                << number << " place " << place;
            ASSERT_EQ(int(seen[3]), each.format == 6408U ? int(before[3]) : 255);
        }
    }
    EXPECT_EQ(texels, 2 * std::size(cases) * 200);
}

/// Too large as it is laid out: halved, and nothing of that is left behind. Where that does not
/// help the atlas is what it was at first, and coordinates stay.
TEST(CellTextures, ShrinkWhatIsTooLarge) {
    for (const int height : {40, 2}) {
        SCOPED_TRACE(height);
        const std::size_t kept = keptImages();
        const ::osg::ImageRefPtr image(numbered(6407, 200, height, 1));
        const node_ref root(group({square(1, image.get(), 0, 50)}));
        const stream_capture out(std::cout);
        cell_record record;
        const node_ref result(buildSceneTree(root.get(), {100, 0}, cell_options(), record));
        const ::osg::NodePtr core = geometryNodes(result).at(0);
        const bool shrunk = height == 40;
        EXPECT_EQ(out.text().find("createAtlas failed! Vec: 1") == std::string::npos, shrunk);
        EXPECT_EQ(imageShown(core)->getWidth(), shrunk ? 4096 : 2);
        EXPECT_EQ(record.textures.atlases.size(), shrunk ? 1U : 0U);
        float u = 0;
        for (::osg::UInt32 i = 0; i < coreOf(core)->getTexCoords()->size(); ++i)
            u = std::max(u, coreOf(core)->getTexCoords()->getValue(i)[0]);
        EXPECT_NEAR(u, shrunk ? 1 : 50, 0.01);
        EXPECT_EQ(keptImages(), kept);
        EXPECT_EQ(image->getWidth(), 200);
    }
}

} // namespace
