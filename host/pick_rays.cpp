#include "pick_rays.h"

#include <cmath>

#include "number_text.h"

namespace morva::host {

namespace {

::osg::Pnt3f pointOf(const double* numbers) {
    return ::osg::Pnt3f(narrowed(numbers[0]), narrowed(numbers[1]), narrowed(numbers[2]));
}

/// In double, so that no finite direction vanishes or overflows.
::osg::Vec3f unitOf(double x, double y, double z) {
    const double largest = std::fmax(std::fabs(x), std::fmax(std::fabs(y), std::fabs(z)));
    if (largest == 0.0)
        throw host_error("the direction has length 0", exit_usage);
    x /= largest;
    y /= largest;
    z /= largest;
    const double length = std::sqrt(x * x + y * y + z * z);
    return ::osg::Vec3f(static_cast<float>(x / length), static_cast<float>(y / length),
                        static_cast<float>(z / length));
}

std::vector<double> threeOf(const std::string& text, const char* option) {
    try {
        return numbersOf(text, 3, "a point or direction");
    } catch (const host_error& error) {
        throw host_error(std::string(option) + ": " + error.what(), error.code);
    }
}

} // namespace

pick_ray rayAlong(const std::string& from, const std::string& direction) {
    const std::vector<double> origin = threeOf(from, "--from"), to = threeOf(direction, "--dir");
    return {pointOf(origin.data()), unitOf(to[0], to[1], to[2])};
}

pick_ray rayTo(const std::string& from, const std::string& to) {
    const std::vector<double> start = threeOf(from, "--from"), end = threeOf(to, "--to");
    return {pointOf(start.data()), unitOf(end[0] - start[0], end[1] - start[1], end[2] - start[2])};
}

std::vector<pick_ray> readRays(const std::string& path) {
    const number_table table = readNumberTable(path, 6, "a ray");
    std::vector<pick_ray> rays;
    rays.reserve(table.rows());
    for (std::size_t i = 0; i < table.rows(); ++i) {
        const double* const row = table.row(i);
        rays.push_back(atLine(path, table.lines[i], [row] {
            return pick_ray{pointOf(row), unitOf(row[3], row[4], row[5])};
        }));
    }
    return rays;
}

} // namespace morva::host
