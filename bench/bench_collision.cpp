// Collision beside FCL with trees of OBBRSS, which are kept on both sides; first contact alone.
//
// Both get the same triangles in the same single-precision frames. FCL tests triangles in double
// precision and whichever way they face; here an edge counts where it enters a triangle's front. So
// on surfaces that are not closed the answers can differ; the counters tell where they did.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcl/geometry/bvh/BVH_model.h>
#include <fcl/math/bv/OBBRSS.h>
#include <fcl/narrowphase/collision.h>

#include <OpenSG/OSGGeoPropPtrs.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGTransform.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/collision/morva_osg_collision.h>

#include "scenes.h"

namespace {

using fcl_model = fcl::BVHModel<fcl::OBBRSSd>;

/// A tree below a transform that the benchmark sets, and the same triangles as FCL takes them.
struct body {
    ::osg::NodeRefPtr root;
    ::osg::TransformPtr place;
    std::shared_ptr<fcl_model> model;
};

void addTriangles(const ::osg::NodePtr& node, fcl_model& model) {
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    if (core != ::osg::NullFC) {
        const ::osg::Matrix matrix = node->getToWorld();
        for (::osg::TriangleIterator t = core->beginTriangles(); t != core->endTriangles(); ++t) {
            fcl::Vector3d corner[3];
            for (int k = 0; k < 3; ++k) {
                ::osg::Pnt3f p = t.getPosition(k);
                matrix.multMatrixPnt(p);
                corner[k] = fcl::Vector3d(double{p[0]}, double{p[1]}, double{p[2]});
            }
            model.addTriangle(corner[0], corner[1], corner[2]);
        }
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        addTriangles(node->getChild(i), model);
}

body bodyOf(const ::osg::NodePtr& shape) {
    body made;
    made.root = ::osg::NodeRefPtr(::osg::Node::create());
    made.place = ::osg::Transform::create();
    made.root->setCore(made.place);
    made.root->addChild(shape);
    made.model = std::make_shared<fcl_model>();
    made.model->beginModel();
    addTriangles(made.root.get(), *made.model);
    made.model->endModel();
    return made;
}

body engine() {
    const ::osg::NodeRefPtr grid = morva_bench::engineGrid(1, false);
    return bodyOf(grid.get());
}

/// A ball of 4 rings (rings - 1) triangles.
body ball(double radius, unsigned rings) {
    const unsigned columns = 2 * rings;
    const auto types = ::osg::GeoPTypesUI8::create();
    const auto lengths = ::osg::GeoPLengthsUI32::create();
    const auto positions = ::osg::GeoPositions3f::create();
    const auto indices = ::osg::GeoIndicesUI32::create();
    const double pi = std::acos(-1.0);
    for (unsigned i = 0; i <= rings; ++i) {
        for (unsigned j = 0; j < columns; ++j) {
            const double theta = pi * i / rings, phi = 2.0 * pi * j / columns;
            positions->editField().push_back(
                ::osg::Pnt3f(static_cast<float>(radius * std::sin(theta) * std::cos(phi)),
                             static_cast<float>(radius * std::sin(theta) * std::sin(phi)),
                             static_cast<float>(radius * std::cos(theta))));
        }
    }
    const auto add = [&](unsigned i, unsigned j) {
        indices->editField().push_back(i * columns + j % columns);
    };
    for (unsigned i = 0; i < rings; ++i) {
        for (unsigned j = 0; j < columns; ++j) {
            if (i != 0)
                add(i, j), add(i + 1, j), add(i, j + 1);
            if (i + 1 != rings)
                add(i, j + 1), add(i + 1, j), add(i + 1, j + 1);
        }
    }
    types->editField().push_back(GL_TRIANGLES);
    lengths->editField().push_back(indices->getSize());
    const ::osg::GeometryPtr core = ::osg::Geometry::create();
    core->setTypes(types);
    core->setLengths(lengths);
    core->setPositions(positions);
    core->setIndices(indices);
    return bodyOf(::osg::makeNodeFor(core));
}

/// As many rings as make 102,000 triangles.
constexpr unsigned ball_rings = 160;

struct pose {
    ::osg::Matrix matrix;
    fcl::Transform3d transform;
};

pose poseOf(const ::osg::QuaternionBase<::osg::Real32>& turn, const ::osg::Vec3f& shift) {
    pose made;
    made.matrix.setTransform(shift, turn);
    made.transform = fcl::Transform3d::Identity();
    for (::osg::UInt32 r = 0; r < 3; ++r)
        for (::osg::UInt32 c = 0; c < 4; ++c)
            made.transform.matrix()(r, c) = double{made.matrix[c][r]};
    return made;
}

/// Turned at random, and moved by up to `reach` on each axis.
std::vector<pose> randomPoses(std::size_t count, float reach) {
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> unit(-1.F, 1.F);
    std::vector<pose> poses;
    while (poses.size() < count) {
        const ::osg::Vec3f axis(unit(rng), unit(rng), unit(rng));
        const ::osg::Vec3f shift(reach * unit(rng), reach * unit(rng), reach * unit(rng));
        const ::osg::QuaternionBase<::osg::Real32> turn(axis, 3.14F * unit(rng));
        poses.push_back(poseOf(turn, shift));
    }
    return poses;
}

bool oursTouch(const body& a, body& b, const pose& place) {
    b.place->setMatrix(place.matrix);
    ::osg::endEditCP(b.place, ::osg::Transform::MatrixFieldMask); // the boxes follow
    morva::osg::CollisionResults results;
    return morva::osg::collision(a.root.get(), b.root.get(), morva::osg::CollisionParam(), results);
}

bool theirsTouch(const body& a, const body& b, const pose& place) {
    const fcl::CollisionRequestd request;
    fcl::CollisionResultd result;
    return fcl::collide(a.model.get(), fcl::Transform3d::Identity(), b.model.get(), place.transform,
                        request, result) != 0;
}

/// One iteration is all poses. `ours` tells whose time is taken.
void run(benchmark::State& state, const body& a, body& b, const std::vector<pose>& poses,
         bool ours) {
    int contacts = 0, only_ours = 0, only_theirs = 0;
    for (const pose& place : poses) { // off the clock; makes trees and companions as well
        const bool mine = oursTouch(a, b, place), other = theirsTouch(a, b, place);
        contacts += mine ? 1 : 0;
        only_ours += mine && !other ? 1 : 0;
        only_theirs += other && !mine ? 1 : 0;
    }
    for (auto _ : state) {
        for (const pose& place : poses) {
            const bool touch = ours ? oursTouch(a, b, place) : theirsTouch(a, b, place);
            benchmark::DoNotOptimize(touch);
        }
    }
    state.counters["contacts"] = contacts;
    state.counters["only_ours"] = only_ours;
    state.counters["only_theirs"] = only_theirs;
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(poses.size()));
}

void engines(benchmark::State& state, bool ours) {
    static const body a = engine();
    static body b = engine();
    static const std::vector<pose> poses = randomPoses(200, 600.F);
    run(state, a, b, poses, ours);
}

/// A ball in one that is larger by a gap in parts of 1000.
void nestedBalls(benchmark::State& state, bool ours) {
    const double gap = static_cast<double>(state.range(0)) / 1000.0;
    const body a = ball(1.0 + gap, ball_rings);
    body b = ball(1.0, ball_rings);
    const std::vector<pose> poses = randomPoses(4, 0.F);
    run(state, a, b, poses, ours);
}

/// Balls beside each other with a gap in parts of 1000 between them.
void ballsApart(benchmark::State& state, bool ours) {
    const float gap = static_cast<float>(state.range(0)) / 1000.F;
    const body a = ball(1.0, ball_rings);
    body b = ball(1.0, ball_rings);
    std::vector<pose> poses = randomPoses(20, 0.F);
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const float angle = static_cast<float>(i);
        const ::osg::Vec3f way(std::cos(angle), std::sin(angle), 0.3F);
        ::osg::Vec3f unit = way;
        unit.normalize();
        ::osg::Matrix matrix = poses[i].matrix;
        matrix.setTranslate(unit[0] * (2.F + gap), unit[1] * (2.F + gap), unit[2] * (2.F + gap));
        poses[i].matrix = matrix;
        for (::osg::UInt32 r = 0; r < 3; ++r)
            poses[i].transform.matrix()(r, 3) = double{matrix[3][r]};
    }
    run(state, a, b, poses, ours);
}

BENCHMARK_CAPTURE(engines, ours, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(engines, fcl, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(nestedBalls, ours, true)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(nestedBalls, fcl, false)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ballsApart, ours, true)->Arg(1)->Arg(10)->Arg(-1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ballsApart, fcl, false)->Arg(1)->Arg(10)->Arg(-1)->Unit(benchmark::kMillisecond);

} // namespace
