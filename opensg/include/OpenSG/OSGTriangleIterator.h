#pragma once

// Walks the triangles of a geometry, over all primitive types that have some:
//
//     triangles     0 1 2, 3 4 5, ...
//     strips        0 1 2, 2 1 3, 2 3 4, 4 3 5, ...   quad strips alike
//     fans          0 1 2, 0 2 3, ...                 polygons alike
//     quads         0 1 2, 0 2 3, 4 5 6, 4 6 7, ...
//
// In strips, from the second triangle on, one with two equal position indices is passed over and
// not counted. A rest that does not fill a triangle (a quad) reads on behind its primitive, as far
// as the geometry has vertices; beyond them it is left out.

#include "OSGPrimitiveIterator.h"

OSG_BEGIN_NAMESPACE

class OSG_SYSTEMLIB_DLLMAPPING TriangleIterator : public PrimitiveIterator {
  public:
    TriangleIterator() = default;
    /// Not positioned; see Geometry::beginTriangles().
    TriangleIterator(const GeometryPtr& geometry) : PrimitiveIterator(geometry) {}
    TriangleIterator(const NodePtr& node) : PrimitiveIterator(node) {}

    void setToBegin();
    void setToEnd() { PrimitiveIterator::setToEnd(); }
    void operator++() {
        ++_triangle;
        if (!(getType() == GL_TRIANGLES ? startTriangle() : nextInPrimitive()))
            nextPrimitive();
    }
    void seek(Int32 index);

    /// Number of the triangle among those delivered, from 0.
    Int32 getIndex() const { return _triangle; }
    Int32 getIndexIndex(Int32 corner) const {
        return PrimitiveIterator::getIndexIndex(vertexOf(corner));
    }

#define OSG_ITERATOR_VALUE(VALUE, PROPERTY, INDEX, TYPE, SLOT)                                     \
    Int32 INDEX(Int32 corner) const { return indexOf(SLOT, _corner[corner]); }                     \
    TYPE VALUE(Int32 corner) const { return valueOf<TYPE>(_geometry->PROPERTY(), INDEX(corner)); }
    OSG_ITERATOR_PROPERTIES
#undef OSG_ITERATOR_VALUE

    bool operator==(const TriangleIterator& other) const {
        return _geometry == other._geometry &&
               (isAtEnd() ? other.isAtEnd() : !other.isAtEnd() && _triangle == other._triangle);
    }
    bool operator!=(const TriangleIterator& other) const { return !(*this == other); }
    bool operator<(const TriangleIterator& other) const {
        return _geometry < other._geometry || (_geometry == other._geometry && !isAtEnd() &&
                                               (other.isAtEnd() || _triangle < other._triangle));
    }

  private:
    Int32 vertexOf(Int32 corner) const { return static_cast<Int32>(_corner[corner]); }
    /// The next three vertices, if the primitive has a further one and the geometry all three.
    bool startTriangle() {
        if (_next >= _length || verticesFromHere() - _next < 3)
            return false;
        _corner[0] = _next;
        _corner[1] = _next + 1;
        _corner[2] = _next + 2;
        _next += 3;
        return true;
    }
    bool startPrimitive();
    bool nextInPrimitive();
    bool nextInStrip();
    void nextPrimitive();

    Int32 _triangle = 0;
    UInt32 _next = 0;         ///< first vertex that no triangle has used yet
    UInt32 _corner[3] = {};   ///< vertex numbers within the primitive
    bool _secondHalf = false; ///< of a quad
};

OSG_END_NAMESPACE
