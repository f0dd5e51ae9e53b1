#include <morva/geosets/morva_osg_split_points.h>

#include <algorithm>
#include <cstring>

namespace morva::osg {

namespace {

constexpr std::size_t first_slots = 64;

std::uint64_t mixed(std::uint64_t bits) {
    bits ^= bits >> 31;
    bits *= 0x9e3779b97f4a7c15ULL;
    return bits ^ (bits >> 29);
}

std::uint64_t hashOf(const ::osg::Pnt3d& point) {
    std::uint64_t hash = 0;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        const double value = point[axis] + 0.0; // -0.0 and 0.0 are one key
        std::uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        hash = mixed(hash * 3 + bits);
    }
    return hash;
}

/// The same for both directions of an edge.
std::uint64_t hashOf(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q) {
    return mixed(hashOf(p) + hashOf(q));
}

bool same(const ::osg::Pnt3d& a, const ::osg::Pnt3d& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

} // namespace

const ::osg::Pnt3d* split_points::find(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q) const {
    if (entries.empty())
        return nullptr;
    const std::uint64_t hash = hashOf(p, q);
    const std::size_t mask = slots.size() - 1;
    for (std::size_t slot = hash & mask; slots[slot] != 0; slot = (slot + 1) & mask) {
        const entry& e = entries[slots[slot] - 1];
        if (e.hash != hash)
            continue;
        if ((same(e.p, p) && same(e.q, q)) || (same(e.p, q) && same(e.q, p)))
            return &e.cut;
    }
    return nullptr;
}

void split_points::store(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, const ::osg::Pnt3d& cut) {
    const entry added{p, q, cut, hashOf(p, q)};
    if (2 * (entries.size() + 1) >= slots.size()) {
        std::vector<std::uint32_t> wider(std::max(first_slots, 2 * slots.size()), 0);
        entries.push_back(added);
        slots.swap(wider);
        for (std::size_t i = 0; i < entries.size(); ++i)
            place(i);
        return;
    }
    entries.push_back(added);
    place(entries.size() - 1);
}

/// Enters the number of an entry at the first free place from its hash on.
void split_points::place(std::size_t index) {
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = entries[index].hash & mask;
    while (slots[slot] != 0)
        slot = (slot + 1) & mask;
    slots[slot] = static_cast<std::uint32_t>(index + 1);
}

void split_points::clear() {
    if (entries.size() * 8 > slots.size()) {
        std::fill(slots.begin(), slots.end(), 0U);
    } else {
        const std::size_t mask = slots.size() - 1;
        for (const entry& e : entries) {
            // What was placed behind this entry for want of room goes as well: all go.
            for (std::size_t slot = e.hash & mask; slots[slot] != 0; slot = (slot + 1) & mask)
                slots[slot] = 0;
        }
    }
    entries.clear();
}

} // namespace morva::osg
