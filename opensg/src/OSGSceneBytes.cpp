#include "OSGSceneBytes.h"

OSG_BEGIN_NAMESPACE

void osgCopyBigEndian(const void* from, void* to, std::size_t count, UInt32 bytesOfNumber) {
    const auto* in = static_cast<const UInt8*>(from);
    auto* out = static_cast<UInt8*>(to);
    const auto copyAll = [&](auto number, auto reversed) {
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(&number, in + i * sizeof(number), sizeof(number));
            number = reversed(number);
            std::memcpy(out + i * sizeof(number), &number, sizeof(number));
        }
    };
    constexpr bool isLittle = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    if (count != 0 && (!isLittle || bytesOfNumber == 1))
        std::memcpy(to, from, count * bytesOfNumber);
    else if (bytesOfNumber == 2)
        copyAll(UInt16(), [](UInt16 number) { return __builtin_bswap16(number); });
    else if (bytesOfNumber == 4)
        copyAll(UInt32(), [](UInt32 number) { return __builtin_bswap32(number); });
    else if (bytesOfNumber == 8)
        copyAll(UInt64(), [](UInt64 number) { return __builtin_bswap64(number); });
}

OSG_END_NAMESPACE
