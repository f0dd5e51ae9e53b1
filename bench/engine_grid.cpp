#include "engine_grid.h"

#include <cmath>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include "model.h"

namespace morva_bench {

namespace {

constexpr const char* engine_file =
    "/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";

/// A copy of a tree with cores of its own, or with shared geometry.
::osg::NodePtr copyOf(const ::osg::NodePtr& source, bool own_cores) {
    const ::osg::NodePtr copy = ::osg::Node::create();
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(source->getCore());
    const ::osg::TransformPtr placed = ::osg::TransformPtr::dcast(source->getCore());
    if (geometry != ::osg::NullFC) {
        copy->setCore(own_cores ? geometry->clone() : geometry);
    } else if (placed != ::osg::NullFC) {
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(placed->getMatrix());
        copy->setCore(transform);
    } else {
        copy->setCore(::osg::Group::create());
    }
    const ::osg::Char8* name = getName(source);
    if (name != nullptr)
        setName(copy, name);
    for (::osg::UInt32 i = 0; i < source->getNChildren(); ++i)
        copy->addChild(copyOf(source->getChild(i), own_cores));
    return copy;
}

} // namespace

::osg::NodeRefPtr engineGrid(unsigned count, bool own_cores) {
    const morva::host::model engine = morva::host::readModel(engine_file);
    const ::osg::NodeRefPtr root(::osg::Node::create());
    root->setCore(::osg::Group::create());
    const auto row = static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(count))));
    for (unsigned i = 0; i < count; ++i) {
        ::osg::Matrix place;
        place.setTranslate(800.f * static_cast<float>(i % row), 800.f * static_cast<float>(i / row),
                           0.f);
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(place);
        const ::osg::NodePtr node = ::osg::Node::create();
        node->setCore(transform);
        node->addChild(copyOf(engine.root.get(), own_cores));
        root->addChild(node);
    }
    return root;
}

} // namespace morva_bench
