#pragma once
#include <kx/core/export.h>

// kxRadian: an angle in radians. norm() brings it into (-pi, pi].
class KXCORE_API kxRadian {
public:
    // Zero, or the given number of radians.
    kxRadian() : value_(0.0) {}
    explicit kxRadian(double radians) : value_(radians) {}

    // The angle in radians as given (not normalised); its negation; exact comparison.
    double toDouble() const { return value_; }
    kxRadian operator-() const { return kxRadian(-value_); }
    bool operator==(const kxRadian& other) const { return value_ == other.value_; }
    bool operator!=(const kxRadian& other) const { return !(*this == other); }

    // The same angle brought into (-pi, pi]. NaN and infinities give NaN.
    kxRadian norm() const;

private:
    double value_;
};
