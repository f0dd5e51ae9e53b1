#pragma once

// A geometry: primitives over vertex data.
//
//     Types    4      4      7          one entry per primitive: the OpenGL mode
//     Lengths  3      6      4          vertices of each
//     Indices  0 1 2  ...               which element of the properties a vertex takes
//
// Without Indices vertices take the elements in running order. With Indices and an empty
// IndexMapping one index serves every property. With a mapping of k entries each vertex has k
// indices side by side, and the bits of entry j tell which properties take the j-th.

#include "OSGAction.h"
#include "OSGGeoProperty.h"
#include "OSGMaterialDrawable.h"

OSG_BEGIN_NAMESPACE

class Geometry;
class LineIterator;
class PrimitiveIterator;
class TriangleIterator;
typedef FCPtr<MaterialDrawablePtr, Geometry> GeometryPtr;
typedef RefPtr<GeometryPtr> GeometryRefPtr;

#define OSG_GEOMETRY_PROPERTY(NAME, TYPE, ID)                                                      \
  public:                                                                                          \
    OSG_FIELD(NAME, ID)                                                                            \
    const TYPE##Ptr& get##NAME() const { return _sf##NAME.getValue(); }                            \
    /** References the new property, drops the old one, keeps their parents lists. */              \
    void set##NAME(const TYPE##Ptr& property) { setProperty(_sf##NAME, property, NAME##FieldId); } \
                                                                                                   \
  private:                                                                                         \
    OwnedSField<TYPE##Ptr> _sf##NAME;

class OSG_SYSTEMLIB_DLLMAPPING Geometry : public MaterialDrawable {
    OSG_CONTAINER_DECL_ABSTRACT(Geometry, MaterialDrawable, GeometryPtr)
    OSG_CONTAINER_MAKERS(Geometry, GeometryPtr)

    OSG_GEOMETRY_PROPERTY(Types, GeoPTypes, 4)
    OSG_GEOMETRY_PROPERTY(Lengths, GeoPLengths, 5)
    OSG_GEOMETRY_PROPERTY(Positions, GeoPositions, 6)
    OSG_GEOMETRY_PROPERTY(Normals, GeoNormals, 7)
    OSG_GEOMETRY_PROPERTY(Colors, GeoColors, 8)
    OSG_GEOMETRY_PROPERTY(SecondaryColors, GeoColors, 9)
    OSG_GEOMETRY_PROPERTY(TexCoords, GeoTexCoords, 10)
    OSG_GEOMETRY_PROPERTY(TexCoords1, GeoTexCoords, 11)
    OSG_GEOMETRY_PROPERTY(TexCoords2, GeoTexCoords, 12)
    OSG_GEOMETRY_PROPERTY(TexCoords3, GeoTexCoords, 13)
    OSG_GEOMETRY_PROPERTY(TexCoords4, GeoTexCoords, 14)
    OSG_GEOMETRY_PROPERTY(TexCoords5, GeoTexCoords, 15)
    OSG_GEOMETRY_PROPERTY(TexCoords6, GeoTexCoords, 16)
    OSG_GEOMETRY_PROPERTY(TexCoords7, GeoTexCoords, 17)
    OSG_GEOMETRY_PROPERTY(Indices, GeoIndices, 18)

  public:
    GeometryPtr getPtr() const { return GeometryPtr(*this); }

    OSG_FIELD(IndexMapping, 19)
    OSG_FIELD(DlistCache, 20)

    // Bits of the mapping, from 1 in this order; constants at run time alone, as masks are.
    static const UInt16 MapPosition, MapNormal, MapColor, MapSecondaryColor, MapTexCoords,
        MapTexCoords1, MapTexCoords2, MapTexCoords3, MapTexCoords4, MapTexCoords5, MapTexCoords6,
        MapTexCoords7, MapEmpty;

    MFUInt16& getIndexMapping() { return _mfIndexMapping; }
    const MFUInt16& getIndexMapping() const { return _mfIndexMapping; }
    UInt16& getIndexMapping(UInt32 entry) { return _mfIndexMapping[entry]; }
    const UInt16& getIndexMapping(UInt32 entry) const { return _mfIndexMapping[entry]; }
    const MFUInt16* getMFIndexMapping() const { return &_mfIndexMapping; }
    MFUInt16* editMFIndexMapping() { return &_mfIndexMapping; }

    const bool& getDlistCache() const { return _sfDlistCache.getValue(); }
    void setDlistCache(const bool& cache) { _sfDlistCache.setValue(cache); }

    /// Last entry of the mapping that holds the bit, or -1.
    Int16 calcMappingIndex(UInt16 bit) const;
    /// The property of a mapping bit; null if absent.
    GeoPropertyArrayInterface* getProperty(Int32 mapBit) const;
    /// A new core with a copy of every property, the same material, no name and no nodes.
    GeometryPtr clone() const;
    /// Gives this core copies of the properties that other geometries use too.
    void unshareProperties();

    PrimitiveIterator beginPrimitives() const;
    PrimitiveIterator endPrimitives() const;
    TriangleIterator beginTriangles() const;
    TriangleIterator endTriangles() const;
    LineIterator beginLines() const;
    LineIterator endLines() const;

    /// Hits the action with every triangle that its line meets, in the core's own frame. Skip if
    /// the line misses the current node's volume.
    Action::ResultE intersect(Action* action);

    /// Extends what the children said by the positions that primitives use.
    void adjustVolume(Volume& volume) override;
    void changed(BitVector which, UInt32 origin) override;

  protected:
    Geometry() = default;
    Geometry(const Geometry& other);
    ~Geometry() override;

  private:
    template <class PropertyField, class PropertyPtr>
    void setProperty(PropertyField& field, const PropertyPtr& property, UInt32 fieldId);
    /// Calls `visit` with every property field and its number.
    template <class Visit> void forEachProperty(Visit visit);

    MFUInt16 _mfIndexMapping;
    SFBool _sfDlistCache{true};
};
#undef OSG_GEOMETRY_PROPERTY

OSG_END_NAMESPACE
