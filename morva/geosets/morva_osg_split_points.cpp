#include <morva/geosets/morva_osg_split_points.h>

#include <algorithm>
#include <cstring>

namespace morva::osg {

namespace {

constexpr std::size_t first_places = 64;

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
    const std::size_t mask = places.size() - 1;
    for (std::size_t at = hash & mask; places[at].round == round; at = (at + 1) & mask) {
        const entry& e = entries[places[at].index];
        if (e.hash != hash)
            continue;
        if ((same(e.p, p) && same(e.q, q)) || (same(e.p, q) && same(e.q, p)))
            return &e.cut;
    }
    return nullptr;
}

void split_points::store(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, const ::osg::Pnt3d& cut) {
    const entry added{p, q, cut, hashOf(p, q)};
    if (2 * (entries.size() + 1) < places.size()) {
        entries.push_back(added);
        enter(entries.size() - 1);
        return;
    }
    std::vector<place> wider(std::max(first_places, 2 * places.size()));
    entries.push_back(added);
    places.swap(wider);
    for (std::size_t i = 0; i < entries.size(); ++i)
        enter(i);
}

/// Enters the number of an entry at the first free place from its hash on.
void split_points::enter(std::size_t index) {
    const std::size_t mask = places.size() - 1;
    std::size_t at = entries[index].hash & mask;
    while (places[at].round == round)
        at = (at + 1) & mask;
    places[at] = {round, static_cast<std::uint32_t>(index)};
}

void split_points::clear() {
    entries.clear();
    if (++round != 0)
        return;
    // After so many rounds the numbers come again.
    std::fill(places.begin(), places.end(), place());
    round = 1;
}

} // namespace morva::osg
