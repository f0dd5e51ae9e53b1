#include <morva/collision/morva_osg_collision.h>

#include <morva/collision/morva_osg_tree_descent.h>

namespace morva::osg {

bool test_nodes(const float3& a_min, const float3& a_max, const float3& b_min, const float3& b_max,
                const float3& b_own_min, const float3& b_own_max, const bih_tree<float>& treeA,
                const triangle_list& listA, int nodeA, const bih_tree<float>& treeB,
                const triangle_list& listB, int nodeB,
                const math::transformation_matrix<float>& b_to_a, std::uint64_t& pairs,
                float3& contact) {
    const auto has = [](const bih_tree<float>& tree, int node) {
        return tree.nodes != nullptr && node >= 0 &&
               static_cast<std::uint64_t>(node) <= tree.node_count;
    };
    if (!has(treeA, nodeA) || !has(treeB, nodeB))
        return false;
    const any_pair all;
    pair_descent<any_pair> descent({treeA, listA}, {treeB, listB}, b_to_a, all);
    const bool found = descent.visit(
        static_cast<std::uint64_t>(nodeA), static_cast<std::uint64_t>(nodeB),
        {lanesOf(a_min), lanesOf(a_max)}, {lanesOf(b_min), lanesOf(b_max), b_own_min, b_own_max});
    pairs += descent.pairs();
    if (found)
        contact = descent.contact();
    return found;
}

} // namespace morva::osg
