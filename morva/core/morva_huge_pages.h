#pragma once

// Large blocks that are written from end to end cost a fault per page. Asked for in time, the
// system backs them with pages of 2 MiB: a five-hundredth of the faults, and fewer misses of the
// address cache when they are read out of order.

#include <cstddef>

namespace morva {

/// Asks for huge pages within the `bytes` from `begin` on, before they are written. Small blocks
/// are left alone. A wish only: content and behaviour stay as they are, whatever the system does.
void wishHugePages(void* begin, std::size_t bytes) noexcept;

} // namespace morva
