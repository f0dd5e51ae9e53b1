#pragma once

// A 4x4 matrix of four columns: m[column][row], translation in m[3]. Points are column vectors,
// so a * b first does b. Plain memory: 16 numbers, column by column.

#include "OSGQuaternionBase.h"
#include "OSGVector.h"

#include <iomanip>
#include <ostream>

OSG_BEGIN_NAMESPACE

template <class T> class TransformationMatrix {
  public:
    typedef T ValueType;
    typedef Vector<T, 4> VectorType;
    typedef Vector<T, 3> Vector3;
    typedef Point<T, 3> Point3;
    typedef QuaternionBase<T> QuaternionType;

    TransformationMatrix() { setIdentity(); }
    /// In reading order: the first four are the upper row.
    TransformationMatrix(T r00, T r01, T r02, T r03, T r10, T r11, T r12, T r13, T r20, T r21,
                         T r22, T r23, T r30, T r31, T r32, T r33)
        : _columns{VectorType(r00, r10, r20, r30), VectorType(r01, r11, r21, r31),
                   VectorType(r02, r12, r22, r32), VectorType(r03, r13, r23, r33)} {}
    TransformationMatrix(const VectorType& c0, const VectorType& c1, const VectorType& c2,
                         const VectorType& c3)
        : _columns{c0, c1, c2, c3} {}

    static const TransformationMatrix& identity() {
        static const TransformationMatrix matrix;
        return matrix;
    }

    VectorType& operator[](UInt32 column) { return _columns[column]; }
    const VectorType& operator[](UInt32 column) const { return _columns[column]; }
    T* getValues() { return _columns[0].getValues(); }
    const T* getValues() const { return _columns[0].getValues(); }

    void setIdentity() {
        for (UInt32 c = 0; c < 4; ++c) {
            for (UInt32 r = 0; r < 4; ++r)
                _columns[c][r] = c == r ? T(1) : T(0);
        }
    }
    void setValue(const TransformationMatrix& other) { *this = other; }
    void setValue(T r00, T r01, T r02, T r03, T r10, T r11, T r12, T r13, T r20, T r21, T r22,
                  T r23, T r30, T r31, T r32, T r33) {
        *this = TransformationMatrix(r00, r01, r02, r03, r10, r11, r12, r13, r20, r21, r22, r23,
                                     r30, r31, r32, r33);
    }
    /// Column by column, or row by row.
    void setValue(const T* values, bool columns = true) {
        for (UInt32 i = 0; i < 16; ++i)
            getValues()[i] = values[columns ? i : i % 4 * 4 + i / 4];
    }

    /// These set their own places and leave the rest.
    void setScale(T s) { setScale(s, s, s); }
    void setScale(T x, T y, T z) { _columns[0][0] = x, _columns[1][1] = y, _columns[2][2] = z; }
    void setScale(const Vector3& s) { setScale(s[0], s[1], s[2]); }
    void setTranslate(T x, T y, T z) { _columns[3].setValues(x, y, z); }
    void setTranslate(const Point3& t) { setTranslate(t[0], t[1], t[2]); }
    void setRotate(const QuaternionType& rotation) {
        TransformationMatrix turned;
        rotation.getValue(turned);
        for (UInt32 c = 0; c < 3; ++c) {
            for (UInt32 r = 0; r < 3; ++r)
                _columns[c][r] = turned[c][r];
        }
    }

    /// The whole matrix: translate * rotate * (scale along the turned axes).
    void setTransform(const Vector3& translation) {
        setIdentity();
        setTranslate(translation);
    }
    void setTransform(const QuaternionType& rotation) { rotation.getValue(*this); }
    void setTransform(const Vector3& translation, const QuaternionType& rotation) {
        rotation.getValue(*this);
        setTranslate(translation);
    }
    void setTransform(const Vector3& translation, const QuaternionType& rotation,
                      const Vector3& scale) {
        setTransform(translation, rotation);
        for (UInt32 c = 0; c < 3; ++c) {
            for (UInt32 r = 0; r < 3; ++r)
                _columns[c][r] *= scale[c];
        }
    }
    /// With turned axes, and about a centre: for single precision alone.
    template <class U = T, class = std::enable_if_t<std::is_same_v<U, Real32>>>
    void setTransform(const Vector3& translation, const QuaternionType& rotation,
                      const Vector3& scale, const QuaternionType& scaleOrientation) {
        TransformationMatrix part;
        setTransform(translation, rotation);
        part.setTransform(scaleOrientation);
        mult(part);
        part.setIdentity();
        part.setScale(scale);
        mult(part);
        part.setTransform(scaleOrientation.inverse());
        mult(part);
    }
    template <class U = T, class = std::enable_if_t<std::is_same_v<U, Real32>>>
    void setTransform(const Vector3& translation, const QuaternionType& rotation,
                      const Vector3& scale, const QuaternionType& scaleOrientation,
                      const Vector3& center) {
        setTransform(translation + center, rotation, scale, scaleOrientation);
        TransformationMatrix back;
        back.setTranslate(-center);
        mult(back);
    }

    /// Takes the matrix apart, the reverse of setTransform with four arguments.
    ///
    /// With a negative determinant all three scales are negative and the rotation is proper. A
    /// determinant below 1e-12 in magnitude gives identities and leaves `scale` as it was.
    /// method: polar decomposition through the eigenvectors of the symmetric part ("Matrix
    /// animation and polar decomposition", K. Shoemake and T. Duff, 1992)
    void getTransform(Vector3& translation, QuaternionType& rotation, Vector3& scale,
                      QuaternionType& scaleOrientation) const;

    void mult(const TransformationMatrix& right) { *this = product(*this, right); }
    void multLeft(const TransformationMatrix& left) { *this = product(left, *this); }

    /// Affine, without division by w; `result` may be the source.
    void multMatrixPnt(const Point3& source, Point3& result) const { result = affine(source); }
    void multMatrixPnt(Point3& point) const { point = affine(point); }
    void mult(const Point3& source, Point3& result) const { result = affine(source); }
    /// Divides by w.
    void multFullMatrixPnt(const Point3& source, Point3& result) const {
        const T w = source[0] * _columns[0][3] + source[1] * _columns[1][3] +
                    source[2] * _columns[2][3] + _columns[3][3];
        result = affine(source);
        if (w != T(0))
            result /= w;
    }
    void multFullMatrixPnt(Point3& point) const { multFullMatrixPnt(Point3(point), point); }
    void multMatrixVec(const Vector3& source, Vector3& result) const { result = turn(source); }
    void multMatrixVec(Vector3& vector) const { vector = turn(vector); }

    T det3() const { return sub3(0, 1, 2, 0, 1, 2); }
    T det() const {
        return _columns[0][0] * sub3(1, 2, 3, 1, 2, 3) - _columns[1][0] * sub3(0, 2, 3, 1, 2, 3) +
               _columns[2][0] * sub3(0, 1, 3, 1, 2, 3) - _columns[3][0] * sub3(0, 1, 2, 1, 2, 3);
    }
    /// A determinant below 1e-30 in magnitude gives the identity and false.
    bool inverse(TransformationMatrix& result) const;
    bool invert() { return TransformationMatrix(*this).inverse(*this); }
    bool invertFrom(const TransformationMatrix& other) { return other.inverse(*this); }

    bool transposed(TransformationMatrix& result) const {
        TransformationMatrix turned;
        for (UInt32 c = 0; c < 4; ++c) {
            for (UInt32 r = 0; r < 4; ++r)
                turned[c][r] = _columns[r][c];
        }
        result = turned;
        return true;
    }
    bool transpose() { return transposed(*this); }

    bool equals(const TransformationMatrix& other, T tolerance) const {
        for (UInt32 c = 0; c < 4; ++c) {
            if (!_columns[c].equals(other._columns[c], tolerance))
                return false;
        }
        return true;
    }
    bool operator==(const TransformationMatrix& other) const { return equals(other, T(Eps)); }
    bool operator!=(const TransformationMatrix& other) const { return !(*this == other); }

  private:
    static TransformationMatrix product(const TransformationMatrix& a,
                                        const TransformationMatrix& b) {
        TransformationMatrix result;
        for (UInt32 c = 0; c < 4; ++c) {
            for (UInt32 r = 0; r < 4; ++r) {
                result[c][r] =
                    a[0][r] * b[c][0] + a[1][r] * b[c][1] + a[2][r] * b[c][2] + a[3][r] * b[c][3];
            }
        }
        return result;
    }
    Point3 affine(const Point3& p) const {
        Point3 result;
        for (UInt32 r = 0; r < 3; ++r) {
            result[r] = p[0] * _columns[0][r] + p[1] * _columns[1][r] + p[2] * _columns[2][r] +
                        _columns[3][r];
        }
        return result;
    }
    Vector3 turn(const Vector3& v) const {
        Vector3 result;
        for (UInt32 r = 0; r < 3; ++r) {
            result[r] = v[0] * _columns[0][r] + v[1] * _columns[1][r] + v[2] * _columns[2][r];
        }
        return result;
    }
    /// Determinant of the 3x3 part of these columns and rows.
    T sub3(UInt32 c0, UInt32 c1, UInt32 c2, UInt32 r0, UInt32 r1, UInt32 r2) const {
        const VectorType *a = &_columns[c0], *b = &_columns[c1], *c = &_columns[c2];
        return (*a)[r0] * ((*b)[r1] * (*c)[r2] - (*c)[r1] * (*b)[r2]) -
               (*b)[r0] * ((*a)[r1] * (*c)[r2] - (*c)[r1] * (*a)[r2]) +
               (*c)[r0] * ((*a)[r1] * (*b)[r2] - (*b)[r1] * (*a)[r2]);
    }

    VectorType _columns[4];
};

extern template class TransformationMatrix<Real32>;
extern template class TransformationMatrix<Real64>;

/// Four rows, fixed, three decimals, eight places a number.
template <class T>
std::ostream& operator<<(std::ostream& out, const TransformationMatrix<T>& matrix) {
    const std::ios::fmtflags flags = out.flags();
    const std::streamsize precision = out.precision();
    out << std::fixed << std::setprecision(3);
    for (UInt32 r = 0; r < 4; ++r) {
        for (UInt32 c = 0; c < 4; ++c)
            out << std::setw(8) << matrix[c][r] << ' ';
        out << '\n';
    }
    out.flags(flags);
    out.precision(precision);
    return out;
}

typedef TransformationMatrix<Real32> Matrix;
typedef TransformationMatrix<Real32> Matrix4f;
typedef TransformationMatrix<Real64> Matrix4d;

OSG_END_NAMESPACE
