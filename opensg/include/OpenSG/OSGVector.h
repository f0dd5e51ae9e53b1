#pragma once

// Points and vectors of N components. A vector is a point that can also be added, measured and
// turned; the difference of two points is a vector.
//
// == is tolerant (Eps per component), < is exact and lexicographic. Plain memory: N components
// side by side. Zero when default constructed.

#include "OSGBaseFunctions.h"

#include <ostream>
#include <type_traits>

OSG_BEGIN_NAMESPACE

template <class T, UInt32 N> class Vector;

template <class T, UInt32 N> class Point {
  public:
    typedef T ValueType;
    typedef Vector<T, N> VectorType;
    static constexpr UInt32 Dim = N;
    static const Point Null;

    constexpr Point() : _values{} {}
    explicit constexpr Point(T x) : _values{x} {}
    constexpr Point(T x, T y) : _values{x, y} {}
    constexpr Point(T x, T y, T z) : _values{x, y, z} {
        static_assert(N >= 3, "as many values as components");
    }
    constexpr Point(T x, T y, T z, T w) : _values{x, y, z, w} {
        static_assert(N >= 4, "as many values as components");
    }
    explicit Point(const T* values) : _values{} {
        for (UInt32 i = 0; i < N; ++i)
            _values[i] = values[i];
    }
    /// Of another component type or dimension: converted, missing components are 0.
    template <class T2, UInt32 N2, class = std::enable_if_t<!std::is_same_v<T, T2> || N != N2>>
    explicit Point(const Point<T2, N2>& other) : _values{} {
        for (UInt32 i = 0; i < N && i < N2; ++i)
            _values[i] = static_cast<T>(other[i]);
    }

    Point(const Point&) = default;
    Point& operator=(const Point&) = default;
    /// A vector becomes a point only when it is told to: Pnt3f(vector).
    Point& operator=(const Vector<T, N>&) = delete;

    T& operator[](UInt32 i) { return _values[i]; }
    const T& operator[](UInt32 i) const { return _values[i]; }
    T* getValues() { return _values; }
    const T* getValues() const { return _values; }
    T x() const { return _values[0]; }
    T y() const { return _values[1]; }
    T z() const { return _values[2]; }
    T w() const { return _values[3]; }

    void setValues(T x, T y) { _values[0] = x, _values[1] = y; }
    void setValues(T x, T y, T z) { setValues(x, y), _values[2] = z; }
    void setValues(T x, T y, T z, T w) { setValues(x, y, z), _values[3] = w; }
    void setValue(const Point& other) { *this = other; }
    void setValue(const T* values) { *this = Point(values); }
    void setNull() { *this = Point(); }
    void negate() {
        for (T& value : _values)
            value = static_cast<T>(-value);
    }

    bool isZero() const { return *this == Point(); }
    T maxValue() const {
        T largest = _values[0];
        for (const T value : _values)
            largest = osgMax(largest, value);
        return largest;
    }
    /// Square of the distance, and the distance.
    T dist2(const Point& other) const {
        T sum = T(0);
        for (UInt32 i = 0; i < N; ++i) {
            const T d = static_cast<T>(_values[i] - other._values[i]);
            sum = static_cast<T>(sum + d * d);
        }
        return sum;
    }
    T dist(const Point& other) const { return static_cast<T>(std::sqrt(dist2(other))); }

    /// The same numbers seen as a vector, or back as a point.
    Vector<T, N> subZero() const { return Vector<T, N>(*this); }
    Point addToZero() const { return *this; }

    bool equals(const Point& other, T tolerance) const {
        for (UInt32 i = 0; i < N; ++i) {
            const T d = static_cast<T>(_values[i] - other._values[i]);
            // Written so that a NaN is unequal.
            if (!(osgabs(d) <= tolerance))
                return false;
        }
        return true;
    }
    bool operator==(const Point& other) const { return equals(other, static_cast<T>(Eps)); }
    bool operator!=(const Point& other) const { return !(*this == other); }
    bool operator<(const Point& other) const {
        for (UInt32 i = 0; i < N; ++i) {
            if (_values[i] < other._values[i])
                return true;
            if (other._values[i] < _values[i])
                return false;
        }
        return false;
    }

    Vector<T, N> operator-(const Point& other) const {
        Vector<T, N> difference;
        for (UInt32 i = 0; i < N; ++i) {
            difference[i] = static_cast<T>(_values[i] - other._values[i]);
        }
        return difference;
    }
    Point operator+(const Vector<T, N>& step) const { return Point(*this) += step; }
    Point operator-(const Vector<T, N>& step) const { return Point(*this) -= step; }
    Point& operator+=(const Vector<T, N>& step) {
        for (UInt32 i = 0; i < N; ++i)
            _values[i] = static_cast<T>(_values[i] + step[i]);
        return *this;
    }
    Point& operator-=(const Vector<T, N>& step) {
        for (UInt32 i = 0; i < N; ++i)
            _values[i] = static_cast<T>(_values[i] - step[i]);
        return *this;
    }
    Point& operator*=(T factor) {
        for (T& value : _values)
            value = static_cast<T>(value * factor);
        return *this;
    }
    Point& operator/=(T divisor) {
        for (T& value : _values)
            value = static_cast<T>(value / divisor);
        return *this;
    }
    Point operator*(T factor) const { return Point(*this) *= factor; }

  protected:
    T _values[N];
};

template <class T, UInt32 N> const Point<T, N> Point<T, N>::Null{};

template <class T, UInt32 N> class Vector : public Point<T, N> {
  public:
    typedef Point<T, N> PointType;
    static const Vector Null;

    using PointType::PointType;
    constexpr Vector() = default;
    constexpr Vector(const PointType& point) : PointType(point) {}

    T dot(const PointType& other) const {
        T sum = T(0);
        for (UInt32 i = 0; i < N; ++i) {
            sum = static_cast<T>(sum + this->_values[i] * other[i]);
        }
        return sum;
    }
    T operator*(const Vector& other) const { return dot(other); }
    Vector cross(const Vector& o) const {
        static_assert(N == 3, "a cross product has three components");
        const T* v = this->_values;
        return Vector(static_cast<T>(v[1] * o[2] - v[2] * o[1]),
                      static_cast<T>(v[2] * o[0] - v[0] * o[2]),
                      static_cast<T>(v[0] * o[1] - v[1] * o[0]));
    }
    Vector operator%(const Vector& other) const { return cross(other); }
    void crossThis(const Vector& other) { *this = cross(other); }

    T squareLength() const { return dot(*this); }
    T length() const { return static_cast<T>(std::sqrt(squareLength())); }
    /// To length 1; shorter than Eps stays as it is.
    void normalize() {
        const T size = length();
        if (size < static_cast<T>(Eps))
            return;
        const T factor = static_cast<T>(T(1) / size);
        for (T& value : this->_values)
            value = static_cast<T>(value * factor);
    }
    /// Radians.
    T enclosedAngle(const Vector& other) const {
        const T cosine = static_cast<T>(dot(other) / (length() * other.length()));
        return static_cast<T>(std::acos(osgMax(T(-1), osgMin(T(1), cosine))));
    }

    Vector operator-() const {
        Vector negated(*this);
        negated.negate();
        return negated;
    }
    Vector operator+(const Vector& other) const { return Vector(*this) += other; }
    Vector operator-(const Vector& other) const { return Vector(*this) -= other; }
    Vector operator*(T factor) const { return Vector(*this) *= factor; }
    Vector& operator+=(const Vector& o) { return static_cast<Vector&>(PointType::operator+=(o)); }
    Vector& operator-=(const Vector& o) { return static_cast<Vector&>(PointType::operator-=(o)); }
    Vector& operator*=(T factor) { return static_cast<Vector&>(PointType::operator*=(factor)); }
    Vector& operator/=(T divisor) { return static_cast<Vector&>(PointType::operator/=(divisor)); }
};

template <class T, UInt32 N> const Vector<T, N> Vector<T, N>::Null{};

template <class T, UInt32 N> inline Point<T, N> operator*(T factor, const Point<T, N>& point) {
    return point * factor;
}
template <class T, UInt32 N> inline Vector<T, N> operator*(T factor, const Vector<T, N>& vector) {
    return vector * factor;
}

/// Components separated by ", ".
template <class T, UInt32 N> std::ostream& operator<<(std::ostream& out, const Point<T, N>& point) {
    for (UInt32 i = 0; i < N; ++i)
        out << (i == 0 ? "" : ", ") << +point[i];
    return out;
}

#define OSG_VECTOR_TYPEDEFS(TYPE, SUFFIX)                                                          \
    typedef Point<TYPE, 2> Pnt2##SUFFIX;                                                           \
    typedef Point<TYPE, 3> Pnt3##SUFFIX;                                                           \
    typedef Point<TYPE, 4> Pnt4##SUFFIX;                                                           \
    typedef Vector<TYPE, 2> Vec2##SUFFIX;                                                          \
    typedef Vector<TYPE, 3> Vec3##SUFFIX;                                                          \
    typedef Vector<TYPE, 4> Vec4##SUFFIX;

OSG_VECTOR_TYPEDEFS(Real32, f)
OSG_VECTOR_TYPEDEFS(Real64, d)
OSG_VECTOR_TYPEDEFS(Int8, b)
OSG_VECTOR_TYPEDEFS(UInt8, ub)
OSG_VECTOR_TYPEDEFS(Int16, s)
OSG_VECTOR_TYPEDEFS(UInt16, us)
#undef OSG_VECTOR_TYPEDEFS

OSG_END_NAMESPACE
