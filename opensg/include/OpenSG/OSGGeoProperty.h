#pragma once

// Vertex data of a geometry: one array per role (positions, normals, ...), stored in one of
// several forms. Code that does not care about the form reads and writes through the role:
//
//     role (abstract)         generic type   stored forms
//     GeoPositions            Pnt3f          2s 3s 4s 2f 3f 4f 2d 3d 4d
//     GeoNormals              Vec3f          3f 3s 3b
//     GeoColors               Color3f        3f 4f 3ub 4ub
//     GeoTexCoords            Vec2f          1f 2f 3f 4f 1d 2d 3d 4d
//     GeoIndices              UInt32         UI32 UI16
//     GeoPTypes               UInt8          UI8
//     GeoPLengths             UInt32         UI32 UI16 UI8
//
// A property may be shared by several geometries; its parents list knows them.

#include "OSGAttachment.h"
#include "OSGGL.h"

OSG_BEGIN_NAMESPACE

/// A property seen without its role.
class OSG_SYSTEMLIB_DLLMAPPING GeoPropertyArrayInterface {
  public:
    virtual UInt32 getFormat() const = 0;     ///< OpenGL type of a component
    virtual UInt32 getFormatSize() const = 0; ///< bytes of a component
    virtual UInt32 getStride() const = 0;     ///< always 0: elements stand side by side
    virtual UInt32 getDimension() const = 0;  ///< components of an element
    virtual UInt32 getSize() const = 0;       ///< elements
    virtual UInt8* getData() = 0;             ///< null when empty
    virtual const UInt8* getData() const = 0;
    UInt8* editData() { return getData(); }
    UInt32 size() const { return getSize(); }
    virtual void resize(std::size_t count) = 0; ///< new elements are zero
    virtual void clear() = 0;
    virtual void shrink() = 0;

  protected:
    virtual ~GeoPropertyArrayInterface();
};

/// A role: values of the generic type, whatever the stored form.
template <class RoleDesc>
class AbstractGeoProperty : public Attachment, public GeoPropertyArrayInterface {
  public:
    typedef FCPtr<AttachmentPtr, AbstractGeoProperty> RolePtr;
    OSG_CONTAINER_DECL_BASE(AbstractGeoProperty, Attachment)
    typedef RolePtr PtrType;
    typedef RoleDesc PropertyDesc;
    typedef typename RoleDesc::GenericType GenericType;
    using GeoPropertyArrayInterface::clear;

    /// No range check.
    virtual GenericType getValue(UInt32 index) const = 0;
    void getValue(GenericType& value, UInt32 index) const { value = getValue(index); }
    virtual void setValue(const GenericType& value, UInt32 index) = 0;
    virtual void addValue(const GenericType& value) = 0;
    void push_back(const GenericType& value) { addValue(value); }
    /// Deep copy without parents.
    virtual RolePtr clone() const = 0;

    void changed(BitVector which, UInt32 origin) override;

  protected:
    AbstractGeoProperty() = default;
    AbstractGeoProperty(const AbstractGeoProperty& other) : Attachment(other) {}
};

/// A stored form of a role.
template <class Desc> class GeoProperty : public AbstractGeoProperty<typename Desc::RoleDesc> {
  public:
    typedef AbstractGeoProperty<typename Desc::RoleDesc> Role;
    typedef FCPtr<typename Role::RolePtr, GeoProperty> FormPtr;
    OSG_CONTAINER_DECL_BASE(GeoProperty, Role)
    typedef FormPtr PtrType;
    OSG_CONTAINER_MAKERS(GeoProperty, FormPtr)
  public:
    typedef typename Role::GenericType GenericType;
    typedef typename Desc::StoredType StoredType;
    typedef MField<StoredType> StoredFieldType;
    typedef Desc PropertyDesc;
    OSG_FIELD(GeoPropData, 3)

    StoredFieldType* getFieldPtr() { return &_mfGeoPropData; }
    const StoredFieldType* getFieldPtr() const { return &_mfGeoPropData; }
    StoredFieldType& getField() { return _mfGeoPropData; }
    const StoredFieldType& getField() const { return _mfGeoPropData; }
    StoredFieldType& editField() { return _mfGeoPropData; }

    UInt32 getFormat() const override { return Desc::format; }
    UInt32 getFormatSize() const override { return sizeof(StoredType) / Desc::dimension; }
    UInt32 getStride() const override { return 0; }
    UInt32 getDimension() const override { return Desc::dimension; }
    UInt32 getSize() const override { return _mfGeoPropData.getSize(); }
    UInt8* getData() override {
        return _mfGeoPropData.empty() ? nullptr
                                      : reinterpret_cast<UInt8*>(_mfGeoPropData.getValues().data());
    }
    const UInt8* getData() const override { return const_cast<GeoProperty*>(this)->getData(); }
    void resize(std::size_t count) override { _mfGeoPropData.resize(count); }
    void clear() override { _mfGeoPropData.clear(); }
    void shrink() override { _mfGeoPropData.shrink_to_fit(); }

    using Role::getValue;
    GenericType getValue(UInt32 index) const override {
        return Desc::toGeneric(_mfGeoPropData[index]);
    }
    void setValue(const GenericType& value, UInt32 index) override {
        _mfGeoPropData[index] = Desc::toStored(value);
    }
    void addValue(const GenericType& value) override {
        _mfGeoPropData.push_back(Desc::toStored(value));
    }
    /// False if the place is beyond the end.
    bool insertValue(const GenericType& value, UInt32 index) {
        if (index > getSize())
            return false;
        _mfGeoPropData.insert(_mfGeoPropData.begin() + index, Desc::toStored(value));
        return true;
    }
    typename Role::RolePtr clone() const override {
        return filledIn(create(), [this](const FormPtr& copy) {
            copy->_mfGeoPropData.setValues(_mfGeoPropData.getValues());
        });
    }

  protected:
    GeoProperty() = default;
    GeoProperty(const GeoProperty& other) : Role(other), _mfGeoPropData(other._mfGeoPropData) {}

  private:
    StoredFieldType _mfGeoPropData;
};

// The roles.

#define OSG_GEO_ROLE(ROLE, GENERIC)                                                                \
    struct ROLE##PropertyDesc {                                                                    \
        typedef GENERIC GenericType;                                                               \
        static const Char8* getTypeName() { return #ROLE; }                                        \
    };                                                                                             \
    typedef AbstractGeoProperty<ROLE##PropertyDesc> ROLE;                                          \
    typedef ROLE::RolePtr ROLE##Ptr;                                                               \
    typedef RefPtr<ROLE##Ptr> ROLE##RefPtr;                                                        \
    template <> FieldContainerType& ROLE::getClassType();                                          \
    extern template class AbstractGeoProperty<ROLE##PropertyDesc>;

OSG_GEO_ROLE(GeoPositions, Pnt3f)
OSG_GEO_ROLE(GeoNormals, Vec3f)
OSG_GEO_ROLE(GeoColors, Color3f)
OSG_GEO_ROLE(GeoTexCoords, Vec2f)
OSG_GEO_ROLE(GeoIndices, UInt32)
OSG_GEO_ROLE(GeoPTypes, UInt8)
OSG_GEO_ROLE(GeoPLengths, UInt32)
#undef OSG_GEO_ROLE

// Between the stored and the generic type, by role.

/// Points of any component type and dimension: what is missing reads as 0; a fourth component is
/// dropped on reading, without division, and written as 1.
template <class Stored> struct GeoPositionConversion {
    static Pnt3f toGeneric(const Stored& stored) { return Pnt3f(stored); }
    static Stored toStored(const Pnt3f& value) {
        Stored stored;
        for (UInt32 i = 0; i < osgMin(Stored::Dim, 3u); ++i)
            stored[i] = osgLimitedCast<typename Stored::ValueType>(static_cast<Real64>(value[i]));
        if constexpr (Stored::Dim == 4)
            stored[3] = 1;
        return stored;
    }
};
template <> struct GeoPositionConversion<Pnt3f> {
    static const Pnt3f& toGeneric(const Pnt3f& stored) { return stored; }
    static const Pnt3f& toStored(const Pnt3f& value) { return value; }
};

/// Integers spread over -1 to 1.
template <class Stored, UInt32 range> struct GeoIntegerNormalConversion {
    static Vec3f toGeneric(const Stored& stored) {
        Vec3f value;
        for (UInt32 i = 0; i < 3; ++i) {
            value[i] = (2.f * static_cast<Real32>(stored[i]) + 1.f) / static_cast<Real32>(range);
        }
        return value;
    }
    static Stored toStored(const Vec3f& value) {
        Stored stored;
        for (UInt32 i = 0; i < 3; ++i) {
            const Real32 scaled = (value[i] * static_cast<Real32>(range) - 1.f) / 2.f;
            stored[i] = osgLimitedCast<typename Stored::ValueType>(static_cast<Real64>(scaled));
        }
        return stored;
    }
};
struct GeoNormalConversion {
    static const Vec3f& toGeneric(const Vec3f& stored) { return stored; }
    static const Vec3f& toStored(const Vec3f& value) { return value; }
};

/// A fourth component is not read, and written as opaque. Bytes are cut off behind the point.
struct GeoColor3fConversion {
    static const Color3f& toGeneric(const Color3f& stored) { return stored; }
    static const Color3f& toStored(const Color3f& value) { return value; }
};
struct GeoColor4fConversion {
    static Color3f toGeneric(const Color4f& c) { return Color3f(c[0], c[1], c[2]); }
    static Color4f toStored(const Color3f& c) { return Color4f(c[0], c[1], c[2], 1.f); }
};
inline UInt8 osgColorByte(Real32 value) {
    return osgLimitedCast<UInt8>(static_cast<Real64>(value * 255.f));
}
struct GeoColor3ubConversion {
    static Color3f toGeneric(const Color3ub& c) {
        return Color3f(Real32(c[0]) / 255.f, Real32(c[1]) / 255.f, Real32(c[2]) / 255.f);
    }
    static Color3ub toStored(const Color3f& c) {
        return Color3ub(osgColorByte(c[0]), osgColorByte(c[1]), osgColorByte(c[2]));
    }
};
struct GeoColor4ubConversion {
    static Color3f toGeneric(const Color4ub& c) {
        return Color3f(Real32(c[0]) / 255.f, Real32(c[1]) / 255.f, Real32(c[2]) / 255.f);
    }
    static Color4ub toStored(const Color3f& c) {
        return Color4ub(osgColorByte(c[0]), osgColorByte(c[1]), osgColorByte(c[2]), 255);
    }
};

/// The first two components; the others are written as 0.
template <class Stored> struct GeoTexCoordConversion {
    static Vec2f toGeneric(const Stored& stored) { return Vec2f(stored); }
    static Stored toStored(const Vec2f& value) { return Stored(value); }
};
template <> struct GeoTexCoordConversion<Vec2f> {
    static const Vec2f& toGeneric(const Vec2f& stored) { return stored; }
    static const Vec2f& toStored(const Vec2f& value) { return value; }
};
template <class Real> struct GeoTexCoord1Conversion {
    static Vec2f toGeneric(Real stored) { return Vec2f(static_cast<Real32>(stored), 0.f); }
    static Real toStored(const Vec2f& value) { return static_cast<Real>(value[0]); }
};

struct GeoByteConversion {
    static UInt8 toGeneric(UInt8 stored) { return stored; }
    static UInt8 toStored(UInt8 value) { return value; }
};
template <class Stored> struct GeoIntegerConversion {
    static UInt32 toGeneric(Stored stored) { return stored; }
    static Stored toStored(UInt32 value) { return static_cast<Stored>(value); }
};

// The stored forms. The last argument is the conversion; commas in it are why it comes last.

#define OSG_GEO_FORM(NAME, ROLE, STORED, FORMAT, DIMENSION, ...)                                   \
    struct NAME##PropertyDesc : public __VA_ARGS__ {                                               \
        typedef ROLE##PropertyDesc RoleDesc;                                                       \
        typedef STORED StoredType;                                                                 \
        static constexpr UInt32 format = FORMAT;                                                   \
        static constexpr UInt32 dimension = DIMENSION;                                             \
        static const Char8* getTypeName() { return #NAME; }                                        \
    };                                                                                             \
    typedef GeoProperty<NAME##PropertyDesc> NAME;                                                  \
    typedef NAME::FormPtr NAME##Ptr;                                                               \
    typedef RefPtr<NAME##Ptr> NAME##RefPtr;                                                        \
    template <> FieldContainerType& NAME::getClassType();                                          \
    extern template class GeoProperty<NAME##PropertyDesc>;

#define OSG_GEO_ALL_FORMS(FORM)                                                                    \
    FORM(GeoPositions2s, GeoPositions, Pnt2s, GL_SHORT, 2, GeoPositionConversion<Pnt2s>)           \
    FORM(GeoPositions3s, GeoPositions, Pnt3s, GL_SHORT, 3, GeoPositionConversion<Pnt3s>)           \
    FORM(GeoPositions4s, GeoPositions, Pnt4s, GL_SHORT, 4, GeoPositionConversion<Pnt4s>)           \
    FORM(GeoPositions2f, GeoPositions, Pnt2f, GL_FLOAT, 2, GeoPositionConversion<Pnt2f>)           \
    FORM(GeoPositions3f, GeoPositions, Pnt3f, GL_FLOAT, 3, GeoPositionConversion<Pnt3f>)           \
    FORM(GeoPositions4f, GeoPositions, Pnt4f, GL_FLOAT, 4, GeoPositionConversion<Pnt4f>)           \
    FORM(GeoPositions2d, GeoPositions, Pnt2d, GL_DOUBLE, 2, GeoPositionConversion<Pnt2d>)          \
    FORM(GeoPositions3d, GeoPositions, Pnt3d, GL_DOUBLE, 3, GeoPositionConversion<Pnt3d>)          \
    FORM(GeoPositions4d, GeoPositions, Pnt4d, GL_DOUBLE, 4, GeoPositionConversion<Pnt4d>)          \
    FORM(GeoNormals3f, GeoNormals, Vec3f, GL_FLOAT, 3, GeoNormalConversion)                        \
    FORM(GeoNormals3s, GeoNormals, Vec3s, GL_SHORT, 3, GeoIntegerNormalConversion<Vec3s, 65535>)   \
    FORM(GeoNormals3b, GeoNormals, Vec3b, GL_BYTE, 3, GeoIntegerNormalConversion<Vec3b, 255>)      \
    FORM(GeoColors3f, GeoColors, Color3f, GL_FLOAT, 3, GeoColor3fConversion)                       \
    FORM(GeoColors4f, GeoColors, Color4f, GL_FLOAT, 4, GeoColor4fConversion)                       \
    FORM(GeoColors3ub, GeoColors, Color3ub, GL_UNSIGNED_BYTE, 3, GeoColor3ubConversion)            \
    FORM(GeoColors4ub, GeoColors, Color4ub, GL_UNSIGNED_BYTE, 4, GeoColor4ubConversion)            \
    FORM(GeoTexCoords1f, GeoTexCoords, Real32, GL_FLOAT, 1, GeoTexCoord1Conversion<Real32>)        \
    FORM(GeoTexCoords2f, GeoTexCoords, Vec2f, GL_FLOAT, 2, GeoTexCoordConversion<Vec2f>)           \
    FORM(GeoTexCoords3f, GeoTexCoords, Vec3f, GL_FLOAT, 3, GeoTexCoordConversion<Vec3f>)           \
    FORM(GeoTexCoords4f, GeoTexCoords, Vec4f, GL_FLOAT, 4, GeoTexCoordConversion<Vec4f>)           \
    FORM(GeoTexCoords1d, GeoTexCoords, Real64, GL_DOUBLE, 1, GeoTexCoord1Conversion<Real64>)       \
    FORM(GeoTexCoords2d, GeoTexCoords, Vec2d, GL_DOUBLE, 2, GeoTexCoordConversion<Vec2d>)          \
    FORM(GeoTexCoords3d, GeoTexCoords, Vec3d, GL_DOUBLE, 3, GeoTexCoordConversion<Vec3d>)          \
    FORM(GeoTexCoords4d, GeoTexCoords, Vec4d, GL_DOUBLE, 4, GeoTexCoordConversion<Vec4d>)          \
    FORM(GeoIndicesUI32, GeoIndices, UInt32, GL_UNSIGNED_INT, 1, GeoIntegerConversion<UInt32>)     \
    FORM(GeoIndicesUI16, GeoIndices, UInt16, GL_UNSIGNED_SHORT, 1, GeoIntegerConversion<UInt16>)   \
    FORM(GeoPTypesUI8, GeoPTypes, UInt8, GL_UNSIGNED_BYTE, 1, GeoByteConversion)                   \
    FORM(GeoPLengthsUI32, GeoPLengths, UInt32, GL_UNSIGNED_INT, 1, GeoIntegerConversion<UInt32>)   \
    FORM(GeoPLengthsUI16, GeoPLengths, UInt16, GL_UNSIGNED_SHORT, 1, GeoIntegerConversion<UInt16>) \
    FORM(GeoPLengthsUI8, GeoPLengths, UInt8, GL_UNSIGNED_BYTE, 1, GeoIntegerConversion<UInt8>)

OSG_GEO_ALL_FORMS(OSG_GEO_FORM)
#undef OSG_GEO_FORM

OSG_END_NAMESPACE
