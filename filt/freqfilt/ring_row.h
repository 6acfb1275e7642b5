#pragma once
// Internal: one row of the band filters' ring walk, the part that vectorises.
//
// Element x of the row lies at squared radius r2 = u * u + yterm bins from
// the zero frequency (u its ring frequency on the axis). Strictly between
// `inner` and `outer` it is scaled by profile[|sqrt(r2) - f0| x 32] (the
// square root in double, truncated toward zero); elsewhere it is cleared or
// copied. The scalar row is the reference; a faster variant (picked from
// the engine's table of variants) must write the same bits.
#include <cstdint>

struct kf_RingRow {
    const float* src;        // the row's (real, imaginary) pairs; may be dst
    float* dst;
    long width;              // elements; a power of two
    std::int32_t yterm;
    std::int32_t inner;      // -1 when the ring reaches the zero frequency
    std::int32_t outer;      // clamped to the int32 range: r2 never comes near it
    float f0;                // the ring's radius in bins
    const float* profile;
    bool clearOutside;       // band-pass: clear; band-reject: copy
};

using kf_RingRowFunction = void (*)(const kf_RingRow& row);

// Elements [from, to) of the row, one at a time.
void kf_RingRowScalar(const kf_RingRow& row, long from, long to);

#if defined(__x86_64__) || defined(_M_X64)
// Eight (AVX2) or sixteen (AVX-512) elements per step with masked gathers;
// the tail through the scalar row.
void kf_Avx2RingRow(const kf_RingRow& row);
void kf_Avx512RingRow(const kf_RingRow& row);
#endif
