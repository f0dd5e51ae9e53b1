// Cells when memory runs out: single large allocations fail, every one in turn.

#include "../support/shortage.h"

#include "cell_scenes.h"

#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/textures/morva_osg_kept_images.h>

namespace {

using namespace morva::osg;

::osg::NodePtr boxes(unsigned count, float at, const ::osg::MaterialPtr& material) {
    mesh_data mesh = quads(count);
    for (const ::osg::Pnt3f& p : mesh.positions)
        mesh.coordinates.emplace_back(p[0] / float(count), p[1]);
    if (count == 3) // two, and lines
        mesh.primitives = {{7, 8}, {1, 4}};
    return moved({0, 0, at}, {meshNode(mesh, material)});
}

TEST(CellShortage, LosesNothing) {
    for (const int round : {0, 1, 2}) {
        SCOPED_TRACE(round);
        cell_options options;
        options.exact = options.flat = round > 0;
        options.numthreads = round > 1 ? 2 : 1;
        const unsigned limit = round > 0 ? 1000 : 100;
        getIDmapHandler().merged = round > 1;
        failInTurn(1000, [&](const auto& starved) {
            const ::osg::MaterialRefPtr red(simple({1, 0, 0})),
                first(chunked({1, 1, 1, 1}, imageOf(6407, 40, 40, 7))),
                second(chunked({1, 1, 1, 1}, imageOf(6409, 30, 40, 9)));
            const node_ref root(
                group({boxes(20, 0, red.get()), boxes(20, 5, red.get()), boxes(15, 1, first.get()),
                       boxes(15, 2, second.get()), group({boxes(3, 3, first.get())}),
                       boxes(90, 40, red.get())}));
            const world_mesh before = worldTriangles({root.get()});
            const line_list lines = worldLines(root);
            const std::size_t kept = keptImages();
            node_ref result;
            cell_record record;
            const stream_capture out(std::cout), err(std::cerr);
            starved([&] { result = buildSceneTree(root.get(), {limit, 0}, options, record); });
            const node_ref after(result == ::osg::NullFC ? group() : result.get());
            EXPECT_EQ(firstDifference(before, worldTriangles({root.get(), after.get()})), "");
            EXPECT_EQ(lines, worldLines(root));
            EXPECT_EQ(keptImages(), kept);
            record = {};
        });
        getIDmapHandler().merged = false;
    }
}

} // namespace
