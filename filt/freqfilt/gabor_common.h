#pragma once
// Internal: what the Gabor filter and the Gabor reject filter share, their
// parameters, validation, support, gain table, walk and persistence.
#include "freqfilt/filter_support.h"

#include <kx/freqfilt.h>

struct kf_GaborParameters {
    kxPair<double> sigma;
    kxPair<double> plateau;
    kxRadian angle;
    double frequency;
    kxPair<long> size;
    long dcRadius;
};

kf_GaborParameters kf_GaborParametersOf(const kx_GaborState& state);

// Validates in order (frequency, sigma, plateau, radius, size x, size y),
// then builds the table: spareFloats after a newly allocated table, gains
// complemented (1 - gain) for the reject filter. A failed call changes
// nothing.
void kf_GaborCreate(kx_GaborState& state, const kf_GaborParameters& p, const char* radiusMessage,
                    std::size_t spareFloats, bool complement, kxPersistent& owner);

// The filter's fields and a copy of its table (3 spare floats); from a
// filter without a table only the table is dropped.
void kf_GaborAssign(kx_GaborState& to, const kx_GaborState& from);
bool kf_GaborEqual(const kx_GaborState& a, const kx_GaborState& b);
// The ten fields after the base's share; loading keeps the stored gains.
void kf_GaborStream(kxArchive& archive, kx_GaborState& state);

// The support rectangle in centred coordinates of a width x height buffer:
// rows top..bottom inclusive, columns left..right - 1 (the table's last
// column is never used).
struct kf_GaborRect {
    long left, right, top, bottom;
};
kf_GaborRect kf_GaborRectangle(const kx_GaborState& state, long width, long height);

// Walks the buffer in storage order. Elements in the rectangle get
// inside(source element, destination element, gain), the others
// outside(source element, destination element). src may be dst.
template <typename Inside, typename Outside>
void kf_GaborWalk(const kx_GaborState& state, const kf_GaborRect& rect, long width, long height,
                  const float* src, float* dst, Inside inside, Outside outside)
{
    const long hw = width >> 1, hh = height >> 1;
    for (long r = 0; r < height; ++r) {
        const long Y = r < hh ? r + hh : r - hh;
        const bool rowInside = rect.top <= Y && Y <= rect.bottom;
        const long tableRow = (Y - rect.top) * state.supportWidth;
        for (long c = 0; c < width; ++c) {
            const long X = c < hw ? c + hw : c - hw;
            const long i = 2 * (r * width + c);
            if (rowInside && rect.left <= X && X < rect.right)
                inside(src + i, dst + i, state.table[tableRow + X - rect.left]);
            else
                outside(src + i, dst + i);
        }
    }
}

// Setters and getters of the two Gabor filters. A setter throws without a
// table, and rebuilds it with the stored values of the other parameters only
// when its own value changes; a getter throws without a table.
#define KX_GABOR_SETTER(Class, Name, Type, Field)                         \
    void Class::Name(Type value)                                                   \
    {                                                                              \
        kf_RequireTransferFunction(state_.table);                                  \
        kf_GaborParameters p = kf_GaborParametersOf(state_);                       \
        if (kf_Differs(value, p.Field)) {                                             \
            p.Field = value;                                                       \
            create(p.sigma, p.plateau, p.angle, p.frequency, p.size, p.dcRadius);  \
        }                                                                          \
    }
#define KX_GABOR_GETTER(Class, Name, Type, Field)    \
    Type Class::Name() const                         \
    {                                                \
        kf_RequireTransferFunction(state_.table);    \
        return state_.Field;                         \
    }


