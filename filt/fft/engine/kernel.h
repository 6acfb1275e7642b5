#pragma once
// Internal: the one-dimensional split-radix kernel, written once on its lane
// type. The scalar instantiation (Lane = float) is the reference; a
// vectorised lane type (several rows per instruction, the same operations in
// every lane) must give the same bits.
#include "fft/engine/direction.h"

#include <cstdint>

// Always use std:: for <cmath> functions: float and double must not mix by
// accident inside the kernel, so an unqualified call of one of these on a
// float does not compile here.
template <typename T> T cos(T) = delete;
template <typename T> T sin(T) = delete;
template <typename T> T tan(T) = delete;
template <typename T> T sqrt(T) = delete;
template <typename T> T exp(T) = delete;
template <typename T> T log(T) = delete;
template <typename T> T atan2(T, T) = delete;
template <typename T> T pow(T, T) = delete;
template <typename T> T fabs(T) = delete;
template <typename T> T floor(T) = delete;
template <typename T> T ceil(T) = delete;
//
// Everything here is either a template on the lane type or has internal
// linkage: the vectorised variants include this header from files compiled
// for other instruction sets, and no out-of-line copy made there may stand
// in for the scalar one.

// Rotation table: entry k holds cos t, sin t, cos 3t, sin 3t for the step
// angle t = sign * 2pi / 2^k, computed in double and rounded to float. Built
// once per sign, in fft2d.cpp (never in a variant file).
struct kf_RotationTable {
    explicit kf_RotationTable(int sign);
    float entry[16][4];
};

// log2 of a power of two, counting doublings of 1 up to n.
static inline int kf_Log2(int n)
{
    int m = 0;
    for (int p = 1; p < n; p *= 2)
        ++m;
    return m;
}

// The published algorithm addresses a row 1-based: element e has its real
// part x(e) and imaginary part y(e); here x(e) = row[2e - 2], y(e) = row[2e - 1].
template <typename Lane>
struct kf_RowElements {
    Lane* row;
    Lane& x(int e) const { return row[2 * e - 2]; }
    Lane& y(int e) const { return row[2 * e - 1]; }
};

// The L-shaped butterflies of blocks of n2 elements: for each j in 1..n2/4,
// `starts(butterfly, j)` calls butterfly(i0) with the 1-based index i0 of
// element j of every block to run. The rotations for j advance by
// recurrence in single precision from the table entry of n2 alone, so every
// block of one size meets the same factors whichever order blocks run in.
template <typename Lane, typename Starts>
void kf_LButterflies(kf_RowElements<Lane> r, int n2, const kf_RotationTable& rotation, Starts starts)
{
    const int n4 = n2 / 4;
    const float* step = rotation.entry[kf_Log2(n2)];
    const float cosT = step[0], sinT = step[1], cos3T = step[2], sin3T = step[3];
    float cc1 = 1.0f, ss1 = 0.0f, cc3 = 1.0f, ss3 = 0.0f;
    for (int j = 1; j <= n4; ++j) {
        starts([&](int i0) {
            const int i1 = i0 + n4, i2 = i1 + n4, i3 = i2 + n4;
            Lane r1 = r.x(i0) - r.x(i2);
            r.x(i0) = r.x(i0) + r.x(i2);
            Lane r2 = r.x(i1) - r.x(i3);
            r.x(i1) = r.x(i1) + r.x(i3);
            Lane s1 = r.y(i0) - r.y(i2);
            r.y(i0) = r.y(i0) + r.y(i2);
            Lane s2 = r.y(i1) - r.y(i3);
            r.y(i1) = r.y(i1) + r.y(i3);
            const Lane s3 = r1 - s2;
            r1 = r1 + s2;
            s2 = r2 - s1;
            r2 = r2 + s1;
            r.x(i2) = r1 * cc1 - s2 * ss1;
            r.y(i2) = -s2 * cc1 - r1 * ss1;
            r.x(i3) = s3 * cc3 + r2 * ss3;
            r.y(i3) = r2 * cc3 - s3 * ss3;
        }, j);
        // The accumulated rounding of the recurrence is part of the
        // engine's numerics.
        const float c1 = cc1 * cosT - ss1 * sinT;
        ss1 = ss1 * cosT + cc1 * sinT;
        cc1 = c1;
        const float c3 = cc3 * cos3T - ss3 * sin3T;
        ss3 = ss3 * cos3T + cc3 * sin3T;
        cc3 = c3;
    }
}

// The length-2 butterfly of the block of two elements starting at i0.
template <typename Lane>
void kf_PairButterfly(kf_RowElements<Lane> r, int i0)
{
    const int i1 = i0 + 1;
    Lane t = r.x(i0);
    r.x(i0) = t + r.x(i1);
    r.x(i1) = t - r.x(i1);
    t = r.y(i0);
    r.y(i0) = t + r.y(i1);
    r.y(i1) = t - r.y(i1);
}

// Every butterfly of a row of n elements, stage by stage (breadth first),
// as published.
template <typename Lane>
void kf_ButterfliesByStage(kf_RowElements<Lane> r, int n, const kf_RotationTable& rotation)
{
    for (int n2 = n; n2 >= 4; n2 /= 2) {
        const int id0 = 2 * n2;
        kf_LButterflies(r, n2, rotation, [n, n2, id0](auto&& butterfly, int j) {
            int is = j;
            int id = id0;
            while (is < n) {
                for (int i0 = is; i0 <= n - 1; i0 += id)
                    butterfly(i0);
                is = 2 * id - n2 + j;
                id = 4 * id;
            }
        });
    }
    for (int is = 1, id = 4; is < n; is = 2 * id - 1, id *= 4)
        for (int i0 = is; i0 <= n; i0 += id)
            kf_PairButterfly(r, i0);
}

// The same butterflies depth first: a block of n2 elements runs its own
// L-butterflies, then its three sub-blocks (n2/2, n2/4, n2/4 elements) run
// theirs. Each element meets the same operations on the same values as
// stage by stage; only independent blocks change order. Blocks of at most
// `fitElements` elements (a size that stays in the first-level cache) run
// stage by stage.
template <typename Lane>
void kf_ButterfliesByBlock(kf_RowElements<Lane> r, int n2, const kf_RotationTable& rotation, int fitElements)
{
    if (n2 <= fitElements || n2 < 4) {
        kf_ButterfliesByStage(r, n2, rotation);
        return;
    }
    kf_LButterflies(r, n2, rotation, [](auto&& butterfly, int j) { butterfly(j); });
    kf_ButterfliesByBlock(r, n2 / 2, rotation, fitElements);
    kf_ButterfliesByBlock(kf_RowElements<Lane>{r.row + n2}, n2 / 4, rotation, fitElements);
    kf_ButterfliesByBlock(kf_RowElements<Lane>{r.row + n2 + n2 / 2}, n2 / 4, rotation, fitElements);
}

// Puts the butterflies' results, in bit-reversed order, into natural order
// by exchanging pairs (bitReverse: see kf_BitReverseTable).
template <typename Lane>
void kf_Unscramble(kf_RowElements<Lane> r, int n, const std::int32_t* bitReverse)
{
    for (int i = n - 2; i >= 1; --i) {
        const std::int32_t partner = bitReverse[i];
        if (partner >= 0) {
            const int j = partner / 2;
            Lane t = r.x(j);
            r.x(j) = r.x(i);
            r.x(i) = t;
            t = r.y(j);
            r.y(j) = r.y(i);
            r.y(i) = t;
        }
    }
}

// One row of n complex elements (n a power of two), transformed in place:
// the butterflies depth first down to blocks of `fitElements` (n or more:
// stage by stage throughout, the published order), then the unscrambling.
// The inverse runs by conjugating before and after.
template <typename Lane>
void kf_SplitRadixRow(Lane* row, int n, kf_Direction direction, const kf_RotationTable& rotation,
                      const std::int32_t* bitReverse, int fitElements)
{
    const kf_RowElements<Lane> r{row};
    if (direction == kf_Direction::Inverse)
        for (int e = 1; e <= n; ++e)
            r.y(e) = -r.y(e);

    kf_ButterfliesByBlock(r, n, rotation, fitElements);
    kf_Unscramble(r, n, bitReverse);

    if (direction == kf_Direction::Inverse)
        for (int e = 1; e <= n; ++e)
            r.y(e) = -r.y(e);
}

// The published order, stage by stage: the scalar reference.
template <typename Lane>
void kf_SplitRadixRow(Lane* row, int n, kf_Direction direction, const kf_RotationTable& rotation,
                      const std::int32_t* bitReverse)
{
    kf_SplitRadixRow(row, n, direction, rotation, bitReverse, n);
}

// Turns the half-length complex transform of a packed real row into the
// row's spectrum for frequencies 0 .. 2n (the standard untangling of the two
// interleaved half-sequences). d is addressed 1-based: d(1) is the row's
// first float. The rotation advances by recurrence in single precision and
// is the same for every lane. Forward only: the real-input path is.
template <typename Lane>
void kf_UntangleRealRow(Lane* row, int n, float c1, float c2, float wpr, float wpi)
{
    auto d = [row](int i) -> Lane& { return row[i - 1]; };
    float wr = 1.0f + wpr;
    float wi = wpi;
    const int np3 = 2 * n + 3;
    for (int i = 2; i <= n / 2; ++i) {
        const int i1 = 2 * i - 1, i2 = 2 * i, i3 = np3 - i2, i4 = i3 + 1;
        const Lane h1r = c1 * (d(i1) + d(i3));
        const Lane h1i = c1 * (d(i2) - d(i4));
        const Lane h2r = -c2 * (d(i2) + d(i4));
        const Lane h2i = c2 * (d(i1) - d(i3));
        d(i1) = h1r + wr * h2r - wi * h2i;
        d(i2) = h1i + wr * h2i + wi * h2r;
        d(i3) = h1r - wr * h2r + wi * h2i;
        d(i4) = -h1i + wr * h2i + wi * h2r;
        const float wtemp = wr;
        wr = wr + (wr * wpr - wi * wpi);
        wi = wi + (wi * wpr + wtemp * wpi);
    }
    // Element n/2 is its own partner.
    d(n + 2) = -d(n + 2);
    // Zero frequency at complex index 0, Nyquist at complex index n.
    const Lane h1r = d(1);
    d(1) = h1r + d(2);
    d(2 * n + 1) = h1r - d(2);
    d(2) = Lane(0.0f);
    d(2 * n + 2) = Lane(0.0f);
}
