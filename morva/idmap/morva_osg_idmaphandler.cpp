#include <morva/idmap/morva_osg_idmaphandler.h>

#include <algorithm>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

/// How often the calling thread holds the lock from insertNodeName() of known names.
thread_local unsigned int held_by_this_thread = 0;

/// Takes a lock for one scope.
class scoped_lock {
  public:
    explicit scoped_lock(::osg::Lock* lock) : lock_(lock) { lock_->aquire(); }
    ~scoped_lock() { lock_->release(); }
    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;

  private:
    ::osg::Lock* lock_;
};

/// The distinct IDs in the first components of a coordinate set, ascending. What fits no int, NaN
/// included, names no part.
std::set<int> idsIn(const ::osg::GeoTexCoordsPtr& coordinates) {
    std::set<int> ids;
    const property_block<::osg::Vec2f> values = readBlock(coordinates);
    bool any = false;
    float last = 0.0F;
    for (const ::osg::Vec2f& value : values.view()) {
        const float id = value[0];
        if (any && id == last)
            continue; // runs of one part are long
        if (!(id > -2147483648.0F && id < 2147483648.0F))
            continue;
        ids.insert(static_cast<int>(id));
        any = true;
        last = id;
    }
    return ids;
}

/// Replaces the first mapping entry that is exactly `from` by `to`, if there is one.
void remapFirst(const ::osg::GeometryPtr& geometry, ::osg::UInt16 from, ::osg::UInt16 to) {
    ::osg::MFUInt16& mapping = *geometry->editMFIndexMapping();
    for (::osg::UInt32 i = 0; i < mapping.size(); ++i) {
        if (mapping[i] != from)
            continue;
        mapping[i] = to;
        return;
    }
}

} // namespace

idmapHandler::idmapHandler() : lock(::osg::Lock::get("MORVA_IDMAPHANDLER_LOCK")) {
    usageCursor = usage.end();
}

void idmapHandler::reset() {
    releaseHeldLock();
    const scoped_lock guard(lock);
    names.clear();
    mins.clear();
    maxs.clear();
    appearanceNames.clear();
    usage.clear();
    usageCursor = usage.end();
    appearances.clear();
    texCoordMapping.clear();
    index_of_name_.clear();
    tree.clear(); // error flags only: the text goes on over the runs of a process
    merged = settled = false;
    file = map_file::none;
    prefix.clear();
}

void idmapHandler::rebuildIndex() {
    index_of_name_.clear();
    for (std::size_t i = 0; i < names.size(); ++i) {
        index_of_name_.emplace(names[i], static_cast<int>(i)); // the first of equal names stays
    }
}

/// Position of the first entry of `names` that equals `name`, or -1.
int idmapHandler::positionOf(const std::string& name) {
    // `names` is open to everyone: an index that does not fit it any more is made anew.
    if (index_of_name_.size() != names.size())
        rebuildIndex();
    const auto found = index_of_name_.find(name);
    return found == index_of_name_.end() ? -1 : found->second;
}

int idmapHandler::insertNodeName(std::string& name, ::osg::Pnt3f& min, ::osg::Pnt3f& max,
                                 ::osg::MaterialPtr material, const std::string&) {
    const scoped_lock guard(lock);
    const int known = positionOf(name);
    if (known < 0)
        return appendName(name, min, max, material);

    const auto at = static_cast<std::size_t>(known);
    ::osg::DynamicVolume box;
    box.extendBy(mins[at]);
    box.extendBy(maxs[at]);
    box.extendBy(min);
    box.extendBy(max);
    box.getBounds(mins[at], maxs[at]);
    lock->aquire(); // once more: it stays taken until releaseHeldLock()
    ++held_by_this_thread;
    return known;
}

int idmapHandler::appendName(const std::string& name, const ::osg::Pnt3f& min,
                             const ::osg::Pnt3f& max, const ::osg::MaterialPtr& material) {
    const int id = static_cast<int>(names.size());
    try {
        auto appearance = appearances.find(material);
        if (appearance == appearances.end()) {
            const std::string fresh = "__App_" + std::to_string(appearances.size());
            appearance = appearances.emplace(material, fresh).first;
        }
        appearanceNames.push_back(appearance->second);
        mins.push_back(min);
        maxs.push_back(max);
        names.push_back(name);
        index_of_name_.emplace(name, id);
    } catch (...) {
        // The arrays keep one length if memory runs out.
        const auto length = static_cast<std::size_t>(id);
        appearanceNames.resize(std::min(appearanceNames.size(), length));
        mins.resize(std::min(mins.size(), length));
        maxs.resize(std::min(maxs.size(), length));
        names.resize(length);
        throw;
    }
    return id;
}

int idmapHandler::findNodeName(const std::string& name) {
    const scoped_lock guard(lock);
    return positionOf(name);
}

unsigned int idmapHandler::releaseHeldLock() {
    const unsigned int held = held_by_this_thread;
    while (held_by_this_thread > 0) {
        --held_by_this_thread;
        lock->release();
    }
    return held;
}

std::string idmapHandler::getNextGeometryName() {
    std::uint32_t number = 0;
    {
        const scoped_lock guard(lock);
        number = ++maxGeoCount;
    }
    return prefix + "_G_" + std::to_string(number);
}

std::string idmapHandler::getNextMergedGeometryName() {
    const scoped_lock guard(lock);
    return "MG_" + std::to_string(mergedCount++);
}

void idmapHandler::registerGeometryUsage(::osg::NodePtr node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return;

    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry == ::osg::NullFC) {
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
            registerGeometryUsage(node->getChild(i));
        }
        return;
    }
    const ::osg::Char8* name = ::osg::getName(node);
    if (name == nullptr || geometry->getTexCoords7() == ::osg::NullFC)
        return;

    const std::set<int> ids = idsIn(geometry->getTexCoords7());
    {
        const scoped_lock guard(lock);
        for (const int id : ids) {
            usageCursor = usage.emplace(id, std::set<std::string>()).first;
            usageCursor->second.insert(name);
        }
    }
    moveIdsToLowSet(node);
}

/// Hands the property of TexCoords7 to the first free one of the sets 0 to 3.
void idmapHandler::moveIdsToLowSet(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    const ::osg::GeoTexCoordsPtr ids = geometry->getTexCoords7(); // the field is reset below
    const geometry_edit edit(geometry);
    for (std::size_t unit = 0; unit < 4; ++unit) {
        const ::osg::UInt16 bit = mappingBit(textureUnit(unit));
        if (geometry->getProperty(bit) != nullptr)
            continue;
        setProperty(geometry, textureUnit(unit), ids);
        geometry->setTexCoords7(::osg::NullFC);
        remapFirst(geometry, ::osg::Geometry::MapTexCoords7, bit);
        texCoordMapping[::osg::getName(node)] = "TC" + std::to_string(unit);
        return;
    }
}

idmapHandler& getIDmapHandler() {
    static idmapHandler handler;
    return handler;
}

} // namespace morva::osg
