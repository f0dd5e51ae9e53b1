// Division of a sheet into parts of at most 5000 triangles: ours beside the step of the import
// library that does it to meshes. Ours reads a core and makes indexed ones, `kept` with the normals
// that there are and `published` with new ones. `boxes` is the summed area of the parts' boxes, in
// squares of the sheet: what a viewer draws of parts that it sees a corner of.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>

#include <assimp/Importer.hpp>
#include <assimp/mesh.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_span.h>
#include <morva/tools/morva_divide_geonodes.h>

#include "model_export.h"
#include "scenes.h"
#include "sizes.h"
#include "tests/support/temporary_folder.h"

namespace {

constexpr unsigned most_triangles = 5000;

/// What the parts come to.
struct part_sums {
    std::size_t parts = 0;
    double boxes = 0;

    template <typename Point> void add(const Point* points, std::size_t count) {
        double low[3], high[3];
        for (unsigned axis = 0; axis < 3; ++axis) {
            low[axis] = high[axis] = static_cast<double>(points[0][axis]);
            for (std::size_t i = 1; i < count; ++i) {
                low[axis] = std::min(low[axis], static_cast<double>(points[i][axis]));
                high[axis] = std::max(high[axis], static_cast<double>(points[i][axis]));
            }
        }
        const double x = high[0] - low[0], y = high[1] - low[1], z = high[2] - low[2];
        boxes += 2 * (x * y + y * z + z * x);
        ++parts;
    }
    void addBelow(const ::osg::NodePtr& node) {
        const auto core = ::osg::GeometryPtr::dcast(node->getCore());
        if (core != ::osg::NullFC) {
            const auto points = morva::osg::readBlock(core->getPositions());
            add(points.data(), points.size());
        }
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            addBelow(node->getChild(i));
    }
    void tell(benchmark::State& state) const {
        state.counters["parts"] = static_cast<double>(parts);
        state.counters["boxes"] = boxes;
        morva_bench::countTriangles(state);
    }
};

/// A sheet below a group, divided again and again.
template <typename Divide>
void divideSheet(benchmark::State& state, bool indexed, const Divide& divide) {
    const morva_bench::silence quiet;
    part_sums sums;
    for (auto _ : state) {
        state.PauseTiming();
        ::osg::NodeRefPtr root(::osg::Node::create());
        root->setCore(::osg::Group::create());
        root->addChild(
            morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), indexed).get());
        state.ResumeTiming();
        divide(root.get());
        state.PauseTiming();
        sums = {};
        sums.addBelow(root.get());
        root = ::osg::NullFC;
        state.ResumeTiming();
    }
    sums.tell(state);
}

void kept(benchmark::State& state) {
    divideSheet(state, true, [](const ::osg::NodePtr& root) {
        morva::osg::divideByTriangles(root, most_triangles, false, {});
    });
}

void published(benchmark::State& state) {
    divideSheet(state, true, [](const ::osg::NodePtr& root) {
        morva::osg::split_Geometries(root, most_triangles, false, 1);
    });
}

/// Cores of at most 65,534 indices, from one that has three for each triangle, or none.
void by_indices(benchmark::State& state, bool indexed) {
    divideSheet(state, indexed, [](const ::osg::NodePtr& root) {
        morva::osg::split_GeometriesByIndex(root, 65534, false, 1);
    });
}

/// The whole list of triangles as one mesh, read from a file off the clock.
void assimp(benchmark::State& state) {
    const morva_test::temporary_folder folder;
    const std::string file = folder.path() + "/sheet.glb";
    const auto sheet = morva_bench::triangleGrid(static_cast<unsigned>(state.range(0)), true);
    morva::host::writeModel(sheet.get(), morva::host::image_sources(), file);
    part_sums sums;
    for (auto _ : state) {
        state.PauseTiming();
        auto importer = std::make_unique<Assimp::Importer>();
        importer->SetPropertyInteger(AI_CONFIG_PP_SLM_TRIANGLE_LIMIT, most_triangles);
        importer->ReadFile(file, 0);
        state.ResumeTiming();
        const aiScene* scene = importer->ApplyPostProcessing(aiProcess_SplitLargeMeshes);
        state.PauseTiming();
        sums = {};
        for (const aiMesh* mesh : morva::span<aiMesh* const>(scene->mMeshes, scene->mNumMeshes))
            sums.add(mesh->mVertices, mesh->mNumVertices);
        importer.reset();
        state.ResumeTiming();
    }
    sums.tell(state);
}

BENCHMARK(kept)->Apply(morva_bench::sizes);
BENCHMARK(published)->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(by_indices, indexed, true)->Apply(morva_bench::sizes);
BENCHMARK_CAPTURE(by_indices, unindexed, false)->Apply(morva_bench::sizes);
BENCHMARK(assimp)->Apply(morva_bench::sizes);

} // namespace
