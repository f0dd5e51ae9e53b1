#pragma once

// The eight sets of texture coordinates of a geometry, one after the other: those that index
// rebuilding always handles first, then the further ones.

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

/// Calls `use(set, mapping bit, take)` with each set of `from`, null included; `take(made)` gives
/// a property to the same set of `to`, which may be `from`.
template <typename Use>
void forEachTexCoords(const ::osg::GeometryPtr& from, const ::osg::GeometryPtr& to,
                      const Use& use) {
    using ::osg::Geometry;
    use(from->getTexCoords(), Geometry::MapTexCoords,
        [&to](const auto& made) { to->setTexCoords(made); });
    use(from->getTexCoords7(), Geometry::MapTexCoords7,
        [&to](const auto& made) { to->setTexCoords7(made); });
    use(from->getTexCoords1(), Geometry::MapTexCoords1,
        [&to](const auto& made) { to->setTexCoords1(made); });
    use(from->getTexCoords2(), Geometry::MapTexCoords2,
        [&to](const auto& made) { to->setTexCoords2(made); });
    use(from->getTexCoords3(), Geometry::MapTexCoords3,
        [&to](const auto& made) { to->setTexCoords3(made); });
    use(from->getTexCoords4(), Geometry::MapTexCoords4,
        [&to](const auto& made) { to->setTexCoords4(made); });
    use(from->getTexCoords5(), Geometry::MapTexCoords5,
        [&to](const auto& made) { to->setTexCoords5(made); });
    use(from->getTexCoords6(), Geometry::MapTexCoords6,
        [&to](const auto& made) { to->setTexCoords6(made); });
}

} // namespace morva::osg
