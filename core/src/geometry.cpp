#include <kx/core/geometry.h>

#include <cmath>

kxRadian kxRadian::norm() const
{
    constexpr double pi = 3.141592653589793;
    constexpr double twoPi = 6.283185307179586;
    if (!std::isfinite(value_))
        return kxRadian(std::nan(""));
    if (value_ > -pi && value_ <= pi)
        return *this;
    double r = std::fmod(value_, twoPi);   // (-2pi, 2pi), exact
    if (r > pi)
        r -= twoPi;
    else if (r <= -pi)
        r += twoPi;
    return kxRadian(r);
}

kxMatrix<2>::kxMatrix(kxRadian xRot, kxRadian yRot, double xScale, double yScale)
    : m_{{xScale * std::cos(xRot.toDouble()), -yScale * std::sin(yRot.toDouble())},
         {xScale * std::sin(xRot.toDouble()), yScale * std::cos(yRot.toDouble())}}
{
}

kxMatrix<2> kxMatrix<2>::operator*(const kxMatrix& o) const
{
    return kxMatrix(m_[0][0] * o.m_[0][0] + m_[0][1] * o.m_[1][0],
                    m_[0][0] * o.m_[0][1] + m_[0][1] * o.m_[1][1],
                    m_[1][0] * o.m_[0][0] + m_[1][1] * o.m_[1][0],
                    m_[1][0] * o.m_[0][1] + m_[1][1] * o.m_[1][1]);
}

kxVector<2> kxMatrix<2>::operator*(const kxVector<2>& v) const
{
    return kxVector<2>(m_[0][0] * v.x() + m_[0][1] * v.y(), m_[1][0] * v.x() + m_[1][1] * v.y());
}

bool kxMatrix<2>::operator==(const kxMatrix& o) const
{
    return m_[0][0] == o.m_[0][0] && m_[0][1] == o.m_[0][1] && m_[1][0] == o.m_[1][0] &&
           m_[1][1] == o.m_[1][1];
}

kxXform<2>::kxXform(const kxVector<2>& translation, double xScale, double yScale, kxRadian skew,
                    kxRadian rotation)
    : matrix_(rotation, kxRadian(rotation.toDouble() + skew.toDouble()), xScale, yScale),
      translation_(translation)
{
}

kxXform<2> kxXform<2>::operator*(const kxXform& o) const
{
    return kxXform(matrix_ * o.matrix_, matrix_ * o.translation_ + translation_);
}
