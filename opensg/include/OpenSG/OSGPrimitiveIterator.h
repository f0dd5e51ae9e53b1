#pragma once

// Walks the primitives of a geometry and resolves the indices of their vertices.
//
// The iterator keeps plain pointers to types, lengths and indices from setToBegin() on; changing
// these while walking is not supported, replacing values in place is seen. Primitives that claim
// more vertices than the geometry has indices (or positions) for end where the data ends.

#include "OSGGeometry.h"

OSG_BEGIN_NAMESPACE

/// Unsigned numbers of 1, 2 or 4 bytes, read without a virtual call.
struct GeoNumbers {
    const UInt8* data = nullptr;
    UInt32 size = 0;
    UInt32 bytes = 0; ///< of one number; 0: there are none

    template <class PropertyPtr> static GeoNumbers of(const PropertyPtr& property) {
        GeoNumbers numbers;
        if (property == NullFC)
            return numbers;
        numbers.data = property->getData();
        numbers.size = property->getSize();
        numbers.bytes = property->getFormatSize();
        return numbers;
    }
    UInt32 operator[](UInt32 i) const {
        assert(i < size);
        if (bytes == 4)
            return reinterpret_cast<const UInt32*>(data)[i];
        if (bytes == 2)
            return reinterpret_cast<const UInt16*>(data)[i];
        return data[i];
    }
};

class OSG_SYSTEMLIB_DLLMAPPING PrimitiveIterator {
  public:
    PrimitiveIterator() = default;
    PrimitiveIterator(const GeometryPtr& geometry) { setGeo(geometry); }
    PrimitiveIterator(const NodePtr& node) { setGeo(node); }

    void setGeo(const GeometryPtr& geometry);
    void setGeo(const NodePtr& node);
    GeometryPtr getGeometry() const { return _geometry; }

    void setToBegin();
    void setToEnd() { _primitive = _primitives; }
    bool isAtEnd() const { return _primitive >= _primitives; }
    void operator++();
    void seek(Int32 index);

    /// Running number, from 0.
    Int32 getIndex() const { return static_cast<Int32>(_primitive); }
    /// OpenGL mode and vertices of the current primitive.
    UInt32 getType() const { return _type; }
    UInt32 getLength() const { return _length; }

    /// Place of the vertex's first index in Indices; -1 without indices.
    Int32 getIndexIndex(Int32 which) const {
        if (_indices.bytes == 0)
            return -1;
        return static_cast<Int32>((_firstVertex + static_cast<UInt32>(which)) * _stride);
    }

#define OSG_ITERATOR_PROPERTIES                                                                    \
    OSG_ITERATOR_VALUE(getPosition, getPositions, getPositionIndex, Pnt3f, 0)                      \
    OSG_ITERATOR_VALUE(getNormal, getNormals, getNormalIndex, Vec3f, 1)                            \
    OSG_ITERATOR_VALUE(getColor, getColors, getColorIndex, Color3f, 2)                             \
    OSG_ITERATOR_VALUE(getSecondaryColor, getSecondaryColors, getSecondaryColorIndex, Color3f, 3)  \
    OSG_ITERATOR_VALUE(getTexCoords, getTexCoords, getTexCoordsIndex, Vec2f, 4)                    \
    OSG_ITERATOR_VALUE(getTexCoords1, getTexCoords1, getTexCoordsIndex1, Vec2f, 5)                 \
    OSG_ITERATOR_VALUE(getTexCoords2, getTexCoords2, getTexCoordsIndex2, Vec2f, 6)                 \
    OSG_ITERATOR_VALUE(getTexCoords3, getTexCoords3, getTexCoordsIndex3, Vec2f, 7)                 \
    OSG_ITERATOR_VALUE(getTexCoords4, getTexCoords4, getTexCoordsIndex4, Vec2f, 8)                 \
    OSG_ITERATOR_VALUE(getTexCoords5, getTexCoords5, getTexCoordsIndex5, Vec2f, 9)                 \
    OSG_ITERATOR_VALUE(getTexCoords6, getTexCoords6, getTexCoordsIndex6, Vec2f, 10)                \
    OSG_ITERATOR_VALUE(getTexCoords7, getTexCoords7, getTexCoordsIndex7, Vec2f, 11)

// -1, and the zero value, where a property is absent. One in no entry of the mapping has no index
// of its own: what comes is an index that belongs to another property. Ask calcMappingIndex first.
#define OSG_ITERATOR_VALUE(VALUE, PROPERTY, INDEX, TYPE, SLOT)                                     \
    Int32 INDEX(Int32 which) const { return indexOf(SLOT, static_cast<UInt32>(which)); }           \
    TYPE VALUE(Int32 which) const { return valueOf<TYPE>(_geometry->PROPERTY(), INDEX(which)); }
    OSG_ITERATOR_PROPERTIES
#undef OSG_ITERATOR_VALUE

    bool operator==(const PrimitiveIterator& other) const {
        return _geometry == other._geometry &&
               (isAtEnd() ? other.isAtEnd() : _primitive == other._primitive);
    }
    bool operator!=(const PrimitiveIterator& other) const { return !(*this == other); }
    bool operator<(const PrimitiveIterator& other) const {
        return _geometry < other._geometry ||
               (_geometry == other._geometry && _primitive < other._primitive);
    }

  protected:
    enum : Int32 { Absent = -1, Direct = -2, Unmapped = -3 };

    /// Vertices from the primitive's first to the last of the geometry.
    UInt32 verticesFromHere() const {
        return _firstVertex < _vertices ? _vertices - _firstVertex : 0;
    }

    /// Index that vertex `which` of the primitive takes in the property of this slot.
    Int32 indexOf(UInt32 property, UInt32 which) const {
        const Int32 offset = _offsets[property];
        const UInt32 vertex = _firstVertex + which;
        if (offset == Direct)
            return static_cast<Int32>(vertex);
        if (offset == Absent)
            return -1;
        const UInt32 place = offset == Unmapped ? _firstVertex * _stride + which
                                                : vertex * _stride + static_cast<UInt32>(offset);
        return place < _indices.size ? static_cast<Int32>(_indices[place]) : -1;
    }
    template <class Value, class PropertyPtr>
    static Value valueOf(const PropertyPtr& property, Int32 index) {
        if (index < 0 || static_cast<UInt32>(index) >= property->getSize())
            return Value();
        return property->getValue(static_cast<UInt32>(index));
    }

    GeometryPtr _geometry;
    UInt32 _primitives = 0; ///< how many there are
    UInt32 _primitive = 0;  ///< current one; at end: _primitives
    UInt32 _type = 0;
    UInt32 _length = 0;      ///< vertices, never more than the data has
    UInt32 _firstVertex = 0; ///< vertices of all primitives in front

  private:
    void readPrimitive();

    GeoNumbers _types;
    GeoNumbers _lengths;
    GeoNumbers _indices;
    UInt32 _stride = 1;   ///< indices per vertex
    UInt32 _vertices = 0; ///< vertices that there is data for
    UInt32 _claimed = 0;  ///< length of the current primitive as Lengths has it
    /// Per property: place among a vertex's indices, or Absent, Direct, Unmapped.
    Int32 _offsets[12] = {};
};

OSG_END_NAMESPACE
