#include <morva/textures/texturatlas.h>

#include <cmath>

#include <morva/textures/texturatlas_free_pool.h>
#include <morva/textures/texturatlas_packing.h>

namespace morva {

namespace {

/// The largest divisor of a number that is not above its root and not below 3; 0 if there is none.
std::int64_t divisorNearRoot(std::int64_t number) {
    auto divisor = static_cast<std::int64_t>(std::sqrt(static_cast<double>(number)));
    while (divisor >= 3 && number % divisor != 0)
        --divisor;
    return divisor >= 3 ? divisor : 0;
}

/// The columns of the arrangement of 11 or more that leaves the fewest places empty, and of those
/// the squarest. Of 3 rows at most two places stay empty, so that no more need be looked at.
std::int64_t columnsOf(std::int64_t count) {
    for (std::int64_t empty = 0;; ++empty) {
        const std::int64_t rows = divisorNearRoot(count + empty);
        if (rows != 0)
            return (count + empty) / rows;
    }
}

} // namespace

void texturatlas::calculate(unsigned int maximumWidth) { pack(*this, maximumWidth, {}); }

int texturatlas::calcItemsInRow(int count) const {
    constexpr int few[11] = {0, 1, 2, 3, 2, 3, 3, 4, 4, 3, 5};
    if (count < 11)
        return count < 0 ? count : few[count];
    const auto root = static_cast<int>(std::sqrt(static_cast<double>(count)));
    if (root * root == count)
        return root;
    std::int64_t columns = columnsOf(count);
    if (!groupSizes.empty()) {
        const std::int64_t wide = groupSizes[0].width, high = groupSizes[0].height;
        if (high > 2 * wide)
            ++columns;
        else if (wide > 2 * high)
            --columns;
    }
    return static_cast<int>(columns);
}

void texturatlas::combineFreeSpaces() {
    free_pool pool(freeSpaces);
    pool.combine();
    freeSpaces = pool.content();
}

} // namespace morva
