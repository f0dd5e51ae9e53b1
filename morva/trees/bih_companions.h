#pragma once

// What other code keeps with a tree to answer from faster: private structures that are made while
// the tree is in use and leave with its arrays. The tree itself does not know what they are.
//
//     struct my_boxes : bih_companion { ... };              // sets `destroy` in its constructor
//
//     const auto* found = tree.companions.find(companion_slot::fitted_boxes);
//     if (found == nullptr && tree.companions.due(companion_slot::fitted_boxes, 200))
//         tree.companions.publish(companion_slot::fitted_boxes, make_boxes(tree)); // may throw
//     use *found, or go on without
//
// Any number of threads may ask: the 200th use is told that the companion is due, and that thread
// alone makes it while the others go on without. If it fails, nobody tries again until the tree is
// built anew. A companion gives the same answers as the tree alone, or none.

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace morva {

/// What a companion begins with.
struct bih_companion {
    void (*destroy)(bih_companion* companion) = nullptr; ///< frees it; never null once published
};

/// The places for companions, by owner.
enum class companion_slot : std::size_t {
    rays,         ///< trees/ray_companion.h
    fitted_boxes, ///< collision
    count
};

/// The companions of one tree. Finding and publishing may overlap in any threads; dropping is part
/// of a rebuild, which overlaps with no use of the tree.
class bih_companions {
  public:
    bih_companions() = default;
    bih_companions(const bih_companions&) = delete;
    bih_companions& operator=(const bih_companions&) = delete;
    ~bih_companions() { drop(); }

    /// The companion in a slot, or null.
    const bih_companion* find(companion_slot slot) const {
        return place(slot).companion.load(std::memory_order_acquire);
    }

    /// Counts a use of the tree without a companion, or one that is worth `more` of them. True for
    /// exactly one caller, with the use number `uses`, at least 1: it is the one to make the
    /// companion.
    bool due(companion_slot slot, std::uint32_t uses, std::uint32_t more = 1) const {
        std::atomic<std::uint32_t>& count = place(slot).uses;
        if (count.load(std::memory_order_relaxed) >= uses)
            return false;
        const std::uint32_t before = count.fetch_add(more, std::memory_order_relaxed);
        return before < uses && before + more >= uses;
    }

    /// Shows a finished companion to all threads; it now belongs to the tree. One for a slot.
    void publish(companion_slot slot, bih_companion* made) const {
        place(slot).companion.store(made, std::memory_order_release);
    }

    /// Frees all companions and begins to count anew.
    void drop() {
        for (slot_place& place : places_) {
            if (bih_companion* const gone = place.companion.exchange(nullptr))
                gone->destroy(gone);
            place.uses = 0;
        }
    }

  private:
    struct slot_place {
        std::atomic<bih_companion*> companion{nullptr};
        std::atomic<std::uint32_t> uses{0}; ///< stays once it has reached what was asked for
    };

    slot_place& place(companion_slot slot) const { return places_[static_cast<std::size_t>(slot)]; }

    mutable slot_place places_[static_cast<std::size_t>(companion_slot::count)];
};

} // namespace morva
