#include "coordinate_sets.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include <morva/core/morva_osg_params.h>
#include <morva/driver/morva_osg_run_plan.h>

#include "scene_walk.h"

namespace morva::host {

namespace {

void putSet(const ::osg::GeometryPtr& core, unsigned number, const ::osg::GeoTexCoordsPtr& values) {
    beginEditCP(core);
    switch (number) {
    case 0:
        core->setTexCoords(values);
        break;
    case 1:
        core->setTexCoords1(values);
        break;
    case 2:
        core->setTexCoords2(values);
        break;
    default:
        core->setTexCoords3(values);
        break;
    }
    endEditCP(core);
}

float numberAt(const nlohmann::json& object, const char* key, std::size_t index, float otherwise) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    if (!object.is_object() || found == object.end() || !found->is_array() ||
        found->size() <= index || !(*found)[index].is_number())
        return otherwise;
    return (*found)[index].get<float>();
}

/// Cores with the material that they carry, each once.
std::vector<::osg::GeometryPtr> coresBelow(const ::osg::NodePtr& root) {
    std::set<::osg::UInt32> seen;
    std::vector<::osg::GeometryPtr> cores;
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        if (seen.insert(node->getCore().getFieldContainerId()).second)
            cores.push_back(::osg::GeometryPtr::dcast(node->getCore()));
    }
    return cores;
}

bool hasOtherTextures(const material_record* record) {
    return record != nullptr && std::any_of(record->uses.begin(), record->uses.end(),
                                            [](const texture_use& use) { return !use.is_base; });
}

} // namespace

unsigned unitOf(std::size_t set, std::size_t base_set) {
    const std::size_t unit = set == base_set ? 0 : set == 0 ? base_set : set;
    return static_cast<unsigned>(std::min<std::size_t>(unit, lost_set));
}

::osg::GeoTexCoordsPtr setOf(const ::osg::GeometryPtr& core, unsigned number) {
    return number == 0   ? core->getTexCoords()
           : number == 1 ? core->getTexCoords1()
           : number == 2 ? core->getTexCoords2()
           : number == 3 ? core->getTexCoords3()
                         : ::osg::GeoTexCoordsPtr();
}

unsigned copySet(const std::vector<::osg::GeometryPtr>& cores) {
    for (unsigned number = 1; number < lost_set; ++number) {
        const auto is_free = [&](const ::osg::GeometryPtr& core) {
            return setOf(core, number) == ::osg::NullFC;
        };
        if (!std::all_of(cores.begin(), cores.end(), is_free))
            continue;
        for (const ::osg::GeometryPtr& core : cores)
            putSet(core, number, core->getTexCoords());
        return number;
    }
    return lost_set;
}

void transformSet(const ::osg::GeometryPtr& core, const nlohmann::json& transform) {
    const auto from = ::osg::GeoTexCoords2fPtr::dcast(core->getTexCoords());
    if (from == ::osg::NullFC)
        return;
    const auto angle = transform.is_object() ? transform.find("rotation") : transform.end();
    const float turn = transform.is_object() && angle != transform.end() && angle->is_number()
                           ? angle->get<float>()
                           : 0.f;
    const float c = std::cos(turn), s = std::sin(turn);
    const float scale[] = {numberAt(transform, "scale", 0, 1.f),
                           numberAt(transform, "scale", 1, 1.f)};
    const float shift[] = {numberAt(transform, "offset", 0, 0.f),
                           numberAt(transform, "offset", 1, 0.f)};
    const ::osg::GeoTexCoords2fPtr to = ::osg::GeoTexCoords2f::create();
    beginEditCP(to);
    for (::osg::UInt32 i = 0; i < from->getSize(); ++i) {
        const ::osg::Vec2f value = from->getValue(i);
        // The format's origin is at the top.
        const float u = scale[0] * value[0], v = scale[1] * (1.f - value[1]);
        to->addValue(::osg::Vec2f(c * u + s * v + shift[0], 1.f - (c * v - s * u + shift[1])));
    }
    endEditCP(to);
    putSet(core, 0, to);
}

std::string spareCoordinates(const ::osg::NodePtr& root, const std::string& parameters,
                             material_records& records) {
    if (records.empty())
        return parameters;
    const std::vector<::osg::GeometryPtr> cores = coresBelow(root);
    std::map<material_record*, std::vector<::osg::GeometryPtr>> users;
    for (const ::osg::GeometryPtr& core : cores) {
        material_record* const record = records.edit(core->getMaterial());
        if (record != nullptr)
            users[record].push_back(core);
    }
    bool bare = false; // a material with textures, but none of the colour
    for (const auto& [record, own] : users) {
        bare = bare || (hasOtherTextures(record) &&
                        std::none_of(record->uses.begin(), record->uses.end(),
                                     [](const texture_use& use) { return use.is_base; }));
        unsigned copy = 0;
        for (texture_use& use : record->uses) {
            if (use.is_base || use.unit != 0)
                continue;
            if (copy == 0)
                copy = copySet(own);
            use.unit = copy;
        }
    }
    std::string text = parameters;
    if (!bare || morva::osg::planOf(parameters).is_automatic ||
        morva::osg::parseOptTreeParams(text).count("deleteunusedtc") != 0)
        return parameters;
    for (const ::osg::GeometryPtr& core : cores) {
        if (!imagesOf(core->getMaterial()).empty() ||
            hasOtherTextures(records.find(core->getMaterial())))
            continue;
        for (unsigned number = 0; number < lost_set; ++number) {
            if (setOf(core, number) != ::osg::NullFC)
                putSet(core, number, ::osg::GeoTexCoordsPtr());
        }
    }
    return parameters + ",deleteunusedtc(false)";
}

} // namespace morva::host
