#pragma once
#include <kx/core/export.h>
#include <kx/core/radian.h>

// Two-dimensional linear algebra for client-coordinate transforms.
//
// kxMatrix<2>(xRot, yRot, xScale, yScale) is the matrix whose first column is
// the x axis scaled by xScale and turned through xRot, and whose second column
// is the y axis scaled by yScale and turned through yRot:
//
//     | xScale*cos(xRot)   -yScale*sin(yRot) |
//     | xScale*sin(xRot)    yScale*cos(yRot) |
//
// With both angles 0 it is the pure scale diag(xScale, yScale); with equal
// angles and unit scales it is a rotation.

template <int N> class kxVector;
template <int N> class kxMatrix;
template <int N> class kxXform;

// A point or a displacement in the plane, (x, y).
template <>
class KXCORE_API kxVector<2> {
public:
    // The origin or (x, y); coordinates by name or by index 0 and 1;
    // component-wise sum and difference; exact comparison.
    kxVector() : v_{0.0, 0.0} {}
    kxVector(double x, double y) : v_{x, y} {}
    double x() const { return v_[0]; }
    double y() const { return v_[1]; }
    double operator[](int i) const { return v_[i]; }
    double& operator[](int i) { return v_[i]; }
    kxVector operator+(const kxVector& o) const { return kxVector(v_[0] + o.v_[0], v_[1] + o.v_[1]); }
    kxVector operator-(const kxVector& o) const { return kxVector(v_[0] - o.v_[0], v_[1] - o.v_[1]); }
    bool operator==(const kxVector& o) const { return v_[0] == o.v_[0] && v_[1] == o.v_[1]; }
    bool operator!=(const kxVector& o) const { return !(*this == o); }

private:
    double v_[2];
};

// A 2 x 2 matrix of doubles (see the rotated and scaled form above).
template <>
class KXCORE_API kxMatrix<2> {
public:
    // The identity; the matrix with rows (a, b) and (c, d); the rotated and
    // scaled axes described above.
    kxMatrix() : m_{{1.0, 0.0}, {0.0, 1.0}} {}
    kxMatrix(double a, double b, double c, double d) : m_{{a, b}, {c, d}} {}
    kxMatrix(kxRadian xRot, kxRadian yRot, double xScale, double yScale);

    // Element (row, col); products with a matrix or a vector; the determinant;
    // exact comparison.
    double element(int row, int col) const { return m_[row][col]; }
    kxMatrix operator*(const kxMatrix& o) const;
    kxVector<2> operator*(const kxVector<2>& v) const;
    double determinant() const { return m_[0][0] * m_[1][1] - m_[0][1] * m_[1][0]; }
    bool operator==(const kxMatrix& o) const;
    bool operator!=(const kxMatrix& o) const { return !(*this == o); }

private:
    double m_[2][2];
};

// Affine transform: p' = matrix * p + translation.
template <>
class KXCORE_API kxXform<2> {
public:
    // The identity, or the given matrix and translation.
    kxXform() = default;
    kxXform(const kxMatrix<2>& matrix, const kxVector<2>& translation)
        : matrix_(matrix), translation_(translation) {}
    // Scales, then a skew angle and a rotation angle: the x axis is turned
    // through `rotation` and the y axis through `rotation + skew`. With skew 0
    // and unit scales this is the rotation through `rotation`.
    kxXform(const kxVector<2>& translation, double xScale, double yScale,
            kxRadian skew, kxRadian rotation);

    // The parts of p' = matrix * p + translation.
    const kxMatrix<2>& matrix() const { return matrix_; }
    const kxVector<2>& translation() const { return translation_; }

    // Composition, (a * b)(p) == a(b(p)); the image of a point; exact comparison.
    kxXform operator*(const kxXform& o) const;
    kxVector<2> operator*(const kxVector<2>& p) const { return matrix_ * p + translation_; }
    bool operator==(const kxXform& o) const { return matrix_ == o.matrix_ && translation_ == o.translation_; }
    bool operator!=(const kxXform& o) const { return !(*this == o); }

private:
    kxMatrix<2> matrix_;
    kxVector<2> translation_;
};
