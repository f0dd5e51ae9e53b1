#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>

#include <mutex>

namespace morva::osg {

namespace {

/// The set of the process; not empty once it was made, and then never changed.
struct ray_store {
    std::mutex mutex;
    std::vector<float3> rays;
};

ray_store& store() {
    static ray_store the_store;
    return the_store;
}

bool isInRange(int shots) { return shots >= least_shots && shots <= most_shots; }

std::size_t latticeSize(int shots) {
    const auto edge = static_cast<std::size_t>(shots) + 1;
    return edge * edge * edge;
}

std::vector<float3> latticeOf(int shots) {
    std::vector<float3> rays;
    rays.reserve(latticeSize(shots));
    const auto part = [shots](int step) { return static_cast<float>(2.0 * step / shots - 1.0); };
    for (int i = 0; i <= shots; ++i) {
        for (int j = 0; j <= shots; ++j) {
            for (int k = 0; k <= shots; ++k)
                rays.push_back({part(i), part(j), part(k)});
        }
    }
    return rays;
}

} // namespace

span<const float3> rayVecsOf(int shots) {
    if (!isInRange(shots))
        return {};
    const std::lock_guard<std::mutex> guard(store().mutex);
    if (store().rays.empty())
        store().rays = latticeOf(shots);
    return store().rays;
}

std::vector<math::vector<float, 3>> getRayVecs(unsigned int shots) {
    const span<const float3> rays = rayVecsOf(static_cast<int>(shots));
    return {rays.begin(), rays.end()};
}

std::size_t raysInForce(int shots) {
    if (!isInRange(shots))
        return 0;
    const std::lock_guard<std::mutex> guard(store().mutex);
    return store().rays.empty() ? latticeSize(shots) : store().rays.size();
}

} // namespace morva::osg
