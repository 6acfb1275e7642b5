#pragma once
// Internal: what the band-pass and band-reject filters share, their
// parameters, validation, radial profile, walk and persistence.
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

#include <cmath>

struct kf_RadialParameters {
    double sigma;
    double plateau;
    double frequency;
    kxPair<long> size;
    long dcRadius;
};

kf_RadialParameters kf_RadialParametersOf(const kx_RadialState& state);

// Validates in order (frequency, sigma, plateau, radius, size x, size y),
// then builds the profile, complemented (1 - gain) for the reject filter.
// A failed call changes nothing.
void kf_RadialCreate(kx_RadialState& state, const kf_RadialParameters& p, const char* radiusMessage,
                     bool complement, kxPersistent& owner);
void kf_RadialAssign(kx_RadialState& to, const kx_RadialState& from);
bool kf_RadialEqual(const kx_RadialState& a, const kx_RadialState& b);
// The nine fields after the base's share; loading keeps the stored gains.
void kf_RadialStream(kxArchive& archive, kx_RadialState& state);

// Walks a width x height buffer in storage order. Elements strictly between
// the inner and outer squared radii get band(source, destination, gain);
// all others, including whole rows beyond the farthest row that can reach
// the band, get outside(source, destination). src may be dst.
//
// Distances are in horizontal bins: the vertical frequency v counts as
// v x width / height, so the ring is an ellipse in bins and a circle in
// cycles per pixel. The squared-radius bounds are tested in integers.
template <typename Band, typename Outside>
void kf_RadialWalk(const kx_RadialState& state, long width, long height, const float* src, float* dst, Band band,
                   Outside outside)
{
    const long hw = width >> 1, hh = height >> 1;
    const float f0 = static_cast<float>(state.frequency * static_cast<double>(width));
    const double a = static_cast<double>(height) / static_cast<double>(width);
    const double k = 1.0 / (a * a);
    const float sw = static_cast<float>(state.supportWidth);
    const long rowLimit = static_cast<long>(f0 * a + static_cast<double>(state.supportWidth));
    const long outer = static_cast<long>((f0 + sw) * (f0 + sw));
    const long inner = f0 - sw >= 0 ? static_cast<long>((f0 - sw) * (f0 - sw)) : -1;

    for (long y = 0; y < height; ++y) {
        const float* s = src + 2 * y * width;
        float* d = dst + 2 * y * width;
        const long ry = y < hh ? y : height - y;
        if (ry > rowLimit) {
            for (long x = 0; x < width; ++x)
                outside(s + 2 * x, d + 2 * x);
            continue;
        }
        const std::int32_t v = static_cast<std::int32_t>(y < hh ? y : y - height);
        const std::int32_t yterm = static_cast<std::int32_t>(static_cast<double>(v * v) * k);
        for (long x = 0; x < width; ++x) {
            const std::int32_t u = static_cast<std::int32_t>(x < hw ? x : x - width);
            const std::int32_t r2 = u * u + yterm;
            if (r2 <= inner || r2 >= outer) {
                outside(s + 2 * x, d + 2 * x);
                continue;
            }
            long index = static_cast<long>((std::sqrt(static_cast<double>(r2)) - f0) * 32);
            if (index < 0)
                index = -index;
            band(s + 2 * x, d + 2 * x, state.profile[index]);
        }
    }
}

// Setters and getters of the two radial filters (see the Gabor ones).
#define KX_RADIAL_SETTER(Class, Name, Type, Field)                                  \
    void Class::Name(Type value)                                                   \
    {                                                                              \
        kf_RequireTransferFunction(state_.profile);                                \
        kf_RadialParameters p = kf_RadialParametersOf(state_);                     \
        if (kf_Differs(value, p.Field)) {                                          \
            p.Field = value;                                                       \
            create(p.sigma, p.plateau, p.frequency, p.size, p.dcRadius);           \
        }                                                                          \
    }
#define KX_RADIAL_GETTER(Class, Name, Type, Field)    \
    Type Class::Name() const                          \
    {                                                 \
        kf_RequireTransferFunction(state_.profile);   \
        return state_.Field;                          \
    }
