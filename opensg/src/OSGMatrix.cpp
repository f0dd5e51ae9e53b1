#include "OpenSG/OSGMatrix.h"

OSG_BEGIN_NAMESPACE

namespace {

/// Eigenvalues and eigenvectors (columns) of a symmetric 3x3 matrix, in axis order as far as the
/// rotations leave it.
///
/// method: cyclic Jacobi rotations ("Numerical Recipes", Press et al.)
void diagonalise(Real64 a[3][3], Real64 vectors[3][3]) {
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            vectors[i][j] = i == j ? 1.0 : 0.0;
    }
    for (int sweep = 0; sweep < 50; ++sweep) {
        const Real64 off = std::abs(a[0][1]) + std::abs(a[0][2]) + std::abs(a[1][2]);
        const Real64 on = std::abs(a[0][0]) + std::abs(a[1][1]) + std::abs(a[2][2]);
        if (!(off > 1e-15 * on))
            return;
        for (int p = 0; p < 2; ++p) {
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0.0)
                    continue;
                const Real64 theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const Real64 sign = theta < 0.0 ? -1.0 : 1.0;
                const Real64 t = sign / (std::abs(theta) + std::sqrt(theta * theta + 1.0));
                const Real64 c = 1.0 / std::sqrt(t * t + 1.0);
                const Real64 s = t * c;
                for (int k = 0; k < 3; ++k) {
                    const Real64 akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {
                    const Real64 apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {
                    const Real64 vkp = vectors[k][p], vkq = vectors[k][q];
                    vectors[k][p] = c * vkp - s * vkq;
                    vectors[k][q] = s * vkp + c * vkq;
                }
            }
        }
    }
}

/// A matrix of the three columns of `columns`; those below are the identity's.
template <class T> TransformationMatrix<T> ofColumns(const Real64 columns[3][3]) {
    TransformationMatrix<T> matrix;
    for (UInt32 c = 0; c < 3; ++c) {
        for (UInt32 r = 0; r < 3; ++r)
            matrix[c][r] = static_cast<T>(columns[c][r]);
    }
    return matrix;
}

} // namespace

template <class T>
void TransformationMatrix<T>::getTransform(Vector3& translation, QuaternionType& rotation,
                                           Vector3& scale, QuaternionType& scaleOrientation) const {
    translation = Vector3(_columns[3][0], _columns[3][1], _columns[3][2]);
    rotation.setIdentity();
    scaleOrientation.setIdentity();
    const Real64 determinant = static_cast<Real64>(det3());
    if (!(std::abs(determinant) >= 1e-12))
        return;

    // M = R S with S symmetric: S^2 = M^T M, whose eigenvectors are those of S.
    const Real64 sign = determinant < 0.0 ? -1.0 : 1.0;
    Real64 m[3][3]; // m[row][column], mirrored into a proper matrix
    Real64 square[3][3];
    Real64 axes[3][3];
    for (UInt32 r = 0; r < 3; ++r) {
        for (UInt32 c = 0; c < 3; ++c)
            m[r][c] = sign * static_cast<Real64>(_columns[c][r]);
    }
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            square[i][j] = m[0][i] * m[0][j] + m[1][i] * m[1][j] + m[2][i] * m[2][j];
        }
    }
    diagonalise(square, axes);

    // R = M S^-1 = sum over the axes of (M axis / stretch) axis^T.
    Real64 turn[3][3] = {}; // turn[column][row]
    Real64 axis_columns[3][3];
    for (UInt32 i = 0; i < 3; ++i) {
        const Real64 stretch = std::sqrt(osgMax(square[i][i], 1e-300));
        scale[i] = static_cast<T>(sign * stretch);
        for (int r = 0; r < 3; ++r) {
            const Real64 image =
                (m[r][0] * axes[0][i] + m[r][1] * axes[1][i] + m[r][2] * axes[2][i]) / stretch;
            for (int c = 0; c < 3; ++c)
                turn[c][r] += image * axes[c][i];
            axis_columns[i][r] = axes[r][i];
        }
    }
    rotation.setValue(ofColumns<T>(turn));
    TransformationMatrix orientation = ofColumns<T>(axis_columns);
    if (orientation.det3() < T(0)) { // a mirrored frame: the axis may point either way
        for (UInt32 r = 0; r < 3; ++r)
            orientation[2][r] = -orientation[2][r];
    }
    scaleOrientation.setValue(orientation);
}

template <class T> bool TransformationMatrix<T>::inverse(TransformationMatrix& result) const {
    const T determinant = det();
    if (!(osgabs(determinant) >= T(1e-30))) {
        result.setIdentity();
        return false;
    }
    TransformationMatrix inverted;
    for (UInt32 c = 0; c < 4; ++c) {
        for (UInt32 r = 0; r < 4; ++r) {
            // Cofactor of the transposed place: without column r and row c.
            const UInt32 c0 = r == 0 ? 1 : 0, c1 = r <= 1 ? 2 : 1, c2 = r <= 2 ? 3 : 2;
            const UInt32 r0 = c == 0 ? 1 : 0, r1 = c <= 1 ? 2 : 1, r2 = c <= 2 ? 3 : 2;
            const T minor = sub3(c0, c1, c2, r0, r1, r2);
            inverted[c][r] = ((c + r) % 2 == 0 ? minor : -minor) / determinant;
        }
    }
    result = inverted;
    return true;
}

template class TransformationMatrix<Real32>;
template class TransformationMatrix<Real64>;

OSG_END_NAMESPACE
