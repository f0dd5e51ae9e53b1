#include <morva/geosets/morva_osg_line_geoset_tools.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_validate.h>
#include <morva/geosets/morva_osg_axis_arrays.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_rules.h>
#include <morva/geosets/morva_osg_stage_errors.h>
#include <morva/trees/geoset_access.h>

namespace morva::osg {

namespace {

void copyEntries(float* const* from, const axis_arrays& to, std::uint64_t entries) {
    for (int axis = 0; axis < 3; ++axis)
        std::copy_n(from[axis], entries, to[axis]);
}

/// True if two points differ by at most 1e-6 in each coordinate.
bool coincide(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b) {
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        if (!(a[axis] - b[axis] <= 1e-6F && b[axis] - a[axis] <= 1e-6F))
            return false;
    }
    return true;
}

/// True if a property exists and has rows for both ends of a line.
template <typename Ptr> bool holdsLine(const Ptr& property, unsigned int element) {
    return property != ::osg::NullFC && property->size() / 2 > element;
}

template <typename Ptr> void copyRow(const Ptr& property, unsigned int from, unsigned int to) {
    if (property == ::osg::NullFC || std::max(from, to) >= property->size())
        return;
    property->setValue(property->getValue(from), to);
}

::osg::Pnt3f toFloat(const ::osg::Pnt3d& p) {
    return ::osg::Pnt3f(static_cast<float>(p[0]), static_cast<float>(p[1]),
                        static_cast<float>(p[2]));
}

/// Where the line from `a` to `b` meets the plane. False, after one line on standard output, very
/// near an end or where the point is not finite.
bool cutPoint(const ::osg::Pnt3d& a, const ::osg::Pnt3d& b, double plane, ::osg::UInt32 axis,
              ::osg::Pnt3d& cut) {
    const double f = (a[axis] - plane) / (a[axis] - b[axis]);
    if (1e-5 >= f || f >= 0.99999) { // false for a NaN: the cut point tells
        char digits[40];
        std::snprintf(digits, sizeof digits, "%g", f);
        say({"Morva::osg::osg_line_geoset::calcSplitPoint: Factor Error( ", digits, " )."});
        return false;
    }
    for (::osg::UInt32 i = 0; i < 3; ++i) {
        cut[i] = (b[i] * f - a[i] * f) + a[i];
        if (std::isfinite(cut[i]))
            continue;
        say({"Morva::osg::osg_line_geoset::calcSplitPoint: Math-Error occured. "
             "Splitpoint is NaN."});
        return false;
    }
    cut[axis] = plane;
    return true;
}

} // namespace

osg_line_geoset::osg_line_geoset() : geometry(::osg::Geometry::create()) {}

osg_line_geoset::~osg_line_geoset() {
    freeAxisArrays(axis_min);
    freeAxisArrays(axis_max);
}

void osg_line_geoset::clear() {
    freeAxisArrays(axis_min);
    freeAxisArrays(axis_max);
    clearElements(*this);
    bbox = float_box();
}

bool osg_line_geoset::resizeFieldContainers(unsigned int lines) {
    geoset_fields fields = fieldsOf(*this);
    return resizeOrMark(fields, corners, std::size_t(corners) * lines, resize_failed);
}

void osg_line_geoset::setWishedSize(unsigned long lines) {
    vertex_capacity = lines;
    geoset_fields fields = fieldsOf(*this);
    resizeOrMark(fields, corners, std::size_t(corners) * lines, resize_failed);
}

void osg_line_geoset::setup() {
    if (!beginSetup(*this))
        return;
    try {
        const std::uint64_t lines = resizeForSetup(*this);
        axis_arrays low(lines);
        axis_arrays high(lines);
        low.changePlaces(axis_min);
        high.changePlaces(axis_max);
        size = wished_size = lines;
        if (size > 0)
            calc_axis_min_max(0, size - 1);
        calc_bounding_box();
        settleLength(geometry.get(), corners * size);
        validate("setup", [this] { return broken_rule_of(*this); });
        return;
    } catch (...) {
        printSetupError();
    }
    size = wished_size = 0;
}

void osg_line_geoset::calc_bounding_box() { bbox = boxOfVertices(geometry.get(), corners * size); }

/// Refreshes the axis arrays of the lines `first` to `last`, both included.
void osg_line_geoset::calc_axis_min_max(std::uint64_t first, std::uint64_t last) {
    const property_block<::osg::Pnt3f> block = readBlock(geometry->getPositions());
    const auto positions = block.view();
    for (std::uint64_t i = first; i <= last; ++i) {
        const ::osg::Pnt3f& a = positions[2 * i];
        const ::osg::Pnt3f& b = positions[2 * i + 1];
        for (int axis = 0; axis < 3; ++axis) {
            const auto k = static_cast<::osg::UInt32>(axis);
            axis_min[axis][i] = b[k] < a[k] ? b[k] : a[k];
            axis_max[axis][i] = b[k] > a[k] ? b[k] : a[k];
        }
    }
}

::osg::Color3f osg_line_geoset::interpolate_color(unsigned int element, const ::osg::Pnt3f& point,
                                                  unsigned int set) const {
    const ::osg::GeometryPtr core = geometry.get();
    if (core == ::osg::NullFC)
        return ::osg::Color3f();
    const ::osg::GeoColorsPtr colors = set == 1 ? core->getSecondaryColors() : core->getColors();
    const ::osg::GeoPositionsPtr positions = core->getPositions();
    if (!holdsLine(colors, element) || !holdsLine(positions, element))
        return ::osg::Color3f();
    const ::osg::Pnt3f a = positions->getValue(2 * element);
    const ::osg::Pnt3f b = positions->getValue(2 * element + 1);
    ::osg::Color3f color = colors->getValue(2 * element);
    if (coincide(point, a))
        return color;
    const ::osg::Color3f end = colors->getValue(2 * element + 1);
    if (coincide(point, b))
        return end;

    // From x alone, whatever the axis of a cut: stored colours depend on it.
    const float f = (point[0] - a[0]) / (b[0] - a[0]);
    for (::osg::UInt32 i = 0; i < 3; ++i)
        color[i] = color[i] * (1.0F - f) + end[i] * f;
    return color;
}

bool osg_line_geoset::add_GeoFields(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1,
                                    unsigned long source, unsigned int target) {
    try {
        const ::osg::GeometryPtr core = geometry.get();
        if (core == ::osg::NullFC)
            return false;
        const auto from = static_cast<unsigned int>(source);
        const ::osg::Pnt3f points[2] = {p0, p1};
        for (unsigned int k = 0; k < corners; ++k) {
            const unsigned int row = 2 * target + k;
            if (holdsLine(core->getPositions(), target)) {
                core->getPositions()->setValue(points[k], row);
            }
            copyRow(core->getNormals(), 2 * from + k, row);
            if (holdsLine(core->getColors(), target)) {
                core->getColors()->setValue(interpolate_color(from, points[k]), row);
            }
            if (holdsLine(core->getSecondaryColors(), target)) {
                core->getSecondaryColors()->setValue(interpolate_color(from, points[k], 1), row);
            }
            copyRow(core->getTexCoords7(), 2 * from + k, row);
        }
        return true;
    } catch (const std::bad_alloc&) {
        say_error({"Bad Alloc in Geoset while creating new Line."});
    }
    return false;
}

void osg_line_geoset::ModifyObject(const ::osg::Pnt3f& p0, const ::osg::Pnt3f& p1,
                                   unsigned int element) {
    const ::osg::GeometryPtr core = geometry.get();
    const unsigned int row = 2 * element;
    if (core == ::osg::NullFC || !holdsLine(core->getPositions(), element))
        return;
    // Interpolation reads the old positions, and the old values of both ends.
    for (unsigned int set = 0; set < 2; ++set) {
        const ::osg::GeoColorsPtr colors =
            set == 1 ? core->getSecondaryColors() : core->getColors();
        if (!holdsLine(colors, element))
            continue;
        const ::osg::Color3f first = interpolate_color(element, p0, set);
        const ::osg::Color3f second = interpolate_color(element, p1, set);
        colors->setValue(first, row);
        colors->setValue(second, row + 1);
    }
    core->getPositions()->setValue(p0, row);
    core->getPositions()->setValue(p1, row + 1);
    if (element < size)
        calc_axis_min_max(element, element);
}

/// Room for one line more in arrays and fields. False, after one line on standard error, if there
/// is none; the geoset is then as before.
bool osg_line_geoset::growForOneMore() {
    if (wished_size > size + 1)
        return true;
    const std::uint64_t old_wish = wished_size;
    try {
        wished_size = size > 999
                          ? static_cast<std::uint64_t>(static_cast<double>(wished_size) * 1.3)
                          : wished_size * 2;
        axis_arrays low(wished_size);
        axis_arrays high(wished_size);
        if (!resizeFieldContainers(static_cast<unsigned int>(wished_size))) {
            throw "FieldContainers are not enlargeable";
        }
        copyEntries(axis_min, low, size);
        copyEntries(axis_max, high, size);
        low.changePlaces(axis_min);
        high.changePlaces(axis_max);
        return true;
    } catch (...) {
        printAddObjectError();
    }
    wished_size = old_wish;
    return false;
}

void osg_line_geoset::splitElement(unsigned long element, double plane, int axis, int& pieces,
                                   unsigned long& first_piece) {
    pieces = 0;
    first_piece = size;
    if (resize_failed || element >= size || axis < 0 || axis > 2)
        return;

    const auto old = static_cast<unsigned int>(element);
    const ::osg::GeometryPtr core = geometry.get();
    const ::osg::Pnt3f a = core->getPositions()->getValue(2 * old);
    const ::osg::Pnt3f b = core->getPositions()->getValue(2 * old + 1);
    ::osg::Pnt3d cut;
    if (!cutPoint(::osg::Pnt3d(a[0], a[1], a[2]), ::osg::Pnt3d(b[0], b[1], b[2]), plane,
                  static_cast<::osg::UInt32>(axis), cut)) {
        return;
    }
    if (!growForOneMore())
        return;
    const ::osg::Pnt3f middle = toFloat(cut);
    const auto added = static_cast<unsigned int>(size);
    if (!add_GeoFields(a, middle, element, added))
        return;

    const ::osg::GeoPLengthsPtr lengths = core->getLengths();
    if (lengths != ::osg::NullFC && lengths->size() > 0) {
        lengths->setValue(lengths->getValue(0) + corners, 0);
    }
    size += 1;
    vertex_count = corners * size; // so that another setup() does not lose the piece
    calc_axis_min_max(added, added);
    ModifyObject(middle, b, old);
    pieces = 1;
}

} // namespace morva::osg
