#pragma once

// Walks the lines of a geometry: lines (0 1, 2 3, ...), strips (0 1, 1 2, ...) and loops, which
// are strips with a line from the last vertex to the first. A lone vertex at the end of lines pairs
// with the one behind its primitive, if the geometry has it.

#include "OSGPrimitiveIterator.h"

OSG_BEGIN_NAMESPACE

class OSG_SYSTEMLIB_DLLMAPPING LineIterator : public PrimitiveIterator {
  public:
    LineIterator() = default;
    /// Not positioned; see Geometry::beginLines().
    LineIterator(const GeometryPtr& geometry) : PrimitiveIterator(geometry) {}
    LineIterator(const NodePtr& node) : PrimitiveIterator(node) {}

    void setToBegin();
    void setToEnd() { PrimitiveIterator::setToEnd(); }
    void operator++() {
        ++_line;
        if (!nextInPrimitive())
            nextPrimitive();
    }
    void seek(Int32 index);

    /// Number of the line, from 0.
    Int32 getIndex() const { return _line; }
    Int32 getIndexIndex(Int32 end) const {
        return PrimitiveIterator::getIndexIndex(static_cast<Int32>(_end[end]));
    }

#define OSG_ITERATOR_VALUE(VALUE, PROPERTY, INDEX, TYPE, SLOT)                                     \
    Int32 INDEX(Int32 end) const { return indexOf(SLOT, _end[end]); }                              \
    TYPE VALUE(Int32 end) const { return valueOf<TYPE>(_geometry->PROPERTY(), INDEX(end)); }
    OSG_ITERATOR_PROPERTIES
#undef OSG_ITERATOR_VALUE

    bool operator==(const LineIterator& other) const {
        return _geometry == other._geometry &&
               (isAtEnd() ? other.isAtEnd() : !other.isAtEnd() && _line == other._line);
    }
    bool operator!=(const LineIterator& other) const { return !(*this == other); }

  private:
    bool startPrimitive();
    bool nextInPrimitive();
    void nextPrimitive();

    Int32 _line = 0;
    UInt32 _next = 0;    ///< first vertex that is no line's second end yet
    UInt32 _end[2] = {}; ///< vertex numbers within the primitive
};

OSG_END_NAMESPACE
