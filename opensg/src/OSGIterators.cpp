#include "OpenSG/OSGLineIterator.h"
#include "OpenSG/OSGPrimitiveIterator.h"
#include "OpenSG/OSGTriangleIterator.h"

OSG_BEGIN_NAMESPACE

/// To the element of this number; to the end if there is none.
template <class Iterator> static void seekFromBegin(Iterator& it, Int32 index) {
    it.setToBegin();
    while (!it.isAtEnd() && index-- > 0)
        ++it;
}

void PrimitiveIterator::setGeo(const NodePtr& node) {
    setGeo(node != NullFC ? GeometryPtr::dcast(node->getCore()) : GeometryPtr());
}

void PrimitiveIterator::setGeo(const GeometryPtr& geometry) {
    _geometry = geometry;
    setToBegin();
}

void PrimitiveIterator::setToBegin() {
    _primitive = _primitives = _firstVertex = 0;
    if (_geometry == NullFC)
        return;
    const Geometry& geometry = *_geometry;
    _types = GeoNumbers::of(geometry.getTypes());
    _lengths = GeoNumbers::of(geometry.getLengths());
    _indices = GeoNumbers::of(geometry.getIndices());
    const UInt32 mappings = geometry.getMFIndexMapping()->getSize();
    _stride = osgMax(mappings, 1u);
    _vertices = _indices.bytes != 0                 ? _indices.size / _stride
                : geometry.getPositions() != NullFC ? geometry.getPositions()->getSize()
                                                    : 0;
    _primitives = _lengths.bytes != 0 ? osgMin(_types.size, _lengths.size) : _types.size;

    for (UInt32 property = 0; property < 12; ++property) {
        const UInt16 bit = static_cast<UInt16>(1u << property);
        if (geometry.getProperty(bit) == nullptr)
            _offsets[property] = Absent;
        else if (_indices.bytes == 0)
            _offsets[property] = Direct;
        else if (mappings == 0)
            _offsets[property] = 0;
        else if (geometry.calcMappingIndex(bit) < 0)
            _offsets[property] = Unmapped;
        else
            _offsets[property] = geometry.calcMappingIndex(bit);
    }
    readPrimitive();
}

void PrimitiveIterator::readPrimitive() {
    if (isAtEnd())
        return;
    _type = _types[_primitive];
    _claimed = _lengths.bytes != 0 ? _lengths[_primitive] : _vertices;
    // Lengths missing: every primitive takes all there is, from the start.
    if (_lengths.bytes == 0)
        _firstVertex = 0;
    _length = osgMin(_claimed, verticesFromHere());
}

void PrimitiveIterator::operator++() {
    if (isAtEnd())
        return;
    // Beyond the data nothing follows; the sum must not wrap back into it.
    _firstVertex = _claimed > 0xFFFFFFFFu - _firstVertex ? 0xFFFFFFFFu : _firstVertex + _claimed;
    ++_primitive;
    readPrimitive();
}

void PrimitiveIterator::seek(Int32 index) { seekFromBegin(*this, index); }

void TriangleIterator::setToBegin() {
    PrimitiveIterator::setToBegin();
    _triangle = 0;
    if (!isAtEnd() && !startPrimitive())
        nextPrimitive();
}

void TriangleIterator::seek(Int32 index) { seekFromBegin(*this, index); }

void TriangleIterator::nextPrimitive() {
    do {
        PrimitiveIterator::operator++();
    } while (!isAtEnd() && !startPrimitive());
}

bool TriangleIterator::startPrimitive() {
    if (getType() < GL_TRIANGLES || getType() > GL_POLYGON || getLength() < 3)
        return false;
    _next = 0;
    _secondHalf = false;
    return startTriangle();
}

/// Of all types but lone triangles.
bool TriangleIterator::nextInPrimitive() {
    if (getType() == GL_TRIANGLE_STRIP || getType() == GL_QUAD_STRIP)
        return nextInStrip();
    if (getType() == GL_QUADS) {
        _secondHalf = !_secondHalf;
        if (!_secondHalf)
            return startTriangle();
    }
    if (_next >= _length)
        return false;
    _corner[1] = _corner[2];
    _corner[2] = _next++;
    return true;
}

bool TriangleIterator::nextInStrip() {
    while (_next < _length) {
        _corner[_next % 2 == 1 ? 0 : 1] = _corner[2];
        _corner[2] = _next++;
        const Int32 a = getPositionIndex(0), b = getPositionIndex(1), c = getPositionIndex(2);
        if (a != b && b != c && a != c)
            return true;
    }
    return false;
}

void LineIterator::setToBegin() {
    PrimitiveIterator::setToBegin();
    _line = 0;
    if (!isAtEnd() && !startPrimitive())
        nextPrimitive();
}

void LineIterator::seek(Int32 index) { seekFromBegin(*this, index); }

void LineIterator::nextPrimitive() {
    do {
        PrimitiveIterator::operator++();
    } while (!isAtEnd() && !startPrimitive());
}

bool LineIterator::startPrimitive() {
    if (getType() < GL_LINES || getType() > GL_LINE_STRIP || getLength() < 2)
        return false;
    _end[0] = 0;
    _end[1] = 1;
    _next = 2;
    return true;
}

bool LineIterator::nextInPrimitive() {
    if (getType() == GL_LINES) {
        if (_next >= _length || verticesFromHere() - _next < 2)
            return false;
        _end[0] = _next;
        _end[1] = _next + 1;
        _next += 2;
        return true;
    }
    if (_next < _length) {
        _end[0] = _end[1];
        _end[1] = _next++;
        return true;
    }
    if (getType() != GL_LINE_LOOP || _end[1] == 0)
        return false;
    _end[0] = _end[1];
    _end[1] = 0;
    return true;
}

OSG_END_NAMESPACE
