#include <morva/textures/morva_osg_pixel_rows.h>

#include <cstring>

namespace morva::osg {

namespace {

#ifdef __x86_64__

// Four pixels at a time, by one shuffle of bytes. A block of 16 bytes is read and written, which is
// more than four pixels of three channels: six must be there, and what is written beyond the fourth
// is written again.

using block = unsigned char __attribute__((vector_size(16)));
constexpr std::int64_t block_pixels = 4, block_reach = 6;

bool hasShuffle() {
    static const bool has = __builtin_cpu_supports("ssse3") != 0;
    return has;
}

__attribute__((target("ssse3"))) std::int64_t
widenByShuffle(const unsigned char* from, unsigned char* to, std::int64_t count) {
    constexpr block full = {0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255};
    std::int64_t i = 0;
    for (; i + block_reach <= count; i += block_pixels) {
        block pixels;
        std::memcpy(&pixels, from + 3 * i, sizeof(block));
        pixels = __builtin_shufflevector(pixels, pixels, 0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10,
                                         11, 0) |
                 full;
        std::memcpy(to + 4 * i, &pixels, sizeof(block));
    }
    return i;
}

__attribute__((target("ssse3"))) std::int64_t
narrowByShuffle(const unsigned char* from, unsigned char* to, std::int64_t count) {
    std::int64_t i = 0;
    for (; i + block_reach <= count; i += block_pixels) {
        block pixels;
        std::memcpy(&pixels, from + 4 * i, sizeof(block));
        pixels = __builtin_shufflevector(pixels, pixels, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 12,
                                         13, 14, 15);
        std::memcpy(to + 3 * i, &pixels, sizeof(block));
    }
    return i;
}

/// How many pixels are done.
std::int64_t widenBlocks(const unsigned char* from, unsigned char* to, std::int64_t count) {
    return hasShuffle() ? widenByShuffle(from, to, count) : 0;
}
std::int64_t narrowBlocks(const unsigned char* from, unsigned char* to, std::int64_t count) {
    return hasShuffle() ? narrowByShuffle(from, to, count) : 0;
}

#else

std::int64_t widenBlocks(const unsigned char*, unsigned char*, std::int64_t) { return 0; }
std::int64_t narrowBlocks(const unsigned char*, unsigned char*, std::int64_t) { return 0; }

#endif

/// The bytes of one RGBA pixel as a number, so that four are handled at once.
std::uint32_t wordAt(const unsigned char* bytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, 4);
    return word;
}

} // namespace

void readAsRGB(const unsigned char* from, std::int64_t count, const pixel_recipe& recipe,
               unsigned char* to) {
    for (std::int64_t i = 0; i < count; ++i, from += recipe.channels, to += 3) {
        to[0] = from[recipe.red];
        to[1] = from[recipe.green];
        to[2] = from[recipe.blue];
    }
}

/// Adds alpha, 255. Words reach into the next pixel, but for the last.
void widenPixels(const unsigned char* from, unsigned char* to, std::int64_t count) {
    if (count <= 0)
        return;
    constexpr unsigned char alpha[4] = {0, 0, 0, 255};
    const std::uint32_t full = wordAt(alpha);
    for (std::int64_t i = widenBlocks(from, to, count); i + 1 < count; ++i) {
        const std::uint32_t pixel = wordAt(from + 3 * i) | full;
        std::memcpy(to + 4 * i, &pixel, 4);
    }
    std::memcpy(to + 4 * (count - 1), from + 3 * (count - 1), 3);
    to[4 * count - 1] = 255;
}

/// Leaves alpha out. The next pixel is written over it; the last has none to write.
void narrowPixels(const unsigned char* from, unsigned char* to, std::int64_t count) {
    if (count <= 0)
        return;
    for (std::int64_t i = narrowBlocks(from, to, count); i + 1 < count; ++i)
        std::memcpy(to + 3 * i, from + 4 * i, 4);
    std::memcpy(to + 3 * (count - 1), from + 4 * (count - 1), 3);
}

} // namespace morva::osg
