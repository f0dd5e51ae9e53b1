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

inline ::osg::NodeRefPtr optimised(const ::osg::NodePtr& root, const std::string& parameters) {
    const morva_test::stream_capture out(std::cout);
    return ::osg::NodeRefPtr(morva::osg::optTree(root, parameters));
}

} // namespace roads
