#include "tests/support/test.h"

#include <OpenSG/OSGQuaternion.h>

#include "image_codec.h"
#include "model.h"
#include "scene_walk.h"
#include "statistics.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::model;
using morva::host::readModel;

/// Parts of every primitive type and layout, two places of one core, a textured material.
::osg::NodePtr variedScene() {
    std::mt19937 rng(5);
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 2, 2);
    const ::osg::NodePtr shared = meshNode(withAttributes(soup(rng, 20), rng), simple({1, 0, 0}));
    ::osg::Matrix turn;
    turn.setRotate(::osg::Quaternion(::osg::Vec3f(0, 0, 1), 0.5f));
    return named(
        "top",
        group({named("soup", shared), transformed(turn, {named("twin", nodeOf(shared->getCore()))}),
               named("cube", meshNode(cube(), chunked({0, 1, 0, 1}, image))),
               named("strip", meshNode(withNormals(strip(9), rng))), named("fan", meshNode(fan(7))),
               named("lines", meshNode(row(6, 2))), named("points", meshNode(row(5, 0)))}));
}

TEST(RoundTrip, KeepsTheTrianglesAndInOneBinaryFileTheRest) {
    const node_ref scene(variedScene());
    const temporary_folder folder;
    for (const std::string format : {"glb", "gltf", "osb", "obj", "ply", "stl", "dae"}) {
        SCOPED_TRACE(format);
        const bool whole = format == "glb" || format == "gltf" || format == "osb";
        mesh_choice choice;
        choice.normals = choice.colors = choice.coordinates = whole;
        const std::string file = folder.file("s." + format);
        morva::host::writeModel(scene.get(), morva::host::image_sources(), file);
        const model again = readModel(file);
        const world_mesh before = worldMesh(scene.get(), choice);
        const world_mesh after = worldMesh(again.root.get(), choice);
        EXPECT_EQ(firstDifference(before, after, {1e-4f, 1e-4f, 1e-5f}), "");
        if (format != "glb")
            continue;
        const auto counts = [](const ::osg::NodePtr& root) {
            const morva::host::scene_statistics s = morva::host::measureScene(root);
            return std::vector<std::uint64_t>{s.draw_calls, s.geometry_cores, s.triangles, s.lines,
                                              s.points,     s.vertices,       s.textures};
        };
        EXPECT_EQ(counts(again.root.get()), counts(scene.get()));
        EXPECT_EQ(counts(scene.get()).back(), 1u);
        EXPECT_EQ(namesOf(geometryNodes(again.root.get())), namesOf(geometryNodes(scene.get())));
        EXPECT_STREQ(getName(again.root.get()), "top");
    }
}

TEST(RoundTrip, GltfKeepsTheLookOfMaterials) {
    const struct {
        ::osg::Color4f diffuse, specular, emission;
        float shininess;
        bool two_sided, blended;
    } looks[] = {{{.2f, .4f, .6f, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, 0, false, false},
                 {{.2f, .4f, .6f, 1}, {0, 0, 0, .25f}, {0, 0, 0, 1}, 32, false, false},
                 {{1, 0, 0, .5f}, {0, 0, 0, 1}, {.5f, 0, 0, 1}, 128, true, true}};
    for (const auto& wanted : looks) {
        const ::osg::ChunkMaterialPtr material = chunked(wanted.diffuse);
        const auto chunk = ::osg::MaterialChunkPtr::dcast(material->getChunks(0));
        chunk->setSpecular(wanted.specular);
        chunk->setEmission(wanted.emission);
        chunk->setShininess(wanted.shininess);
        chunk->setBackMaterial(wanted.two_sided);
        const temporary_folder folder;
        const model again =
            readModel(modelFile(folder.file("s.glb"), group({meshNode(quads(1), material)})));
        const auto drawn = morva::host::drawnNodes(again.root.get());
        ASSERT_EQ(drawn.size(), 1u);
        const auto read = ::osg::ChunkMaterialPtr::dcast(drawn[0].material);
        ASSERT_TRUE(read != ::osg::NullFC);
        EXPECT_EQ(read->isTransparent(), wanted.blended);
        const auto colors = ::osg::MaterialChunkPtr::dcast(read->getChunks(0));
        ASSERT_TRUE(colors != ::osg::NullFC);
        EXPECT_TRUE(colors->getDiffuse() == wanted.diffuse);
        EXPECT_FLOAT_EQ(colors->getSpecular()[3], wanted.specular[3]);
        EXPECT_TRUE(colors->getEmission() == wanted.emission);
        EXPECT_NEAR(colors->getShininess(), wanted.shininess, 1e-4f);
        EXPECT_EQ(colors->getBackMaterial(), wanted.two_sided);
    }
}

TEST(ImageCodec, PngKeepsEveryChannelAndTheOrderOfRows) {
    using Image = ::osg::Image;
    const std::pair<::osg::UInt32, ::osg::UInt32> formats[] = {
        {Image::OSG_L_PF, Image::OSG_L_PF},     {Image::OSG_LA_PF, Image::OSG_LA_PF},
        {Image::OSG_RGB_PF, Image::OSG_RGB_PF}, {Image::OSG_RGBA_PF, Image::OSG_RGBA_PF},
        {Image::OSG_BGR_PF, Image::OSG_RGB_PF}, {Image::OSG_BGRA_PF, Image::OSG_RGBA_PF}};
    for (const auto& [format, read_as] : formats) {
        const ::osg::ImageRefPtr image(imageOf(format, 5, 3)), expected(Image::create());
        ::osg::UInt8* pixels = image->getData();
        for (unsigned long i = 0; i < image->getSize(); ++i)
            pixels[i] = static_cast<::osg::UInt8>(7 * i + 1);
        expected->set(read_as, 5, 3, 1, 1, 1, 0.0, pixels);
        for (unsigned long i = 0; format != read_as && i < 15; ++i)
            std::swap(expected->getData()[i * image->getBpp()],
                      expected->getData()[i * image->getBpp() + 2]);
        const auto bytes = morva::host::encodePng(image.get());
        const ::osg::ImageRefPtr again(morva::host::decodeImage(bytes.data(), bytes.size(), true));
        ASSERT_TRUE(again != ::osg::NullFC);
        EXPECT_TRUE(*again.get() == *expected.get()) << format;
        EXPECT_TRUE(morva::host::decodeImage(bytes.data(), bytes.size() / 2, true) ==
                    ::osg::NullFC);
    }
    const ::osg::ImageRefPtr bare(Image::create()), long_row(imageOf(Image::OSG_L_PF, 1000001, 1));
    EXPECT_TRUE(morva::host::encodePng(bare).empty() && morva::host::encodePng(long_row).empty());
}

TEST(ImageCodec, AnEditedImageForgetsItsFile) {
    const ::osg::ImageRefPtr image(imageOf(::osg::Image::OSG_RGB_PF, 4, 4));
    morva::host::image_sources sources;
    sources.remember(image.get(), {"image/png", {1, 2, 3}});
    ASSERT_NE(sources.find(image.get()), nullptr);
    image->getData()[5] ^= 1;
    EXPECT_EQ(sources.find(image.get()), nullptr);
}

} // namespace
} // namespace morva_test
