#include "simplify_scene.h"

#include <algorithm>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_property_blocks.h>

#include "geometry_view.h"

namespace morva::host {

namespace {

void copyName(const ::osg::AttachmentContainerPtr& from, const ::osg::AttachmentContainerPtr& to) {
    if (const ::osg::Char8* name = ::osg::getName(from))
        ::osg::setName(to, name);
}

/// A core with the properties of another one, and its material and name, without primitives.
::osg::GeometryPtr sharingProperties(const ::osg::GeometryPtr& from) {
    const ::osg::GeometryPtr to = ::osg::Geometry::create();
    to->setPositions(from->getPositions());
    to->setNormals(from->getNormals());
    to->setColors(from->getColors());
    to->setSecondaryColors(from->getSecondaryColors());
    to->setTexCoords(from->getTexCoords());
    to->setTexCoords1(from->getTexCoords1());
    to->setTexCoords2(from->getTexCoords2());
    to->setTexCoords3(from->getTexCoords3());
    to->setTexCoords4(from->getTexCoords4());
    to->setTexCoords5(from->getTexCoords5());
    to->setTexCoords6(from->getTexCoords6());
    to->setTexCoords7(from->getTexCoords7());
    to->setMaterial(from->getMaterial());
    for (const ::osg::UInt16 bits : from->getIndexMapping())
        to->editMFIndexMapping()->push_back(bits);
    copyName(from, to);
    return to;
}

/// What is no triangle, in a core of its own; null if there is none of it.
::osg::RefPtr<::osg::GeometryPtr> restOf(const ::osg::GeometryPtr& source) {
    const geometry_view view(source);
    std::vector<primitive_run> runs = view.runs;
    const auto fills = [](const primitive_run& run) { return run.type > GL_LINE_STRIP; };
    runs.erase(std::remove_if(runs.begin(), runs.end(), fills), runs.end());
    if (runs.empty())
        return {};
    const ::osg::RefPtr<::osg::GeometryPtr> rest(sharingProperties(source));
    rest->setTypes(::osg::GeoPTypesUI8::create());
    rest->setLengths(::osg::GeoPLengthsUI32::create());
    rest->setIndices(::osg::GeoIndicesUI32::create());
    const std::size_t stride = view.columns.stride();
    for (const primitive_run& run : runs) {
        rest->getTypes()->addValue(run.type);
        rest->getLengths()->addValue(static_cast<::osg::UInt32>(run.length));
        for (std::size_t i = run.first * stride; i < (run.first + run.length) * stride; ++i)
            rest->getIndices()->addValue(view.columns.indexed() ? view.columns.indices()[i]
                                                                : static_cast<::osg::UInt32>(i));
    }
    return rest;
}

/// Corners of triangles with next to no area have normals without a length: nobody sees them, but
/// readers complain.
void giveLengthToNormals(const ::osg::GeometryPtr& core) {
    const auto normals = ::osg::GeoNormals3fPtr::dcast(core->getNormals());
    for (::osg::Vec3f& normal : morva::osg::editSpan(normals)) {
        if (!(normal.squareLength() > 0.5F))
            normal.setValues(0, 0, 1);
    }
}

/// The core of a level that differs from the source's.
::osg::GeometryPtr newCore(const simplified_part& part, std::size_t steps) {
    const ::osg::GeometryPtr core = morva::osg::simplifiedCore(part.run, steps);
    giveLengthToNormals(core);
    return core;
}

void addRests(simplified_part& part) {
    const ::osg::RefPtr<::osg::GeometryPtr> core = restOf(part.core.get());
    if (core == ::osg::NullFC)
        return;
    for (const ::osg::NodePtr& node : part.nodes) {
        const ::osg::NodePtr child = ::osg::Node::create();
        part.rests.emplace_back(child);
        child->setCore(core.get());
        copyName(node, child);
        node->addChild(child);
    }
}

void dropRests(simplified_part& part) {
    for (const auto& rest : part.rests)
        rest->getParent()->subChild(rest.get());
    part.rests.clear();
}

} // namespace

void showLevel(std::vector<simplified_part>& parts, std::size_t level) {
    for (simplified_part& part : parts) {
        part_stop& stop = part.stops[level];
        stop.triangles = morva::osg::simplifiedTriangles(part.run, stop.steps).of.size();
        stop.untouched = stop.steps == 0 && stop.triangles == part.triangles;
        dropRests(part);
        const ::osg::RefPtr<::osg::GeometryPtr> core(stop.untouched ? part.core.get()
                                                                    : newCore(part, stop.steps));
        for (const ::osg::NodePtr& node : part.nodes)
            node->setCore(core.get());
        if (!stop.untouched)
            addRests(part);
    }
}

} // namespace morva::host
