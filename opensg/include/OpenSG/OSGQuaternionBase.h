#pragma once

#include "OSGVector.h"

OSG_BEGIN_NAMESPACE

template <class T> class TransformationMatrix;

/// A rotation as a unit quaternion, stored x, y, z, w. Identity when default constructed.
template <class T> class QuaternionBase {
  public:
    typedef T ValueType;

    constexpr QuaternionBase() : _values{T(0), T(0), T(0), T(1)} {}
    explicit QuaternionBase(const TransformationMatrix<T>& matrix) { setValue(matrix); }
    QuaternionBase(const Vector<T, 3>& axis, T radians) { setValueAsAxisRad(axis, radians); }
    QuaternionBase(T x, T y, T z, T w) : _values{x, y, z, w} {}

    T x() const { return _values[0]; }
    T y() const { return _values[1]; }
    T z() const { return _values[2]; }
    T w() const { return _values[3]; }
    T& operator[](UInt32 i) { return _values[i]; }
    const T& operator[](UInt32 i) const { return _values[i]; }
    T* getValues() { return _values; }
    const T* getValues() const { return _values; }

    void setIdentity() { *this = QuaternionBase(); }
    void setValueAsQuat(T x, T y, T z, T w) { *this = QuaternionBase(x, y, z, w); }
    void setValueAsAxisRad(T x, T y, T z, T radians) {
        setValueAsAxisRad(Vector<T, 3>(x, y, z), radians);
    }
    void setValueAsAxisDeg(T x, T y, T z, T degrees) {
        setValueAsAxisRad(x, y, z, static_cast<T>(degrees * T(Pi / 180.0)));
    }
    /// About an axis of any length; identity about a zero axis.
    void setValueAsAxisRad(Vector<T, 3> axis, T radians) {
        const T size = axis.length();
        if (!(size > static_cast<T>(Eps)))
            return setIdentity();
        const T half = static_cast<T>(radians / T(2));
        const T factor = static_cast<T>(std::sin(half) / size);
        *this = QuaternionBase(axis[0] * factor, axis[1] * factor, axis[2] * factor,
                               static_cast<T>(std::cos(half)));
    }
    void getValueAsAxisRad(T& x, T& y, T& z, T& radians) const {
        const T size = static_cast<T>(
            std::sqrt(_values[0] * _values[0] + _values[1] * _values[1] + _values[2] * _values[2]));
        if (!(size > static_cast<T>(Eps))) {
            x = y = T(0), z = T(1), radians = T(0);
            return;
        }
        x = _values[0] / size, y = _values[1] / size, z = _values[2] / size;
        radians = static_cast<T>(T(2) * std::atan2(size, _values[3]));
    }
    /// From the rotation in the upper 3x3 part of a matrix.
    void setValue(const TransformationMatrix<T>& m) {
        const T trace = m[0][0] + m[1][1] + m[2][2];
        if (trace > T(0)) {
            T s = static_cast<T>(std::sqrt(trace + T(1)));
            _values[3] = s * T(0.5);
            s = T(0.5) / s;
            for (UInt32 i = 0; i < 3; ++i) {
                const UInt32 j = (i + 1) % 3, k = (i + 2) % 3;
                _values[i] = (m[j][k] - m[k][j]) * s;
            }
            return;
        }
        UInt32 i = m[1][1] > m[0][0] ? 1 : 0;
        if (m[2][2] > m[i][i])
            i = 2;
        const UInt32 j = (i + 1) % 3, k = (i + 2) % 3;
        T s = static_cast<T>(std::sqrt(m[i][i] - (m[j][j] + m[k][k]) + T(1)));
        _values[i] = s * T(0.5);
        if (s != T(0))
            s = T(0.5) / s;
        _values[3] = (m[j][k] - m[k][j]) * s;
        _values[j] = (m[i][j] + m[j][i]) * s;
        _values[k] = (m[i][k] + m[k][i]) * s;
    }
    /// The whole matrix: the rotation and nothing else.
    void getValue(TransformationMatrix<T>& matrix) const {
        const T x = _values[0], y = _values[1], z = _values[2], w = _values[3];
        matrix.setIdentity();
        matrix[0][0] = T(1) - T(2) * (y * y + z * z);
        matrix[0][1] = T(2) * (x * y + z * w);
        matrix[0][2] = T(2) * (z * x - y * w);
        matrix[1][0] = T(2) * (x * y - z * w);
        matrix[1][1] = T(1) - T(2) * (z * z + x * x);
        matrix[1][2] = T(2) * (y * z + x * w);
        matrix[2][0] = T(2) * (z * x + y * w);
        matrix[2][1] = T(2) * (y * z - x * w);
        matrix[2][2] = T(1) - T(2) * (y * y + x * x);
    }
    void multVec(const Vector<T, 3>& source, Vector<T, 3>& result) const {
        const Vector<T, 3> axis(_values[0], _values[1], _values[2]);
        const Vector<T, 3> once = axis.cross(source);
        const Vector<T, 3> twice = axis.cross(once);
        result = source + (once * _values[3] + twice) * T(2);
    }

    T length() const {
        T sum = T(0);
        for (const T value : _values)
            sum += value * value;
        return static_cast<T>(std::sqrt(sum));
    }
    void normalize() {
        const T size = length();
        if (size < static_cast<T>(Eps))
            return;
        for (T& value : _values)
            value /= size;
    }
    void invert() {
        for (UInt32 i = 0; i < 3; ++i)
            _values[i] = -_values[i];
    }
    QuaternionBase inverse() const {
        QuaternionBase inverted(*this);
        inverted.invert();
        return inverted;
    }
    /// this = this * other, and this = other * this.
    void mult(const QuaternionBase& o) {
        const T* a = _values;
        *this = QuaternionBase(a[3] * o[0] + a[0] * o[3] + a[1] * o[2] - a[2] * o[1],
                               a[3] * o[1] + a[1] * o[3] + a[2] * o[0] - a[0] * o[2],
                               a[3] * o[2] + a[2] * o[3] + a[0] * o[1] - a[1] * o[0],
                               a[3] * o[3] - a[0] * o[0] - a[1] * o[1] - a[2] * o[2]);
    }
    void multLeft(const QuaternionBase& other) {
        QuaternionBase product(other);
        product.mult(*this);
        *this = product;
    }
    bool equals(const QuaternionBase& other, T tolerance) const {
        for (UInt32 i = 0; i < 4; ++i) {
            if (!(osgabs(_values[i] - other._values[i]) <= tolerance))
                return false;
        }
        return true;
    }
    bool operator==(const QuaternionBase& other) const { return equals(other, T(Eps)); }
    bool operator!=(const QuaternionBase& other) const { return !(*this == other); }

  private:
    T _values[4];
};

OSG_END_NAMESPACE

#include "OSGMatrix.h"
