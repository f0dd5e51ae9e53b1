#pragma once

// The real models of the tests, from Debian's package assimp-testmodels.

#include "tests/support/test.h"

#include <morva/driver/morva_osg_scenerebuild.h>

#include "../../host/model.h"

namespace roads {

const std::string models = "/usr/share/assimp/models/";
/// An engine: 115 drawn parts, 34 materials of which 7 are different.
const std::string engine = models + "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";
/// A house of 66 meshes and 11 materials.
const std::string house = models + "IFC/AC14-FZK-Haus.ifc";
/// A truck: one texture, one plain colour.
const std::string truck = models + "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf";

/// The engine sixteen times on a grid; equal parts share their cores.
inline ::osg::NodePtr sixteenEngines() {
    const morva::host::model source = morva::host::readModel(engine);
    const ::osg::NodePtr grid = morva_test::group();
    for (int i = 0; i < 16; ++i) {
        morva_test::node_list parts;
        for (const ::osg::NodePtr& part : morva_test::geometryNodes(source.root))
            parts.push_back(morva_test::named(
                "part" + std::to_string(i * 1000 + static_cast<int>(parts.size())),
                morva_test::transformed(part->getToWorld(),
                                        {morva_test::nodeOf(part->getCore())})));
        grid->addChild(morva_test::moved(
            {static_cast<float>(i % 4) * 1024.F, static_cast<float>(i / 4) * 1024.F, 0.F}, parts));
    }
    return grid;
}

inline ::osg::NodeRefPtr optimised(const ::osg::NodePtr& root, const std::string& parameters) {
    const morva_test::stream_capture out(std::cout);
    return ::osg::NodeRefPtr(morva::osg::optTree(root, parameters));
}

} // namespace roads
