#include "OpenSG/OSGRemoteAspect.h"

#include <map>
#include <mutex>

OSG_BEGIN_NAMESPACE

namespace {

struct filter_table {
    std::mutex mutex;
    std::map<UInt32, BitVector> masks;
};

filter_table& filters() {
    static filter_table& table = *new filter_table;
    return table;
}

} // namespace

void RemoteAspect::addFieldFilter(UInt32 typeId, BitVector mask) {
    const std::lock_guard<std::mutex> guard(filters().mutex);
    filters().masks[typeId] |= mask;
}

void RemoteAspect::subFieldFilter(UInt32 typeId, BitVector mask) {
    const std::lock_guard<std::mutex> guard(filters().mutex);
    filters().masks[typeId] &= ~mask;
}

BitVector RemoteAspect::getFieldFilter(UInt32 typeId) {
    const std::lock_guard<std::mutex> guard(filters().mutex);
    const auto found = filters().masks.find(typeId);
    return found == filters().masks.end() ? 0 : found->second;
}

OSG_END_NAMESPACE
