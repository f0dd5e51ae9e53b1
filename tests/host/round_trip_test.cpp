#include "tests/support/test.h"

#include <cmath>
#include <set>

#include <OpenSG/OSGQuaternion.h>

#include "geometry_view.h"
#include "gltf_material.h"
#include "image_codec.h"
#include "model.h"
#include "output_formats.h"
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

/// Triangles by the colour of their material, in steps that every format can tell apart; without
/// those with a texture.
std::map<std::array<int, 3>, std::uint64_t> trianglesByColor(const ::osg::NodePtr& root) {
    std::map<std::array<int, 3>, std::uint64_t> triangles;
    for (const auto& drawn : morva::host::drawnNodes(root)) {
        if (drawn.material == ::osg::NullFC || !morva::host::imagesOf(drawn.material).empty())
            continue;
        const morva::host::surface look = morva::host::surfaceOf(drawn.material);
        const auto step = [&](unsigned i) {
            return static_cast<int>(std::lround(50 * look.base[i]));
        };
        const morva::host::geometry_view view(drawn.core);
        morva::host::forEachTriangle(view, [&](auto, auto, auto) {
            ++triangles[{step(0), step(1), step(2)}];
        });
    }
    return triangles;
}

std::size_t placements(const ::osg::NodePtr& node) {
    ::osg::Matrix matrix;
    std::size_t count = morva::host::placementOf(node, matrix) ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += placements(node->getChild(i));
    return count;
}

/// What a scene still has of another one.
morva::host::output_format keptOf(const ::osg::NodePtr& after, const ::osg::NodePtr& before) {
    const auto counts = morva::host::measureScene(after), all = morva::host::measureScene(before);
    const auto colors = trianglesByColor(after);
    morva::host::output_format kept{};
    kept.lines = counts.lines == all.lines;
    kept.points = counts.points == all.points;
    kept.tree = placements(after) == placements(before);
    kept.names = true;
    const std::vector<std::string> names = namesOf(geometryNodes(after));
    std::set<::osg::UInt32> cores;
    for (const auto& drawn : morva::host::drawnNodes(before)) {
        const morva::host::geometry_view view(drawn.core);
        bool fills = false; // lines and points may have gone
        morva::host::forEachTriangle(view, [&](auto, auto, auto) { fills = true; });
        if (fills && cores.insert(drawn.core.getFieldContainerId()).second)
            kept.names = kept.names &&
                         std::find(names.begin(), names.end(), getName(drawn.node)) != names.end();
    }
    kept.sharing = counts.draw_calls == counts.geometry_cores + 1;
    kept.materials = true;
    for (const auto& [color, triangles] : trianglesByColor(before)) {
        const auto found = colors.find(color);
        kept.materials = kept.materials && found != colors.end() && found->second >= triangles;
    }
    kept.textures = counts.textures == all.textures;
    return kept;
}

TEST(RoundTrip, EachFormatKeepsTheTrianglesAndWhatItsTableTells) {
    const node_ref scene(variedScene());
    const temporary_folder folder;
    for (const morva::host::output_format& format : morva::host::outputFormats()) {
        const std::string extension = format.extension;
        SCOPED_TRACE(extension);
        const bool whole = extension == "glb" || extension == "gltf" || extension == "osb";
        mesh_choice choice;
        choice.normals = choice.colors = choice.coordinates = whole;
        const std::string file = folder.file("s." + extension);
        const auto notes = morva::host::writeModel(scene.get(), morva::host::image_sources(), file);
        const model again = readModel(file);
        const world_mesh before = worldMesh(scene.get(), choice);
        const world_mesh after = worldMesh(again.root.get(), choice);
        EXPECT_EQ(firstDifference(before, after, {1e-4f, 1e-4f, 1e-5f}), "");
        const auto kept = keptOf(again.root.get(), scene.get());
        EXPECT_EQ(kept.lines, format.lines);
        EXPECT_EQ(kept.points, format.points);
        EXPECT_EQ(kept.tree, format.tree);
        EXPECT_EQ(kept.names, format.names);
        EXPECT_EQ(kept.sharing, format.sharing);
        EXPECT_EQ(kept.materials, format.materials);
        EXPECT_EQ(kept.textures, format.textures);
        const bool loses = !format.lines || !format.points || !format.tree || !format.names ||
                           !format.materials || !format.textures;
        EXPECT_EQ(notes.size(), loses ? 1u : 0u) << testing::PrintToString(notes);
        if (format.tree && extension != "dae") {
            EXPECT_STREQ(getName(again.root.get()), "top");
        }
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
