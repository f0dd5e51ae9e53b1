#include "embree_scene.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <OpenSG/OSGGeometry.h>

#include <morva/geosets/morva_osg_geoset_tools.h>

namespace morva_bench {

namespace {

RTCRay rayOf(const morva::float3& from, const morva::float3& direction) {
    RTCRay query;
    query.org_x = from[0];
    query.org_y = from[1];
    query.org_z = from[2];
    query.dir_x = direction[0];
    query.dir_y = direction[1];
    query.dir_z = direction[2];
    query.tnear = query.time = 0;
    query.tfar = 1e30f;
    query.mask = 0xffffffffU;
    query.flags = 0;
    return query;
}

void dropBackFace(const RTCFilterFunctionNArguments* arguments) {
    const auto* const r = reinterpret_cast<const RTCRay*>(arguments->ray);
    const auto* const hit = reinterpret_cast<const RTCHit*>(arguments->hit);
    if (hit->Ng_x * r->dir_x + hit->Ng_y * r->dir_y + hit->Ng_z * r->dir_z >= 0)
        arguments->valid[0] = 0;
}

} // namespace

std::vector<morva::float_triangle> trianglesOf(const ::osg::NodePtr& node) {
    morva::osg::osg_geoset geoset;
    const auto collect = [&](const auto& self, const ::osg::NodePtr& at) -> void {
        if (::osg::GeometryPtr::dcast(at->getCore()) != ::osg::NullFC)
            morva::osg::extract(at, geoset, true, false, false, false, false);
        for (::osg::UInt32 i = 0; i < at->getNChildren(); ++i)
            self(self, at->getChild(i));
    };
    collect(collect, node);
    geoset.setup();
    geoset.convert();
    return {geoset.simple_tris, geoset.simple_tris + geoset.size};
}

embree_scene::embree_scene(const std::vector<morva::float_triangle>& triangles)
    : device_(rtcNewDevice("threads=1")), scene_(rtcNewScene(device_)) {
    const std::size_t count = triangles.size();
    const RTCGeometry mesh = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    std::memcpy(
        rtcSetNewGeometryBuffer(mesh, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12, 3 * count),
        triangles.data(), 36 * count);
    auto* const corners = static_cast<std::uint32_t*>(
        rtcSetNewGeometryBuffer(mesh, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 12, count));
    for (std::size_t i = 0; i < 3 * count; ++i)
        corners[i] = static_cast<std::uint32_t>(i);
    rtcSetGeometryIntersectFilterFunction(mesh, dropBackFace);
    rtcSetGeometryOccludedFilterFunction(mesh, dropBackFace);
    rtcCommitGeometry(mesh);
    rtcAttachGeometry(scene_, mesh);
    rtcReleaseGeometry(mesh);
    rtcCommitScene(scene_);
}

embree_scene::~embree_scene() {
    rtcReleaseScene(scene_);
    rtcReleaseDevice(device_);
}

RTCRayHit embree_scene::fire(const morva::float3& from, const morva::float3& direction) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query;
    query.ray = rayOf(from, direction);
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene_, &context, &query);
    return query;
}

bool embree_scene::isStopped(const morva::float3& from, const morva::float3& direction) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRay query = rayOf(from, direction);
    rtcOccluded1(scene_, &context, &query);
    return query.tfar < 0;
}

} // namespace morva_bench
