#include <morva/core/morva_osg.h>

#include <algorithm>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>

namespace morva::osg {

namespace {

template <typename To, typename From> void copyThree(To& to, const From& from) {
    for (unsigned int i = 0; i < 3; ++i)
        to[i] = from[i];
}

/// Adds up what `term(type, length)` gives for each primitive.
template <typename Term>
unsigned int sumOverPrimitives(const ::osg::GeometryPtr& geometry, Term term) {
    if (geometry == ::osg::NullFC || geometry->getTypes() == ::osg::NullFC ||
        geometry->getLengths() == ::osg::NullFC)
        return 0;
    const ::osg::GeoPTypesPtr types = geometry->getTypes();
    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    const ::osg::UInt32 count = std::min(types->size(), lengths->size());
    unsigned int sum = 0;
    for (::osg::UInt32 i = 0; i < count; ++i)
        sum += term(types->getValue(i), lengths->getValue(i));
    return sum;
}

unsigned int trianglesOf(unsigned int type, unsigned int length) {
    switch (type) {
    case 4:
        return length / 3;
    case 5:
    case 6:
    case 9:
        return length - 2;
    case 7:
        return length / 2;
    default:
        return 0;
    }
}

unsigned int linesOf(unsigned int type, unsigned int length) {
    switch (type) {
    case 1:
        return length / 2;
    case 2:
        return length;
    case 3:
        return length - 1;
    default:
        return 0;
    }
}

unsigned int pointsOf(unsigned int type, unsigned int length) { return type == 1 ? length : 0; }

unsigned int primitivesOf(unsigned int type, unsigned int length) {
    return type == 0 ? length : type == 1 ? length / 2 : trianglesOf(type, length);
}

/// Class bit of a primitive type: points 1, lines 2, triangles 4, none 0.
unsigned int classBit(unsigned int type) {
    if (type == 0)
        return 1;
    if (type == 1)
        return 2;
    return (type >= 4 && type <= 7) || type == 9 ? 4 : 0;
}

} // namespace

void set(math::vector<float, 3>& to, const ::osg::Vec3f& from) { copyThree(to, from); }
void set(math::vector<float, 3>& to, const ::osg::Pnt3f& from) { copyThree(to, from); }
void set(::osg::Vec3f& to, const math::vector<float, 3>& from) { copyThree(to, from); }
void set(::osg::Pnt3f& to, const math::vector<float, 3>& from) { copyThree(to, from); }

void set(math::transformation_matrix<float>& to, const ::osg::Matrix& from) {
    for (unsigned int column = 0; column < 4; ++column) {
        for (unsigned int row = 0; row < 4; ++row)
            to[column * 4 + row] = from[column][row];
    }
}

unsigned int& num_attachments() {
    static unsigned int count = 0;
    return count;
}
unsigned int& num_colltests() {
    static unsigned int count = 0;
    return count;
}
unsigned int& num_picktests() {
    static unsigned int count = 0;
    return count;
}

unsigned int getNumberOfTriangles(::osg::GeometryPtr geometry) {
    return sumOverPrimitives(geometry, trianglesOf);
}
unsigned int getNumberOfLines(::osg::GeometryPtr geometry) {
    return sumOverPrimitives(geometry, linesOf);
}
unsigned int getNumberOfPoints(::osg::GeometryPtr geometry) {
    return sumOverPrimitives(geometry, pointsOf);
}

unsigned int getNumberOfPrimitives(const ::osg::NodePtr& node) {
    return sumOverPrimitives(geometryOf(node), primitivesOf);
}
unsigned int getNumberOfPrimitives(std::vector<::osg::NodePtr> nodes) {
    unsigned int sum = 0;
    for (const ::osg::NodePtr& node : nodes)
        sum += getNumberOfPrimitives(node);
    return sum;
}

unsigned int getNumberOfPrimitiveTypes(const ::osg::NodePtr& node) {
    unsigned int classes = 0;
    sumOverPrimitives(geometryOf(node), [&classes](unsigned int type, unsigned int) {
        return classes |= classBit(type);
    });
    return (classes & 1) + (classes >> 1 & 1) + (classes >> 2 & 1);
}

unsigned int getNumberOfTriangles(const ::osg::NodePtr& node) {
    return getNumberOfTriangles(geometryOf(node));
}
unsigned int getNumberOfLines(const ::osg::NodePtr& node) {
    return getNumberOfLines(geometryOf(node));
}
unsigned int getNumberOfPoints(const ::osg::NodePtr& node) {
    return getNumberOfPoints(geometryOf(node));
}

} // namespace morva::osg
