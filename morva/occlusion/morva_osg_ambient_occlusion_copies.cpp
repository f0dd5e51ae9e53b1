#include <morva/occlusion/morva_osg_ambient_occlusion_copies.h>

#include <cmath>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>

namespace morva::osg {

namespace {

constexpr vertex_property read_properties[] = {
    vertex_property::position,  vertex_property::normal,     vertex_property::color,
    vertex_property::texcoords, vertex_property::texcoords6, vertex_property::texcoords7};

constexpr caught_texts copy_failure{
    "bad_alloc caught in Extract geometry in copyPrimitivesWithAOThreshold(): t: ",
    "Exception in Geoset.AddObject(): ", "Error occured in Geoset.AddObject()."};

/// Whether elements stay: those above a threshold, and some of the equal ones.
struct keep_rule {
    double threshold;
    unsigned int& equals_left;

    bool keeps(double value) const {
        if (equals_left != 0) {
            if (std::isnan(value) || std::isnan(threshold))
                return false;
            if (value == threshold) {
                --equals_left;
                return true;
            }
        }
        return value > threshold;
    }
};

/// The elements that stay, in order.
std::vector<hull_element> keptElements(const geometry_columns& columns, element_values::source from,
                                       const keep_rule& rule) {
    const element_values values(columns, from);
    std::vector<hull_element> kept;
    forEachElement(columns, [&](const hull_element& element) {
        if (from == element_values::source::slot6) {
            if (rule.keeps(values.of(element)))
                kept.push_back(element);
        } else if (element.type == GL_TRIANGLES && rule.keeps(values.ofTriangleColors(element))) {
            kept.push_back(element);
        }
    });
    return kept;
}

/// A new property with the value of each corner.
template <typename Form, typename Value>
typename Form::PtrType valuesOf(const property_column& column,
                                const std::vector<hull_element>& elements) {
    fresh<typename Form::PtrType> made(Form::create());
    auto& rows = made->editField();
    for (const hull_element& element : elements) {
        for (unsigned k = 0; k < element.count; ++k) {
            const Value value = column.valueOf<Value>(element.corners[k]);
            if constexpr (std::is_same_v<Form, ::osg::GeoTexCoords1f>)
                rows.push_back(value[0]);
            else
                rows.push_back(value);
        }
    }
    return made.release();
}

/// A core of the elements, with vertices of their own.
::osg::GeometryPtr coreOfElements(const ::osg::NodePtr& node, const geometry_columns& columns,
                                  const std::vector<hull_element>& elements, bool with_colors) {
    fresh<::osg::GeometryPtr> made(createGeo());
    const ::osg::GeometryPtr core = made.get();
    core->setMaterial(getMaterial(node));
    core->getTypes()->clear();
    for (const hull_element& element : elements) {
        core->getTypes()->addValue(element.type);
        core->getLengths()->addValue(element.count);
    }
    const auto has = [&](vertex_property which) { return columns[which].present; };
    core->setPositions(valuesOf<::osg::GeoPositions3f, ::osg::Pnt3f>(
        columns[vertex_property::position], elements));
    core->setNormals(
        valuesOf<::osg::GeoNormals3f, ::osg::Vec3f>(columns[vertex_property::normal], elements));
    if (with_colors && has(vertex_property::color))
        core->setColors(valuesOf<::osg::GeoColors3f, ::osg::Color3f>(
            columns[vertex_property::color], elements));
    if (has(vertex_property::texcoords))
        core->setTexCoords(valuesOf<::osg::GeoTexCoords2f, ::osg::Vec2f>(
            columns[vertex_property::texcoords], elements));
    if (has(vertex_property::texcoords7))
        core->setTexCoords7(valuesOf<::osg::GeoTexCoords1f, ::osg::Vec2f>(
            columns[vertex_property::texcoords7], elements));
    ::osg::createSingleIndex(core);
    reportWhole(core);
    return made.release();
}

::osg::GeometryPtr copyElements(const ::osg::NodePtr& node, element_values::source from,
                                const keep_rule& rule) {
    const ::osg::GeometryPtr source = geometryOf(node);
    if (source == ::osg::NullFC)
        return ::osg::NullFC;
    try {
        const bool by_slot6 = from == element_values::source::slot6;
        const geometry_columns columns(source, read_properties);
        if (!columns[by_slot6 ? vertex_property::texcoords6 : vertex_property::color].present)
            return ::osg::NullFC;
        return coreOfElements(node, columns, keptElements(columns, from, rule), by_slot6);
    } catch (...) {
        print_caught(copy_failure);
    }
    return ::osg::NullFC;
}

} // namespace

element_values::element_values(const geometry_columns& read, source from)
    : columns_(read), source_(from) {}

double element_values::ofCorner(std::size_t corner) const {
    if (source_ == source::slot6) {
        const property_column& values = columns_[vertex_property::texcoords6];
        const std::size_t row = columns_.row(corner, vertex_property::position);
        return row < values.rows ? static_cast<double>(values.at(row)[0]) : 0.0;
    }
    const auto color = columns_[vertex_property::color].valueOf<::osg::Color3f>(corner);
    return static_cast<double>((color[0] + color[1] + color[2]) / 3.0F);
}

double element_values::of(const hull_element& element) const {
    double sum = 0.0;
    for (unsigned k = 0; k < element.count; ++k)
        sum += ofCorner(element.corners[k]);
    return sum / element.count;
}

double element_values::ofTriangleColors(const hull_element& element) const {
    double sum = 0.0;
    for (const std::size_t corner : element.corners) {
        const auto color = columns_[vertex_property::color].valueOf<::osg::Color3f>(corner);
        for (unsigned k = 0; k < 3; ++k)
            sum += static_cast<double>(color[k]);
    }
    return sum / 9.0;
}

::osg::GeometryPtr copyPrimitivesWithAOThreshold(::osg::NodePtr node, double threshold,
                                                 unsigned int& equalsLeft) {
    return copyElements(node, element_values::source::slot6, {threshold, equalsLeft});
}

::osg::GeometryPtr copyPrimitivesWithAOThresholdInColors(::osg::NodePtr node, double threshold,
                                                         unsigned int& equalsLeft) {
    return copyElements(node, element_values::source::colors, {threshold, equalsLeft});
}

} // namespace morva::osg
