#pragma once

// Scenes for cells: all kinds of parts and looks, moved apart, below each other; and what of a
// scene must be somewhere afterwards.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>

#include "tests/support/textured_scenes.h"

namespace morva_test {

/// Of textured_scene, with transforms, and with parts, lines and hidden ones below parts.
///
/// plain  no images
inline ::osg::NodePtr wildScene(unsigned seed, bool plain) {
    std::mt19937 rng(seed);
    const ::osg::NodePtr root = textured_scene(seed).root();
    const ::osg::MaterialRefPtr red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        if (plain && coreOf(node)->getMaterial() != ::osg::NullFC)
            coreOf(node)->setMaterial((rng() % 2 == 0 ? red : blue).get());
        for (::osg::NodePtr up = node; plain && up != ::osg::NullFC; up = up->getParent()) {
            const auto painted = ::osg::MaterialGroupPtr::dcast(up->getCore());
            if (painted != ::osg::NullFC)
                painted->setMaterial(red.get());
        }
        const ::osg::NodePtr above = node->getParent();
        if (rng() % 2 == 0) // also what hangs below stays in its place
            above->addChild(moved(::osg::Vec3f(float(rng() % 64), float(rng() % 64), 0), {node}));
        if (rng() % 4 == 0)
            node->addChild(meshNode(withNormals(soup(rng, rng() % 5), rng)));
        if (rng() % 6 == 0)
            node->addChild(group({meshNode(row(1 + rng() % 5, rng() % 4)), group()}));
        if (rng() % 9 == 0)
            node->addChild(materialGroup(red.get(), {hidden(meshNode(soup(rng, 2), blue.get()))}));
    }
    return root;
}

/// Lines and points below a node: type, and positions in the world.
using line_list = std::multiset<std::vector<float>>;
inline line_list worldLines(const ::osg::NodePtr& root) {
    line_list all;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const ::osg::GeometryPtr core = coreOf(node);
        for (auto it = core->beginPrimitives(); it != core->endPrimitives(); ++it) {
            std::vector<float> one = {float(it.getType())};
            for (::osg::UInt32 i = 0; it.getType() < 4 && i < it.getLength(); ++i) {
                ::osg::Pnt3f p = it.getPosition(::osg::Int32(i));
                node->getToWorld().multFullMatrixPnt(p);
                one.insert(one.end(), {p[0], p[1], p[2]});
            }
            if (one.size() > 1)
                all.insert(one);
        }
    }
    return all;
}

/// Triangles below some nodes, places alone; without those that passes drop.
inline world_mesh worldTriangles(const node_list& roots) {
    const mesh_choice places = {false, false, false, false, morva::osg::is_rogue};
    world_mesh all;
    for (const ::osg::NodePtr& root : roots) {
        const world_mesh mesh = worldMesh(root, places);
        all.insert(all.end(), mesh.begin(), mesh.end());
    }
    std::sort(all.begin(), all.end());
    return all;
}

} // namespace morva_test
