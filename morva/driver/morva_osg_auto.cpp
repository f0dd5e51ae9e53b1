#include <morva/driver/morva_osg_auto.h>

#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/merge/morva_osg_geomerge.h>

namespace morva::osg {

::osg::NodePtr optGeometry(::osg::GeometryPtr geometry, unsigned int limit, int opt) {
    if (geometry == ::osg::NullFC)
        return newGroupNode();
    // The node goes again, and with it a core that nobody else holds: such a one is not used.
    const bool is_held = geometry.getRefCount() > 0;
    const fresh<::osg::NodePtr> node(newNodeWith(is_held ? geometry : copyOfCore(geometry)));
    mergeGeo_setup setup;
    setup.opt = opt;
    setup.silent = true;
    return mergeGeo(node.get(), kd_build_setup{limit, 100, 3, 1.0F, 2.0F, 0.95F, false}, setup);
}

unsigned int calcTrisPerGeometrycore(unsigned int triangles) {
    constexpr unsigned int smallest = 10000, largest = 25000;
    if (triangles <= 100000)
        return smallest;
    if (triangles > 999999)
        return largest;
    const float share = static_cast<float>(triangles) / 1000000.0F;
    return static_cast<unsigned int>(share * 15000.0F) + smallest;
}

} // namespace morva::osg
