#pragma once

// Colours of three and four components: reals from 0 to 1, or bytes from 0 to 255. == is tolerant
// (Eps per component), < is exact and lexicographic.

#include "OSGBaseFunctions.h"

#include <ostream>
#include <type_traits>

OSG_BEGIN_NAMESPACE

/// What Color3 and Color4 share.
template <class T, UInt32 N, class Self> class ColorBase {
  public:
    typedef T ValueType;

    T& operator[](UInt32 i) { return _values[i]; }
    const T& operator[](UInt32 i) const { return _values[i]; }
    T red() const { return _values[0]; }
    T green() const { return _values[1]; }
    T blue() const { return _values[2]; }

    bool equals(const Self& other, T tolerance) const {
        for (UInt32 i = 0; i < N; ++i) {
            const T a = _values[i];
            const T b = other[i];
            // Written so that a NaN is unequal.
            if (!((a < b ? b - a : a - b) <= tolerance))
                return false;
        }
        return true;
    }
    bool operator==(const Self& other) const { return equals(other, static_cast<T>(Eps)); }
    bool operator!=(const Self& other) const { return !(*this == other); }
    bool operator<(const Self& other) const {
        for (UInt32 i = 0; i < N; ++i) {
            if (_values[i] < other[i])
                return true;
            if (other[i] < _values[i])
                return false;
        }
        return false;
    }

    Self operator+(const Self& other) const {
        return zip(other, [](T a, T b) { return a + b; });
    }
    Self operator-(const Self& other) const {
        return zip(other, [](T a, T b) { return a - b; });
    }
    Self operator*(const Self& other) const {
        return zip(other, [](T a, T b) { return a * b; });
    }
    Self operator*(T factor) const {
        return zip(self(), [factor](T a, T) { return a * factor; });
    }
    Self operator/(T divisor) const {
        return zip(self(), [divisor](T a, T) { return a / divisor; });
    }
    Self& operator+=(const Self& other) { return self() = *this + other; }
    Self& operator-=(const Self& other) { return self() = *this - other; }
    Self& operator*=(T factor) { return self() = *this * factor; }
    Self& operator/=(T divisor) { return self() = *this / divisor; }

  protected:
    template <class... Ts> explicit constexpr ColorBase(Ts... values) : _values{values...} {}
    Self& self() { return static_cast<Self&>(*this); }
    const Self& self() const { return static_cast<const Self&>(*this); }

    template <class F> Self zip(const Self& other, F combine) const {
        Self result;
        for (UInt32 i = 0; i < N; ++i) {
            result[i] = static_cast<T>(combine(_values[i], other[i]));
        }
        return result;
    }

    T _values[N];
};

template <class T> class Color3 : public ColorBase<T, 3, Color3<T>> {
    typedef ColorBase<T, 3, Color3<T>> Base;

  public:
    static const Color3 Null;

    constexpr Color3() : Base(T(0), T(0), T(0)) {}
    constexpr Color3(T r, T g, T b) : Base(r, g, b) {}
    explicit Color3(const T* rgb) : Base(rgb[0], rgb[1], rgb[2]) {}

    void setValuesRGB(T r, T g, T b) { *this = Color3(r, g, b); }
    void setValuesRGB(const T* rgb) { *this = Color3(rgb); }
    void getValuesRGB(T& r, T& g, T& b) const {
        r = this->_values[0], g = this->_values[1], b = this->_values[2];
    }
    T* getValuesRGB() { return this->_values; }
    const T* getValuesRGB() const { return this->_values; }
    T* getValues() { return this->_values; }
    const T* getValues() const { return this->_values; }
};
template <class T> const Color3<T> Color3<T>::Null{};

template <class T> class Color4 : public ColorBase<T, 4, Color4<T>> {
    typedef ColorBase<T, 4, Color4<T>> Base;

  public:
    static const Color4 Null;

    constexpr Color4() : Base(T(0), T(0), T(0), T(0)) {}
    constexpr Color4(T r, T g, T b, T a) : Base(r, g, b, a) {}
    explicit Color4(const T* rgba) : Base(rgba[0], rgba[1], rgba[2], rgba[3]) {}

    T alpha() const { return this->_values[3]; }
    void setValuesRGBA(T r, T g, T b, T a) { *this = Color4(r, g, b, a); }
    void setValuesRGBA(const T* rgba) { *this = Color4(rgba); }
    void getValuesRGBA(T& r, T& g, T& b, T& a) const {
        r = this->_values[0], g = this->_values[1], b = this->_values[2], a = this->_values[3];
    }
    T* getValuesRGBA() { return this->_values; }
    const T* getValuesRGBA() const { return this->_values; }
    T* getValues() { return this->_values; }
    const T* getValues() const { return this->_values; }
};
template <class T> const Color4<T> Color4<T>::Null{};

/// Components separated by ", ".
template <class T, UInt32 N, class Self>
std::ostream& operator<<(std::ostream& out, const ColorBase<T, N, Self>& color) {
    for (UInt32 i = 0; i < N; ++i)
        out << (i == 0 ? "" : ", ") << +color[i];
    return out;
}

typedef Color3<Real32> Color3f;
typedef Color4<Real32> Color4f;
typedef Color3<UInt8> Color3ub;
typedef Color4<UInt8> Color4ub;

OSG_END_NAMESPACE
