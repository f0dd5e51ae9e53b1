#include <morva/tools/morva_osg_surface_distance.h>

#include <cmath>
#include <cstddef>

#include <morva/tools/morva_osg_nearest_triangles.h>

namespace morva::osg {

namespace {

surface_distance measure(const nearest_triangles& from, const nearest_triangles& to, bool fine) {
    surface_distance sum;
    nearest_hit near;
    for (std::size_t place = 0; place < from.size(); ++place) {
        const corners3d t = from.corners(place);
        const point3d normal = cross(minus(t[1], t[0]), minus(t[2], t[0]));
        const double area = std::sqrt(dot(normal, normal)) / 2;
        sum.area += area;
        forEachSample(t, fine, [&](const point3d& p, double share) {
            const double distance = to.distance(p, near);
            sum.largest = std::max(sum.largest, distance);
            sum.integral += area * share * distance;
        });
    }
    return sum;
}

} // namespace

measured_surface::measured_surface(const simplified_triangles& triangles, const linear_map* space)
    : triangles_(std::make_shared<const nearest_triangles>(triangles, space)) {}

surface_distance distanceToSource(const measured_surface& result, const measured_surface& source) {
    return measure(result.triangles(), source.triangles(), true);
}

surface_distance distanceToResult(const measured_surface& source, const measured_surface& result) {
    return measure(source.triangles(), result.triangles(), false);
}

} // namespace morva::osg
