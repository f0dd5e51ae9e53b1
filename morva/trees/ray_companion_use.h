#pragma once

// When rays get a companion, and which of them use it. Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>

#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

#if defined(__SSE2__)
#include <morva/trees/ray_companion.h>
#include <morva/trees/ray_descent.h>
#include <morva/trees/ray_packed_descent.h>
#endif

namespace morva {
namespace detail {

#if defined(__SSE2__)

/// A tree of so few triangles is as fast without.
constexpr std::uint64_t fewest_for_companion = 16;

/// Rays of a tree that go without a companion: making it takes as long as some of them, and more
/// in a large tree.
inline std::uint32_t rays_before_companion(std::uint64_t triangles) {
    return 300 + static_cast<std::uint32_t>(triangles / 16);
}

/// Makes the companion, if memory allows.
inline void make_ray_companion(const bih_tree<float>& tree, const float_triangle* triangles) {
    try {
        if (std::unique_ptr<ray_companion> made = ray_companion_builder(tree, triangles).run())
            tree.companions.publish(companion_slot::rays, made.release());
    } catch (const std::bad_alloc&) {
        return; // the steps alone do
    }
}

/// Sends a ray from the root by the tree's companion, or returns false: nothing has happened. Some
/// ray makes the companion before it goes.
template <typename T, typename Geoset, typename Descent>
bool descend_with_companion(const bih_tree<T>& tree, const Geoset& geoset, Descent& descent,
                            T t_min, T t_max) {
    if constexpr (!is_scene<Geoset>::value && Descent::plain_floats) {
        const float_triangle* const triangles = ray_triangles(geoset);
        const bih_companion* found = tree.companions.find(companion_slot::rays);
        if (found == nullptr) {
            if (tree.active == 0 || tree.index_count < fewest_for_companion ||
                !tree.companions.due(companion_slot::rays, rays_before_companion(tree.index_count)))
                return false;
            make_ray_companion(tree, triangles);
            found = tree.companions.find(companion_slot::rays);
        }
        const auto* const companion = static_cast<const ray_companion*>(found);
        if (companion == nullptr || companion->triangles != triangles || !descent.is_finite())
            return false;
        ray_packed_descent<Descent>(*companion, descent).descend(t_min, t_max);
        return true;
    }
    return false;
}

#else

template <typename T, typename Geoset, typename Descent>
bool descend_with_companion(const bih_tree<T>&, const Geoset&, Descent&, T, T) {
    return false;
}

#endif

} // namespace detail
} // namespace morva
